// The protocol engine in virtual time, over in-memory packet access. First the per-port
// machine alone: two machines joined by a pair of packet access objects. Then the engine as
// a whole: the set of per-port machines follows the ports' records and packet access, local
// changes reach the ports they concern, and the global switch turns packet access on and
// off; each port is cabled to a far end the test sends and listens on.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/Frames.h"
#include "tests/Support/PamFrames.h"
#include "tests/Support/PortRecords.h"
#include "tests/Support/Switch.h"

namespace {

using namespace Lldp::Agent::Protocol;
using TestSupport::InMemoryLinks;
using TestSupport::Switch;

// Sends one LLDPDU with this chassis name and TTL from `pam`'s end of its link.
void inject(Wire::Pam& pam, const std::string& chassis, int ttl, uint16_t ethType = 0x88cc,
            bool tagged = false) {
   const TestSupport::Bytes f = TestSupport::lldpFrame(chassis, uint16_t(ttl), ethType, tagged);
   pam.txPktIs(TestSupport::pktOf(std::string(f.begin(), f.end())));
}

// The loop in virtual time from t0, traces and syslog off, neighbour event log keys
// collected in `logs`. A base class, so that it is torn down after the machines.
class EngineTest : public ::testing::Test {
protected:
   EngineTest() {
      Vel::Trace::textTraceIs("-");
      Vel::Log::syslogIs(false);
      Vel::Log::sinkIs([this](const Vel::Log::Message& m) { logs.push_back(m.key); });
      loop().virtualTimeIs(true, t0);
   }
   ~EngineTest() override {
      loop().advanceBy(0);
      loop().virtualTimeIs(false);
      Vel::Log::sinkIs(nullptr);
      Vel::Log::syslogIs(true);
      Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
   }
   static Vel::EventLoop& loop() { return Vel::EventLoop::instance(); }
   void at(Vel::Seconds t) { loop().advanceTo(t0 + t); }

   const Vel::Seconds t0 = 1000;
   std::vector<std::string> logs;
};

// One end of a link: the records of one port on its own switch and the port's machine over
// the packet access given (not yet initialised).
struct Side : TestSupport::PortRecords {
   Side(const std::string& name, Vel::Ptr<Wire::Pam> pam, uint8_t macLast)
       : PortRecords(name, std::string("\x02\0\0\0\0", 5) + char(macLast), "sw-" + name) {
      auto dir = Vel::make<Interface::EthPhyIntfStatusDir>();
      intfStatus = dir->intfStatusIs(intf);
      const uint8_t mac[6] = {0x02, 0, 0, 0, 0, macLast};
      intfStatus->addrIs(Wire::EthAddr::fromBytes(mac));
      intfStatus->linkStatusIs(Interface::linkStatusUp);
      root->ethPhyIntfStatusDirIs(dir);
      sm = Vel::make<LldpPamSm>(intf, pam, root);
   }
   ~Side() {
      if (sm->initialized()) sm->doClose();
   }
   uint32_t sent() const { return portStatus->txFramesTotal(); }
   size_t neighbours() const { return portStatus->remoteSystem().size(); }

   Interface::EthPhyIntfStatus::Ptr intfStatus;
   Vel::Ptr<LldpPamSm> sm;
};

class LldpPamSmTest : public EngineTest {
protected:
   void SetUp() override {
      std::tie(pamA, pamB) =
          Wire::InMemoryPam::pair(Wire::IntfId("Ethernet1"), Wire::IntfId("Ethernet2"));
      a = std::make_unique<Side>("Ethernet1", pamA, 1);
      b = std::make_unique<Side>("Ethernet2", pamB, 2);
   }
   // The times (relative to t0) of A's transmissions from `from` to `until`.
   std::vector<double> sendTimesOfA(double from, double until) {
      std::vector<double> times;
      uint32_t before = a->sent();
      for (double t = from; t <= until; t += 0.5) {
         at(t);
         if (a->sent() != before) times.push_back(a->portStatus->lastTxTime() - t0);
         before = a->sent();
      }
      return times;
   }

