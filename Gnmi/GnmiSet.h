// Set: the configuration leaves of the tree turned into lines of the configuration
// language and applied together, as `lldp configure` applies them (Config::apply checks
// every line before it changes anything).
//
// Writable: /lldp/config/{enabled, hello-timer, suppress-tlv-advertisement, system-name,
// system-description, lldp-agent-ext:ttl}, the container /lldp/config itself, and
// /lldp/interfaces/interface[name=N]/config/{name, enabled} with that container. A
// delete returns a leaf to its default; a replace of a container returns what it does not
// set to the default; an update of suppress-tlv-advertisement sets the whole list.
// Interface `enabled` false is `no lldp transmit` and `no lldp receive`, true both on.
#pragma once

#include <string>
#include <vector>

#include "Gnmi/GnmiModel.h"

namespace Vel {
class StateDb;
}

namespace Gnmi {

// Checks the request whole and applies it to the operator's configuration in `db`.
std::optional<Error> applySet(Vel::StateDb& db, const std::vector<Path>& deletes,
                              const std::vector<Update>& replaces,
                              const std::vector<Update>& updates);

}  // namespace Gnmi
