// The agent's feature toggles, each read once from the toggle file "Lldp.json" on first
// use and kept for the life of the process (reloadToggles() reads them again).
#pragma once

namespace Lldp {

bool toggleTxValuesConfig();  // LldpTxValuesConfig
bool toggleTxVlanNames();     // LldpTxVlanNames: send IEEE 802.1 VLAN Name TLVs
bool toggleBootVlanTlv();     // LldpBootVlanTlv: decode our ZTP boot VLAN TLV
void reloadToggles();

}  // namespace Lldp
