// Feeds text to the configuration language over one configuration that persists from
// input to input, and checks after each: a refused text changes nothing; an accepted one
// renders to text that loads back to the same configuration.
//
// An input is one control byte and the text. An even control byte applies the text's lines
// on top of the configuration (`lldp configure`, the control socket's "configure"); an odd
// one loads it as a whole file (the configuration file, the control socket's "load").
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Framework/Vel/StateDb.h"
#include "Records/LldpConfig.h"

namespace Fuzz {

class ConfigHarness {
public:
   // Past this many configured ports the configuration starts again from nothing, so
   // that a long run does not slow down.
   static constexpr size_t portLimit = 64;

   ConfigHarness();
   void feed(const uint8_t* data, size_t size);
   std::string inconsistency() { return std::move(wrong_); }

private:
   Vel::StateDb db_;
   Lldp::CliConfig::Ptr config_;
   // The configuration as bytes (RecordBytes.h) after the last text that changed it; empty
   // when it has to be read again. Only an accepted text changes it (a refused one that did
   // is what the harness reports), so most inputs read it once, not twice. And the bytes
   // of the configuration to compare with it.
   std::optional<std::string> known_;
   std::string now_;
   std::string wrong_;
};

}  // namespace Fuzz
