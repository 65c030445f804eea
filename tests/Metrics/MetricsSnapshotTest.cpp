// The loop's side of a scrape: a snapshot taken in slices while the table changes between
// them holds each neighbour that stayed exactly once; label bytes become valid UTF-8.
#include <gtest/gtest.h>
#include <prometheus/metric_family.h>

#include <set>
#include <string>

#include "Daemon/MetricsSnapshot.h"

namespace {

Lldp::Msap msap(const std::string& chassis) {
   return Lldp::Msap(
       {.chassisIdentifier = Lldp::ChassisIdentifier({.subtype = 7, .value = chassis}),
        .portIdentifier = Lldp::PortIdentifier({.subtype = 5, .value = "eth0"})});
}

TEST(MetricsSnapshot, SlicesResumeByKeyWhileTheTableChanges) {
   auto status = Vel::make<Lldp::Status>();
   auto all = Vel::make<Lldp::AllStatus>();
   for (const char* intf : {"eth1", "eth2", "eth3"}) {
      auto port = status->portStatusIs(Wire::IntfId(intf), 0.0);
      for (int i = 1; i <= 4; ++i) {
         port->remoteSystemIs(i, msap(std::string(intf) + "-n" + std::to_string(i)));
      }
      all->portStatusIs(Wire::IntfId(intf), port);
   }
   Daemon::MetricsSnapshotBuilder b(all, nullptr, nullptr, nullptr);
   auto limits = Vel::make<Daemon::ClientLimits>();
   limits->requestsTooLongInc(3);
   b.clientLimitsIs(limits);
   b.start(0, 0);
   ASSERT_FALSE(b.step(3));  // eth1 and two of its neighbours
   // Between slices: one not yet copied goes, a new one comes behind the resume point,
   // and the next port goes altogether.
   status->portStatus(Wire::IntfId("eth1"))->remoteSystemDel(3);
   status->portStatus(Wire::IntfId("eth1"))->remoteSystemIs(5, msap("eth1-n5"));
   all->portStatusDel(Wire::IntfId("eth2"));
   size_t slices = 1;
   while (!b.step(3)) ASSERT_LT(++slices, 10u);
   const Daemon::MetricsSnapshot snap = b.take();
   ASSERT_TRUE(snap.complete);
   // The control socket's refusals, one series per limit.
   int found = 0;
   for (const auto& f : Daemon::metricFamilies(snap)) {
      if (f.name != "lldp_control_limit_hits_total") continue;
      ++found;
      ASSERT_EQ(f.metric.size(), 5u);
      EXPECT_EQ(f.metric[1].label[0].value, "request_bytes");
      EXPECT_EQ(f.metric[1].counter.value, 3);
      EXPECT_EQ(f.metric[2].counter.value, 0);
   }
   EXPECT_EQ(found, 1);
   ASSERT_EQ(snap.ports.size(), 2u);
   EXPECT_EQ(snap.ports[1].name, "eth3");
   std::multiset<std::string> seen;
   for (const auto& n : snap.neighbors) {
      seen.insert(snap.ports[n.port].name + ":" + snap.bytes.substr(n.offset, n.length[0]));
   }
   EXPECT_EQ(seen, (std::multiset<std::string>{"eth1:eth1-n1", "eth1:eth1-n2", "eth1:eth1-n4",
                                               "eth1:eth1-n5", "eth3:eth3-n1", "eth3:eth3-n2",
                                               "eth3:eth3-n3", "eth3:eth3-n4"}));

   // A port re-created under its name while a slice stopped inside it (its indexes start
   // afresh) is left out of that scrape, not resumed in the new record.
   Daemon::MetricsSnapshotBuilder again(all, nullptr, nullptr, nullptr);
   again.start(0, 0);
   ASSERT_FALSE(again.step(2));  // eth1 and its first neighbour
   status->portStatusDel(Wire::IntfId("eth1"));
   auto fresh = status->portStatusIs(Wire::IntfId("eth1"), 0.0);
   for (int i = 1; i <= 3; ++i) fresh->remoteSystemIs(i, msap("fresh" + std::to_string(i)));
   all->portStatusIs(Wire::IntfId("eth1"), fresh);
   ASSERT_TRUE(again.step(100));  // the rest in one slice
   const Daemon::MetricsSnapshot second = again.take();
   ASSERT_EQ(second.ports.size(), 2u);
   EXPECT_EQ(second.neighbors.size(), 1u + 4u);
}

TEST(MetricsSnapshot, LabelValuesAreValidUtf8) {
   const std::string bad = "\xef\xbf\xbd";
   EXPECT_EQ(Daemon::validUtf8("caf\xc3\xa9 \xf0\x9f\x93\x9e"), "caf\xc3\xa9 \xf0\x9f\x93\x9e");
   EXPECT_EQ(Daemon::validUtf8("a\x80z"), "a" + bad + "z");                  // stray continuation
   EXPECT_EQ(Daemon::validUtf8("\xc0\xaf"), bad + bad);                      // overlong '/'
   EXPECT_EQ(Daemon::validUtf8("\xed\xa0\x80"), bad + bad + bad);            // surrogate
   EXPECT_EQ(Daemon::validUtf8("\xf4\x90\x80\x80"), bad + bad + bad + bad);  // above U+10FFFF
   EXPECT_EQ(Daemon::validUtf8("x\xe2\x82"), "x" + bad + bad);               // cut short
   EXPECT_EQ(Daemon::validUtf8(std::string("\0\"\\", 3)), std::string("\0\"\\", 3));
}

}  // namespace
