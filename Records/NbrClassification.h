// Neighbour classification: what kind of station sits behind a port (a telephone or some
// other device), by its MAC address and the port it was seen on.
//
// Status (published by the agent): one entry per port and MAC address, with the class,
// where it came from (the neighbour's own LLDPDUs, or the operator's configuration), since
// when, and the neighbour (chassis ID and port ID) it was learnt from.
// CliConfig (read by the agent): the operator's classifications, switch-wide and per port,
// and the latest request to forget learnt entries.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/Json.h"
#include "Framework/Vel/NestedEntityMap.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"
#include "Records/LldpRemoteSystem.h"
#include "Records/LldpValues.h"

namespace Identity::NbrClassification {

// What a neighbour is: shown and configured as "telephone" or "device".
class NbrClass {
public:
   enum Value : uint8_t { none = 0, telephone = 1, device = 2 };
   constexpr NbrClass() = default;
   constexpr NbrClass(Value v) : value_(v) {}
   constexpr Value value() const { return value_; }
   std::string stringValue() const {
      return value_ == telephone ? "telephone" : value_ == device ? "device" : "none";
   }
   static std::optional<NbrClass> parse(std::string_view s) {
      if (s == "telephone") return NbrClass(telephone);
      if (s == "device") return NbrClass(device);
      return std::nullopt;
   }
   bool operator==(const NbrClass&) const = default;
   auto operator<=>(const NbrClass&) const = default;
   size_t hash() const { return value_; }
   friend std::ostream& operator<<(std::ostream& os, const NbrClass& c) {
      return os << c.stringValue();
   }

private:
   Value value_ = none;
};

// Where a classification came from: shown as "lldp" or "configured".
class NbrClassSource {
public:
   enum Value : uint8_t { lldp = 0, configured = 1 };
   constexpr NbrClassSource() = default;
   constexpr NbrClassSource(Value v) : value_(v) {}
   constexpr Value value() const { return value_; }
   std::string stringValue() const { return value_ == configured ? "configured" : "lldp"; }
   bool operator==(const NbrClassSource&) const = default;
   auto operator<=>(const NbrClassSource&) const = default;
   size_t hash() const { return value_; }
   friend std::ostream& operator<<(std::ostream& os, const NbrClassSource& s) {
      return os << s.stringValue();
   }

private:
   Value value_ = lldp;
};

// A station on a port.
#define IDENTITY_NBR_CLASSIFICATION_KEY_FIELDS(F) \
   F(Wire::IntfId, intfId, {}) F(Wire::EthAddr, ethAddr, {})
class EntryKey {
   VEL_VALUE(EntryKey, IDENTITY_NBR_CLASSIFICATION_KEY_FIELDS)
};

// clang-format off
#define IDENTITY_NBR_CLASSIFICATION_ENTRY_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(Wire::IntfId, intfId)                                                                   \
   KEY(Wire::EthAddr, ethAddr)                                                                 \
   ATTR(NbrClass, nbrClass, {})                                                                \
   ATTR(NbrClassSource, source, {})                                                            \
   ATTR(Vel::Seconds, since, 0)                                                                \
   ATTR(Lldp::Msap, neighbor, {})
// clang-format on

// `neighbor` is the LLDP neighbour the entry was learnt from, or last seen with for a
// configured one (empty when none was seen).
class Entry : public Vel::Entity {
   VEL_ENTITY(Entry, IDENTITY_NBR_CLASSIFICATION_ENTRY_ATTRS)
   explicit Entry(const EntryKey& key) : intfId_(key.intfId()), ethAddr_(key.ethAddr()) {}
   EntryKey key() const { return EntryKey({.intfId = intfId_, .ethAddr = ethAddr_}); }
};

}  // namespace Identity::NbrClassification

// An entry per station, so about one per neighbour: a tree of addresses per port.
VEL_NESTED_ENTITY_MAP(Identity::NbrClassification::EntryKey, Identity::NbrClassification::Entry,
                      intfId, ethAddr)

namespace Identity::NbrClassification {

// `lastClearTime` is the time of the latest clear request served. The four counts say
// how many entries there are of each class and source, so readers need not walk them.
// clang-format off
#define IDENTITY_NBR_CLASSIFICATION_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(EntryKey, Entry, entry)                                                                \
   ATTR(Vel::Seconds, lastClearTime, 0)                                                         \
   ATTR(uint32_t, lldpTelephones, 0)                                                            \
   ATTR(uint32_t, lldpDevices, 0)                                                               \
   ATTR(uint32_t, configuredTelephones, 0)                                                      \
   ATTR(uint32_t, configuredDevices, 0)
// clang-format on

class Status : public Vel::Entity {
   VEL_ENTITY(Status, IDENTITY_NBR_CLASSIFICATION_STATUS_ATTRS)
};

// The operator's classifications: `globalClass` for a MAC address on any port,
// `intfClass` for it on one port (which wins over the global one there). A clear request
// names a MAC address, a port, both or neither (zero address, empty port: any); writers
// set the other request attributes before the time, which is what the agent reacts to.
// clang-format off
#define IDENTITY_NBR_CLASSIFICATION_CLI_CONFIG_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   MAP(Wire::EthAddr, NbrClass, globalClass)                                                        \
   MAP(EntryKey, NbrClass, intfClass)                                                               \
   ATTR(Wire::EthAddr, clearRequestEthAddr, {})                                                     \
   ATTR(Wire::IntfId, clearRequestIntfId, {})                                                       \
   ATTR(Lldp::BoundedString255, clearRequestedBy, {})                                               \
   ATTR(Lldp::BoundedString255, clearRequestedOn, {})                                               \
   ATTR(Vel::Seconds, clearRequestTime, 0)
// clang-format on

class CliConfig : public Vel::Entity {
   VEL_ENTITY(CliConfig, IDENTITY_NBR_CLASSIFICATION_CLI_CONFIG_ATTRS)
   // The operator's class for a station, the port's own before the global one; none when
   // neither is configured.
   NbrClass configuredClass(const EntryKey& key) const {
      if (const NbrClass* c = intfClass(key)) return *c;
      if (const NbrClass* c = globalClass(key.ethAddr())) return *c;
      return {};
   }
};

// What the platform made of the classifications: the telephones it lets through ports
// that 802.1X holds (`fdbEntry`: the forwarding entries it added, by port and address),
// its writes to the forwarding database and those the kernel refused.
// clang-format off
#define IDENTITY_NBR_CLASSIFICATION_BYPASS_STATUS_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   MAP(EntryKey, bool, fdbEntry)                                                                       \
   COUNTER(uint64_t, fdbWrites)                                                                        \
   COUNTER(uint64_t, fdbWritesRefused)
// clang-format on

class BypassStatus : public Vel::Entity {
   VEL_ENTITY(BypassStatus, IDENTITY_NBR_CLASSIFICATION_BYPASS_STATUS_ATTRS)
};

}  // namespace Identity::NbrClassification
