// Change tracking for the model's watches. One hub serves every watch: it follows the
// neighbour tables (Lldp::NeighborChanges) and the configuration and local-system
// records, works out once per changed neighbour (or global or interface container) which
// leaves changed since it last reported, and hands each watch the part under its path.
//
// It remembers, for every neighbour and container, a hash of each leaf it last reported
// (a path id and a value hash, 16 bytes a leaf), so a change reports exactly the leaves
// that changed and deletes exactly the leaves that went. That memory, the notifiees and
// the walk of the tables that fills it exist only while at least one watch does: with no
// watch the agent pays nothing.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Gnmi/GnmiModel.h"
#include "Records/NeighborChanges.h"

namespace Vel {
class StateDb;
}

namespace Gnmi {

class GnmiWatch {
public:
   explicit GnmiWatch(Vel::StateDb& db);
   ~GnmiWatch();
   GnmiWatch(const GnmiWatch&) = delete;
   GnmiWatch& operator=(const GnmiWatch&) = delete;

   // `pattern` is checked and has bare element names.
   std::optional<Error> watch(const Path& pattern, Model::Sink sink,
                              std::unique_ptr<Model::Watch>& out);
   size_t watchCount() const;

   struct State;  // shared with the watch handles, which may outlive the hub

private:
   std::shared_ptr<State> state_;
};

}  // namespace Gnmi