   Vel::Ptr<Wire::InMemoryPam> pamA, pamB;
   std::unique_ptr<Side> a, b;
};

TEST_F(LldpPamSmTest, TwoMachinesDiscoverEachOtherAfterTxDelay) {
   a->sm->handleInitialized();
   b->sm->handleInitialized();
   // The first frame waits txDelay (to the tenth of a second where the port config comes
   // back, below, and to the half second in the refresh test).
   at(2);
   ASSERT_EQ(a->neighbours(), 1u);
   ASSERT_EQ(b->neighbours(), 1u);
   auto seenByB = b->portStatus->remoteSystem().begin()->second;
   EXPECT_EQ(seenByB->sysName().value(), "sw-Ethernet1");
   EXPECT_EQ(seenByB->msap().portIdentifier().value().value(), "Ethernet1");
   EXPECT_EQ(seenByB->ethAddr(), a->intfStatus->addr());
   // Each machine heard a new neighbour while in txDelay: one more frame when it ends.
   at(4);
   EXPECT_EQ(a->sent(), 2u);
}

TEST_F(LldpPamSmTest, RefreshEveryMessageTxIntervalAndLocalChanges) {
   a->sm->handleInitialized();  // B stays silent: no neighbour-triggered frames
   EXPECT_EQ(sendTimesOfA(0, 95), (std::vector<double>{2, 32, 62, 92}));
   // Idle: a local change goes out at once; a second within txDelay waits for the
   // running delay without restarting it; a third in txWait does nothing.
   at(100);
   EXPECT_EQ(a->sm->txFsmState(), txFsmIdle);
   a->sm->doProcessSomethingChangedLocal();
   EXPECT_EQ(a->sent(), 5u);
   at(101);
   a->sm->doProcessSomethingChangedLocal();
   EXPECT_EQ(a->sm->txFsmState(), txFsmTxWait);
   at(101.5);
   a->sm->doProcessSomethingChangedLocal();
   EXPECT_EQ(sendTimesOfA(101.5, 140), (std::vector<double>{102, 132}));
}

TEST_F(LldpPamSmTest, LinkDownReinitialisesWithoutAShutdownFrame) {
   a->sm->handleInitialized();
   at(10);
   const uint32_t before = a->sent();
   a->intfStatus->linkStatusIs(Interface::linkStatusDown);
   EXPECT_EQ(a->sm->txFsmState(), txFsmReinitializing);
   at(11);
   a->intfStatus->linkStatusIs(Interface::linkStatusUp);  // back during reinitDelay
   EXPECT_EQ(a->sm->txFsmState(), txFsmReinitializing);
   EXPECT_EQ(a->sent(), before);
   at(12);  // reinitDelay over: disabled, sees the link up, waits txDelay
   EXPECT_EQ(a->sm->txFsmState(), txFsmTxWait);
   EXPECT_EQ(sendTimesOfA(12, 14), (std::vector<double>{14}));
   // Unknown link status stops transmission too.
   a->intfStatus->linkStatusIs(Interface::linkStatusUnknown);
   EXPECT_EQ(a->sm->txFsmState(), txFsmReinitializing);
}

TEST_F(LldpPamSmTest, ReceiveOnlyPortNeverSendsButLearns) {
   a->portConfig->adminStatusIs(Lldp::adminStatusRxOnly);
   a->sm->handleInitialized();
   b->sm->handleInitialized();
   at(100);
   EXPECT_EQ(a->sent(), 0u);
   EXPECT_EQ(a->sm->txFsmState(), txFsmDisabled);
   EXPECT_EQ(a->neighbours(), 1u);
   // Transmit-only to transmit-and-receive while idle changes nothing on B's side.
   b->portConfig->adminStatusIs(Lldp::adminStatusTxOnly);
   EXPECT_EQ(b->sm->txFsmState(), txFsmIdle);
}

TEST_F(LldpPamSmTest, RateLimitDropsCountsAndLogsPerFixedWindowWhoseClockSleepsWhenQuiet) {
   a->portConfig->rxRateLimitMaxLldpdusIs(2);
   a->sm->handleInitialized();  // windows [0, 1), [1, 2), ... however quiet the port
   EXPECT_EQ(a->sm->rxRateLimitClockTime(), Vel::never);
   at(0.1);
   for (int i = 0; i < 3; ++i) inject(*pamB, std::string("q").append(std::to_string(i)), 120);
   at(0.2);
   EXPECT_EQ(a->neighbours(), 2u);
   EXPECT_EQ(a->sm->rxLldpdusRateLimited(), 1u);
   EXPECT_EQ(std::count(logs.begin(), logs.end(), "LLDP_RX_RATELIMIT"), 1);
   EXPECT_EQ(a->sm->rxRateLimitClockTime(), t0 + 1);
   at(1);  // the window ends on time, then the clock sleeps again
   EXPECT_EQ(a->sm->rxLldpdus(), 0u);
   EXPECT_EQ(a->sm->rxRateLimitClockTime(), Vel::never);
   at(3.9);  // a burst late in a window after a quiet spell: the boundaries stay
   for (int i = 3; i < 6; ++i) inject(*pamB, std::string("q").append(std::to_string(i)), 120);
   at(3.95);
   EXPECT_EQ(a->sm->rxLldpdusRateLimited(), 2u);
   EXPECT_EQ(a->sm->rxRateLimitClockTime(), t0 + 4);
   at(4.05);
   for (int i = 6; i < 8; ++i) inject(*pamB, std::string("q").append(std::to_string(i)), 120);
   at(4.1);
   EXPECT_EQ(a->sm->rxLldpdus(), 2u);
   EXPECT_EQ(a->sm->rxLldpdusRateLimited(), 2u);
   EXPECT_EQ(a->neighbours(), 6u);
}

TEST_F(LldpPamSmTest, OtherTypesIgnoredTaggedAcceptedAgeingAtExpiryLinkDownVersusUnknown) {
   a->sm->handleInitialized();
   at(0.5);
   inject(*pamB, "x", 120, 0x0800);         // never reaches the processor
   inject(*pamB, "ten", 10, 0x88cc, true);  // tagged: taken, with its TTL (it ages first)
   inject(*pamB, "twenty", 20);
   at(0.5);
   ASSERT_EQ(a->neighbours(), 2u);
   EXPECT_EQ(a->portStatus->rxFramesTotal(), 2u);
   EXPECT_EQ(a->sm->ageClock().timeMin(), t0 + 10.5);
   at(10.4);
   EXPECT_EQ(a->neighbours(), 2u);
   at(10.5);  // expiry equals now: aged
   EXPECT_EQ(a->neighbours(), 1u);
   EXPECT_EQ(a->sm->ageClock().timeMin(), t0 + 20.5);
   EXPECT_EQ(a->portStatus->rxAgeoutsTotal(), 1u);
   EXPECT_EQ(a->status->remTablesAgeouts(), 1u);
   EXPECT_EQ(std::count(logs.begin(), logs.end(), "LLDP_NEIGHBOR_TIMEOUT"), 1);
   // Unknown link status keeps neighbours; down deletes them without counting ageouts.
   inject(*pamB, "third", 120);
   at(11);
   a->intfStatus->linkStatusIs(Interface::linkStatusUnknown);
   EXPECT_EQ(a->neighbours(), 2u);
   const uint32_t deletes = a->status->remTablesDeletes();
   a->intfStatus->linkStatusIs(Interface::linkStatusDown);
   EXPECT_EQ(a->neighbours(), 0u);
   EXPECT_EQ(a->status->remTablesDeletes(), deletes + 2);
   EXPECT_EQ(a->portStatus->rxAgeoutsTotal(), 1u);
   at(30);  // nothing left to age: the clock is parked
   EXPECT_EQ(a->sm->ageClock().timeMin(), Vel::never);
}

// A few neighbours expire among hundreds refreshed every 30 s: each at its exact expiry,
// including one whose time to live shrank while the timer was set for another, and those
// that expire together are timed out in table order; the timer always waits for the
// earliest expiry left.
TEST_F(LldpPamSmTest, AgeingAmongManyRefreshedNeighbours) {
   std::vector<std::string> timedOut;
   Vel::Log::sinkIs([&](const Vel::Log::Message& m) {
      if (m.key == "LLDP_NEIGHBOR_TIMEOUT")
         timedOut.push_back(m.text.substr(m.text.find("chassisId ") + 10, 3));
   });
   a->portConfig->rxRateLimitEnabledIs(false);
   a->portConfig->remoteSystemLimitIs(1000);
   a->sm->handleInitialized();
   const auto refreshAll = [&](double t, bool withN07) {
      at(t);
      for (int i = 0; i < 300; ++i) {
         char name[8];
         std::snprintf(name, sizeof(name), "n%02d", i);
         if (withN07 || i != 7) inject(*pamB, name, 120);
      }
      at(t);
   };
   refreshAll(0.5, true);
   inject(*pamB, "erl", 35);  // expires at 35.5
   inject(*pamB, "srt", 120);
   for (const char* q : {"q_1", "q_2", "q_3", "q_4"}) inject(*pamB, q, 120);
   at(0.5);
   ASSERT_EQ(a->neighbours(), 306u);
   refreshAll(30.5, true);
   inject(*pamB, "srt", 10);  // now expires at 40.5, after the timer's 35.5
   at(30.5);
   at(35.5);
   EXPECT_EQ(timedOut, (std::vector<std::string>{"erl"}));
   EXPECT_EQ(a->sm->ageClock().timeMin(), t0 + 40.5);
   at(40.4);
   EXPECT_EQ(a->neighbours(), 305u);
   at(40.5);
   EXPECT_EQ(timedOut, (std::vector<std::string>{"erl", "srt"}));
   at(50.5);  // refreshed in reverse order, all to expire at 70.5
   for (const char* q : {"q_4", "q_3", "q_2", "q_1"}) inject(*pamB, q, 20);
   at(50.5);
   refreshAll(60.5, true);
   at(70.4);
   EXPECT_EQ(a->neighbours(), 304u);
   at(70.5);
   EXPECT_EQ(timedOut, (std::vector<std::string>{"erl", "srt", "q_1", "q_2", "q_3", "q_4"}));
   for (double t = 90.5; t < 180; t += 30) refreshAll(t, false);  // n07 last heard at 60.5
   at(180.4);
   EXPECT_EQ(a->neighbours(), 300u);
   at(180.5);
   EXPECT_EQ(a->neighbours(), 299u);
   EXPECT_EQ(timedOut.back(), "n07");
   EXPECT_EQ(a->portStatus->rxAgeoutsTotal(), 7u);
   EXPECT_EQ(a->status->remTablesAgeouts(), 7u);
   EXPECT_EQ(a->sm->ageClock().timeMin(), t0 + 150.5 + 120);
   // The queue holds about one entry per neighbour however many refreshes went by.
   EXPECT_LE(a->sm->ageQueue().entries(), 299u * 3 / 2 + 16);
}

// Keeps what arrives at the far end of a link, and the end itself (released last).
struct FarEndPam {
   Vel::Ptr<Wire::InMemoryPam> end;
};
struct FarEnd final : FarEndPam, TestSupport::PamReader {
   explicit FarEnd(Vel::Ptr<Wire::InMemoryPam> p) : FarEndPam{std::move(p)}, PamReader(end.ptr()) {}
};

class ProtocolSmTest : public EngineTest {
protected:
   void SetUp() override {
      for (const char* p : {"Ethernet1", "Ethernet2"}) {
         links.linkIs(Wire::IntfId(p), Wire::IntfId(std::string("far-").append(p)));
      }
      sw = std::make_unique<Switch>("sw1", 1, links.factory());
   }
   // Both ports up and listened to; the first frames are out by t = 2.
   void twoPorts() {
      far1 = std::make_unique<FarEnd>(links.far("Ethernet1"));
      far2 = std::make_unique<FarEnd>(links.far("Ethernet2"));
      sw->start();
      sw->portIs("Ethernet1", 1);
      sw->portIs("Ethernet2", 2);
   }

