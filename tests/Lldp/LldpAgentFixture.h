// The agent with its input side, in virtual time, every record it reads mounted: the
// platform's records are written the way the Linux platform writes them, the records of
// other programs (power agents, external TLV clients, port authentication) the way the
// daemon writes them, a neighbour's TLVs the way the receive processor records them;
// packet access is in memory. Tests check what the agent makes of them: port records,
// admin status, identity, the status it publishes, and what the ports advertise (the
// local port records the transmit builder walks).
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Lldp/LldpAgent.h"
#include "tests/Support/Switch.h"

namespace LldpAgentTests {

using namespace Lldp::Agent::Input;
using Lldp::PowerViaMdiInfo;
using Wire::IntfId;
using Wire::IntfKind;
using PortStatus = Environment::Power::PoePortStatus::PortStatus;

// A powered device asking for `tenths` of a watt in the 802.3at form (type 2 PD).
inline PowerViaMdiInfo pdRequest(uint16_t tenths) {
   return PowerViaMdiInfo({.form = PowerViaMdiInfo::formDot3at,
                           .mdiPowerSupport = 0x02,
                           .powerClass = 5,
                           .typeSourcePriority = 0x40 | 0x10 | 0x2,
                           .pdRequestedPower = tenths});
}

inline Lldp::NetworkPolicyConfig policy(uint8_t app, uint16_t vlan, uint8_t prio = 5,
                                        uint8_t dscp = 46) {
   return Lldp::NetworkPolicyConfig(
       {.appType = app, .tagged = true, .vlanId = vlan, .priority = prio, .dscp = dscp});
}

inline Lldp::UnknownOrgDefTlv tlv(uint8_t subtype, const std::string& info, int index = 0) {
   return Lldp::UnknownOrgDefTlv(
       {.key = Lldp::UnknownOrgDefTlvKey(
            {.oui = Lldp::Oui(0x334466), .subtype = subtype, .index = index}),
        .value = info});
}

// The agent starts in SetUp with every record mounted (`mountPlatform`, which a test may
// extend) and ports eth1..eth3 cabled in memory to peer-ethN; nothing is up yet.
class LldpAgentTest : public ::testing::Test {
protected:
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::ringClear();
      Vel::Trace::configure("LldpAgent/0-8");  // for `traced`
      Vel::Log::syslogIs(false);
      loop().virtualTimeIs(true, 100);
      for (const char* p : {"eth1", "eth2", "eth3"}) {
         links.linkIs(eth(p), eth(std::string("peer-") + p));
      }
      bridging = db.mount<Bridging::Config>("bridging/config");
      bridging->bridgeMacAddrIs(*Wire::EthAddr::parse("02:00:00:00:aa:01"));
      phyDir = db.mount<Interface::EthPhyIntfStatusDir>("interface/status/eth/phy/all");
      mountPlatform();
      agent = Vel::make<Lldp::Agent::Agent>("lldp-agent", agentOptions(), db);
      agent->doInit();
      loop().advanceBy(0);  // mounts complete from the loop
      local = db.entityAs<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
      config = db.entityAs<Lldp::Config>("l2discovery/lldp/config");
   }
   void TearDown() override {
      if (agent) agent->doCleanup();
      agent = nullptr;
      loop().advanceBy(0);
      loop().virtualTimeIs(false);
      Vel::Log::syslogIs(true);
      Vel::Trace::configure("");
      // The protocol engine enlarges packet buffers for the whole process.
      Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
   }
   static Vel::EventLoop& loop() { return Vel::EventLoop::instance(); }
   static Wire::IntfId eth(const std::string& name) {
      return Wire::IntfId::linux(name, Wire::IntfKind::intfKindEthernet);
   }
   // Whether some trace line in the ring ends with `text`.
   static bool traced(std::string_view text) {
      for (const auto& e : Vel::Trace::ringSnapshot()) {
         if (e.text.ends_with(text)) return true;
      }
      return false;
   }
   // A port as the platform reports it when its link is up.
   Interface::EthPhyIntfStatus::Ptr portUp(
       const std::string& name, uint8_t forwardingModel = Interface::forwardingModelRouted) {
      auto s = phyDir->intfStatusIs(eth(name));
      s->linkStatusIs(Interface::linkStatusUp);
      s->forwardingModelIs(forwardingModel);
      return s;
   }
   virtual Lldp::Agent::Agent::Options agentOptions() {
      return Lldp::Agent::Agent::Options{links.factory()};
   }
   virtual void mountPlatform() {
      netStatus = db.mount<System::NetStatus>("sys/net/status");
      netStatus->hostnameIs("sw1");
      netStatus->domainNameIs("example.test");
      lagDir = db.mount<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
      allIntf = db.mount<Interface::AllIntfStatusDir>("interface/status/all");
      powerAgents = db.mount<Vel::Dir>("environment/power/status/poePort");
      requests = db.mount<Lldp::PowerRequestStatus>("l2discovery/lldp/status/powerRequest");
      externalTlvs = db.mount<Vel::Dir>("l2discovery/lldp/externalTlvs");
      dot1x = db.mount<Identity::Dot1x::Status>("identity/dot1x/status");
      macsec = db.mount<Identity::Macsec::Status>("identity/macsec/status");
   }
   // A port as the platform reports it, with its MAC address, ifIndex and MTU.
   Interface::EthPhyIntfStatus::Ptr addPort(const std::string& name, uint8_t macLast) {
      allIntf->intfStatusIs(eth(name))->ifIndexIs(macLast);
      auto s = phyDir->intfStatusIs(eth(name));
      const uint8_t mac[6] = {0x02, 0, 0, 0, 1, macLast};
      s->addrIs(Wire::EthAddr::fromBytes(mac));
      s->mtuIs(1500);
      return portUp(name);
   }
   Lldp::PortConfig::Ptr portConfig(const std::string& name) {
      return config->portConfig(eth(name));
   }
   uint8_t admin(const std::string& name) { return portConfig(name)->adminStatus(); }
   void switchport(const Wire::IntfId& intf, uint8_t mode, uint16_t nativeVlan = 1) {
      auto sw = bridging->switchIntfConfigIs(intf);
      sw->switchportModeIs(mode);
      sw->nativeVlanIs(nativeVlan);
   }

