// Replays every input the fuzzers have kept, in order, through the harness of its target
// under the ordinary build: none may crash or break an invariant the harness checks. The
// sanitizers run over the same inputs in the fuzzing build.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "Records/LldpConfig.h"
#include "fuzz/ConfigHarness.h"
#include "fuzz/ControlHarness.h"
#include "fuzz/GnmiPathHarness.h"
#include "fuzz/NetlinkHarness.h"
#include "fuzz/RecordBytes.h"
#include "fuzz/RxHarness.h"
#include "fuzz/SnmpHarness.h"

namespace {

std::vector<std::filesystem::path> corpus(const std::string& target) {
   const std::filesystem::path dir =
       std::filesystem::path(LLDP_SOURCE_DIR) / "fuzz" / "corpus" / target;
   std::vector<std::filesystem::path> inputs;
   for (const auto& entry : std::filesystem::directory_iterator(dir)) {
      if (entry.is_regular_file()) inputs.push_back(entry.path());
   }
   std::sort(inputs.begin(), inputs.end());
   return inputs;
}

template <class Harness>
void replay(Harness& harness, const std::string& target, size_t atLeast) {
   const auto inputs = corpus(target);
   ASSERT_GE(inputs.size(), atLeast) << "the " << target << " corpus holds the seeds";
   for (const auto& path : inputs) {
      std::ifstream in(path, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
      harness.feed(bytes.data(), bytes.size());
      ASSERT_EQ(harness.inconsistency(), "") << target << "/" << path.filename().string();
   }
}

// What the harnesses compare records by: any change, however deep, changes the bytes, and
// equal records give equal bytes.
TEST(RecordBytes, EveryChangeShows) {
   const auto bytes = [](const Lldp::CliConfig& c) {
      std::string out;
      Fuzz::appendRecordBytes(out, c);
      return out;
   };
   auto a = Vel::make<Lldp::CliConfig>(), b = Vel::make<Lldp::CliConfig>();
   for (auto* c : {&a, &b}) (*c)->cliPortConfigIs(Wire::IntfId("et1"))->remoteSystemLimitIs(5);
   const std::string same = bytes(*a);
   EXPECT_EQ(same, bytes(*b));
   const std::vector<std::function<void(Lldp::CliConfig&)>> changes = {
       [](auto& c) { c.cliPortConfig(Wire::IntfId("et1"))->remoteSystemLimitIs(6); },
       [](auto& c) { c.cliPortConfigIs(Wire::IntfId("et2")); },
       [](auto& c) { c.sysNameIs(Lldp::BoundedString255("x")); },
       [](auto& c) { c.messageTxIntervalIs(31); },
   };
   for (size_t i = 0; i < changes.size(); ++i) {
      auto c = Vel::make<Lldp::CliConfig>();
      c->cliPortConfigIs(Wire::IntfId("et1"))->remoteSystemLimitIs(5);
      changes[i](*c);
      EXPECT_NE(bytes(*c), same) << "change " << i;
   }
}

TEST(CorpusReplay, ReceivedFrames) {
   Fuzz::RxHarness harness;
   replay(harness, "rx", 6);
}

TEST(CorpusReplay, ConfigurationText) {
   Fuzz::ConfigHarness harness;
   replay(harness, "config", 10);
}

TEST(CorpusReplay, ControlSocketSessions) {
   Fuzz::ControlHarness harness;
   replay(harness, "control", 10);
}

TEST(CorpusReplay, NetlinkMessages) {
   Fuzz::NetlinkHarness harness;
   replay(harness, "netlink", 5);
}

TEST(CorpusReplay, SnmpRequestsOverAPopulatedTable) {
   Fuzz::SnmpHarness harness;
   // The table the requests walk is the receive corpus's neighbours.
   EXPECT_GE(harness.neighbours(), 10u);
   replay(harness, "snmp", 5);
}

TEST(CorpusReplay, GnmiPaths) {
   Fuzz::GnmiPathHarness harness;
   replay(harness, "gnmipath", 10);
}

}  // namespace
