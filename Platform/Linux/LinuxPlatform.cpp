#include "Platform/Linux/LinuxPlatform.h"

#include <linux/if_link.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <fstream>

namespace Platform::Linux {

namespace {

// Room for bursts (a bridge with many ports coming up): the kernel drops
// notifications, and we re-dump, only when this much is unread.
constexpr int eventBufferBytes = 4 << 20;
// Socket reads per readable turn, so a flood of changes cannot starve the loop.
constexpr int readsPerTurn = 64;
constexpr int dumpAttempts = 4;

std::string nlError(int err) {
   return nl_geterror(err < 0 ? -err : err);
}

bool fail(std::string* error, const std::string& why) {
   VEL_TRACE(platformTrace, 0, why);
   if (error) *error = why;
   return false;
}

}  // namespace

void LinuxPlatform::SockFree::operator()(nl_sock* s) const {
   nl_socket_free(s);
}

LinuxPlatform::LinuxPlatform(const Options& options, Vel::StateDb& db)
    : options_(options), db_(db), publisher_(db), bridgeCapability_(db) {}

LinuxPlatform::~LinuxPlatform() {
   telephoneBypass_.reset();
   reactor_.reset();
}

std::unique_ptr<LinuxPlatform> LinuxPlatform::open(const Options& options, Vel::StateDb& db,
                                                   std::string* error) {
   std::unique_ptr<LinuxPlatform> p(new LinuxPlatform(options, db));
   if (!p->init(error)) return nullptr;
   return p;
}

int LinuxPlatform::onMessage(nl_msg* msg, void* model) {
   static_cast<NetModel*>(model)->apply(nlmsg_hdr(msg));
   return NL_OK;
}

bool LinuxPlatform::init(std::string* error) {
   events_.reset(nl_socket_alloc());
   dumps_.reset(nl_socket_alloc());
   if (!events_ || !dumps_) return fail(error, "cannot allocate netlink sockets");

   nl_sock* ev = events_.get();
   nl_socket_disable_seq_check(ev);  // notifications carry no sequence number
   nl_socket_enable_msg_peek(ev);
   nl_socket_modify_cb(ev, NL_CB_VALID, NL_CB_CUSTOM, &LinuxPlatform::onMessage, &model_);
   if (int err = nl_connect(ev, NETLINK_ROUTE); err < 0) {
      return fail(error, "cannot open the rtnetlink event socket: " + nlError(err));
   }
   if (int err = nl_socket_add_memberships(ev, RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR,
                                           RTNLGRP_IPV6_IFADDR, RTNLGRP_IPV4_NETCONF, 0);
       err < 0) {
      return fail(error, "cannot subscribe to rtnetlink changes: " + nlError(err));
   }
   if (int err = nl_socket_set_nonblocking(ev); err < 0) {
      return fail(error, "cannot make the rtnetlink event socket non-blocking: " + nlError(err));
   }
   // Beyond the system's limit when we may (root), else as much as it allows.
   const int fd = nl_socket_get_fd(ev);
   if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &eventBufferBytes, sizeof(int)) != 0) {
      nl_socket_set_buffer_size(ev, eventBufferBytes, 0);
   }

   nl_socket_enable_msg_peek(dumps_.get());
   nl_socket_disable_auto_ack(dumps_.get());
   if (int err = nl_connect(dumps_.get(), NETLINK_ROUTE); err < 0) {
      return fail(error, "cannot open the rtnetlink dump socket: " + nlError(err));
   }

   if (!resync(error)) return false;
   publisher_.publishSystem();
   reactor_ = std::make_unique<Vel::FdReactor>(fd, [this] { handleReadable(); });
   if (!reactor_->registered()) return fail(error, "cannot watch the rtnetlink event socket");
   return true;
}

