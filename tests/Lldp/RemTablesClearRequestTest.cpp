// The operator's request to empty the neighbour tables: served once per request time,
// across every port, and logged with who asked and from where.
#include <gtest/gtest.h>

#include <vector>

#include "Framework/Log.h"
#include "Framework/Vel/EventLoop.h"
#include "Lldp/LldpInputSm.h"

namespace {

Lldp::Msap msap(int n) {
   return Lldp::Msap(
       {.chassisIdentifier = Lldp::ChassisIdentifier(
            {.subtype = Lldp::chassisIdSubtypeLocal, .value = "c" + std::to_string(n)}),
        .portIdentifier =
            Lldp::PortIdentifier({.subtype = Lldp::portIdSubtypeLocal, .value = "p"})});
}

TEST(RemTablesClearRequest, ServesEachRequestOnceOnEveryPort) {
   std::vector<Vel::Log::Message> logs;
   Vel::Log::sinkIs([&](const Vel::Log::Message& m) { logs.push_back(m); });
   auto root = Vel::make<Lldp::Agent::Input::Root>();
   root->statusIs(Vel::make<Lldp::Status>());
   root->remTablesStatusIs(Vel::make<Lldp::RemTablesStatus>());
   auto fill = [&] {
      for (const char* name : {"Ethernet1", "Ethernet2"}) {
         auto port = root->status()->portStatusIs(Wire::IntfId(name), 0.0);
         for (int i = 1; i <= 3; ++i) {
            auto r = port->remoteSystemIs(i, msap(i));
            port->remoteSystemByMsapIs(r);
         }
      }
   };
   fill();
   auto request = Vel::make<Lldp::RemTablesCliConfig>();
   root->remTablesClearRequestSmIs(request);
   // No request yet (time 0): nothing happens at start.
   EXPECT_EQ(root->status()->portStatus(Wire::IntfId("Ethernet1"))->remoteSystem().size(), 3u);

   request->clearRequestedByIs(Lldp::BoundedString255("alice"));
   request->clearRequestedOnIs(Lldp::BoundedString255("/dev/pts/3"));
   request->clearRequestTimeIs(50);
   for (const auto& [intf, port] : root->status()->portStatus()) {
      EXPECT_TRUE(port->remoteSystem().empty()) << intf;
      EXPECT_TRUE(port->remoteSystemByMsap().empty()) << intf;
   }
   EXPECT_EQ(root->remTablesStatus()->remTablesLastClearTime(), 50);
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].key, "LLDP_REMOTE_TABLES_CLEARED");
   EXPECT_EQ(logs[0].text, "LLDP neighbor table cleared by alice on /dev/pts/3");

   // The same request seen again (a restarted machine) or an older one clears nothing.
   fill();
   root->remTablesClearRequestSmDel();
   root->remTablesClearRequestSmIs(request);
   request->clearRequestTimeIs(40);
   EXPECT_EQ(root->status()->portStatus(Wire::IntfId("Ethernet2"))->remoteSystem().size(), 3u);
   EXPECT_EQ(logs.size(), 1u);
   root->doClose();
   Vel::Log::sinkIs(nullptr);
}

}  // namespace
