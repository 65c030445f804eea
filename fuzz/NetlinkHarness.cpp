#include "fuzz/NetlinkHarness.h"

#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>

#include <cstring>
#include <optional>

#include "Framework/Log.h"
#include "Framework/Trace.h"

namespace Fuzz {

using Platform::Linux::AddrInfo;
using Platform::Linux::LinkInfo;
using Platform::Linux::NetModel;

namespace {

bool sameLink(const LinkInfo& a, const LinkInfo& b) {
   return a.index == b.index && a.name == b.name && a.kind == b.kind && a.type == b.type &&
          a.flags == b.flags && a.operstate == b.operstate && a.mac == b.mac && a.mtu == b.mtu &&
          a.maxMtu == b.maxMtu && a.master == b.master && a.link == b.link && a.alias == b.alias &&
          a.vlanFiltering == b.vlanFiltering;
}

bool sameAddrs(const Platform::Linux::AddrList& a, const Platform::Linux::AddrList& b) {
   if (a.size() != b.size()) return false;
   for (size_t i = 0; i < a.size(); ++i) {
      if (!a[i].sameAddr(b[i]) || a[i].flags != b[i].flags || a[i].scope != b[i].scope) {
         return false;
      }
   }
   return true;
}

// What a message can touch: the object it names, and how many objects there are.
struct Around {
   size_t links, portVlans, lockedPorts, addrs;
   std::optional<bool> ipForwarding;
   std::optional<LinkInfo> link;
   std::optional<Platform::Linux::PortVlans> vlans;
   bool locked;
   std::optional<Platform::Linux::AddrList> addrList;
};

Around around(const NetModel& m, int index) {
   Around a{m.links.size(),
            m.portVlans.size(),
            m.lockedPorts.size(),
            m.addrs.size(),
            m.ipForwarding,
            {},
            {},
            m.lockedPorts.count(index) != 0,
            {}};
   if (auto it = m.links.find(index); it != m.links.end()) a.link = it->second;
   if (auto it = m.portVlans.find(index); it != m.portVlans.end()) a.vlans = it->second;
   if (auto it = m.addrs.find(index); it != m.addrs.end()) a.addrList = it->second;
   return a;
}

bool same(const Around& a, const Around& b) {
   auto sameVlans = [](const auto& x, const auto& y) {
      return x.pvid == y.pvid && x.member == y.member && x.untagged == y.untagged;
   };
   return a.links == b.links && a.portVlans == b.portVlans && a.lockedPorts == b.lockedPorts &&
          a.addrs == b.addrs && a.ipForwarding == b.ipForwarding && a.locked == b.locked &&
          a.link.has_value() == b.link.has_value() && (!a.link || sameLink(*a.link, *b.link)) &&
          a.vlans.has_value() == b.vlans.has_value() &&
          (!a.vlans || sameVlans(*a.vlans, *b.vlans)) &&
          a.addrList.has_value() == b.addrList.has_value() &&
          (!a.addrList || sameAddrs(*a.addrList, *b.addrList));
}

// The interface a message is about, when its header is there to say.
int indexOf(const nlmsghdr* msg) {
   switch (msg->nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
         if (nlmsg_valid_hdr(msg, sizeof(ifinfomsg))) {
            return static_cast<const ifinfomsg*>(nlmsg_data(msg))->ifi_index;
         }
         return 0;
      case RTM_NEWADDR:
      case RTM_DELADDR:
         if (nlmsg_valid_hdr(msg, sizeof(ifaddrmsg))) {
            return int(static_cast<const ifaddrmsg*>(nlmsg_data(msg))->ifa_index);
         }
         return 0;
      default:
         return 0;
   }
}

}  // namespace

NetlinkHarness::NetlinkHarness() {
   Vel::Log::syslogIs(false);
   Vel::Trace::textTraceIs("-");
   options_.vlanNames[10] = "users";
}

void NetlinkHarness::feed(const uint8_t* data, size_t size) {
   if (size == 0) return;
   bool anyApplied = false;
   if (model_.links.size() > objectLimit || model_.addrs.size() > objectLimit) {
      model_.clear();
      anyApplied = true;
   }
   buffer_.assign((size + sizeof(uint64_t) - 1) / sizeof(uint64_t), 0);
   std::memcpy(buffer_.data(), data, size);
   auto* msg = reinterpret_cast<nlmsghdr*>(buffer_.data());
   int remaining = int(size);
   for (; nlmsg_ok(msg, remaining); msg = nlmsg_next(msg, &remaining)) {
      const uint64_t malformed = model_.malformed;
      const int index = indexOf(msg);
      const Around before = around(model_, index);
      const bool applied = model_.apply(msg);
      anyApplied = anyApplied || applied;
      if (model_.malformed < malformed) {
         wrong_ = "the count of malformed messages went back";
         return;
      }
      if (!applied && !same(before, around(model_, index))) {
         wrong_ = "a message the model refused changed it (type " +
                  std::to_string(msg->nlmsg_type) + ")";
         return;
      }
   }
   // A read whose every message the model refused left it as it was (checked above), and
   // that model was published already: only a model that may have changed is published.
   if (anyApplied) publisher_.publish(model_, options_);
}

}  // namespace Fuzz
