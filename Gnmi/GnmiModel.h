// The agent's records as the OpenConfig LLDP tree (openconfig-lldp, with our own
// augmentation module lldp-agent-ext for the 802.1, 802.3 and LLDP-MED information), for
// the gNMI server: paths, typed leaves, JSON subtrees, a change stream and Set. No gRPC
// or protobuf here: the server converts these to and from its messages.
//
// Everything here runs on the event loop, as the records do.
//
// Paths served (see docs/gnmi-model.md for every leaf):
//    /lldp/config/...                      enabled, hello-timer, suppress-tlv-advertisement,
//                                          system-name, system-description (writable)
//    /lldp/state/...                       the same, plus chassis-id, chassis-id-type, ttl
//    /lldp/state/counters/...              summed over all ports (sampled, never pushed)
//    /lldp/interfaces/interface[name=N]/config|state          name, enabled
//    /lldp/interfaces/interface[name=N]/state/counters/...    (sampled)
//    /lldp/interfaces/interface[name=N]/neighbors/neighbor[id=I]/state/...
//    .../neighbor[id=I]/capabilities/capability[name=C]/state/...
//    .../neighbor[id=I]/custom-tlvs/tlv[type=T][oui=O][oui-subtype=S]/state/...
//    .../neighbor[id=I]/lldp-agent-ext:... 802.1, 802.3 and LLDP-MED leaves
// A neighbour's id is its remote index on its port (the index SNMP uses): stable while the
// neighbour stays, unique on the port, never reused for another neighbour soon after.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Vel {
class StateDb;
}

namespace Gnmi {

// ---- Paths -------------------------------------------------------------------------------

// One element of a path with its keys in the order given. A key value "*" matches every
// member of the list; an element named "*" or "..." is refused (not served).
struct PathElem {
   std::string name;
   std::vector<std::pair<std::string, std::string>> keys;
   bool operator==(const PathElem&) const = default;
};

struct Path {
   std::vector<PathElem> elems;
   std::string origin;  // "", "openconfig" or "lldp-agent-ext" are served; others refused
   bool operator==(const Path&) const = default;
};

// What a path may hold: longer text, more elements or more keys are refused.
inline constexpr size_t maxPathTextBytes = 4096;
inline constexpr size_t maxPathElems = 32;
inline constexpr size_t maxPathKeys = 8;  // in one element

// Text form: "/lldp/interfaces/interface[name=eth0]/neighbors/neighbor[id=*]/state", with
// an optional "origin:" before the first '/' (a name without '/', '[' or '='). Inside a
// key value `\]` and `\\` are escapes; outside keys an element name may not contain '/',
// '[' or ']'. "/" alone is the root. On failure `error` says why (with the offset) and
// `out` is left as it was.
bool parsePath(std::string_view text, Path& out, std::string& error);
// The text form parsePath() reads back to the same Path.
std::string toString(const Path& p);
// `prefix` followed by `p` (the origin of `p` wins when both have one).
Path join(const Path& prefix, const Path& p);
// Same number of elements, same names, and every key of `pattern` equal or "*".
bool matches(const Path& pattern, const Path& concrete);

// ---- Values ------------------------------------------------------------------------------

// Leaf values, typed as the model types them: uint64_t for unsigned integers (counters,
// timers, seconds), int64_t for signed ones, std::string for strings, enumerations and
// identities, binary leaves (custom TLV values) in base64 as their JSON form has them,
// std::vector<std::string> for leaf-lists. Identity values always carry their module
// ("openconfig-lldp-types:MAC_BRIDGE"), enumerations never do ("MAC_ADDRESS").
using Value = std::variant<std::string, uint64_t, int64_t, bool, double, std::vector<std::string>>;

struct Leaf {
   Path path;
   Value value;
};

enum class Encoding { Json, JsonIetf };

// One value as JSON text in the encoding: in JSON_IETF 64-bit integers are quoted strings.
std::string jsonValue(const Value& v, Encoding e);

// ---- Errors ------------------------------------------------------------------------------

// `code` is the gRPC status code to answer with.
inline constexpr int codeInvalidArgument = 3;
inline constexpr int codeNotFound = 5;
inline constexpr int codeFailedPrecondition = 9;
inline constexpr int codeUnimplemented = 12;
inline constexpr int codeUnavailable = 14;
struct Error {
   int code = codeInvalidArgument;
   std::string message;  // says what was wrong, with the path
};

// ---- Change stream -----------------------------------------------------------------------

// One atomic notification: every changed leaf of one neighbour (or of the global or one
// interface's config/state) together. Paths in `updates` and `deletes` are relative to
// `prefix`; an empty path in `deletes` deletes the prefix itself (a neighbour gone).
struct Change {
   uint64_t timestampNs = 0;  // wall clock, nanoseconds since the epoch
   Path prefix;
   std::vector<Leaf> updates;
   std::vector<Path> deletes;
};

// Which leaves leaves() reports: counters and the neighbours' age are sampled (never in a
// Change); everything else is pushed on change.
enum class LeafSet { All, OnChange, Sampled };

// A capability for the Capabilities reply.
struct ModelInfo {
   std::string name;
   std::string organization;
   std::string version;
};

// Set: `value` is the leaf's value, or, with `json` set, JSON text (in either encoding)
// for the node at `path`, container or leaf.
struct Update {
   Path path;
   Value value;
   bool json = false;
};

// ---- The model ---------------------------------------------------------------------------

// Where the model finds the records: the state database the agent publishes them in,
// looked up on each call (so the model may be made before the agent publishes them; a
// call that needs a record not yet published answers codeUnavailable).
struct Sources {
   Vel::StateDb* db = nullptr;
};

class Model {
public:
   explicit Model(const Sources& s);
   ~Model();
   Model(const Model&) = delete;
   Model& operator=(const Model&) = delete;

