// Neighbour classification against lldpd (a black-box peer): an LLDP-MED telephone (class
// III endpoint with a voice policy) and a plain host, each on a link of its own, read
// through `lldp show classification --json`; configured classes and each clear form.
#include <gtest/gtest.h>

#include <chrono>

#include "tests/Interop/LldpdInteropFixture.h"

namespace {

using namespace Interop;

TEST_F(LldpdInterop, MedTelephoneAndPlainHostClassifiedConfiguredWinsClearsForgetTheirOwn) {
   const auto phoneLink = addLink(), hostLink = addLink();
   const std::string phonePort = phoneLink.first, hostPort = hostLink.first;
   Agent agent(ns_->nsA(), "c", ourPorts(), agentTimers);
   ASSERT_TRUE(agent.running());
   const auto macOf = [&](const std::string& intf) {
      std::string out;
      TestSupport::runIn(ns_->nsB(), "cat /sys/class/net/" + intf + "/address", &out);
      return out.substr(0, 17);
   };
   const std::string phoneMac = macOf(phoneLink.second), hostMac = macOf(hostLink.second);
   // "class/source" of the station on the port, "" when it has no entry.
   const auto classOf = [&](const std::string& port, const std::string& mac) -> std::string {
      const Json j = agent.cli({"show", "classification"});
      if (!j.is_object()) return "error";
      for (const Json& c : j.value("classifications", Json::array())) {
         if (c.value("intfId", "") == port && c.value("ethAddr", "") == mac) {
            return c.value("nbrClass", "") + "/" + c.value("source", "");
         }
      }
      return "";
   };

   const std::string watchOut = TestSupport::tmpName("classwatch.out");
   Process watcher({LLDP_CLI, "--socket", agent.socket(), "watch", "classification", "--json"},
                   watchOut);
   ASSERT_TRUE(watcher.running());

   Lldpd host(ns_->nsB(), "h", hostLink.second);
   ASSERT_TRUE(host.running()) << host.log();
   Lldpd phone(ns_->nsB(), "t", phoneLink.second, 3);
   ASSERT_TRUE(phone.running()) << phone.log();
   ASSERT_GE(waitFor([&] { return classOf(hostPort, hostMac) == "device/lldp"; }, 8), 0);
   // An endpoint is a device until it sends a voice policy; then a telephone at once.
   ASSERT_TRUE(
       phone.cli("configure med policy application voice tagged vlan 500 priority voice "
                 "dscp 46"));
   const auto asked = std::chrono::steady_clock::now();
   ASSERT_GE(waitFor([&] { return classOf(phonePort, phoneMac) == "telephone/lldp"; }, 8), 0)
       << agent.cli({"show", "neighbors", "detail"}).dump(1);
   // lldpd sends every second: its next LLDPDU carries the policy.
   EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(2500));

   // A configured class for the address wins; removing it gives LLDP its say again.
   ASSERT_EQ(agent.run({"configure", "lldp classification mac " + phoneMac + " device"}).status, 0);
   EXPECT_EQ(classOf(phonePort, phoneMac), "device/configured");
   ASSERT_EQ(agent.run({"configure", "no lldp classification mac " + phoneMac}).status, 0);
   EXPECT_EQ(classOf(phonePort, phoneMac), "telephone/lldp");

   // Each clear form forgets what it names and nothing else, until the next LLDPDU.
   ASSERT_EQ(agent.run({"clear", "classification", "mac", phoneMac}).status, 0);
   EXPECT_EQ(classOf(phonePort, phoneMac), "");
   EXPECT_EQ(classOf(hostPort, hostMac), "device/lldp");
   EXPECT_GE(waitFor([&] { return classOf(phonePort, phoneMac) == "telephone/lldp"; }, 4), 0);
   ASSERT_EQ(agent.run({"clear", "classification", "interface", hostPort}).status, 0);
   EXPECT_EQ(classOf(hostPort, hostMac), "");
   EXPECT_EQ(classOf(phonePort, phoneMac), "telephone/lldp");
   EXPECT_GE(waitFor([&] { return classOf(hostPort, hostMac) == "device/lldp"; }, 4), 0);
   ASSERT_EQ(agent.run({"clear", "classification"}).status, 0);
   EXPECT_EQ(classOf(hostPort, hostMac) + classOf(phonePort, phoneMac), "");
   // Bad requests are refused with the reason.
   const TestSupport::CliRun bad = agent.run({"clear", "classification", "mac", "00:11"});
   EXPECT_EQ(bad.status, 2);
   EXPECT_NE(bad.err.find("is not a station's MAC address"), std::string::npos) << bad.err;
   EXPECT_EQ(agent.run({"clear", "classification", "interface", "nosuch0"}).status, 2);

   // The telephone's shutdown LLDPDU takes its entry with it.
   EXPECT_GE(waitFor([&] { return classOf(phonePort, phoneMac) == "telephone/lldp"; }, 4), 0);
   phone.stop(SIGTERM);
   EXPECT_GE(waitFor([&] { return classOf(phonePort, phoneMac).empty(); }, 4), 0);

   // The watch saw the telephone classified (a device first), reclassified and gone.
   watcher.stop(SIGTERM);
   const std::string events = readFile(watchOut);
   ::unlink(watchOut.c_str());
   for (const char* e : {"\"classified\"", "\"reclassified\"", "\"unclassified\""}) {
      EXPECT_NE(events.find(e), std::string::npos) << e << "\n" << events;
   }
   EXPECT_NE(events.find("\"interface\":\"" + phonePort + "\""), std::string::npos) << events;
}

}  // namespace
