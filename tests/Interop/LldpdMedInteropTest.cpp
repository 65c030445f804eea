// Network policy and PoE against lldpd as an LLDP-MED endpoint (a black-box peer) over a
// veth between network namespaces the test creates: lldpd's view through `lldpcli -f
// json`, ours through `lldp ... --json`, power agents through the control socket, and
// tshark as the judge of our frames.
#include <gtest/gtest.h>

#include "Daemon/ControlSocket.h"
#include "tests/Interop/LldpdInteropFixture.h"

namespace {

using namespace Interop;  // the peers and the JSON helpers

TEST_F(LldpdInterop, MedPolicyOnlyAfterTheEndpointAsksAndTsharkDecodesIt) {
   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second;
   Agent agent(ns_->nsA(), "p", ours,
               agentTimers + "interface " + ours +
                   "\n"
                   "   lldp med network-policy voice vlan 500 priority 5 dscp 46\n"
                   "   lldp med network-policy video-conferencing vlan 20 untagged dscp 34\n");
   ASSERT_TRUE(agent.running());
   Lldpd lldpd(ns_->nsB(), "p", theirs, 1);
   ASSERT_TRUE(lldpd.running()) << lldpd.log();
   // What lldpd holds from us on its port, under a name.
   const auto med = [&](const char* what) {
      return at(lldpd.neighbour(theirs), {"lldp-med", what});
   };
   ASSERT_GE(waitFor([&] { return lldpd.neighbour(theirs).contains("lldp-med"); }, 8), 0)
       << lldpd.json("show neighbors details").dump(1);
   // A few of our frames later, still no policy: lldpd has not asked.
   ::usleep(2500 * 1000);
   EXPECT_TRUE(Lldpd::list(med("policy")).empty()) << lldpd.neighbour(theirs).dump(1);

   // The tshark capture starts before the endpoint asks, so it sees the policies go out.
   Tshark capture(ns_->nsB(), theirs, "p", 8, 8);
   ASSERT_TRUE(capture.capturing()) << capture.log();
   ASSERT_TRUE(
       lldpd.cli("configure med policy application voice tagged vlan 500 priority voice "
                 "dscp 46"));
   Json policies;
   ASSERT_GE(waitFor([&] { return (policies = Lldpd::list(med("policy"))).size() == 2; }, 8), 0)
       << lldpd.json("show neighbors details").dump(1) << agent.local().dump(1);
   EXPECT_EQ(policies[0].value("apptype", ""), "Voice");
   EXPECT_EQ(at(policies[0], {"vlan", "vid"}), "500");
   EXPECT_EQ(policies[0].value("pcp", ""), "5");
   EXPECT_EQ(policies[0].value("dscp", ""), "46");
   EXPECT_EQ(policies[1].value("apptype", ""), "Video Conferencing");
   EXPECT_FALSE(policies[1].contains("vlan"));  // untagged
   EXPECT_EQ(policies[1].value("dscp", ""), "34");
   EXPECT_NE(med("capability").dump().find("\"Policy\""), std::string::npos) << med("capability");

   std::string decoded, expert;
   ASSERT_TRUE(capture.decode(&decoded, &expert)) << decoded;
   EXPECT_NE(decoded.find("Network Policy"), std::string::npos) << decoded;
   EXPECT_EQ(decoded.find("Malformed"), std::string::npos) << decoded;
   EXPECT_EQ(expert.find("Errors ("), std::string::npos) << expert;
}

TEST_F(LldpdInterop, MedPowerRequestReachesPowerAgentsAndTheirAllocationReachesTheDevice) {
   const auto link = addLink();
   const std::string ours = link.first, theirs = link.second;
   Agent agent(ns_->nsA(), "w", ours, agentTimers);
   ASSERT_TRUE(agent.running());
   Lldpd lldpd(ns_->nsB(), "w", theirs, 1);
   ASSERT_TRUE(lldpd.running()) << lldpd.log();
   ASSERT_TRUE(
       lldpd.cli("configure dot3 power pd supported enabled powerpairs signal class class-4"
                 " type 2 source pse priority high requested 25500 allocated 0"));

   Json port;
   const auto requested = [&] {
      port = at(agent.cli({"show", "power", "interface", ours}), {"interfaces", ours.c_str()});
      return at(port, {"neighbor", "requestedPower"}) == 25.5;
   };
   ASSERT_GE(waitFor(requested, 8), 0) << port.dump(1);
   EXPECT_EQ(at(port, {"neighbor", "powerType"}), "type 2 PD");
   EXPECT_EQ(at(port, {"neighbor", "priority"}), "high");
   EXPECT_EQ(at(port, {"neighbor", "powerClass"}), 4);
   EXPECT_TRUE(at(port, {"powerAgent"}).is_null());

   // The request as a power agent reads it, then the agent's allocation.
   Json reply = control(agent, {{"op", "get"}, {"path", "l2discovery/lldp/status/powerRequest"}});
   EXPECT_EQ(at(reply, {"data", "request"}).size(), 1u) << reply.dump();
   const Json status = {{"state", "delivering"},  {"pseType", 2},
                        {"powerClass", 4},        {"priority", "high"},
                        {"allocatedPower", 25.5}, {"maxAvailablePower", 30}};
   reply = control(agent, {{"op", "power-agent"},
                           {"agent", "poe-lab"},
                           {"ports", {{ours, status}, {"nonexistent0", {{"state", 9}}}}}});
   EXPECT_EQ(reply["ok"], false) << "a bad port refuses the whole request: " << reply;
   reply =
       control(agent, {{"op", "power-agent"}, {"agent", "poe-lab"}, {"ports", {{ours, status}}}});
   ASSERT_EQ(reply["ok"], true) << reply;

   Json power;
   const auto allocated = [&] {
      power = at(lldpd.neighbour(theirs), {"port", "power"});
      return at(power, {"allocated"}) == "25500";
   };
   ASSERT_GE(waitFor(allocated, 8), 0) << power.dump(1);
   EXPECT_EQ(power.value("device-type", ""), "PSE");
   EXPECT_EQ(power.value("requested", ""), "25500");
   EXPECT_EQ(power.value("power-type", ""), "2");
   port = at(agent.cli({"show", "power"}), {"interfaces", ours.c_str()});
   EXPECT_EQ(at(port, {"powerAgent", "name"}), "poe-lab");
   EXPECT_EQ(at(port, {"powerViaMdiTx", "allocatedPower"}), 25.5);
   EXPECT_EQ(agent.run({"show", "power"}).out.find("Interface " + ours), 0u);

   // A power agent following the requests: the current one, then the device's new one.
   Daemon::ControlClient watch;
   std::string line, error;
   ASSERT_TRUE(watch.connect(agent.socket(), 10, &error)) << error;
   ASSERT_TRUE(watch.send({{"op", "watch-power-requests"}}, &error)) << error;
   ASSERT_TRUE(watch.readLine(&line, &error)) << error;
   EXPECT_EQ(at(Json::parse(line), {"data", ours.c_str(), "requestedPower"}), 25.5) << line;
   ASSERT_TRUE(
       lldpd.cli("configure dot3 power pd supported enabled powerpairs signal class class-4"
                 " type 2 source pse priority high requested 13000 allocated 25500"));
   ASSERT_TRUE(watch.readLine(&line, &error)) << error;
   const Json event = Json::parse(line);
   EXPECT_EQ(event["interface"], ours);
   EXPECT_EQ(at(event, {"request", "requestedPower"}), 13.0) << line;
}

}  // namespace
