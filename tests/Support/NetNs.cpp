#include "tests/Support/NetNs.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace TestSupport {

namespace {

std::atomic<unsigned> pairCount{0};

bool run(const std::string& cmd) {
   return std::system((cmd + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

NetNsPair::NetNsPair(unsigned mtu) {
   if (::geteuid() != 0) {
      error_ = "needs root to create network namespaces";
      return;
   }
   const std::string tag = std::to_string(::getpid()) + "x" + std::to_string(pairCount++);
   nsA_ = "lldptest-a" + tag;
   nsB_ = "lldptest-b" + tag;
   intfA_ = "va" + tag;  // interface names have at most 15 characters
   intfB_ = "vb" + tag;
   // Each step runs only while every one before it worked; the first to fail is the error.
   auto step = [&](const std::string& cmd) {
      if (error_.empty() && !run(cmd)) error_ = "cannot run `" + cmd + "`";
      return error_.empty();
   };
   for (const std::string& ns : {nsA_, nsB_}) {
      if (step("ip netns add " + ns)) created_.push_back(ns);
   }
   step("ip link add " + intfA_ + " netns " + nsA_ + " type veth peer name " + intfB_ + " netns " +
        nsB_);
   for (const auto& [ns, intf] : {std::pair(nsA_, intfA_), std::pair(nsB_, intfB_)}) {
      if (mtu != 0) step("ip -n " + ns + " link set " + intf + " mtu " + std::to_string(mtu));
      step("ip -n " + ns + " link set " + intf + " up");
   }
}

NetNsPair::~NetNsPair() {
   // Removing a namespace removes the veth end in it, and with it the other end.
   for (const std::string& ns : created_) run("ip netns del " + ns);
}

NetNsScope::NetNsScope(const std::string& ns) {
   saved_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
   int target = ::open(("/run/netns/" + ns).c_str(), O_RDONLY | O_CLOEXEC);
   if (saved_ >= 0 && target >= 0) entered_ = ::setns(target, CLONE_NEWNET) == 0;
   if (target >= 0) ::close(target);
}

NetNsScope::~NetNsScope() {
   if (entered_) ::setns(saved_, CLONE_NEWNET);
   if (saved_ >= 0) ::close(saved_);
}

RawSender::RawSender(const std::string& ns, const std::string& intf) {
   NetNsScope scope(ns);
   if (!scope.ok()) return;
   ifIndex_ = int(::if_nametoindex(intf.c_str()));
   if (ifIndex_ == 0) return;
   fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
}

RawSender::~RawSender() {
   if (fd_ >= 0) ::close(fd_);
}

bool RawSender::send(const char* frame, size_t len) {
   if (fd_ < 0 || len < 14) return false;
   sockaddr_ll sll{};
   sll.sll_family = AF_PACKET;
   std::memcpy(&sll.sll_protocol, frame + 12, 2);  // already in network order
   sll.sll_ifindex = ifIndex_;
   sll.sll_halen = 6;
   std::memcpy(sll.sll_addr, frame, 6);
   return ::sendto(fd_, frame, len, 0, reinterpret_cast<sockaddr*>(&sll), sizeof(sll)) ==
          ssize_t(len);
}

}  // namespace TestSupport
