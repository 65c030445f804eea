#include "Lldp/LldpProtocolSm.h"

#include <ostream>

namespace Lldp::Agent::Protocol {

std::ostream& operator<<(std::ostream& os, TxFsmState s) {
   switch (s) {
      case txFsmUninitialized:
         return os << "txFsmUninitialized";
      case txFsmDisabled:
         return os << "txFsmDisabled";
      case txFsmTxWait:
         return os << "txFsmTxWait";
      case txFsmTxDelay:
         return os << "txFsmTxDelay";
      case txFsmIdle:
         return os << "txFsmIdle";
      case txFsmReinitializing:
         return os << "txFsmReinitializing";
   }
   return os << "TxFsmState(" << int(s) << ")";
}

}  // namespace Lldp::Agent::Protocol
