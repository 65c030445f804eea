// Feeds path text to the gNMI model over records that hold a few ports and neighbours of
// every kind, and checks after each: a path that parses prints back to itself; a path
// the schema accepts is read without an invalid-argument error, every leaf read lies
// under it and is itself accepted, and its JSON documents parse; a Set that deletes it is
// applied whole or refused with nothing changed.
//
// An input is one control byte and the path text: bit 0 picks the JSON encoding, bit 1
// makes the read a Set that deletes the path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Framework/Vel/StateDb.h"
#include "Gnmi/GnmiModel.h"
#include "Records/LldpConfig.h"

namespace Fuzz {

class GnmiPathHarness {
public:
   GnmiPathHarness();
   void feed(const uint8_t* data, size_t size);
   std::string inconsistency() { return std::move(wrong_); }

private:
   Vel::StateDb db_;
   Lldp::CliConfig::Ptr config_;
   std::unique_ptr<Gnmi::Model> model_;
   std::string wrong_;
};

}  // namespace Fuzz
