#include <gtest/gtest.h>

#include "Framework/Vel/Json.h"
#include "Records/Lldp.h"

TEST(Records, Compiles) {
   auto cfg = Vel::make<Lldp::Config>();
   auto pc = cfg->portConfigIs(Wire::IntfId("Ethernet1"));
   EXPECT_EQ(pc->adminStatus(), Lldp::adminStatusTxAndRx);
   auto j = Vel::toJson(cfg);
   EXPECT_EQ(j["messageTxInterval"], 30);
}
