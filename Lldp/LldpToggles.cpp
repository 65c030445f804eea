#include "Lldp/LldpToggles.h"

#include <optional>

#include "Framework/Toggle.h"

namespace Lldp {

namespace {

struct Cached {
   const char* name;
   std::optional<bool> value;
   bool get() {
      if (!value) value = getToggleState(name, "Lldp.json", true);
      return *value;
   }
};

Cached txValuesConfig{"LldpTxValuesConfig", {}};
Cached txVlanNames{"LldpTxVlanNames", {}};
Cached bootVlanTlv{"LldpBootVlanTlv", {}};

}  // namespace

bool toggleTxValuesConfig() {
   return txValuesConfig.get();
}
bool toggleTxVlanNames() {
   return txVlanNames.get();
}
bool toggleBootVlanTlv() {
   return bootVlanTlv.get();
}

void reloadToggles() {
   txValuesConfig.value.reset();
   txVlanNames.value.reset();
   bootVlanTlv.value.reset();
}

}  // namespace Lldp
