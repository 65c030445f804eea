#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"

namespace Snmp {
void addLldpExtMibObjects(std::vector<MibObject>&) {}
}  // namespace Snmp
