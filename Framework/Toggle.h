// Feature toggles: named booleans in JSON files ({"LldpTxVlanNames": false}) kept in one
// directory, LLDP_TOGGLE_DIR or /etc/lldp-agent/toggles. A missing directory, file or
// name, or a value that is not a boolean, gives the caller's default.
#pragma once

#include <string>
#include <string_view>

namespace Vel {

bool getToggleState(std::string_view name, std::string_view file, bool defaultState);
void toggleDirIs(const std::string& dir);
std::string toggleDir();

}  // namespace Vel

using Vel::getToggleState;
