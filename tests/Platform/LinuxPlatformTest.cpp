// The Linux platform against the kernel: each test makes its own network namespaces
// (a veth pair between "a" and "b"), opens the platform inside "a" and changes links,
// bridges and addresses there with `ip` and `bridge`; every change has to reach the
// entities through the event loop. Needs root; skipped otherwise.
//
// Bonding, VRF and MACsec devices need kernel drivers that are not always there; what the
// platform derives for them is checked on a model built by hand.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_arp.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Records/LldpLocalSystem.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"

namespace {

using Platform::Linux::LinuxPlatform;
using Platform::Linux::NetModel;
using Platform::Linux::PlatformOptions;
using Wire::IntfId;
using Wire::IntfKind;

constexpr Vel::Seconds changeTimeout = 10;

class LinuxPlatformTest : public ::testing::Test {
protected:
   void SetUp() override {
      Vel::StateDb::instance().clear();
      Vel::EventLoop::instance().virtualTimeIs(false);
   }
   void TearDown() override {
      platform.reset();
      Vel::StateDb::instance().clear();
   }

   // Makes the namespaces and opens the platform in "a"; the reason when it cannot.
   std::string open(PlatformOptions options = {}) {
      pair = std::make_unique<TestSupport::NetNsPair>();
      if (!pair->ok()) return pair->error();
      ns = pair->nsA();
      port = pair->intfA();
      TestSupport::NetNsScope scope(ns);
      if (!scope.ok()) return "cannot enter " + ns;
      std::string error;
      platform = LinuxPlatform::open(options, Vel::StateDb::instance(), &error);
      if (!platform) ADD_FAILURE() << "open failed: " << error;
      pub = std::make_unique<Platform::Linux::PlatformPublisher>(Vel::StateDb::instance());
      return {};
   }

   // Runs a command (`ip`, `bridge`, `sysctl`) in "a".
   void in(const std::string& cmd) {
      std::string out;
      ASSERT_TRUE(TestSupport::runIn(ns, cmd, &out)) << cmd << ": " << out;
   }
   Wire::EthAddr macOf(const std::string& intf) {
      std::string out;
      EXPECT_TRUE(TestSupport::runIn(ns, "cat /sys/class/net/" + intf + "/address", &out)) << out;
      return Wire::EthAddr::parse(out.substr(0, 17)).value_or(Wire::EthAddr());
   }
   bool waitFor(const std::function<bool()>& cond) {
      return Vel::EventLoop::instance().runUntil(cond, changeTimeout);
   }
   // Runs a command in "a" and waits until the entities show its effect.
   void change(const std::string& cmd, const std::function<bool()>& shown) {
      in(cmd);
      EXPECT_TRUE(waitFor(shown)) << "after " << cmd;
   }
   Vel::Ptr<Interface::EthPhyIntfStatus> ethStatus(const std::string& name) {
      return pub->ethStatus->intfStatus(IntfId(name));
   }
   Vel::Ptr<Bridging::SwitchIntfConfig> switchport(const std::string& name) {
      return pub->bridging->switchIntfConfig(IntfId(name));
   }

