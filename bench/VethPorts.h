// Two network namespaces joined by N veth pairs, for the benches that drive the daemon:
// "<a><i>" on the daemon's side (namespace A), "<b><i>" facing it (namespace B). The pairs
// are made in batches of `ip` commands, so a thousand ports take seconds. Both namespaces
// go when the object does.
#pragma once

#include <ifaddrs.h>
#include <linux/if_link.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"

namespace Bench {

class VethPorts {
public:
   // `tag` names the namespaces ("lldp-<tag>-a<pid>"); `quiet` turns IPv6 off in both, so
   // the links carry nothing but what the bench sends (no neighbour discovery, no
   // multicast reports).
   VethPorts(const std::string& tag, std::string a, std::string b, int n, bool quiet = false)
       : tag_(tag), a_(std::move(a)), n_(n) {
      const std::string pid = std::to_string(::getpid());
      nsA_ = "lldp-" + tag + "-a" + pid;
      nsB_ = "lldp-" + tag + "-b" + pid;
      for (const std::string& ns : {nsA_, nsB_}) {
         if (!TestSupport::runCmd("ip netns add " + ns)) {
            error_ = "cannot create network namespace " + ns;
            return;
         }
         created_.push_back(ns);
         if (quiet) {
            TestSupport::runCmd("ip netns exec " + ns +
                                " sysctl -qw net.ipv6.conf.all.disable_ipv6=1"
                                " net.ipv6.conf.default.disable_ipv6=1");
         }
      }
      std::string add, upA, upB;
      for (int i = 0; i < n; ++i) {
         const std::string x = a_ + std::to_string(i), y = b + std::to_string(i);
         add += "link add " + x + " type veth peer name " + y + " netns " + nsB_ + "\n";
         upA += "link set " + x + " up\n";
         upB += "link set " + y + " up\n";
      }
      if (!batch(nsA_, add) || !batch(nsA_, upA) || !batch(nsB_, upB)) {
         error_ = "cannot create " + std::to_string(n) + " veth pairs";
      }
   }
   ~VethPorts() {
      for (const std::string& ns : created_) TestSupport::runCmd("ip netns del " + ns);
   }
   VethPorts(const VethPorts&) = delete;
   VethPorts& operator=(const VethPorts&) = delete;

   const std::string& error() const { return error_; }
   const std::string& nsA() const { return nsA_; }
   const std::string& nsB() const { return nsB_; }
   int count() const { return n_; }

   // Frames the daemon's side of the links received, all ports together.
   uint64_t rxPackets() const {
      TestSupport::NetNsScope in(nsA_);
      uint64_t total = 0;
      ifaddrs* list = nullptr;
      if (::getifaddrs(&list) != 0) return 0;
      for (ifaddrs* x = list; x; x = x->ifa_next) {
         if (!x->ifa_addr || x->ifa_addr->sa_family != AF_PACKET || !x->ifa_data) continue;
         if (std::strncmp(x->ifa_name, a_.c_str(), a_.size()) != 0) continue;
         total += static_cast<const rtnl_link_stats*>(x->ifa_data)->rx_packets;
      }
      ::freeifaddrs(list);
      return total;
   }

private:
   bool batch(const std::string& ns, const std::string& cmds) const {
      const std::string path = "/tmp/lldp-" + tag_ + "-" + std::to_string(::getpid()) + ".batch";
      std::ofstream(path) << cmds;
      const bool ok = TestSupport::runCmd("ip -n " + ns + " -batch " + path);
      ::unlink(path.c_str());
      return ok;
   }
   std::string tag_, a_;
   int n_;
   std::string nsA_, nsB_, error_;
   std::vector<std::string> created_;
};

// A forged LLDPDU from neighbour `k`: source MAC 02:00:<k>, chassis ID "<prefix>-<k>" (a
// locally assigned name), port ID "p1", a 600 s time to live (nobody ages out during a
// run), a system name and, when given, a system description. Returns its length; `f`
// holds at least 64 bytes more than the strings.
inline size_t forgedLldpdu(char* f, uint64_t k, const char* prefix, std::string_view sysName,
                           std::string_view sysDescr = {}) {
   static const unsigned char head[14] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02,
                                          0x00, 0,    0,    0,    0,    0x88, 0xcc};
   std::memcpy(f, head, sizeof(head));
   for (int i = 0; i < 4; ++i) f[8 + i] = char(k >> (24 - 8 * i));
   char* p = f + 14;
   auto tlv = [&](int type, const void* v, size_t len) {
      *p++ = char((type << 1) | (len >> 8));
      *p++ = char(len & 0xff);
      std::memcpy(p, v, len);
      p += len;
   };
   char chassis[40];
   const int n = std::snprintf(chassis, sizeof(chassis), "%c%s-%012llu", 7, prefix,
                               static_cast<unsigned long long>(k));
   tlv(1, chassis, size_t(n));
   tlv(2, "\x07p1", 3);
   tlv(3, "\x02\x58", 2);
   tlv(5, sysName.data(), sysName.size());
   if (!sysDescr.empty()) tlv(6, sysDescr.data(), sysDescr.size());
   tlv(0, "", 0);
   return size_t(p - f);
}

}  // namespace Bench
