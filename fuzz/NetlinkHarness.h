// Feeds rtnetlink messages to the platform's netlink model and publishes the model after
// each input that it took a message of, as the platform does after each read, with the
// model persisting from input to input. Checks after each message: one the model refuses changes
// nothing (neither the interface it names nor how many objects there are), and the count of
// malformed messages only grows.
//
// An input is what one read from a netlink socket returns: messages one after another,
// each with its header, walked the way libnl walks a receive buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Framework/Vel/StateDb.h"
#include "Platform/Linux/NetlinkModel.h"
#include "Platform/Linux/PlatformPublisher.h"

namespace Fuzz {

class NetlinkHarness {
public:
   // Past this many links or addressed interfaces the model is read afresh (cleared), so
   // that a long run does not slow down.
   static constexpr size_t objectLimit = 8;

   NetlinkHarness();
   void feed(const uint8_t* data, size_t size);
   std::string inconsistency() { return std::move(wrong_); }

private:
   Platform::Linux::NetModel model_;
   Platform::Linux::PlatformOptions options_;
   Vel::StateDb db_;
   Platform::Linux::PlatformPublisher publisher_{db_};
   std::vector<uint64_t> buffer_;  // aligned as a socket's receive buffer is
   std::string wrong_;
};

}  // namespace Fuzz