   std::unique_ptr<TestSupport::NetNsPair> pair;
   std::unique_ptr<LinuxPlatform> platform;
   // Another set of handles on the same entities, as a reader holds them.
   std::unique_ptr<Platform::Linux::PlatformPublisher> pub;
   std::string ns, port;
};

#define OPEN_OR_SKIP(...)                        \
   do {                                          \
      const std::string why = open(__VA_ARGS__); \
      if (!why.empty()) GTEST_SKIP() << why;     \
      ASSERT_TRUE(platform);                     \
   } while (0)

TEST_F(LinuxPlatformTest, PortLinkStateDescriptionMtuAndSystem) {
   OPEN_OR_SKIP();
   ASSERT_TRUE(waitFor([&] {
      auto s = ethStatus(port);
      return s && s->linkStatus() == Interface::linkStatusUp;
   }));
   auto s = ethStatus(port);
   EXPECT_EQ(s->addr(), macOf(port));
   EXPECT_FALSE(s->addr().isZero());
   EXPECT_EQ(s->mtu(), 1500u);
   EXPECT_GT(s->maxMtu(), 1500u);  // a veth goes far beyond
   EXPECT_EQ(s->forwardingModel(), Interface::forwardingModelRouted);
   EXPECT_EQ(pub->ethStatus->intfStatus().size(), 1u);  // not the loopback
   // Every interface is listed, with its kind.
   auto lo = pub->allStatus->intfStatus(IntfId("lo"));
   ASSERT_TRUE(lo);
   EXPECT_EQ(lo->ifIndex(), 1u);
   EXPECT_EQ(lo->intfId().kind(), IntfKind::intfKindLoopback);
   EXPECT_EQ(pub->allStatus->intfStatus().size(), 2u);
   // One port, no bridge: the system MAC is the port's, frames as large as its MTU.
   EXPECT_EQ(pub->bridging->bridgeMacAddr(), s->addr());
   EXPECT_EQ(pub->bridging->maxFrameSize(), 1518u);

   in("ip link set " + port + " alias 'uplink to core'");
   EXPECT_TRUE(waitFor([&] {
      auto c = pub->ethConfig->intfConfig(IntfId(port));
      return c && c->description() == "uplink to core";
   }));

   // The far end going down takes our carrier (lower layer down).
   ASSERT_TRUE(TestSupport::ipIn(pair->nsB(), "link set " + pair->intfB() + " down"));
   EXPECT_TRUE(waitFor([&] { return s->linkStatus() == Interface::linkStatusDown; }));
   ASSERT_TRUE(TestSupport::ipIn(pair->nsB(), "link set " + pair->intfB() + " up"));
   EXPECT_TRUE(waitFor([&] { return s->linkStatus() == Interface::linkStatusUp; }));
   change("ip link set " + port + " down",
          [&] { return s->linkStatus() == Interface::linkStatusDown; });
   in("ip link set " + port + " up");

   change("ip link set " + port + " mtu 9000",
          [&] { return s->mtu() == 9000 && pub->bridging->maxFrameSize() == 9018; });

   change("sysctl -qw net.ipv4.ip_forward=1", [&] { return pub->routing->ipRouting(); });
   change("sysctl -qw net.ipv4.ip_forward=0", [&] { return !pub->routing->ipRouting(); });

   char host[256] = {};
   ::gethostname(host, sizeof(host) - 1);
   EXPECT_EQ(pub->netStatus->hostname(), std::string(host).substr(0, std::string(host).find('.')));
   utsname u{};
   ::uname(&u);
   EXPECT_NE(pub->sysDescr->description().find(u.release), std::string::npos);
   EXPECT_LE(pub->sysDescr->description().size(), 255u);

   // What the control socket shows.
   const auto j = Vel::StateDb::instance().json("interface/status/eth/phy/all");
   ASSERT_EQ(j["intfStatus"].size(), 1u);
   EXPECT_EQ(j["intfStatus"][0]["intfId"], port);
   EXPECT_EQ(j["intfStatus"][0]["linkStatus"], 2);
}

TEST_F(LinuxPlatformTest, BridgePortsVlanNamesAndSystemMac) {
   PlatformOptions options;
   options.vlanNames = {{1, "default"}};
   OPEN_OR_SKIP(options);
   in("ip link add p1 type veth peer name p2");
   in("ip link add br0 type bridge");
   in("ip link set " + port + " master br0");
   in("ip link set p1 master br0");
   const Wire::EthAddr brMac = macOf("br0");
   // Without VLAN filtering a bridge carries everything untagged, as VLAN 1.
   auto sw = [&] { return switchport(port); };
   ASSERT_TRUE(waitFor([&] {
      auto s = ethStatus(port);
      return sw() && sw()->switchportMode() == Bridging::switchportModeAccess &&
             sw()->nativeVlan() == 1 && s &&
             s->forwardingModel() == Interface::forwardingModelBridged;
   }));
   EXPECT_EQ(pub->bridging->bridgeMacAddr(), brMac);  // the one bridge's
   // A host with bridge ports is a bridge, in the capabilities the agent advertises; the
   // bit comes back when the agent clears its capabilities to compute them afresh.
   auto local = Vel::StateDb::instance().mount<Lldp::LocalSystem>("l2discovery/lldp/localSystem");
   EXPECT_TRUE(waitFor([&] { return local->sysCapEnabled().bridge(); }));
   local->sysCapEnabledIs({});
   EXPECT_TRUE(local->sysCapEnabled().bridge());
   EXPECT_FALSE(local->sysCapEnabled().router());
   // The bridge is an interface, not a port.
   EXPECT_FALSE(ethStatus("br0"));
   EXPECT_TRUE(pub->allStatus->intfStatus(IntfId("br0")));
   auto p2 = switchport("p2");
   ASSERT_TRUE(p2);
   EXPECT_EQ(p2->switchportMode(), Bridging::switchportModeRouted);
   EXPECT_EQ(p2->nativeVlan(), 0);
   auto& vlans = pub->bridging->vlanConfig();
   ASSERT_EQ(vlans.size(), 1u);
   EXPECT_EQ(vlans.at(1)->name(), "default");
   EXPECT_EQ(vlans.at(1)->member().size(), 2u);

   platform->vlanNamesIs({});
   EXPECT_EQ(vlans.at(1)->name(), "VLAN0001");

   // A locked port is held by port authentication until the lock goes.
   change("bridge link set dev " + port + " locked on",
          [&] { return ethStatus(port)->forwardingModel() == Interface::forwardingModelDataLink; });
   change("bridge link set dev " + port + " locked off",
          [&] { return ethStatus(port)->forwardingModel() == Interface::forwardingModelBridged; });
   in("bridge link set dev " + port + " locked on");

   change("ip link set " + port + " nomaster", [&] {
      return sw()->switchportMode() == Bridging::switchportModeRouted &&
             ethStatus(port)->forwardingModel() == Interface::forwardingModelRouted;
   });
   EXPECT_EQ(sw()->nativeVlan(), 0);
   EXPECT_EQ(vlans.at(1)->member().size(), 1u);
   EXPECT_TRUE(local->sysCapEnabled().bridge());  // p1 still is a bridge port
   change("ip link set p1 nomaster", [&] { return !local->sysCapEnabled().bridge(); });

   // A second bridge: no single bridge MAC any more, the lowest port MAC instead.
   in("ip link add br1 type bridge");
   Wire::EthAddr lowest = macOf(port);
   for (const char* p : {"p1", "p2"}) lowest = std::min(lowest, macOf(p));
   EXPECT_TRUE(waitFor([&] { return pub->bridging->bridgeMacAddr() == lowest; }));
}

TEST_F(LinuxPlatformTest, BridgeVlanFilteringPvidAndTrunk) {
   PlatformOptions options;
   options.vlanNames = {{20, "voice"}};
   OPEN_OR_SKIP(options);
   in("ip link add br0 type bridge");
   in("ip link set " + port + " master br0");
   std::string out;
   if (!TestSupport::ipIn(ns, "link set br0 type bridge vlan_filtering 1", &out)) {
      GTEST_SKIP() << "no bridge VLAN filtering in this kernel: " << out;
   }
   in("bridge vlan del dev " + port + " vid 1");
   in("bridge vlan add dev " + port + " vid 10 pvid untagged");
   auto sw = [&] { return switchport(port); };
   EXPECT_TRUE(waitFor([&] {
      return sw() && sw()->nativeVlan() == 10 &&
             sw()->switchportMode() == Bridging::switchportModeAccess;
   }));
   change("bridge vlan add dev " + port + " vid 20-22",
          [&] { return sw()->switchportMode() == Bridging::switchportModeTrunk; });
   EXPECT_EQ(sw()->nativeVlan(), 10);
   auto& vlans = pub->bridging->vlanConfig();
   ASSERT_EQ(vlans.size(), 4u);  // 10, 20, 21, 22
   EXPECT_EQ(vlans.at(10)->name(), "VLAN0010");
   EXPECT_EQ(vlans.at(20)->name(), "voice");
   EXPECT_TRUE(vlans.at(22)->member(IntfId(port)));

   change("ip link set br0 type bridge vlan_filtering 0", [&] {
      return sw()->nativeVlan() == 1 && sw()->switchportMode() == Bridging::switchportModeAccess &&
             pub->bridging->vlanConfig().size() == 1;
   });
}

// Addresses as the kernel reports them: primary and secondaries, IPv6; on the loopback a
// router ID is a candidate, the host-scope addresses are not; a tentative address is
// not until duplicate detection ends. A deleted pair goes everywhere.
TEST_F(LinuxPlatformTest, AddressesLoopbackTentativeRemovalAndLostNotifications) {
   OPEN_OR_SKIP();
   in("ip -6 addr add 2001:db8::7/64 dev " + port);  // tentative until duplicate detection ends
   in("ip addr add 10.0.0.1/24 dev " + port);
   in("ip addr add 10.0.0.2/24 dev " + port);  // same subnet: a secondary
   in("ip addr add 10.1.0.1/16 dev " + port);
   in("ip -6 addr add 2001:db8::1/64 dev " + port + " nodad");
   in("ip link set lo up");  // brings 127.0.0.1 and ::1
   in("ip addr add 198.51.100.1/32 dev lo");
   const IntfId id = IntfId(port);
   const IntfId lo = IntfId("lo");
   const auto v6 = [](const char* a) { return *Wire::Ip6Addr::parse(a); };
   auto s6 = [&] { return pub->ip6Status->intf(id); };
   ASSERT_TRUE(waitFor([&] {
      auto s = pub->ipStatus->ipIntfStatus(id);
      return s && s->secondaryWithMask().size() == 2 && s6() && s6()->addr(v6("2001:db8::1")) &&
             pub->ipStatus->ipIntfStatus(lo);
   }));
   auto s = pub->ipStatus->ipIntfStatus(id);
   EXPECT_EQ(s->activeAddrWithMask().stringValue(), "10.0.0.1/24");
   std::vector<std::string> secondaries;
   for (const auto& [a, on] : s->secondaryWithMask()) secondaries.push_back(a.stringValue());
   EXPECT_EQ(secondaries, (std::vector<std::string>{"10.0.0.2/24", "10.1.0.1/16"}));
   EXPECT_EQ(s->vrf(), "");
   EXPECT_EQ(*s6()->addr(v6("2001:db8::1")), 64);
   EXPECT_FALSE(s6()->addr(v6("2001:db8::7")));
   auto loStatus = pub->ipStatus->ipIntfStatus(lo);
   EXPECT_EQ(loStatus->activeAddrWithMask().stringValue(), "198.51.100.1/32");
   EXPECT_TRUE(loStatus->secondaryWithMask().empty());  // not 127.0.0.1
   EXPECT_FALSE(pub->ip6Status->intf(lo));              // not ::1

   change("ip addr del 10.0.0.2/24 dev " + port,
          [&] { return s->secondaryWithMask().size() == 1; });
   change("ip -6 addr del 2001:db8::1/64 dev " + port,
          [&] { return !s6() || !s6()->addr(v6("2001:db8::1")); });
   // Detection takes the kernel a second or two.
   EXPECT_TRUE(Vel::EventLoop::instance().runUntil(
       [&] { return s6() && s6()->addr(v6("2001:db8::7")); }, 10));

   // A new pair with an address and an alias; deleting one end removes both everywhere.
   in("ip link add p1 type veth peer name p2");
   in("ip link set p1 alias 'to be removed'");
   in("ip addr add 192.0.2.1/24 dev p1");
   ASSERT_TRUE(waitFor([&] {
      return ethStatus("p2") && pub->ipStatus->ipIntfStatus(IntfId("p1")) &&
             pub->ethConfig->intfConfig(IntfId("p1"));
   }));
   change("ip link del p1", [&] { return !ethStatus("p1") && !ethStatus("p2"); });
   EXPECT_FALSE(pub->ethConfig->intfConfig(IntfId("p1")));
   EXPECT_FALSE(pub->allStatus->intfStatus(IntfId("p1")));
   EXPECT_FALSE(pub->allStatus->intfStatus(IntfId("p2")));
   EXPECT_FALSE(pub->ipStatus->ipIntfStatus(IntfId("p1")));
   EXPECT_FALSE(switchport("p1"));
   EXPECT_TRUE(ethStatus(port));                         // the others stay as they were
   EXPECT_EQ(pub->ipStatus->ipIntfStatus().size(), 2u);  // the port's and the loopback's

   // Notifications the kernel could not queue for us are made good by reading everything
   // again: a tiny socket buffer and a burst of changes while the loop is not looking.
   const int small = 1;  // the kernel rounds up to its minimum
   ASSERT_EQ(::setsockopt(platform->eventFd(), SOL_SOCKET, SO_RCVBUFFORCE, &small, sizeof(small)),
             0);
   std::string batch;
   for (int i = 1; i <= 40; ++i)
      batch += "addr add 10.9.0." + std::to_string(i) + "/24 dev " + port + "\n";
   std::string out;
   ASSERT_TRUE(TestSupport::runCmd("printf '" + batch + "' | ip -n " + ns + " -batch -", &out))
       << out;
   const uint64_t before = platform->resyncs();
   EXPECT_TRUE(waitFor([&] {
      auto now = pub->ipStatus->ipIntfStatus(id);
      return now && now->secondaryWithMask().size() == 41;
   }));
   EXPECT_GT(platform->resyncs(), before);
}

TEST_F(LinuxPlatformTest, PatternsManagementAndSystemMacOption) {
   const Wire::EthAddr configured = *Wire::EthAddr::parse("02:00:00:00:00:42");
   PlatformOptions options;
   options.mgmtPattern = "mg*";
   options.intfPattern = "[mv]*";
   options.systemMac = configured;
   OPEN_OR_SKIP(options);
   in("ip link add mg0 type veth peer name xx0");
   ASSERT_TRUE(
       waitFor([&] { return pub->allStatus->intfStatus(IntfId("xx0")) && ethStatus("mg0"); }));
   EXPECT_EQ(pub->allStatus->intfStatus(IntfId("mg0"))->intfId().kind(),
             IntfKind::intfKindManagement);
   EXPECT_FALSE(ethStatus("xx0"));  // outside the port pattern
   EXPECT_EQ(pub->ethStatus->intfStatus().size(), 2u);
   EXPECT_EQ(pub->bridging->bridgeMacAddr(), configured);
}

// --- What the platform derives, on models built by hand -------------------------------

Platform::Linux::LinkInfo link(int index, const char* name, const char* kind, int master = 0) {
   Platform::Linux::LinkInfo l;
   l.index = index;
   l.name = name;
   l.kind = kind;
   l.type = ARPHRD_ETHER;
   l.mtu = 1500;
   l.master = master;
   l.operstate = IF_OPER_UP;
   l.mac = Wire::EthAddr({2, 0, 0, 0, 0, uint8_t(index)});
   return l;
}

// "192.0.2.1/24" or "2001:db8::1/64", as the kernel would report it.
Platform::Linux::AddrInfo addr(const std::string& text, uint32_t flags = 0) {
   Platform::Linux::AddrInfo a;
   const size_t slash = text.find('/');
   a.family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
   a.prefixLen = uint8_t(std::stoi(text.substr(slash + 1)));
   EXPECT_EQ(inet_pton(a.family, text.substr(0, slash).c_str(), a.bytes.data()), 1) << text;
   a.flags = flags;
   return a;
}

// Applies one rtnetlink message, its fixed header and then its attributes, to the model.
bool apply(NetModel& model, int type, const void* hdr, size_t len,
           const std::function<void(nl_msg*)>& attrs = {}) {
   nl_msg* msg = nlmsg_alloc_simple(type, 0);
   nlmsg_append(msg, const_cast<void*>(hdr), len, NLMSG_ALIGNTO);
   if (attrs) attrs(msg);
   const bool applied = model.apply(nlmsg_hdr(msg));
   nlmsg_free(msg);
   return applied;
}

struct LinuxPlatformModelTest : ::testing::Test {
   void linksAre(std::initializer_list<Platform::Linux::LinkInfo> links) {
      for (const auto& l : links) m.links[l.index] = l;
   }
   Vel::StateDb db;
   Platform::Linux::PlatformPublisher pub{db};
   NetModel m;
};

TEST_F(LinuxPlatformModelTest, BondsVrfsAndInterfaceKinds) {
   linksAre({link(2, "eth0", "", 10), link(3, "eth1", "", 10), link(4, "eth2", "", 12),
             link(10, "bond0", "bond", 11), link(11, "br0", "bridge"), link(12, "vrf-red", "vrf"),
             link(13, "br0.5", "vlan"), link(14, "dum0", "dummy"), link(15, "mgmt0", ""),
             link(16, "wg0", "wireguard")});
   m.links[11].vlanFiltering = true;
   m.portVlans[10].pvid = 5;
   m.portVlans[10].member.set(5);
   m.portVlans[10].untagged.set(5);
   m.addrs[4] = {addr("192.0.2.1/24")};
   pub.publish(m, {});

   const auto kindOf = [&](const char* name) {
      auto status = pub.allStatus->intfStatus(IntfId(name));
      return status ? status->intfId().kind() : IntfKind::intfKindOther;
   };
   EXPECT_EQ(kindOf("bond0"), IntfKind::intfKindPortChannel);
   EXPECT_EQ(kindOf("br0.5"), IntfKind::intfKindVlan);
   EXPECT_EQ(kindOf("dum0"), IntfKind::intfKindLoopback);
   EXPECT_EQ(kindOf("mgmt0"), IntfKind::intfKindManagement);
   EXPECT_EQ(kindOf("wg0"), IntfKind::intfKindEthernet);  // unknown kinds stay harmless
   // Ports: NICs only (eth0-2, mgmt0).
   EXPECT_EQ(pub.ethStatus->intfStatus().size(), 4u);

   const IntfId bond("bond0");
   auto lag = pub.lagStatus->intfStatus(bond);
   ASSERT_TRUE(lag);
   EXPECT_EQ(lag->member().size(), 2u);
   EXPECT_TRUE(lag->member(IntfId("eth1")));
   // The bond is the bridge port; its members carry its VLANs.
   auto sw = pub.bridging->switchIntfConfig(IntfId("eth0"));
   ASSERT_TRUE(sw);
   EXPECT_EQ(sw->nativeVlan(), 5);
   EXPECT_EQ(sw->switchportMode(), Bridging::switchportModeAccess);
   EXPECT_EQ(pub.bridging->switchIntfConfig(bond)->nativeVlan(), 5);
   EXPECT_EQ(pub.ethStatus->intfStatus(IntfId("eth0"))->forwardingModel(),
             Interface::forwardingModelBridged);
   EXPECT_EQ(pub.bridging->vlanConfig().at(5)->member().size(), 3u);  // bond0, eth0, eth1

   const IntfId eth2("eth2");
   EXPECT_EQ(pub.allStatus->intfStatus(eth2)->vrf(), "vrf-red");
   EXPECT_EQ(pub.ipStatus->ipIntfStatus(eth2)->vrf(), "vrf-red");

   // A member leaves, the bond goes: records follow, the others stay the same objects.
   auto eth2Status = pub.ethStatus->intfStatus(eth2);
   m.links[3].master = 0;
   m.links.erase(10);
   pub.publish(m, {});
   EXPECT_FALSE(pub.lagStatus->intfStatus(bond));
   EXPECT_EQ(pub.ethStatus->intfStatus(eth2), eth2Status);
   EXPECT_EQ(sw->switchportMode(), Bridging::switchportModeRouted);
   EXPECT_TRUE(pub.bridging->vlanConfig().empty());
}

// This kernel has no bonds: the link messages it would send for one and its members, and
// for ports whose numbers do not fit a switch's numbering.
TEST_F(LinuxPlatformModelTest, BondMembersFrameSizesAndNumbersFromLinkMessages) {
   const auto linkMsg = [&](int index, const char* name, const char* kind, int master,
                            uint32_t maxMtu) {
      ifinfomsg ifi{};
      ifi.ifi_index = index;
      ifi.ifi_type = ARPHRD_ETHER;
      EXPECT_TRUE(apply(m, RTM_NEWLINK, &ifi, sizeof(ifi), [&](nl_msg* msg) {
         nla_put_string(msg, IFLA_IFNAME, name);
         nla_put_u32(msg, IFLA_MTU, 1500);
         nla_put_u32(msg, IFLA_MAX_MTU, maxMtu);
         nla_put_u8(msg, IFLA_OPERSTATE, IF_OPER_UP);
         if (master) nla_put_u32(msg, IFLA_MASTER, uint32_t(master));
         if (*kind) {
            nlattr* info = nla_nest_start(msg, IFLA_LINKINFO);
            nla_put_string(msg, IFLA_INFO_KIND, kind);
            nla_nest_end(msg, info);
         }
      }));
   };
   linkMsg(10, "bond0", "bond", 0, 65535);
   linkMsg(2, "eth0", "", 10, 1500);
   linkMsg(3, "eth1", "", 10, 9216);
   linkMsg(4, "veth0", "veth", 0, 65535);
   linkMsg(5, "ens160", "", 0, 9000);
   linkMsg(6, "Ethernet200", "", 0, 1500);      // a switch-style name out of range
   linkMsg(7, "enx00e04c680001", "", 0, 1500);  // a USB NIC named after its MAC
   pub.publish(m, {});

   auto lag = pub.lagStatus->intfStatus(IntfId("bond0"));
   ASSERT_TRUE(lag);
   EXPECT_EQ(lag->member().size(), 2u);
   EXPECT_TRUE(lag->member(IntfId("eth0")) && lag->member(IntfId("eth1")));
   // Each port's largest frame: its own largest MTU with header and check sequence, at most
   // what the frame size TLV carries.
   const auto frame = [&](const char* name) {
      const uint32_t* size = pub.bridging->intfMaxFrameSize(IntfId(name));
      return size ? *size : 0u;
   };
   EXPECT_EQ(frame("eth0"), 1518u);
   EXPECT_EQ(frame("eth1"), 9234u);
   EXPECT_EQ(frame("veth0"), 65535u);
   EXPECT_EQ(frame("ens160"), 9018u);
   EXPECT_EQ(frame("bond0"), 0u);
   // Interfaces outside the numbering are not published at all; the rest fit it.
   EXPECT_FALSE(pub.allStatus->intfStatus(IntfId("Ethernet200")));
   EXPECT_FALSE(pub.ethStatus->intfStatus(IntfId("Ethernet200")));
   EXPECT_TRUE(pub.ethStatus->intfStatus(IntfId("enx00e04c680001")));
   EXPECT_EQ(pub.allStatus->intfStatus().size(), 6u);
   for (const auto& [id, st] : pub.allStatus->intfStatus()) {
      EXPECT_TRUE(Interface::intfNumbersInRange(st->intfId())) << id;
   }

   // A member leaves (its next message has no master), then the bond goes.
   linkMsg(3, "eth1", "", 0, 9216);
   pub.publish(m, {});
   EXPECT_EQ(lag->member().size(), 1u);
   ifinfomsg bond{};
   bond.ifi_index = 10;
   EXPECT_TRUE(apply(m, RTM_DELLINK, &bond, sizeof(bond)));
   pub.publish(m, {});
   EXPECT_FALSE(pub.lagStatus->intfStatus(IntfId("bond0")));
   // The port's own size goes with the port.
   ifinfomsg gone{};
   gone.ifi_index = 4;
   EXPECT_TRUE(apply(m, RTM_DELLINK, &gone, sizeof(gone)));
   pub.publish(m, {});
   EXPECT_EQ(frame("veth0"), 0u);
}

// What the kernel test cannot make: a secondary reported before the primary, deprecated,
// temporary and failed IPv6 addresses. (The loopback's and tentative addresses are
// checked against the kernel.)
TEST_F(LinuxPlatformModelTest, CandidateAddressesPrimariesAndSecondaries) {
   linksAre({link(2, "eth0", ""), link(3, "br0", "bridge")});
   // In the kernel's order; the first that is not a secondary is the primary, and every
   // other address (another subnet's, or a kernel secondary) is a secondary.
   m.addrs[2] = {addr("192.0.2.9/24", IFA_F_SECONDARY),
                 addr("192.0.2.1/24"),
                 addr("203.0.113.1/24"),
                 addr("2001:db8::1/64"),
                 addr("2001:db8::3/64", IFA_F_DEPRECATED),
                 addr("2001:db8::4/64", IFA_F_TEMPORARY),
                 addr("2001:db8::5/64", IFA_F_DADFAILED),
                 addr("fe80::1/64")};
   m.addrs[3] = {addr("192.0.2.254/24")};
   pub.publish(m, {});

   auto eth0 = pub.ipStatus->ipIntfStatus(IntfId("eth0"));
   ASSERT_TRUE(eth0);
   EXPECT_EQ(eth0->activeAddrWithMask().stringValue(), "192.0.2.1/24");
   std::vector<std::string> secondaries;
   for (const auto& [a, on] : eth0->secondaryWithMask()) secondaries.push_back(a.stringValue());
   EXPECT_EQ(secondaries, (std::vector<std::string>{"192.0.2.9/24", "203.0.113.1/24"}));
   ASSERT_TRUE(pub.ip6Status->intf(IntfId("eth0")));
   EXPECT_EQ(pub.ip6Status->intf(IntfId("eth0"))->addr().size(), 1u);  // 2001:db8::1 alone
   m.addrs[2] = {addr("fe80::1/64")};  // a link-local address alone: nothing to publish
   pub.publish(m, {});
   EXPECT_FALSE(pub.ip6Status->intf(IntfId("eth0")));

   // The bridge's own address is its VLAN interface's.
   const IntfId br0("br0");
   ASSERT_TRUE(pub.ipStatus->ipIntfStatus(br0));
   EXPECT_EQ(pub.allStatus->intfStatus(br0)->intfId().kind(), IntfKind::intfKindVlan);
   EXPECT_EQ(pub.allStatus->intfStatus(br0)->ifIndex(), 3u);
}

// This kernel has no MACsec devices: the messages it would send for one over a port.
TEST_F(LinuxPlatformModelTest, MacsecDeviceNotUpHoldsItsPort) {
   linksAre({link(2, "eth0", "")});
   ifinfomsg ifi{};
   ifi.ifi_index = 9;
   ifi.ifi_type = ARPHRD_ETHER;
   const auto macsec = [&](uint8_t operstate) {
      EXPECT_TRUE(apply(m, RTM_NEWLINK, &ifi, sizeof(ifi), [&](nl_msg* msg) {
         nla_put_string(msg, IFLA_IFNAME, "macsec0");
         nla_put_u32(msg, IFLA_LINK, 2);
         nla_put_u8(msg, IFLA_OPERSTATE, operstate);
         nlattr* info = nla_nest_start(msg, IFLA_LINKINFO);
         nla_put_string(msg, IFLA_INFO_KIND, "macsec");
         nla_nest_end(msg, info);
      }));
      pub.publish(m, {});
      return pub.ethStatus->intfStatus(IntfId("eth0"))->forwardingModel();
   };
   EXPECT_EQ(macsec(IF_OPER_LOWERLAYERDOWN), Interface::forwardingModelDataLink);
   EXPECT_EQ(macsec(IF_OPER_UP), Interface::forwardingModelRouted);
   EXPECT_EQ(macsec(IF_OPER_DOWN), Interface::forwardingModelDataLink);
   EXPECT_FALSE(pub.ethStatus->intfStatus(IntfId("macsec0")));
}

TEST_F(LinuxPlatformModelTest, OddKernelMessagesAreSkipped) {
   ifinfomsg ifi{};
   ifi.ifi_index = 7;
   ifi.ifi_type = ARPHRD_ETHER;
   // Malformed, counted and left out: a header cut short, an MTU of two bytes, no name.
   EXPECT_FALSE(apply(m, RTM_NEWLINK, &ifi, 4));
   EXPECT_FALSE(apply(m, RTM_NEWLINK, &ifi, sizeof(ifi), [](nl_msg* msg) {
      nla_put_string(msg, IFLA_IFNAME, "odd0");
      nla_put_u16(msg, IFLA_MTU, 1500);
   }));
   EXPECT_FALSE(apply(m, RTM_NEWLINK, &ifi, sizeof(ifi),
                      [](nl_msg* msg) { nla_put_u32(msg, IFLA_MTU, 1500); }));
   EXPECT_EQ(m.malformed, 3u);
   EXPECT_TRUE(m.links.empty());
   // An unknown kind and a MAC of the wrong size: kept, not a port, no MAC.
   EXPECT_TRUE(apply(m, RTM_NEWLINK, &ifi, sizeof(ifi), [](nl_msg* msg) {
      nla_put_string(msg, IFLA_IFNAME, "odd0");
      nla_put(msg, IFLA_ADDRESS, 4, "\1\2\3\4");
      nlattr* info = nla_nest_start(msg, IFLA_LINKINFO);
      nla_put_string(msg, IFLA_INFO_KIND, "frobnicator");
      nla_nest_end(msg, info);
   }));
   ASSERT_TRUE(m.link(7));
   EXPECT_FALSE(Platform::Linux::isPortLink(*m.link(7)));
   EXPECT_TRUE(m.link(7)->mac.isZero());
   // Bridge VLANs: a range, out-of-range IDs and a short entry.
   ifinfomsg br = ifi;
   br.ifi_family = AF_BRIDGE;
   EXPECT_TRUE(apply(m, RTM_NEWLINK, &br, sizeof(br), [](nl_msg* msg) {
      nlattr* spec = nla_nest_start(msg, IFLA_AF_SPEC);
      for (bridge_vlan_info v :
           {bridge_vlan_info{BRIDGE_VLAN_INFO_RANGE_BEGIN, 100},
            bridge_vlan_info{BRIDGE_VLAN_INFO_RANGE_END, 103},
            bridge_vlan_info{BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 7},
            bridge_vlan_info{0, 0}, bridge_vlan_info{0, 4095}}) {
         nla_put(msg, IFLA_BRIDGE_VLAN_INFO, sizeof(v), &v);
      }
      nla_put(msg, IFLA_BRIDGE_VLAN_INFO, 2, "\0\0");
      nla_nest_end(msg, spec);
   }));
   const auto& v = m.portVlans.at(7);
   EXPECT_EQ(v.pvid, 7);
   EXPECT_EQ(v.member.count(), 5u);  // 7, 100-103
   EXPECT_TRUE(v.member.test(101));
   EXPECT_TRUE(v.untagged.test(7));
   // An IPv4 address of six bytes.
   ifaddrmsg ifa{};
   ifa.ifa_family = AF_INET;
   ifa.ifa_index = 7;
   ifa.ifa_prefixlen = 24;
   EXPECT_FALSE(apply(m, RTM_NEWADDR, &ifa, sizeof(ifa),
                      [](nl_msg* msg) { nla_put(msg, IFA_LOCAL, 6, "\1\2\3\4\5\6"); }));
   EXPECT_TRUE(m.addrs.empty());
   // The link goes: its VLANs and addresses with it.
   EXPECT_TRUE(apply(m, RTM_DELLINK, &ifi, sizeof(ifi)));
   EXPECT_TRUE(m.links.empty());
   EXPECT_TRUE(m.portVlans.empty());
}

}  // namespace