   InMemoryLinks links;
   std::unique_ptr<Switch> sw;
   std::unique_ptr<FarEnd> far1, far2;
};

TEST_F(ProtocolSmTest, PortGetsAMachineOnlyWithAllItsInputs) {
   sw->start();
   const Wire::IntfId intf("Ethernet1");
   auto& protocol = *sw->root->protocolSm();
   // Every input but packet access: no machine.
   sw->intfStatusDir->intfStatusIs(intf)->linkStatusIs(Interface::linkStatusUp);
   sw->config->portConfigIs(intf);
   sw->localSystem->localPortIs(intf);
   sw->status->portStatusIs(intf, 0.0);
   EXPECT_FALSE(protocol.lldpPamSmHas(intf));
   EXPECT_EQ(sw->pamCollection->intfPams(), 0u);
   // Packet access wanted: the manager opens it and the port qualifies.
   sw->desiredIntfDir->intfDesiredIs(intf, true);
   EXPECT_EQ(sw->pamCollection->intfPams(), 1u);
   ASSERT_TRUE(protocol.lldpPamSmHas(intf));
   EXPECT_EQ(protocol.lldpPamSm(intf)->txFsmState(), txFsmTxWait);
   EXPECT_TRUE(protocol.localPortSmHas(intf));
   // Losing the interface status is enough to lose the machine.
   sw->intfStatusDir->intfStatusDel(intf);
   EXPECT_FALSE(protocol.lldpPamSmHas(intf));
   sw->intfStatusDir->intfStatusIs(intf)->linkStatusIs(Interface::linkStatusUp);
   EXPECT_TRUE(protocol.lldpPamSmHas(intf));
   // The local port is no input of the machine: a new record for the port reaches the
   // running machine; only the local-port machine is made afresh.
   const auto machine = protocol.lldpPamSm(intf);
   sw->localSystem->localPortDel(intf);
   EXPECT_FALSE(protocol.localPortSmHas(intf));
   auto fresh = sw->localSystem->localPortIs(intf);
   EXPECT_TRUE(protocol.localPortSmHas(intf));
   EXPECT_EQ(protocol.lldpPamSm(intf), machine);
   EXPECT_EQ(machine->localPort(), fresh);
   EXPECT_EQ(machine->txFsmState(), txFsmTxWait);
}

TEST_F(ProtocolSmTest, PortConfigGoneDropsMachineAndNeighboursThenAFreshStart) {
   twoPorts();
   inject(*far1->end, "peer-a", 120);
   loop().advanceBy(0);
   ASSERT_EQ(sw->neighbours("Ethernet1"), 1u);
   at(40);
   const Wire::IntfId intf("Ethernet1");
   auto before = sw->sm("Ethernet1");
   ASSERT_TRUE(before);
   EXPECT_EQ(before->txFsmState(), txFsmIdle);
   const uint64_t deletesBefore = sw->status->remTablesDeletes();
   const size_t framesBefore = far1->frames.size();

   // The machine is closed before it is removed: whoever watches the neighbours go still
   // finds the port's machine.
   struct Watcher : Lldp::PortStatus::Notifiee {
      std::function<void()> onChange;
      void remoteSystemChanged(const int&) override { onChange(); }
   } watcher;
   std::vector<bool> machineWhileNeighbourWent;
   watcher.onChange = [&] { machineWhileNeighbourWent.push_back(bool(sw->sm("Ethernet1"))); };
   watcher.notifierIs(sw->portStatus("Ethernet1"));
   sw->config->portConfigDel(intf);
   watcher.notifierIs(nullptr);
   EXPECT_EQ(machineWhileNeighbourWent, std::vector<bool>{true});
   EXPECT_FALSE(sw->sm("Ethernet1"));
   EXPECT_EQ(sw->neighbours("Ethernet1"), 0u);  // gone at once, not when they age
   EXPECT_EQ(sw->status->remTablesDeletes(), deletesBefore + 1);
   EXPECT_TRUE(sw->sm("Ethernet2"));  // the other port is untouched
   at(100);
   // No shutdown frame, and the old machine's timers died with it: the far end's
   // neighbour ages out at its TTL.
   EXPECT_EQ(far1->frames.size(), framesBefore);

   sw->config->portConfigIs(intf);
   auto fresh = sw->sm("Ethernet1");
   ASSERT_TRUE(fresh);
   EXPECT_NE(fresh, before);
   at(101.9);  // initialised afresh: the first frame waits txDelay
   EXPECT_EQ(far1->frames.size(), framesBefore);
   at(102);
   EXPECT_EQ(far1->frames.size(), framesBefore + 1);
}

// A change goes out at once; changes that follow within txDelay go together when the
// delay ends, without restarting it.
TEST_F(ProtocolSmTest, LocalChangeSendsAtOnceAndWhatFollowsWithinTxDelayWhenItEnds) {
   twoPorts();
   at(40);  // both idle
   const size_t one = far1->frames.size(), two = far2->frames.size();
   sw->localSystem->sysNameIs("name-two");  // the system: every port
   loop().advanceBy(0);
   ASSERT_EQ(far1->frames.size(), one + 1);
   EXPECT_EQ(far2->frames.size(), two + 1);
   EXPECT_NE(far1->frames.back().bytes.find("name-two"), std::string::npos);
   at(41);
   sw->localSystem->sysDescIs("desc-two");
   sw->localSystem->localPort(Wire::IntfId("Ethernet1"))->portDescIs("port-two");
   EXPECT_EQ(sw->sm("Ethernet1")->txFsmState(), txFsmTxWait);
   at(41.99);
   EXPECT_EQ(far1->frames.size(), one + 1);
   at(42);
   ASSERT_EQ(far1->frames.size(), one + 2);
   EXPECT_EQ(far2->frames.size(), two + 2);
   for (const char* text : {"name-two", "desc-two", "port-two"}) {
      EXPECT_NE(far1->frames.back().bytes.find(text), std::string::npos) << text;
   }
   EXPECT_EQ(far2->frames.back().bytes.find("port-two"), std::string::npos);
}

// Exactly seven attributes of the local system (every port) and seven of a local port
// (that port alone) are local changes; the rest go with the next frame. A PoE record
// appearing is no change; what it reports is one, of its port.
TEST_F(ProtocolSmTest, ExactlyTheAdvertisedAttributesAreLocalChanges) {
   twoPorts();
   Lldp::LocalSystem& sys = *sw->localSystem;
   Lldp::LocalPort& port = *sys.localPort(Wire::IntfId("Ethernet1"));
   Lldp::SystemCapabilitiesMap caps;
   caps.bridgeIs(true);
   const Lldp::ManagementAddress::Key v4({.subtype = 1, .address = std::string("\x0a\0\0\x01", 4)});
   Environment::Power::PoePortStatus::PortStatus delivering;
   delivering.stateIs(Environment::Power::PoePortStatus::PortStatus::stateDelivering);
   Vel::Ptr<Lldp::LocalPortPoeInfo> poe;
   struct Case {
      const char* what;
      std::function<void()> change;
      int toPort1, toPort2;
   };
   const std::vector<Case> cases = {
       {"chassisIdentifier",
        [&] { sys.chassisIdentifierIs(Lldp::ChassisIdentifier({.subtype = 7, .value = "c"})); }, 1,
        1},
       {"sysName", [&] { sys.sysNameIs("n"); }, 1, 1},
       {"sysDesc", [&] { sys.sysDescIs("d"); }, 1, 1},
       {"sysCapSupported", [&] { sys.sysCapSupportedIs(caps); }, 1, 1},
       {"sysCapEnabled", [&] { sys.sysCapEnabledIs(caps); }, 1, 1},
       {"ip6ManagementAddress",
        [&] {
           sys.ip6ManagementAddressIs(Lldp::ManagementAddress(
               {.key =
                    Lldp::ManagementAddress::Key({.subtype = 2, .address = std::string(16, ' ')}),
                .ifNumber = 3}));
        },
        1, 1},
       {"managementAddress", [&] { sys.managementAddressIs(Lldp::ManagementAddress({.key = v4})); },
        0, 0},
       {"managementAddressPrio",
        [&] { sys.managementAddressPrioIs(Lldp::ManAddrPriority({.primaryPriority = 7}), v4); }, 1,
        1},
       {"portIdentifier",
        [&] { port.portIdentifierIs(Lldp::PortIdentifier({.subtype = 7, .value = "p"})); }, 1, 0},
       {"portDesc", [&] { port.portDescIs("pd"); }, 1, 0},
       {"portVlanId", [&] { port.portVlanIdIs(Bridging::VlanIdOrNone(12)); }, 1, 0},
       {"linkAggregationInfo",
        [&] { port.linkAggregationInfoIs(Lldp::LinkAggregationInfo({.aggregatedPortId = 5})); }, 1,
        0},
       {"maximumFrameSizeInfo",
        [&] { port.maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = 9000})); }, 1,
        0},
       {"medCapabilities",
        [&] {
           port.medCapabilitiesIs(
               Lldp::MedCapabilitiesInfo({.capabilities = Lldp::MedCapability(0x01)}));
        },
        1, 0},
       {"localNetworkPolicyTlv",
        [&] { port.localNetworkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 1, .vlanId = 9})); },
        1, 0},
       {"unknownOrgDefTlv",
        [&] {
           port.unknownOrgDefTlvIs(Lldp::UnknownOrgDefTlv(
               {.key = Lldp::UnknownOrgDefTlv::Key({.oui = Lldp::Oui(0x001122), .subtype = 1}),
                .value = "x"}));
        },
        0, 0},
       {"ztpBootVlan", [&] { port.ztpBootVlanIs(Bridging::VlanIdOrNone(3)); }, 0, 0},
       {"PoE record appears", [&] { poe = port.initilizeLocalPortPoeInfo(); }, 0, 0},
       {"PoE report", [&] { poe->poePortStatusIs(delivering); }, 1, 0},
   };
   double t = 40;
   for (const Case& c : cases) {
      at(t += 40);  // idle again
      const size_t one = far1->frames.size(), two = far2->frames.size();
      c.change();
      loop().advanceBy(0);
      EXPECT_EQ(far1->frames.size() - one, size_t(c.toPort1)) << c.what;
      EXPECT_EQ(far2->frames.size() - two, size_t(c.toPort2)) << c.what;
   }
}

