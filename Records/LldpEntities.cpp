#include "Records/Lldp.h"

namespace Lldp {

bool RemoteSystem::anyLldpMedReceived() const {
   return medCapabilitiesTlvReceived_ || !networkPolicyTlv_.empty() ||
          locationId_.format() != LocationId::formatNone || !hardwareRevisionTlvInfo_.empty() ||
          !firmwareRevisionTlvInfo_.empty() || !softwareRevisionTlvInfo_.empty() ||
          !serialNumberTlvInfo_.empty() || !manufacturerNameTlvInfo_.empty() ||
          !modelNameTlvInfo_.empty() || !assetIDTlvInfo_.empty();
}

namespace {

template <class Pred>
bool anyRemote(const PortStatus& ps, Pred pred) {
   for (const auto& [index, remote] : ps.remoteSystem()) {
      if (pred(*remote)) return true;
   }
   return false;
}

}  // namespace

bool PortStatus::anyLldpMedReceived() const {
   return anyRemote(*this, [](const RemoteSystem& r) { return r.anyLldpMedReceived(); });
}

bool PortStatus::networkPolicyTlvReceived() const {
   return anyRemote(*this, [](const RemoteSystem& r) { return !r.networkPolicyTlv().empty(); });
}

bool PortStatus::powerViaMdiTlvReceived() const {
   return anyRemote(*this, [](const RemoteSystem& r) { return r.powerViaMdiTlvReceived(); });
}

}  // namespace Lldp
