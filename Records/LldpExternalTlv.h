// Organizationally specific TLVs that other programs (and the operator) ask the agent to
// advertise. Each client publishes one ExternalTlvConfig, under its own name, in the
// directory "l2discovery/lldp/externalTlvs"; per interface it lists the TLVs to send.
//
// A writer fills a port's list and then touches the port in the client's collection
// (portConfigTouched), so that readers see the list whole.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Vel/Json.h"
#include "Framework/Wire/IntfId.h"
#include "Records/LldpValues.h"

// Per-port records are kept by pointer in B-trees (Framework/Vel/CompactMap.h).
namespace Lldp {
class ExternalTlvPortConfig;
}  // namespace Lldp
VEL_COMPACT_ENTITY_SET(Wire::IntfId, Lldp::ExternalTlvPortConfig, intfId)

namespace Lldp {

// clang-format off
#define LLDP_EXTERNAL_TLV_PORT_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                             \
   COLL(UnknownOrgDefTlv::Key, UnknownOrgDefTlv, tlv)
#define LLDP_EXTERNAL_TLV_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(std::string, name)                                                        \
   ECOLL(Wire::IntfId, ExternalTlvPortConfig, portConfig)
// clang-format on

class ExternalTlvPortConfig : public Vel::Entity {
   VEL_ENTITY(ExternalTlvPortConfig, LLDP_EXTERNAL_TLV_PORT_CONFIG_ATTRS)
   explicit ExternalTlvPortConfig(const Wire::IntfId& intf) : intfId_(intf) {}
};

class ExternalTlvConfig : public Vel::Entity {
   VEL_ENTITY(ExternalTlvConfig, LLDP_EXTERNAL_TLV_CONFIG_ATTRS)
   explicit ExternalTlvConfig(std::string name) : name_(std::move(name)) {}
};

// The longest information string an organizationally specific TLV carries.
inline constexpr size_t maxOrgDefInfo = 507;

// "33-44-66" (or with colons); none when it is not three hex bytes.
std::optional<Oui> parseOui(std::string_view text);
// Hex digits, two per byte, optionally separated by ':' or '-'; none when malformed.
std::optional<std::string> parseHexBytes(std::string_view text);
std::string hexText(std::string_view bytes);

// A client's whole set: {INTERFACE: [{"oui":"33-44-66","subtype":7,"info":"HEX"}...]...}.
// TLVs of one OUI and subtype on one port are numbered in the order given. Fills `out`
// (interface, TLVs) or says what is wrong.
using ExternalTlvSet = std::vector<std::pair<Wire::IntfId, std::vector<UnknownOrgDefTlv>>>;
std::string parseExternalTlvSet(const Vel::Json& tlvs, ExternalTlvSet* out);
// Replaces everything `config` lists with `set`, each port's list whole.
void externalTlvConfigIs(ExternalTlvConfig& config, const ExternalTlvSet& set);

}  // namespace Lldp
