// Other programs' TLVs and LLDP bypass, with the agent and its input side in virtual time:
// the clients' entities and the identity records are written the way the daemon writes
// them, and the local port records are the judge (they are what the builder sends).
#include <gtest/gtest.h>

#include "tests/Support/AgentInVirtualTime.h"

namespace {

Lldp::UnknownOrgDefTlv tlv(uint8_t subtype, const std::string& info, int index = 0) {
   return Lldp::UnknownOrgDefTlv(
       {.key = Lldp::UnknownOrgDefTlvKey(
            {.oui = Lldp::Oui(0x334466), .subtype = subtype, .index = index}),
        .value = info});
}

class ExternalTlvAndBypassTest : public TestSupport::AgentInVirtualTime {
protected:
   void mountPlatform() override {
      dir = db.mount<Vel::Dir>("l2discovery/lldp/externalTlvs");
      dot1x = db.mount<Identity::Dot1x::Status>("identity/dot1x/status");
      macsec = db.mount<Identity::Macsec::Status>("identity/macsec/status");
   }
   Lldp::ExternalTlvConfig::Ptr client(const std::string& name, const Lldp::ExternalTlvSet& set) {
      auto c = dir->entryAs<Lldp::ExternalTlvConfig>(name);
      if (!c) c = Vel::make<Lldp::ExternalTlvConfig>(name);
      Lldp::externalTlvConfigIs(*c, set);
      dir->entryIs(name, c);
      return c;
   }
   // The information of each TLV on a port, in key order.
   std::vector<std::string> tlvs(const char* name) {
      std::vector<std::string> out;
      if (auto lp = local->localPort(eth(name))) {
         for (const auto& [k, t] : lp->unknownOrgDefTlv()) out.push_back(t.value().stringValue());
      }
      return out;
   }
   using V = std::vector<std::string>;

   Vel::Dir::Ptr dir;
   Identity::Dot1x::Status::Ptr dot1x;
   Identity::Macsec::Status::Ptr macsec;
};

TEST_F(ExternalTlvAndBypassTest, ClientsTlvsReachTheirPortsAndLeaveWithTheClient) {
   portUp("eth1", Interface::forwardingModelRouted);
   // A TLV for a port that does not exist yet waits for it.
   client("a",
          {{eth("eth1"), {tlv(1, "one"), tlv(1, "one-again", 1)}}, {eth("eth2"), {tlv(2, "two")}}});
   client("b", {{eth("eth1"), {tlv(9, "bee")}}});
   EXPECT_EQ(tlvs("eth1"), (V{"one", "one-again", "bee"}));
   portUp("eth2", Interface::forwardingModelRouted);
   EXPECT_EQ(tlvs("eth2"), V{"two"});

   // The same TLV again changes nothing; new information replaces it in place.
   struct Count : Lldp::LocalPort::Notifiee {
      int changes = 0;
      void unknownOrgDefTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) override { ++changes; }
   } count;
   count.notifierIs(local->localPort(eth("eth2")));
   client("a",
          {{eth("eth1"), {tlv(1, "one"), tlv(1, "one-again", 1)}}, {eth("eth2"), {tlv(2, "two")}}});
   EXPECT_EQ(count.changes, 0);
   client("a", {{eth("eth1"), {tlv(1, "one")}}, {eth("eth2"), {tlv(2, "TWO")}}});
   EXPECT_EQ(count.changes, 1);
   EXPECT_EQ(tlvs("eth2"), V{"TWO"});
   EXPECT_EQ(tlvs("eth1"), (V{"one", "bee"}));
   count.notifierIs(nullptr);

   // A client that goes takes all of its TLVs with it, from every port.
   dir->entryDel("a");
   EXPECT_EQ(tlvs("eth1"), V{"bee"});
   EXPECT_TRUE(tlvs("eth2").empty());
}

TEST_F(ExternalTlvAndBypassTest, BypassLetsHeldPortsRun802dot1xForAllMacsecPerPort) {
   portUp("eth1", Interface::forwardingModelDataLink);  // held by port authentication
   portUp("eth2", Interface::forwardingModelDataLink);
   EXPECT_FALSE(local->localPort(eth("eth1")));
   macsec->bypassLldpIs(eth("eth2"), true);  // this port alone
   EXPECT_FALSE(local->localPort(eth("eth1")));
   EXPECT_TRUE(local->localPort(eth("eth2")));
   dot1x->lldpBypassIs(true);  // every port at once
   EXPECT_TRUE(local->localPort(eth("eth1")));
   dot1x->lldpBypassIs(false);
   EXPECT_FALSE(local->localPort(eth("eth1")));
   EXPECT_TRUE(local->localPort(eth("eth2")));
   macsec->bypassLldpDel(eth("eth2"));
   EXPECT_FALSE(local->localPort(eth("eth2")));
   // Below "data link" nothing runs, bypass or not.
   dot1x->lldpBypassIs(true);
   portUp("eth1", Interface::forwardingModelDiscarded);
   EXPECT_FALSE(local->localPort(eth("eth1")));
}

}  // namespace
