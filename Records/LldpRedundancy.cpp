#include "Records/LldpRedundancy.h"

namespace Lldp {

std::string lldpStatusDirName(uint32_t cellId) {
   return std::to_string(cellId);
}

}  // namespace Lldp