bool LinuxPlatform::dump(int type, int family, uint32_t extMask, std::string* error) {
   for (int attempt = 0; attempt < dumpAttempts; ++attempt) {
      nl_msg* msg = nlmsg_alloc_simple(type, NLM_F_DUMP);
      if (!msg) return fail(error, "out of memory for a netlink request");
      int err = 0;
      if (type == RTM_GETLINK) {
         ifinfomsg ifi{};
         ifi.ifi_family = uint8_t(family);
         err = nlmsg_append(msg, &ifi, sizeof(ifi), NLMSG_ALIGNTO);
         if (err == 0 && extMask) err = nla_put_u32(msg, IFLA_EXT_MASK, extMask);
      } else if (type == RTM_GETADDR) {
         ifaddrmsg ifa{};
         ifa.ifa_family = uint8_t(family);
         err = nlmsg_append(msg, &ifa, sizeof(ifa), NLMSG_ALIGNTO);
      } else {
         netconfmsg ncm{};
         ncm.ncm_family = uint8_t(family);
         err = nlmsg_append(msg, &ncm, sizeof(ncm), NLMSG_ALIGNTO);
      }
      if (err == 0) err = nl_send_auto(dumps_.get(), msg);
      nlmsg_free(msg);
      if (err >= 0) err = nl_recvmsgs_default(dumps_.get());
      // The kernel's table changed while it was being dumped: take it again.
      if (err == -NLE_DUMP_INTR) continue;
      if (err < 0) {
         return fail(error, "rtnetlink dump " + std::to_string(type) + "/" +
                                std::to_string(family) + " failed: " + nlError(err));
      }
      return true;
   }
   return fail(error, "rtnetlink dump " + std::to_string(type) + " kept being interrupted");
}

bool LinuxPlatform::resync(std::string* error) {
   // Dumped into a fresh model, so a failure leaves the old one (and the entities) alone.
   NetModel fresh;
   nl_socket_modify_cb(dumps_.get(), NL_CB_VALID, NL_CB_CUSTOM, &LinuxPlatform::onMessage, &fresh);
   bool ok = dump(RTM_GETLINK, AF_UNSPEC, 0, error) && dump(RTM_GETADDR, AF_UNSPEC, 0, error);
   if (ok) {
      // Without bridge support there are no bridge ports to learn about.
      std::string why;
      if (!dump(RTM_GETLINK, AF_BRIDGE, RTEXT_FILTER_BRVLAN, &why)) {
         VEL_TRACE(platformTrace, 2, "no bridge VLAN information: " << why);
      }
      netconfDumped_ = dump(RTM_GETNETCONF, AF_INET, 0, &why);
   }
   nl_socket_modify_cb(dumps_.get(), NL_CB_VALID, NL_CB_CUSTOM, &LinuxPlatform::onMessage, nullptr);
   if (!ok) return false;
   fresh.malformed += model_.malformed;
   model_ = std::move(fresh);
   ++resyncs_;
   VEL_TRACE(platformTrace, 2,
             "read " << model_.links.size() << " links, " << model_.addrs.size()
                     << " interfaces with addresses from the kernel");
   publish();
   return true;
}

void LinuxPlatform::handleReadable() {
   nl_cb* cb = nl_socket_get_cb(events_.get());
   bool any = false;
   bool lost = false;
   for (int i = 0; i < readsPerTurn; ++i) {
      const int n = nl_recvmsgs_report(events_.get(), cb);
      if (n > 0) {
         any = true;
         continue;
      }
      if (n == 0 || n == -NLE_AGAIN) break;
      // ENOBUFS arrives as NLE_NOMEM: the kernel dropped notifications. Any other
      // error also means a message we did not see.
      VEL_TRACE(platformTrace, n == -NLE_NOMEM ? 2 : 0,
                "rtnetlink events lost: "
                    << (n == -NLE_NOMEM ? std::string("socket buffer overflowed") : nlError(n)));
      lost = true;
      break;
   }
   nl_cb_put(cb);
   ++batches_;
   if (lost) {
      std::string why;
      if (!resync(&why)) VEL_TRACE(platformTrace, 0, "cannot re-read the kernel's state: " << why);
      return;
   }
   if (any) publish();
}

void LinuxPlatform::readForwardingFile() {
   std::ifstream in("/proc/sys/net/ipv4/ip_forward");
   int v = 0;
   if (in >> v) model_.ipForwarding = v == 1;
}

void LinuxPlatform::publish() {
   if (!netconfDumped_) readForwardingFile();
   publisher_.publish(model_, options_);
   bridgeCapability_.bridgingIs(publisher_.anyBridgePort);
   if (!telephoneBypass_) telephoneBypass_ = std::make_unique<TelephoneBypassSm>(db_);
   telephoneBypass_->modelIs(model_);
}

int LinuxPlatform::eventFd() const {
   return nl_socket_get_fd(events_.get());
}

void LinuxPlatform::vlanNamesIs(const std::map<uint16_t, std::string>& names) {
   options_.vlanNames = names;
   publish();
}

void LinuxPlatform::refreshSystem() {
   publisher_.publishSystem();
}

}  // namespace Platform::Linux
