// `lldp show redundancy` as text.
#include <sstream>

#include "Cli/CliText.h"

namespace Cli {

namespace {

std::string str(const Vel::Json& v, const char* name) {
   auto it = v.find(name);
   return it != v.end() && it->is_string() ? it->get<std::string>() : std::string();
}

uint64_t num(const Vel::Json& v, const char* name) {
   auto it = v.find(name);
   return it != v.end() && it->is_number_unsigned() ? it->get<uint64_t>() : 0;
}

std::string stateText(const std::string& state) {
   if (state == "inSync") return "in sync";
   if (state == "badPeer") return "the peer is not a working agent";
   if (state == "notMirroring") return "not mirroring";
   if (state == "snapshot") return "receiving the snapshot";
   if (state == "resync") return "resynchronising";
   return state;
}

}  // namespace

std::string redundancyText(const Vel::Json& view) {
   std::ostringstream os;
   const std::string role = str(view, "role");
   os << "Role: " << role << " (cell " << num(view, "cellId") << ")\n";
   const std::string peerSocket = str(view, "peerSocket");
   if (role == "standby") {
      os << "Active agent: ";
      if (num(view, "peerCellId")) os << "cell " << num(view, "peerCellId") << ", ";
      os << (peerSocket.empty() ? "-" : peerSocket) << "\n";
      os << "Mirror: " << stateText(str(view, "mirrorState"));
      if (str(view, "mirrorState") == "inSync") {
         os << ", " << num(view, "mirrorLagChanges") << " changes behind";
      }
      os << "\n";
      if (!str(view, "mirrorError").empty()) os << "  " << str(view, "mirrorError") << "\n";
   } else {
      os << "Standby: " << (num(view, "mirrorStandbys") ? "connected" : "none");
      if (num(view, "mirrorStandbys")) {
         os << ", " << num(view, "mirrorLagChanges") << " changes not yet applied";
      }
      os << "\n";
   }
   os << "Mirrored: " << num(view, "mirroredPorts") << " ports, " << num(view, "mirroredNeighbors")
      << " neighbors; " << num(view, "mirrorChangesApplied") << " changes applied, "
      << num(view, "mirrorResyncs") << " resynchronisations\n";
   os << "Last switchover: ";
   const std::string when = str(view, "lastSwitchoverTimestamp");
   if (when.empty()) {
      os << "never\n";
   } else {
      os << when << " (" << str(view, "lastSwitchoverReason") << ")\n";
   }
   return os.str();
}

}  // namespace Cli
