// Telephones through a locked bridge port, live: a bridge in namespace "a" whose port
// toward namespace "b" (the telephone) is locked, as 802.1X locks it. A ping from "b" to
// the bridge's address (a UDP datagram, which needs ARP through the port as a ping does)
// passes only while the platform has put the telephone's address in
// the port's forwarding database, and the platform only ever removes what it added.
// Needs root and a kernel with bridge port locking; skipped otherwise.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"

namespace {

using Identity::NbrClassification::Entry;
using Identity::NbrClassification::EntryKey;
using Identity::NbrClassification::NbrClass;

class TelephoneBypassTest : public ::testing::Test {
protected:
   void SetUp() override {
      Vel::StateDb::instance().clear();
      Vel::EventLoop::instance().virtualTimeIs(false);
      pair = std::make_unique<TestSupport::NetNsPair>();
      if (!pair->ok()) GTEST_SKIP() << pair->error();
      std::string out;
      const std::string& a = pair->nsA();
      if (!TestSupport::ipIn(a, "link add br0 type bridge", &out) ||
          !TestSupport::ipIn(a, "link set " + pair->intfA() + " master br0", &out) ||
          !TestSupport::ipIn(a, "addr add 10.9.0.1/24 dev br0", &out) ||
          !TestSupport::ipIn(a, "link set br0 up", &out) ||
          !TestSupport::ipIn(pair->nsB(), "addr add 10.9.0.2/24 dev " + pair->intfB(), &out)) {
         FAIL() << out;
      }
      if (!TestSupport::runIn(a, "bridge link set dev " + pair->intfA() + " locked on", &out)) {
         GTEST_SKIP() << "no bridge port locking here: " << out;
      }
      // The bridge delivers to its own address once it has carrier.
      for (int i = 0; i < 50 && !(TestSupport::runIn(a, "cat /sys/class/net/br0/carrier", &out) &&
                                  out.starts_with("1"));
           ++i) {
         ::usleep(100 * 1000);
      }
      phone = macOf(pair->nsB(), pair->intfB());
      // What the bridge learnt from the telephone before the lock would let it through.
      TestSupport::runIn(
          a, "bridge fdb del " + phone.stringValue() + " dev " + pair->intfA() + " master");
      auto& db = Vel::StateDb::instance();
      config = db.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig");
      config->dot1xLldpBypassIs(true);
      config->cliPortConfigIs(port())->dot1xTelephoneBypassIs(true);
      status = db.mount<Identity::NbrClassification::Status>("identity/nbrClassification/status");
      TestSupport::NetNsScope scope(a);
      ASSERT_TRUE(scope.ok());
      std::string error;
      platform = Platform::Linux::LinuxPlatform::open({}, db, &error);
      ASSERT_TRUE(platform) << error;
      bypass = db.entityAs<Identity::NbrClassification::BypassStatus>(
          "identity/nbrClassification/bypassStatus");
      ASSERT_TRUE(bypass);
   }
   void TearDown() override {
      platform.reset();
      Vel::StateDb::instance().clear();
   }
   Wire::IntfId port() const { return Wire::IntfId(pair->intfA()); }
   static Wire::EthAddr macOf(const std::string& ns, const std::string& intf) {
      std::string out;
      EXPECT_TRUE(TestSupport::runIn(ns, "cat /sys/class/net/" + intf + "/address", &out)) << out;
      return Wire::EthAddr::parse(out.substr(0, 17)).value_or(Wire::EthAddr());
   }
   void classify(const Wire::EthAddr& mac, NbrClass c) {
      const EntryKey key({.intfId = port(), .ethAddr = mac});
      if (auto e = status->entry(key)) {
         e->nbrClassIs(c);
         status->entryTouched(key);
         return;
      }
      auto e = Vel::make<Entry>(key);
      e->nbrClassIs(c);
      status->entryIs(key, e);
   }
   void unclassify(const Wire::EthAddr& mac) {
      status->entryDel(EntryKey({.intfId = port(), .ethAddr = mac}));
   }
   // The port's static forwarding entry for an address, as the kernel lists it.
   bool inFdb(const Wire::EthAddr& mac) {
      std::string out;
      TestSupport::runIn(pair->nsA(), "bridge fdb show dev " + pair->intfA(), &out);
      return out.find(mac.stringValue() + " master br0 static") != std::string::npos;
   }
   // Whether a datagram from the telephone reaches the bridge's address, ARP included
   // (the telephone's ARP cache is emptied first).
   bool getsThrough() {
      TestSupport::ipIn(pair->nsB(), "neigh flush all");
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_port = htons(9999);
      ::inet_pton(AF_INET, "10.9.0.1", &to.sin_addr);
      int rx = -1, tx = -1;
      {
         TestSupport::NetNsScope scope(pair->nsA());
         rx = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
         if (::bind(rx, reinterpret_cast<sockaddr*>(&to), sizeof(to)) != 0) ADD_FAILURE() << "bind";
      }
      {
         TestSupport::NetNsScope scope(pair->nsB());
         tx = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      }
      ::sendto(tx, "x", 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
      pollfd p{rx, POLLIN, 0};
      const bool got = ::poll(&p, 1, 1500) == 1;
      ::close(rx);
      ::close(tx);
      return got;
   }
   // Lets the platform hear the kernel and its timers run, until `cond` holds.
   bool waitFor(const std::function<bool()>& cond, Vel::Seconds t = 3) {
      return Vel::EventLoop::instance().runUntil(cond, t);
   }

   std::unique_ptr<TestSupport::NetNsPair> pair;
   std::unique_ptr<Platform::Linux::LinuxPlatform> platform;
   Lldp::CliConfig::Ptr config;
   Identity::NbrClassification::Status::Ptr status;
   Identity::NbrClassification::BypassStatus::Ptr bypass;
   Wire::EthAddr phone;
};

TEST_F(TelephoneBypassTest, ATelephonePassesTheLockedPortOnlyWhileClassified) {
   EXPECT_FALSE(getsThrough());
   classify(phone, NbrClass::device);
   waitFor([] { return false; }, 0.2);
   EXPECT_FALSE(inFdb(phone));

   classify(phone, NbrClass::telephone);
   ASSERT_TRUE(waitFor([&] { return inFdb(phone); }));
   EXPECT_TRUE(bypass->fdbEntry(EntryKey({.intfId = port(), .ethAddr = phone})));
   EXPECT_TRUE(getsThrough());

   // Gone (shutdown, age-out, clear): the entry goes, within the port's second.
   unclassify(phone);
   ASSERT_TRUE(waitFor([&] { return !inFdb(phone); }));
   EXPECT_FALSE(getsThrough());

   // Without the port's setting, or with the port unlocked, nothing is added.
   config->cliPortConfigIs(port())->dot1xTelephoneBypassIs(false);
   classify(phone, NbrClass::telephone);
   waitFor([] { return false; }, 1.2);
   EXPECT_FALSE(inFdb(phone));
   config->cliPortConfigIs(port())->dot1xTelephoneBypassIs(true);
   ASSERT_TRUE(waitFor([&] { return inFdb(phone); }));
   ASSERT_TRUE(
       TestSupport::runIn(pair->nsA(), "bridge link set dev " + pair->intfA() + " locked off"));
   ASSERT_TRUE(waitFor([&] { return !inFdb(phone); }));
   ASSERT_TRUE(
       TestSupport::runIn(pair->nsA(), "bridge link set dev " + pair->intfA() + " locked on"));
   ASSERT_TRUE(waitFor([&] { return inFdb(phone); }));
   EXPECT_TRUE(getsThrough());

   // Stopping removes what we added.
   platform.reset();
   EXPECT_FALSE(inFdb(phone));
   EXPECT_FALSE(getsThrough());
}

TEST_F(TelephoneBypassTest, OthersEntriesStayAndFlappingIsHeldToOneChangeASecond) {
   // An entry someone else made is neither taken over nor removed.
   const Wire::EthAddr other = *Wire::EthAddr::parse("00:1c:73:00:00:42");
   ASSERT_TRUE(TestSupport::runIn(pair->nsA(), "bridge fdb add " + other.stringValue() + " dev " +
                                                   pair->intfA() + " master static"));
   classify(other, NbrClass::telephone);
   waitFor([] { return false; }, 0.2);
   EXPECT_FALSE(bypass->fdbEntry(EntryKey({.intfId = port(), .ethAddr = other})));
   unclassify(other);
   waitFor([] { return false; }, 1.2);
   EXPECT_TRUE(inFdb(other));

   // A neighbour that flips with every frame: at most one change of the port a second,
   // and the last word holds.
   const uint64_t before = bypass->fdbWrites();
   const Vel::Seconds start = Vel::EventLoop::instance().now();
   for (int i = 0; i < 40; ++i) {
      classify(phone, i % 2 ? NbrClass::device : NbrClass::telephone);
      waitFor([] { return false; }, 0.05);
   }
   const Vel::Seconds took = Vel::EventLoop::instance().now() - start;
   EXPECT_LE(bypass->fdbWrites() - before, uint64_t(took) + 1);
   classify(phone, NbrClass::telephone);
   EXPECT_TRUE(waitFor([&] { return inFdb(phone); }));
   EXPECT_EQ(bypass->fdbWritesRefused(), 0u);
}

}  // namespace