   // Whether the path names a node of the model: an unknown element, a key the element
   // does not have, or an element below a leaf is codeInvalidArgument naming it. A list
   // element without its keys matches every member, as a "*" key does. Data need not exist.
   std::optional<Error> check(const Path& p) const;

   // Every leaf under `p` (wildcards expanded), with absolute paths (origin empty), in a
   // stable order: a neighbour's leaves together. A concrete path naming nothing that
   // exists (an unknown interface or neighbour): codeNotFound. Costs nothing beyond the
   // leaves reported: a path that names one neighbour does not walk the others.
   std::optional<Error> leaves(const Path& p, const std::function<void(const Leaf&)>& fn,
                               LeafSet which = LeafSet::All) const;

   // The subtree under `p` as JSON, once for each concrete node `p` matches (one call for
   // a path without wildcards), with the node's concrete path. JSON_IETF names the module
   // on the top member and wherever the module changes ("openconfig-lldp:lldp",
   // "lldp-agent-ext:med"); JSON leaves the names bare. A leaf path gives the bare value.
   using JsonSink = std::function<void(const Path& concrete, std::string&& json)>;
   std::optional<Error> json(const Path& p, Encoding e, const JsonSink& fn) const;

   // Change stream for the subtree under `p` (wildcards allowed): the sink is called after
   // the loop turn in which records changed, once per neighbour changed (its changed
   // leaves and removed leaves together), once for a neighbour gone (a delete of its
   // path) and once per config/state container changed. Sampled leaves are never pushed.
   // What is current when the watch starts is not reported: read it with leaves() in the
   // same loop turn. The watch stops when the handle is destroyed. Costs nothing while no
   // watch exists; follows the records' notifications, never walks the tables.
   class Watch {
   public:
      virtual ~Watch() = default;
   };
   using Sink = std::function<void(const Change&)>;
   std::optional<Error> watch(const Path& p, Sink sink, std::unique_ptr<Watch>& out);

   // Set: deletes (back to the default), replaces (a container replaced: what it does not
   // set goes back to its default) and updates, in that order, of the configuration
   // leaves only (/lldp/config/..., /lldp/interfaces/interface[name=N]/config/enabled).
   // All are checked first and applied together through the configuration language, as
   // `lldp configure` applies lines; on any error nothing changes and the error names the
   // path and the reason (codeInvalidArgument, or codeUnavailable before the agent runs).
   std::optional<Error> set(const std::vector<Path>& deletes, const std::vector<Update>& replaces,
                            const std::vector<Update>& updates);

   // openconfig-lldp, openconfig-lldp-types and lldp-agent-ext.
   std::vector<ModelInfo> supportedModels() const;

   // Watches open now (for metrics and tests).
   size_t watchCount() const;

private:
   class Impl;
   std::unique_ptr<Impl> impl_;
};

}  // namespace Gnmi
