// `lldp show power`: for each port, what its power agent reports, the neighbour whose power
// request the port answers and the Power via MDI TLV the port sends, as JSON (the text
// form is Cli/CliText.h's powerText). Powers are in watts here; the records keep units
// of 0.1 W, as on the wire.
//
// {"currentTime": T, "interfaces": {"<name>": {
//    "powerAgent": null | {"name", "state" ("unknown", "disabled", "searching",
//        "delivering", "fault"), "pseType", "powerClass", "psePowerPair",
//        "psePowerPairName" ("signal", "spare"), "powerSource", "powerSourceName"
//        ("primary", "backup"), "priority" (1 critical, 2 high, 3 low), "priorityName",
//        "allocatedPower", "maxAvailablePower"},
//    "neighbor": null | {"index", "ethAddr", "chassisIdentifier", "sysName",
//        "requestedPower", "allocatedPower", "powerType" ("type 2 PD", ...), "powerClass"
//        (IEEE class, null when not sent), "priority" ("unknown", "critical", "high",
//        "low"), "powerSource" (the 802.3at field), "powerSourceName", "powerViaMdiInfo"
//        (as received, with the names of Cli/CliViews.h's powerViaMdiJson)},
//    "powerViaMdiTx": null | {"fallback" (the configured fallback answers, no power
//        agent has reported), "requestedPower", "allocatedPower", "powerViaMdiInfo"},
//    "poeAllocatedPowerFallback": milliwatts}}}
#pragma once

#include <string>

#include "Daemon/CliViews.h"
#include "Framework/Vel/Dir.h"

namespace Cli {

// A neighbour's power request as handed to power agents: "neighbor" above without
// "sysName".
Vel::Json powerRequestJson(const Lldp::PowerRequest& request);

View powerView(const Lldp::LocalSystem& local, const Lldp::Config& config, Lldp::Status& status,
               const Vel::Dir* powerAgents, const std::string& intf, const ViewTime& time);

}  // namespace Cli