// With the platform's interface status, packet access opens only on interfaces of the
// agent's own network namespace ("lo", index 1, is in every one); without the filter on
// every interface the platform knows.
TEST_F(ProtocolSmTest, PacketAccessOnlyOnInterfacesOfTheAgentsNamespace) {
   Vel::StateDb db;
   auto all = db.mount<Interface::AllIntfStatusDir>("interface/status/all");
   all->intfStatusIs(Wire::IntfId("lo"))->ifIndexIs(1);
   links.linkIs(Wire::IntfId("lo"), Wire::IntfId("far-lo"));
   Root& root = *sw->root;
   root.intfStatusManagerRootIs(&db);
   root.doInitializePamMan(links.factory());  // again, now with the interface status
   EXPECT_EQ(root.allIntfStatusDir(), all);
   // The platform's own record, not a copy.
   EXPECT_EQ(root.allIntfStatusLocalDir()->intfStatus(Wire::IntfId("lo")),
             all->intfStatus(Wire::IntfId("lo")));
   sw->start();
   sw->portIs("Ethernet1", 1);
   sw->portIs("lo", 2);
   EXPECT_TRUE(sw->sm("lo"));
   EXPECT_FALSE(sw->sm("Ethernet1"));
   EXPECT_EQ(root.pamMan()->failed().at(Wire::IntfId("Ethernet1")),
             "not in this agent's network namespace");
   // Known to the platform, but not here (no such interface in this namespace).
   all->intfStatusIs(Wire::IntfId("Ethernet1"))->ifIndexIs(1);
   EXPECT_FALSE(sw->sm("Ethernet1"));
   root.filterByNetNsIs(false);
   all->intfStatusTouched(Wire::IntfId("Ethernet1"));
   EXPECT_TRUE(sw->sm("Ethernet1"));
   // Gone from the platform: no longer the agent's.
   all->intfStatusDel(Wire::IntfId("lo"));
   EXPECT_FALSE(root.allIntfStatusLocalDir()->intfStatus(Wire::IntfId("lo")));
}

