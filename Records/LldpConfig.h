// Configuration as the protocol engine and the codec read it: global timers and switches
// and one record per port. The input side is the only writer.
#pragma once

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/IntfId.h"
#include "Records/LldpValues.h"
#include "Records/NbrClassification.h"

// Per-port records are kept by pointer in B-trees (Framework/Vel/CompactMap.h).
namespace Lldp {
class PortConfig;
class CliPortConfig;
}  // namespace Lldp
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Lldp::PortConfig, intfId)
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Lldp::CliPortConfig, intfId)

namespace Lldp {

// Basic optional TLVs a port sends.
// clang-format off
#define LLDP_ENABLED_TLV_BITS(B) \
   B(portDescription, 0x01)      \
   B(systemName, 0x02) B(systemDescription, 0x04) B(systemCapabilities, 0x08)
// clang-format on
class EnabledTlvs {
   VEL_BITSET(EnabledTlvs, uint8_t, LLDP_ENABLED_TLV_BITS)
};

// IEEE 802.3 TLVs a port sends. MAC/PHY Configuration/Status is never sent, so its bit
// must stay clear.
// clang-format off
#define LLDP_DOT3_TLV_BITS(B) \
   B(macPhyConfigStatus, 0x01) B(powerViaMdi, 0x02) B(linkAggregation, 0x04) B(maxFrameSize, 0x08)
// clang-format on
class Dot3EnabledTlvs {
   VEL_BITSET(Dot3EnabledTlvs, uint8_t, LLDP_DOT3_TLV_BITS)
};

// LLDP-MED TLVs a port may send; any bit set enables the Capabilities TLV.
// clang-format off
#define LLDP_TIA_TLV_BITS(B) \
   B(medCapabilities, 0x01)  \
   B(networkPolicy, 0x02) B(location, 0x04) B(extendedPowerViaMdi, 0x08) B(inventory, 0x10)
// clang-format on
class TiaEnabledTlvs {
   VEL_BITSET(TiaEnabledTlvs, uint8_t, LLDP_TIA_TLV_BITS)
};

// The default limit on the neighbours of all ports together: a 1,000-port switch with
// every port at the default per-port limit (64) never reaches it, while a flood spread
// over many ports is bounded at a few hundred megabytes.
inline constexpr uint32_t remoteSystemLimitTotalDefault = 64000;

// Defaults: transmit and receive; at most 20 LLDPDUs a second on a port before the rest
// are dropped (a neighbour in fast transmission sends one a second); at most 64
// neighbours on a port, which covers hosts with many virtual ports behind a bridge while
// bounding what a flood of forged MSAPs can take. `remoteSystemLimitTotal` is the limit
// on the neighbours of all ports together, which every port's new neighbours count
// against. `poeAllocatedPowerFallback` is in milliwatts; 0 disables the fallback Power via
// MDI reply.
// clang-format off
#define LLDP_PORT_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                  \
   ATTR(AdminStatus, adminStatus, adminStatusTxAndRx)                         \
   ATTR(bool, rxRateLimitEnabled, true)                                       \
   ATTR(uint32_t, poeAllocatedPowerFallback, 0)                               \
   ATTR(uint64_t, rxRateLimitMaxLldpdus, 20)                                  \
   ATTR(Vel::Seconds, rxRateLimitInterval, 1.0)                               \
   ATTR(uint32_t, remoteSystemLimit, 64)                                      \
   ATTR(uint32_t, remoteSystemLimitTotal, remoteSystemLimitTotalDefault)      \
   ATTR(EnabledTlvs, enabledTlvs, EnabledTlvs(0x0f))                          \
   ATTR(bool, mgmtAddrTxEnable, true)                                         \
   ATTR(bool, portVlanTxEnable, true)                                         \
   ATTR(bool, vlanNameTxEnable, true)                                         \
   ATTR(Dot3EnabledTlvs, dot3EnabledTlvs, Dot3EnabledTlvs(0x0e))              \
   ATTR(TiaEnabledTlvs, tiaEnabledTlvs, TiaEnabledTlvs(0x03))                 \
   ATTR(Bridging::VlanIdOrNone, ztpBootVlan, {})                              \
   COLL(uint8_t, Lldp::NetworkPolicyConfig, networkPolicyConfig)
// clang-format on

class PortConfig : public Vel::Entity {
public:
   using EnabledTlvs = Lldp::EnabledTlvs;
   using Dot3EnabledTlvs = Lldp::Dot3EnabledTlvs;
   using TiaEnabledTlvs = Lldp::TiaEnabledTlvs;
   VEL_ENTITY(PortConfig, LLDP_PORT_CONFIG_ATTRS)
   explicit PortConfig(const Wire::IntfId& intf) : intfId_(intf) {}
};

// Defaults follow IEEE 802.1AB: refresh every 30 s, advertised time to live 120 s,
// 2 s before re-initialising and between local-change transmissions.
// clang-format off
#define LLDP_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(uint32_t, messageTxInterval, 30)                                 \
   ATTR(uint32_t, messageTxHoldTime, 120)                                \
   ATTR(uint32_t, reinitDelay, 2)                                        \
   ATTR(uint32_t, txDelay, 2)                                            \
   ATTR(uint32_t, maxTxMgmtAddrs, 1)                                     \
   ATTR(bool, rxTaggedPacketsDrop, false)                                \
   ATTR(BoundedString255, sysNameTlv, {})                                \
   ATTR(BoundedString255, sysDescTlv, {})                                \
   ECOLL(Wire::IntfId, PortConfig, portConfig)
// clang-format on

class Config : public Vel::Entity {
   VEL_ENTITY(Config, LLDP_CONFIG_ATTRS)
};

// How many management addresses a port advertises: the best one, every one, or the
// address of one named interface.
enum MgmtAddrTxMode : uint8_t {
   mgmtAddrTxModeBest = 0,
   mgmtAddrTxModeAll = 1,
   mgmtAddrTxModeIntfName = 2,
};

// What the operator configured for one port. `adminStatus` numbering as in PortConfig.
// `remoteSystemLimit` 0 means the port follows the global limit. `networkPolicyConfig`
// holds the LLDP-MED network policy of each application (keyed by its type, 1..8).
// `nbrClassification` classes stations on this port by MAC address (over the global
// ones); `dot1xTelephoneBypass` lets telephones through the port while 802.1X holds it.
// clang-format off
#define LLDP_CLI_PORT_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                      \
   ATTR(AdminStatus, adminStatus, adminStatusTxAndRx)                             \
   ATTR(bool, rxRateLimitEnabled, true)                                           \
   ATTR(uint64_t, rxRateLimitMaxLldpdus, 20)                                      \
   ATTR(Vel::Seconds, rxRateLimitInterval, 1.0)                                   \
   ATTR(Bridging::VlanIdOrNone, ztpBootVlan, {})                                  \
   ATTR(uint32_t, poeAllocatedPowerFallback, 0)                                   \
   ATTR(uint32_t, remoteSystemLimit, 0)                                           \
   ATTR(bool, macsecLldpBypass, false)                                            \
   ATTR(bool, dot1xTelephoneBypass, false)                                        \
   MAP(Wire::EthAddr, Identity::NbrClassification::NbrClass, nbrClassification)   \
   COLL(Lldp::UnknownOrgDefTlv::Key, Lldp::UnknownOrgDefTlv, externalTlv) \
   COLL(uint8_t, Lldp::NetworkPolicyConfig, networkPolicyConfig)
// clang-format on

class CliPortConfig : public Vel::Entity {
   VEL_ENTITY(CliPortConfig, LLDP_CLI_PORT_CONFIG_ATTRS)
   explicit CliPortConfig(const Wire::IntfId& intf) : intfId_(intf) {}
};

// What the operator configured, before the input side turns it into Config. `enabled` is
// the global switch: off, no LLDP frame is received or sent on any port. The `...Tx`
// switches select optional TLVs for every port. A non-empty `sysName` or `sysDesc`
// replaces the value taken from the system. `remoteSystemLimit` is the neighbour limit of
// every port that does not set its own; `remoteSystemLimitTotal` the limit on all ports'
// neighbours together. `nbrClassification` classes stations by MAC address on every
// port.
// clang-format off
#define LLDP_CLI_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(bool, enabled, true)                                                 \
   ATTR(uint32_t, messageTxInterval, 30)                                     \
   ATTR(uint32_t, messageTxHoldTime, 120)                                    \
   ATTR(uint32_t, reinitDelay, 2)                                            \
   ATTR(bool, rxTaggedPacketsDrop, false)                                    \
   ATTR(bool, portDescriptionTx, true)                                       \
   ATTR(bool, systemNameTx, true)                                            \
   ATTR(bool, systemDescriptionTx, true)                                     \
   ATTR(bool, systemCapabilitiesTx, true)                                    \
   ATTR(bool, managementAddressTx, true)                                     \
   ATTR(bool, portVlanTx, true)                                              \
   ATTR(bool, vlanNameTx, true)                                              \
   ATTR(bool, linkAggregationTx, true)                                       \
   ATTR(bool, maxFrameSizeTx, true)                                          \
   ATTR(bool, powerViaMdiTx, true)                                           \
   ATTR(bool, medNetworkPolicyTx, true)                                      \
   ATTR(BoundedString255, sysName, {})                                       \
   ATTR(BoundedString255, sysDesc, {})                                       \
   ATTR(uint8_t, mgmtAddrTxMode, mgmtAddrTxModeBest)                         \
   ATTR(Wire::IntfId, mgmtAddrTxIntf, {})                                    \
   ATTR(std::string, mgmtAddrVrf, {})                                        \
   ATTR(uint32_t, remoteSystemLimit, 64)                                     \
   ATTR(uint32_t, remoteSystemLimitTotal, remoteSystemLimitTotalDefault)     \
   ATTR(bool, dot1xLldpBypass, false)                                        \
   MAP(Wire::EthAddr, Identity::NbrClassification::NbrClass, nbrClassification) \
   ECOLL(Wire::IntfId, CliPortConfig, cliPortConfig)
// clang-format on

class CliConfig : public Vel::Entity {
   VEL_ENTITY(CliConfig, LLDP_CLI_CONFIG_ATTRS)
};

// The operator's latest request to empty the neighbour tables: when it was made (agent
// clock) and by whom and from where, for the log. Writers set the two strings before the
// time, which is what the agent reacts to.
// clang-format off
#define LLDP_REM_TABLES_CLI_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(Vel::Seconds, clearRequestTime, 0)                                             \
   ATTR(BoundedString255, clearRequestedBy, {})                                        \
   ATTR(BoundedString255, clearRequestedOn, {})
// clang-format on

class RemTablesCliConfig : public Vel::Entity {
   VEL_ENTITY(RemTablesCliConfig, LLDP_REM_TABLES_CLI_CONFIG_ATTRS)
};

}  // namespace Lldp
