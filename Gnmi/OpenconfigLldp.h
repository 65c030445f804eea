// The inside of the model: the records written out as the tree, depth first, into a
// TreeSink (which filters by a path, collects leaves or writes JSON), and the schema that
// tells valid paths from invalid ones.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "Framework/Vel/Types.h"
#include "Gnmi/GnmiModel.h"
#include "Records/LldpConfig.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpStatus.h"

namespace Gnmi::Oc {

enum Module : uint8_t { moduleLldp, moduleExt };
const char* moduleName(Module m);  // "openconfig-lldp", "lldp-agent-ext"
inline constexpr const char* typesModule = "openconfig-lldp-types";

struct KeyView {
   std::string_view name;
   std::string_view value;
};

// Where the tree is written. enter() opens a container or one list member (a member has
// keys) and returns false when the sink wants nothing below it (no leave() then);
// consecutive members of one list are entered one after another.
class TreeSink {
public:
   virtual ~TreeSink() = default;
   virtual bool enter(std::string_view name, std::initializer_list<KeyView> keys = {},
                      Module m = moduleLldp) = 0;
   virtual void leave() = 0;
   virtual void leaf(std::string_view name, Value&& v, bool sampled = false,
                     Module m = moduleLldp) = 0;
   // The one member of `list` the sink wants (by the value of its key `key`), or null
   // when it wants any: the writer then looks that member up instead of walking the list.
   virtual const std::string* wanted(std::string_view list, std::string_view key) const = 0;
};

// The records the tree is made from; any may be null before the agent publishes it.
struct Records {
   Lldp::CliConfig::PtrConst cliConfig;
   Lldp::Config::PtrConst config;
   Lldp::LocalSystem::PtrConst localSystem;
   Lldp::AllStatus::PtrConst status;
   Vel::Seconds now = 0;       // agent clock
   double wallMinusAgent = 0;  // wall clock (s since the epoch) minus the agent clock
   static Records from(const Vel::StateDb& db);
};

// The record paths in the state database.
inline constexpr const char* cliConfigPath = "l2discovery/lldp/cliConfig";
inline constexpr const char* configPath = "l2discovery/lldp/config";
inline constexpr const char* localSystemPath = "l2discovery/lldp/localSystem";
inline constexpr const char* allStatusPath = "l2discovery/lldp/status/all";

// Writers (OpenconfigLldpTree.cpp). writeRoot() writes the whole tree from "lldp" down;
// the others write one part, from the node named (entered by them) down.
void writeRoot(const Records& r, TreeSink& s);
void writeGlobal(const Records& r, TreeSink& s);  // "config" and "state" under lldp
void writeInterface(const Records& r, const Wire::IntfId& intf, TreeSink& s);
void writeNeighbor(const Records& r, const Lldp::RemoteSystem& n, TreeSink& s);
// The interfaces the tree lists: those with a configuration or a status, in order.
std::vector<Wire::IntfId> interfaceNames(const Records& r);

// Leaf values the writers and Set share.
const char* chassisIdTypeName(uint8_t subtype);  // "MAC_ADDRESS", or "" when unnamed
const char* portIdTypeName(uint8_t subtype);
// The TLVs the operator may suppress, as LLDP_TLV identity names, with their word in
// the configuration language's `lldp tlv-select`.
struct SuppressibleTlv {
   const char* identity;  // "SYSTEM_NAME"
   const char* word;      // "system-name"
   const bool& (Lldp::CliConfig::*selected)() const;
};
extern const SuppressibleTlv suppressibleTlvs[5];
std::vector<std::string> suppressedTlvs(const Lldp::CliConfig& c);  // module-qualified

// Schema (OpenconfigLldpSchema.cpp).
struct SchemaNode {
   std::string name;
   Module module = moduleLldp;
   std::vector<std::string> keys;  // list keys, in order
   bool leaf = false;
   bool writable = false;  // a configuration leaf Set may change
   std::vector<SchemaNode> children;
   const SchemaNode* child(std::string_view n) const;
};
const SchemaNode& schemaRoot();  // the node above "lldp"
// The schema node `p` names, or an error naming what is wrong.
std::optional<Error> resolve(const Path& p, const SchemaNode** node);

}  // namespace Gnmi::Oc