TEST_F(ProtocolSmTest, GlobalSwitchTurnsPacketAccessOffAndOn) {
   twoPorts();
   inject(*far1->end, "peer-a", 120);
   at(10);
   ASSERT_EQ(sw->neighbours("Ethernet1"), 1u);
   EXPECT_TRUE(sw->root->pamMan()->enabled());

   sw->cliConfig->enabledIs(false);
   EXPECT_FALSE(sw->root->pamMan()->enabled());
   EXPECT_EQ(sw->pamCollection->intfPams(), 0u);
   EXPECT_TRUE(sw->root->protocolSm()->lldpPamSm().empty());
   EXPECT_EQ(sw->neighbours("Ethernet1"), 0u);
   // The records stay: only frames stop.
   EXPECT_TRUE(sw->config->portConfig(Wire::IntfId("Ethernet1")));
   EXPECT_TRUE(sw->root->protocolSm()->localPortSmHas(Wire::IntfId("Ethernet1")));

   sw->cliConfig->enabledIs(true);
   EXPECT_EQ(sw->pamCollection->intfPams(), 2u);
   ASSERT_TRUE(sw->sm("Ethernet1"));
   EXPECT_EQ(sw->sm("Ethernet1")->txFsmState(), txFsmTxWait);
   // A new cable end to listen on: the old one went with the old packet access.
   far1 = std::make_unique<FarEnd>(links.far("Ethernet1"));
   at(12);
   EXPECT_EQ(far1->frames.size(), 1u);
}

