// Other programs' and the operator's TLVs as lldpd receives them, and a port that port
// authentication holds: silent until LLDP may bypass the lock.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/Interop/LldpdInteropFixture.h"

namespace {

using namespace Interop;  // the peers and the JSON helpers

// The organizationally specific TLVs lldpd holds from us on `intf`, as "oui/subtype/HEX"
// ("33-44-66/7/0a0b0c"); null while lldpd has no neighbour there.
Json lldpdCustomTlvs(const Lldpd& lldpd, const std::string& intf) {
   const Json entry = lldpd.neighbour(intf);
   if (entry.is_null()) return nullptr;
   Json out = Json::array();
   for (const Json& t : Lldpd::list(at(entry, {"unknown-tlvs", "unknown-tlv"}))) {
      // lldpd writes "33,44,66" and "0A,0B,0C"; we write "33-44-66" and "0a0b0c".
      std::string tlv =
          t.value("oui", "") + "/" + t.value("subtype", "") + "/" + t.value("value", "");
      std::replace(tlv.begin(), tlv.begin() + tlv.find('/'), ',', '-');
      tlv.erase(std::remove(tlv.begin(), tlv.end(), ','), tlv.end());
      std::transform(tlv.begin(), tlv.end(), tlv.begin(), ::tolower);
      out.push_back(tlv);
   }
   return out;
}

TEST_F(LldpdInterop, ExternalTlvsReachLldpdAndBypassOpensALockedPort) {
   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second;
   ASSERT_TRUE(bridge(ours));
   Agent agent(
       ns_->nsA(), "x", ourPorts(),
       agentTimers + "interface " + ours + "\n   lldp tlv oui 33-44-66 subtype 7 info 0a:0b:0c\n");
   ASSERT_TRUE(agent.running());
   Lldpd lldpd(ns_->nsB(), "x", peerPorts());
   ASSERT_TRUE(lldpd.running()) << lldpd.log();
   const auto sees = [&](std::vector<std::string> tlvs) {
      return waitFor([&] { return lldpdCustomTlvs(lldpd, theirs) == Json(tlvs); }, 5) >= 0;
   };
   EXPECT_TRUE(sees({"33-44-66/7/0a0b0c"})) << lldpdCustomTlvs(lldpd, theirs);

   // Another program adds its own, replaces it, and withdraws.
   const auto publish = [&](const Json& tlvs) {
      return control(agent, {{"op", "external-tlvs"}, {"client", "probe"}, {"tlvs", tlvs}});
   };
   Json set = {{ours, {{{"oui", "00-11-22"}, {"subtype", 1}, {"info", "cafe"}}}}};
   EXPECT_EQ(publish(set)["ok"], true);
   EXPECT_TRUE(sees({"00-11-22/1/cafe", "33-44-66/7/0a0b0c"})) << lldpdCustomTlvs(lldpd, theirs);
   Json port = at(agent.local(), {"interfaces", ours.c_str(), "externalTlv"});
   EXPECT_EQ(port.size(), 2u) << port;
   EXPECT_TRUE(std::any_of(port.begin(), port.end(), [](const Json& t) {
      return t["client"] == "probe" && t["advertised"] == true;
   })) << port;
   // A bad request names the fault and changes nothing.
   Json bad = publish({{ours, {{{"oui", "00-11-22"}, {"subtype", 1}, {"info", "xyz"}}}}});
   EXPECT_EQ(bad["ok"], false);
   EXPECT_NE(bad.value("error", "").find("\"info\" must be hex bytes"), std::string::npos) << bad;
   set[ours][0]["info"] = "beef";
   EXPECT_EQ(publish(set)["ok"], true);
   EXPECT_TRUE(sees({"00-11-22/1/beef", "33-44-66/7/0a0b0c"})) << lldpdCustomTlvs(lldpd, theirs);
   EXPECT_EQ(publish(nullptr)["ok"], true);
   EXPECT_TRUE(sees({"33-44-66/7/0a0b0c"})) << lldpdCustomTlvs(lldpd, theirs);

   // 802.1X locks the port: we fall silent and lldpd forgets us; bypass brings us back.
   ASSERT_TRUE(
       TestSupport::runIn(ns_->nsA(), "bridge link set dev " + ours + " locked on", nullptr));
   EXPECT_GE(waitFor([&] { return lldpdCustomTlvs(lldpd, theirs).is_null(); }, 8), 0);
   EXPECT_EQ(agent.run({"configure", "dot1x lldp bypass"}).status, 0);
   EXPECT_TRUE(sees({"33-44-66/7/0a0b0c"})) << lldpdCustomTlvs(lldpd, theirs);
}

}  // namespace
