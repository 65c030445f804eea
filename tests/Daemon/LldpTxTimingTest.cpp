// When frames leave, in real time and on the wire: our daemon on one end of a veth, the
// kernel's receive timestamps of its LLDPDUs on the other. With `lldp timer 5` (txDelay 2):
// the first frame txDelay after the kernel reports the link up, then one every 5 s; a change of the
// system name leaves at once, and a second change within txDelay when that delay ends. Every time
// is held to 20 ms.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "tests/Support/AgentProcess.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"

namespace {

using TestSupport::Agent;

constexpr double tolerance = 0.02;
constexpr uint8_t ifOperUp = 6;  // the kernel's operational state "up" (IF_OPER_UP)

double realNow() {
   timespec ts;
   clock_gettime(CLOCK_REALTIME, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// The LLDPDUs arriving on one interface of a namespace, each with the time the kernel
// received it.
class Capture {
public:
   struct Frame {
      double at = 0;  // 0: none came in time
      std::string bytes;
   };

   Capture(const std::string& ns, const std::string& intf) {
      TestSupport::NetNsScope in(ns);
      fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_LLDP));
      if (fd_ < 0) return;
      const int on = 1;
      ::setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
      sockaddr_ll addr{};
      addr.sll_family = AF_PACKET;
      addr.sll_protocol = htons(ETH_P_LLDP);
      addr.sll_ifindex = int(::if_nametoindex(intf.c_str()));
      if (::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
         ::close(std::exchange(fd_, -1));
      }
   }
   ~Capture() {
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0; }

   // The next frame, waiting at most `timeout` seconds for it.
   Frame next(double timeout) {
      Frame f;
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, int(timeout * 1000)) != 1) return f;
      char buf[2048];
      char control[256];
      iovec iov{buf, sizeof(buf)};
      msghdr msg{};
      msg.msg_iov = &iov;
      msg.msg_iovlen = 1;
      msg.msg_control = control;
      msg.msg_controllen = sizeof(control);
      const ssize_t n = ::recvmsg(fd_, &msg, 0);
      if (n <= 0) return f;
      f.bytes.assign(buf, size_t(n));
      f.at = realNow();
      for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
         if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            timespec ts;
            std::memcpy(&ts, CMSG_DATA(c), sizeof(ts));
            f.at = double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
         }
      }
      return f;
   }
   // Throws away what has arrived so far.
   void drain() {
      while (next(0).at != 0) {
      }
   }

private:
   int fd_ = -1;
};

// The kernel's link notifications in a namespace: when an interface's operational state
// became up. The kernel reports it some time after the interface is set up (up to a
// second, when other links changed just before), and that report is the agent's link up.
class LinkWatch {
public:
   LinkWatch(const std::string& ns, const std::string& intf) {
      TestSupport::NetNsScope in(ns);
      ifIndex_ = int(::if_nametoindex(intf.c_str()));
      fd_ = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
      sockaddr_nl addr{};
      addr.nl_family = AF_NETLINK;
      addr.nl_groups = RTMGRP_LINK;
      if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
         ::close(std::exchange(fd_, -1));
      }
   }
   ~LinkWatch() {
      if (fd_ >= 0) ::close(fd_);
   }
   bool ok() const { return fd_ >= 0 && ifIndex_ > 0; }
   // When the kernel said the link is up, waiting at most `timeout` seconds; 0 if not.
   double up(double timeout) {
      const double end = realNow() + timeout;
      for (double left = timeout; left > 0; left = end - realNow()) {
         pollfd p{fd_, POLLIN, 0};
         if (::poll(&p, 1, int(left * 1000) + 1) != 1) return 0;
         alignas(nlmsghdr) char buf[16384];
         const ssize_t n = ::recv(fd_, buf, sizeof(buf), 0);
         const double at = realNow();
         if (n <= 0) return 0;
         // The messages of the datagram, one after the other, each aligned.
         for (size_t off = 0; off + sizeof(nlmsghdr) <= size_t(n);) {
            const auto* h = reinterpret_cast<const nlmsghdr*>(buf + off);
            if (h->nlmsg_len < sizeof(nlmsghdr) || off + h->nlmsg_len > size_t(n)) break;
            if (h->nlmsg_type == RTM_NEWLINK && h->nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg))) {
               const auto* info = reinterpret_cast<const ifinfomsg*>(buf + off + NLMSG_HDRLEN);
               if (info->ifi_index == ifIndex_ && operUp(h)) return at;
            }
            off += NLMSG_ALIGN(h->nlmsg_len);
         }
      }
      return 0;
   }