TEST_F(ProtocolSmTest, PacketAccessThatCannotBeOpenedIsRetriedWhenTheInterfaceAppears) {
   links.missing[Wire::IntfId("Ethernet1")] = true;
   sw->start();
   sw->portIs("Ethernet1", 1);
   auto& man = *sw->root->pamMan();
   ASSERT_EQ(man.failed().count(Wire::IntfId("Ethernet1")), 1u);
   EXPECT_EQ(man.failed().at(Wire::IntfId("Ethernet1")), "no such interface");
   EXPECT_FALSE(sw->sm("Ethernet1"));

   links.missing.clear();
   // The platform reports the device (here: its status record comes again).
   sw->intfStatusDir->intfStatusDel(Wire::IntfId("Ethernet1"));
   sw->intfStatusDir->intfStatusIs(Wire::IntfId("Ethernet1"))
       ->linkStatusIs(Interface::linkStatusUp);
   EXPECT_TRUE(man.failed().empty());
   EXPECT_TRUE(sw->sm("Ethernet1"));

   // Not wanted any more: closed, and a later retry does nothing.
   sw->desiredIntfDir->intfDesiredIs(Wire::IntfId("Ethernet1"), false);
   EXPECT_EQ(sw->pamCollection->intfPams(), 0u);
   EXPECT_FALSE(sw->sm("Ethernet1"));
   const int made = links.made;
   man.intfRetry(Wire::IntfId("Ethernet1"));
   EXPECT_EQ(links.made, made);
}

}  // namespace