   Lldp::LocalPortPoeInfo& poe() { return *local->localPort(eth("eth1"))->localPortPoeInfo(); }
   // A neighbour's Power via MDI TLV as the receive processor records it.
   void neighbour(int index, uint8_t macLast, const PowerViaMdiInfo& p, Vel::Seconds changed = 0) {
      auto ps = agent->lldpStatusLocal()->portStatus(eth("eth1"));
      auto r = ps->remoteSystemIs(
          index, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                 {.subtype = 7, .value = "pd" + std::to_string(index)})}));
      r->ethAddrIs(Wire::EthAddr({2, 0, 0, 0, 0, macLast}));
      r->expiryTimeIs(1e9);
      r->lastChangeTimeIs(changed);
      r->powerViaMdiTlvReceivedIs(p.form() != PowerViaMdiInfo::formNone);
      r->powerViaMdiInfoIs(p);
      ps->remoteSystemTouched(index);
   }
   int chosen() { return poe().remoteSystem() ? poe().remoteSystem()->index() : 0; }
   void publish(const std::string& name, const PortStatus& s) {
      auto a = powerAgents->entryAs<Environment::Power::PoePortStatus>(name);
      if (!a) powerAgents->entryIs(name, a = Vel::make<Environment::Power::PoePortStatus>(name));
      a->portStatusIs(eth("eth1"), s);
   }

   Lldp::LocalPort::Ptr port() { return local->localPort(eth("eth1")); }
   Lldp::PortStatus::Ptr portStatus() { return agent->lldpStatusLocal()->portStatus(eth("eth1")); }
   // The applications the port advertises.
   std::vector<int> advertised() {
      std::vector<int> apps;
      for (const auto& [app, tlv] : port()->localNetworkPolicyTlv()) apps.push_back(app);
      return apps;
   }
   // A phone asking for its policy, as the receive processor records it.
   void phoneAsks(bool asks) {
      auto ps = portStatus();
      if (!asks) {
         ps->remoteSystemDel(1);
         return;
      }
      auto r = ps->remoteSystemIs(1, Lldp::Msap());
      r->expiryTimeIs(1e9);
      r->networkPolicyTlvIs(Lldp::NetworkPolicyTlv({.appType = 1, .unknown = true}));
      ps->remoteSystemTouched(1);
   }
   Lldp::ExternalTlvConfig::Ptr client(const std::string& name, const Lldp::ExternalTlvSet& set) {
      auto c = externalTlvs->entryAs<Lldp::ExternalTlvConfig>(name);
      if (!c) c = Vel::make<Lldp::ExternalTlvConfig>(name);
      Lldp::externalTlvConfigIs(*c, set);
      externalTlvs->entryIs(name, c);
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

   Vel::StateDb db;
   TestSupport::InMemoryLinks links;
   Bridging::Config::Ptr bridging;
   Interface::EthPhyIntfStatusDir::Ptr phyDir;
   Vel::Ptr<Lldp::Agent::Agent> agent;
   Lldp::LocalSystem::Ptr local;
   Lldp::Config::Ptr config;
   System::NetStatus::Ptr netStatus;
   Interface::EthLagIntfStatusDir::Ptr lagDir;
   Interface::AllIntfStatusDir::Ptr allIntf;
   Vel::Dir::Ptr powerAgents;
   Lldp::PowerRequestStatus::Ptr requests;
   Vel::Dir::Ptr externalTlvs;
   Identity::Dot1x::Status::Ptr dot1x;
   Identity::Macsec::Status::Ptr macsec;
   const IntfId bond1 = IntfId::linux("bond1", IntfKind::intfKindPortChannel);
};

}  // namespace LldpAgentTests
