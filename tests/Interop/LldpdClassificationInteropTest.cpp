// Neighbour classification against lldpd (a black-box peer): an LLDP-MED telephone (class
// III endpoint with a voice policy) and a plain host, each on a link of its own, read
// through `lldp show classification --json`; configured classes and each clear form.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

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

   // Each clear form forgets what it names and nothing else, until the next LLDPDU (which
   // may come at any moment: an entry cleared is gone or new, one left alone unchanged).
   const auto sinceOf = [&](const std::string& port, const std::string& mac) {
      const Json j = agent.cli({"show", "classification"});
      for (const Json& c : j.value("classifications", Json::array())) {
         if (c.value("intfId", "") == port && c.value("ethAddr", "") == mac) {
            return c.value("since", -1.0);
         }
      }
      return -1.0;
   };
   const auto cleared = [&](std::vector<std::string> args) {
      args.insert(args.begin(), {"clear", "classification"});
      return agent.cli(args).value("classificationsCleared", -1);
   };
   double phoneSince = sinceOf(phonePort, phoneMac), hostSince = sinceOf(hostPort, hostMac);
   EXPECT_EQ(cleared({"mac", phoneMac}), 1);
   EXPECT_NE(sinceOf(phonePort, phoneMac), phoneSince);
   EXPECT_EQ(sinceOf(hostPort, hostMac), hostSince);
   EXPECT_GE(waitFor([&] { return classOf(phonePort, phoneMac) == "telephone/lldp"; }, 4), 0);
   phoneSince = sinceOf(phonePort, phoneMac);
   EXPECT_EQ(cleared({"interface", hostPort}), 1);
   EXPECT_NE(sinceOf(hostPort, hostMac), hostSince);
   EXPECT_EQ(sinceOf(phonePort, phoneMac), phoneSince);
   EXPECT_GE(waitFor([&] { return classOf(hostPort, hostMac) == "device/lldp"; }, 4), 0);
   hostSince = sinceOf(hostPort, hostMac);
   EXPECT_EQ(cleared({}), 2);
   EXPECT_NE(sinceOf(phonePort, phoneMac), phoneSince);
   EXPECT_NE(sinceOf(hostPort, hostMac), hostSince);
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

// Whether a UDP datagram from namespace `from` reaches `addr` in namespace `to` (ARP
// included: the sender's ARP cache is emptied first), as a ping would show.
bool getsThrough(const std::string& from, const std::string& to, const char* addr) {
   TestSupport::ipIn(from, "neigh flush all");
   sockaddr_in dst{};
   dst.sin_family = AF_INET;
   dst.sin_port = htons(9999);
   ::inet_pton(AF_INET, addr, &dst.sin_addr);
   int rx = -1, tx = -1;
   {
      TestSupport::NetNsScope scope(to);
      rx = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      if (::bind(rx, reinterpret_cast<sockaddr*>(&dst), sizeof(dst)) != 0) return false;
   }
   {
      TestSupport::NetNsScope scope(from);
      tx = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   }
   ::sendto(tx, "x", 1, 0, reinterpret_cast<sockaddr*>(&dst), sizeof(dst));
   pollfd p{rx, POLLIN, 0};
   const bool got = ::poll(&p, 1, 1500) == 1;
   ::close(rx);
   ::close(tx);
   return got;
}

// The whole chain on this kernel: lldpd as an LLDP-MED telephone behind a bridge port
// locked as 802.1X locks it; our daemon classifies it and lets it through, and stops
// letting it through on a clear request, on its shutdown LLDPDU and when the daemon stops.
TEST_F(LldpdInterop, ClassifiedTelephoneGetsThroughALockedPortUntilItGoes) {
   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second;
   ASSERT_TRUE(bridge(ours));
   const std::string br = "br" + tag_ + "x0";
   ASSERT_TRUE(TestSupport::ipIn(ns_->nsA(), "addr add 10.9.0.1/24 dev " + br));
   // Otherwise the bridge learns the telephone from its LLDPDUs, locked port or not.
   ASSERT_TRUE(
       TestSupport::ipIn(ns_->nsA(), "link set " + br + " type bridge no_linklocal_learn 1"));
   ASSERT_TRUE(TestSupport::ipIn(ns_->nsB(), "addr add 10.9.0.2/24 dev " + theirs));
   std::string out;
   if (!TestSupport::runIn(ns_->nsA(), "bridge link set dev " + ours + " locked on", &out)) {
      GTEST_SKIP() << "no bridge port locking here: " << out;
   }
   std::string mac;
   TestSupport::runIn(ns_->nsB(), "cat /sys/class/net/" + theirs + "/address", &mac);
   mac = mac.substr(0, 17);
   // What the bridge learnt before the lock would let the telephone through by itself.
   TestSupport::runIn(ns_->nsA(), "bridge fdb del " + mac + " dev " + ours + " master");
   const auto passes = [&] { return getsThrough(ns_->nsB(), ns_->nsA(), "10.9.0.1"); };
   EXPECT_FALSE(passes());

   auto agent = std::make_unique<Agent>(
       ns_->nsA(), "b", ourPorts(),
       agentTimers + "dot1x lldp bypass\ninterface " + ours + "\n   dot1x telephone bypass\n");
   ASSERT_TRUE(agent->running());
   Lldpd phone(ns_->nsB(), "t", theirs, 3);
   ASSERT_TRUE(phone.running()) << phone.log();
   ASSERT_TRUE(
       phone.cli("configure med policy application voice tagged vlan 500 priority voice "
                 "dscp 46"));
   const auto bypassed = [&] {
      const Json j = agent->cli({"show", "classification"});
      for (const Json& c : j.value("classifications", Json::array())) {
         if (c.value("ethAddr", "") == mac) return c.value("bypass", false);
      }
      return false;
   };
   ASSERT_GE(waitFor(bypassed, 8), 0) << agent->cli({"show", "classification"}).dump(1);
   EXPECT_TRUE(passes());

   // A clear request: shut out (within the port's second) until its next LLDPDU.
   ASSERT_EQ(agent->run({"clear", "classification"}).status, 0);
   // (An entry that goes stays gone for at least the port's second.)
   EXPECT_GE(waitFor([&] { return !bypassed(); }, 1.2), 0);
   ASSERT_GE(waitFor(bypassed, 4), 0);
   EXPECT_TRUE(passes());

   // Its shutdown LLDPDU.
   phone.stop(SIGTERM);
   EXPECT_GE(waitFor([&] { return !bypassed(); }, 4), 0);
   ::usleep(1100 * 1000);
   EXPECT_FALSE(passes());

   // The daemon stopping takes its entries with it.
   Lldpd again(ns_->nsB(), "t2", theirs, 3);
   ASSERT_TRUE(
       again.cli("configure med policy application voice tagged vlan 500 priority voice "
                 "dscp 46"));
   ASSERT_GE(waitFor(bypassed, 8), 0);
   EXPECT_TRUE(passes());
   agent.reset();
   EXPECT_FALSE(passes());
}

}  // namespace