private:
   // Whether a link message says the operational state is up (the carrier flag comes
   // with the administrative change; the state follows when the kernel gets round to it).
   static bool operUp(const nlmsghdr* h) {
      const char* msg = reinterpret_cast<const char*>(h);
      for (size_t off = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifinfomsg));
           off + sizeof(rtattr) <= h->nlmsg_len;) {
         const auto* a = reinterpret_cast<const rtattr*>(msg + off);
         if (a->rta_len < sizeof(rtattr) || off + a->rta_len > h->nlmsg_len) return false;
         if (a->rta_type == IFLA_OPERSTATE && a->rta_len > sizeof(rtattr)) {
            return uint8_t(msg[off + RTA_LENGTH(0)]) == ifOperUp;
         }
         off += RTA_ALIGN(a->rta_len);
      }
      return false;
   }
   int fd_ = -1;
   int ifIndex_ = 0;
};

TEST(LldpTxTiming, FramesLeaveAtTheirDeadlinesOnTheWire) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   TestSupport::NetNsPair ns;
   ASSERT_TRUE(ns.ok()) << ns.error();
   Capture wire(ns.nsB(), ns.intfB());
   ASSERT_TRUE(wire.ok());
   Agent agent(ns.nsA(), "timing", ns.intfA(),
               "lldp timer 5\nlldp timer reinitialization 1\nlldp system-name first\n");
   ASSERT_TRUE(agent.running());
   ASSERT_NE(wire.next(10).at, 0) << "the agent sent nothing";

   // Down for longer than the reinitialisation delay, then up.
   LinkWatch link(ns.nsA(), ns.intfA());
   ASSERT_TRUE(link.ok());
   ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + ns.intfA() + " down"));
   ::usleep(1'500'000);
   wire.drain();
   ASSERT_TRUE(TestSupport::ipIn(ns.nsA(), "link set " + ns.intfA() + " up"));
   const double up = link.up(3);
   ASSERT_NE(up, 0) << "the link did not come up";
   const Capture::Frame first = wire.next(4);
   ASSERT_NE(first.at, 0) << "nothing within 4 s of link up";
   EXPECT_NEAR(first.at - up, 2.0, tolerance) << "first frame after link up";
   double last = first.at;
   for (int i = 0; i < 2; ++i) {
      const Capture::Frame refresh = wire.next(6);
      ASSERT_NE(refresh.at, 0);
      EXPECT_NEAR(refresh.at - last, 5.0, tolerance) << "refresh " << i + 1;
      last = refresh.at;
   }

   // Idle again (txDelay after the last frame): a change goes out at once, a second one
   // within txDelay when the delay that the first started ends.
   ::usleep(2'500'000);
   const double asked = realNow();
   ASSERT_EQ(agent.run({"configure", "lldp system-name second"}).status, 0);
   const double answered = realNow();
   const Capture::Frame changed = wire.next(1);
   ASSERT_NE(changed.at, 0) << "the change was not sent";
   EXPECT_GE(changed.at, asked);
   EXPECT_LT(changed.at, answered + tolerance) << "sent " << changed.at - answered << " s late";
   EXPECT_NE(changed.bytes.find("second"), std::string::npos);
   ASSERT_EQ(agent.run({"configure", "lldp system-name third"}).status, 0);
   const Capture::Frame again = wire.next(3);
   ASSERT_NE(again.at, 0) << "the second change was not sent";
   EXPECT_NEAR(again.at - changed.at, 2.0, tolerance) << "second change";
   EXPECT_NE(again.bytes.find("third"), std::string::npos);
}

}  // namespace
