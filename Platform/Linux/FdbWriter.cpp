#include "Platform/Linux/FdbWriter.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

namespace Platform::Linux {

void FdbWriter::SockFree::operator()(nl_sock* s) const {
   nl_socket_free(s);
}

FdbWriter::FdbWriter() {
   nl_sock* s = nl_socket_alloc();
   if (!s) return;
   if (nl_connect(s, NETLINK_ROUTE) < 0) {
      nl_socket_free(s);
      return;
   }
   sock_.reset(s);
}

FdbWriter::~FdbWriter() = default;

FdbWriter::Result FdbWriter::add(int ifindex, const Wire::EthAddr& mac, std::string* error) {
   // Exclusive: an entry someone else made is reported, never taken over.
   return request(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_EXCL, ifindex, mac, error);
}

FdbWriter::Result FdbWriter::del(int ifindex, const Wire::EthAddr& mac, std::string* error) {
   return request(RTM_DELNEIGH, 0, ifindex, mac, error);
}

FdbWriter::Result FdbWriter::request(int type, int flags, int ifindex, const Wire::EthAddr& mac,
                                     std::string* error) {
   if (!sock_) {
      if (error) *error = "no rtnetlink socket";
      return Result::refused;
   }
   nl_msg* msg = nlmsg_alloc_simple(type, NLM_F_REQUEST | NLM_F_ACK | flags);
   if (!msg) {
      if (error) *error = "out of memory";
      return Result::refused;
   }
   ndmsg nd{};
   nd.ndm_family = AF_BRIDGE;
   nd.ndm_ifindex = ifindex;
   nd.ndm_state = NUD_NOARP;  // static: never aged, forwarded to the port
   nd.ndm_flags = NTF_MASTER;
   int err = nlmsg_append(msg, &nd, sizeof(nd), NLMSG_ALIGNTO);
   if (err >= 0) err = nla_put(msg, NDA_LLADDR, int(mac.bytes().size()), mac.bytes().data());
   if (err >= 0)
      err = nl_send_sync(sock_.get(), msg);  // frees the message
   else
      nlmsg_free(msg);
   if (err >= 0) return Result::done;
   if (err == -NLE_EXIST) return Result::exists;
   if (err == -NLE_OBJ_NOTFOUND || err == -NLE_NODEV) return Result::absent;
   if (error) *error = nl_geterror(-err);
   return Result::refused;
}

}  // namespace Platform::Linux
