// Sets one feature toggle for the life of a scope: writes a private Lldp.json holding it,
// points the toggle lookup there, and puts the previous directory back afterwards.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Framework/Toggle.h"
#include "Lldp/LldpToggles.h"

namespace TestSupport {

class ScopedToggle {
public:
   ScopedToggle(const char* name, bool on) : previous_(Vel::toggleDir()) {
      char tmpl[] = "/tmp/lldpToggleXXXXXX";
      dir_ = mkdtemp(tmpl);
      std::ofstream(dir_ + "/Lldp.json")
          << "{\"" << name << "\": " << (on ? "true" : "false") << "}";
      Vel::toggleDirIs(dir_);
      Lldp::reloadToggles();
   }
   ~ScopedToggle() {
      Vel::toggleDirIs(previous_);
      Lldp::reloadToggles();
      std::filesystem::remove_all(dir_);
   }
   ScopedToggle(const ScopedToggle&) = delete;
   ScopedToggle& operator=(const ScopedToggle&) = delete;

private:
   std::string previous_;
   std::string dir_;
};

}  // namespace TestSupport
