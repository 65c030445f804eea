#include "Framework/Toggle.h"

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

namespace Vel {

namespace {

std::optional<std::string>& dirOverride() {
   static std::optional<std::string> dir;
   return dir;
}

}  // namespace

void toggleDirIs(const std::string& dir) {
   dirOverride() = dir;
}

std::string toggleDir() {
   if (dirOverride()) return *dirOverride();
   if (const char* env = std::getenv("LLDP_TOGGLE_DIR")) return env;
   return "/etc/lldp-agent/toggles";
}

bool getToggleState(std::string_view name, std::string_view file, bool defaultState) {
   std::ifstream in(toggleDir() + "/" + std::string(file));
   if (!in) return defaultState;
   auto doc = nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
   if (!doc.is_object()) return defaultState;
   auto it = doc.find(std::string(name));
   if (it == doc.end() || !it->is_boolean()) return defaultState;
   return it->get<bool>();
}

}  // namespace Vel
