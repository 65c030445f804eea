// The text form of the command line's views (Cli/CliViews.h): tables and blocks for
// people, with the organizationally specific contents decoded (VLAN names, power in
// watts, LLDP-MED policies, locations and inventory). Input is the views' JSON, so what
// people read and what scripts read never drift apart.
#pragma once

#include <string>

#include "Framework/Vel/Json.h"

namespace Cli {

std::string neighborsText(const Vel::Json& view, bool detail);
std::string statisticsText(const Vel::Json& view);
std::string localText(const Vel::Json& view);
std::string powerText(const Vel::Json& view);
// `show classification`: the stations classified on each port.
std::string classificationText(const Vel::Json& view);
// `show redundancy`: role, peer, mirror and last switchover (Daemon/RedundancyView.h).
std::string redundancyText(const Vel::Json& view);
// One line for a neighbour event of `lldp watch`.
std::string watchEventText(const Vel::Json& event);

// "45s", "3m07s", "2h05m", "3d04h"; "-" for a negative duration.
std::string durationText(double seconds);

}  // namespace Cli
