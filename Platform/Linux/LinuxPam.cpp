#include "Platform/Linux/LinuxPam.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Framework/Trace.h"
#include "Framework/Wire/ByteOrder.h"

namespace Platform::Linux {

namespace {

Vel::Trace::Handle trace("LinuxPam");

// Where the link-layer address of a frame sits in its ring slot.
constexpr size_t sllOffset = TPACKET_ALIGN(sizeof(tpacket3_hdr));

void errorIs(std::string* error, const std::string& text) {
   if (error) *error = text;
}

}  // namespace

Vel::Ptr<LinuxPam> LinuxPam::open(const Wire::IntfId& intfId, const Options& options,
                                  std::string* error) {
   Vel::Ptr<LinuxPam> pam(new LinuxPam(intfId, options));
   std::string why;
   if (!pam->init(&why)) {
      VEL_TRACE(trace, 0, intfId << ": cannot open packet access: " << why);
      errorIs(error, why);
      return nullptr;
   }
   VEL_TRACE(trace, 6,
             intfId << ": packet access open, ifindex " << pam->ifIndex_ << ", " << pam->ethAddr_);
   return pam;
}

bool LinuxPam::init(std::string* error) {
   auto fail = [&](const std::string& what) {
      errorIs(error, what + ": " + std::strerror(errno));
      return false;
   };
   const std::string name = intfId().stringValue();
   if (name.empty() || name.size() >= IFNAMSIZ) {
      errorIs(error, "not a Linux interface name: '" + name + "'");
      return false;
   }
   if (!options_.settings.separateDot1QHdr) {
      errorIs(error, "802.1Q tags can only be delivered apart from the frame");
      return false;
   }
   const uint32_t bs = options_.blockSize;
   if (bs < 4096 || (bs & (bs - 1)) != 0 || bs <= Pam::rxFrameLimit + 128 ||
       options_.blockCount == 0) {
      errorIs(error, "bad receive ring size");
      return false;
   }

   const std::string what = "interface " + name;
   ifIndex_ = int(::if_nametoindex(name.c_str()));
   if (ifIndex_ == 0) return fail(what);

   // Protocol 0: nothing is queued until the socket is bound, after the filter is on.
   fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd_ < 0) return fail("packet socket on " + what);

   ifreq ifr{};
   std::memcpy(ifr.ifr_name, name.data(), name.size());
   if (::ioctl(fd_, SIOCGIFHWADDR, &ifr) < 0) return fail("SIOCGIFHWADDR on " + what);
   ethAddr_ = Wire::EthAddr::fromBytes(ifr.ifr_hwaddr.sa_data);

   const Wire::PamSettings& settings = options_.settings;
   if (!settings.filterProgram.empty()) {
      static_assert(sizeof(Wire::BpfInsn) == sizeof(sock_filter));
      sock_fprog prog{};
      prog.len = uint16_t(settings.filterProgram.size());
      prog.filter =
          reinterpret_cast<sock_filter*>(const_cast<Wire::BpfInsn*>(settings.filterProgram.data()));
      if (::setsockopt(fd_, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof(prog)) < 0) {
         return fail("SO_ATTACH_FILTER");
      }
   }
   int version = TPACKET_V3;
   if (::setsockopt(fd_, SOL_PACKET, PACKET_VERSION, &version, sizeof(version)) < 0) {
      return fail("PACKET_VERSION");
   }
   // Our own frames are not looped back to us anyway; this also keeps out frames other
   // sockets send on the interface.
   int one = 1;
   if (::setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof(one)) < 0) {
      VEL_TRACE(trace, 2, intfId() << ": PACKET_IGNORE_OUTGOING: " << std::strerror(errno));
   }
   tpacket_req3 req{};
   req.tp_block_size = bs;
   req.tp_block_nr = options_.blockCount;
   req.tp_frame_size = 2048;  // V3 packs frames by their length; this only has to divide
   req.tp_frame_nr = (bs / req.tp_frame_size) * options_.blockCount;
   req.tp_retire_blk_tov = options_.retireMs;
   if (::setsockopt(fd_, SOL_PACKET, PACKET_RX_RING, &req, sizeof(req)) < 0) {
      return fail("PACKET_RX_RING");
   }
   ringBytes_ = size_t(bs) * options_.blockCount;
   void* ring = ::mmap(nullptr, ringBytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
   if (ring == MAP_FAILED) return fail("mmap");
   ring_ = static_cast<char*>(ring);

   int priority = settings.sockPrio;
   if (::setsockopt(fd_, SOL_SOCKET, SO_PRIORITY, &priority, sizeof(priority)) < 0) {
      return fail("SO_PRIORITY");
   }

   sockaddr_ll sll{};
   sll.sll_family = AF_PACKET;
   sll.sll_protocol = htons(ETH_P_ALL);
   sll.sll_ifindex = ifIndex_;
   if (::bind(fd_, reinterpret_cast<sockaddr*>(&sll), sizeof(sll)) < 0) return fail("bind");

   if (!settings.lldpDestMac.isZero()) {
      packet_mreq mr{};
      mr.mr_ifindex = ifIndex_;
      mr.mr_type = PACKET_MR_MULTICAST;
      mr.mr_alen = 6;
      std::memcpy(mr.mr_address, settings.lldpDestMac.bytes().data(), 6);
      if (::setsockopt(fd_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof(mr)) < 0) {
         return fail("PACKET_ADD_MEMBERSHIP");
      }
   }
   return true;
}

LinuxPam::~LinuxPam() {
   reactor_.reset();
   if (ring_) ::munmap(ring_, ringBytes_);
   if (fd_ >= 0) ::close(fd_);
}

void LinuxPam::notifieeChanged() {
   // Watch the socket only while someone reads: an unread ring would keep it readable.
   if (notifiee() && !reactor_) {
      reactor_ = std::make_unique<Vel::FdReactor>(fd_, [this] { handleReadable(); });
   } else if (!notifiee()) {
      reactor_.reset();
   }
}

void LinuxPam::handleReadable() {
   // Blocks that carry no frames would keep the socket readable without giving the
   // reader anything: hand them straight back.
   while ((blockStatus(cur_) & TP_STATUS_USER) && block(cur_)->hdr.bh1.num_pkts == 0) {
      blockRelease();
   }
   readableNotifyNow();
}

tpacket_block_desc* LinuxPam::block(uint32_t i) const {
   return reinterpret_cast<tpacket_block_desc*>(ring_ + size_t(i) * options_.blockSize);
}

uint32_t LinuxPam::blockStatus(uint32_t i) const {
   // Acquire: the frames of a block are visible once its status says it is ours.
   return __atomic_load_n(&block(i)->hdr.bh1.block_status, __ATOMIC_ACQUIRE);
}

void LinuxPam::blockRelease() {
   if (knownBlocks_ > 0) {
      --knownBlocks_;
      knownFrames_ -= block(cur_)->hdr.bh1.num_pkts;
   }
   __atomic_store_n(&block(cur_)->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
   cur_ = (cur_ + 1) % options_.blockCount;
   taken_ = 0;
   next_ = nullptr;
}

uint32_t LinuxPam::readableCount() const {
   // The kernel hands blocks over in ring order and we give them back in the same order,
   // so ours are the run starting at cur_. The part of the run already counted stays
   // ours until rxPkt() gives it back; only the blocks after it need a look.
   while (knownBlocks_ < options_.blockCount) {
      const uint32_t b = (cur_ + knownBlocks_) % options_.blockCount;
      if (!(blockStatus(b) & TP_STATUS_USER)) break;
      knownFrames_ += block(b)->hdr.bh1.num_pkts;
      ++knownBlocks_;
   }
   return knownFrames_ - (knownBlocks_ > 0 ? taken_ : 0);
}

Vel::Ptr<Wire::Pkt> LinuxPam::rxPkt() {
   while (blockStatus(cur_) & TP_STATUS_USER) {
      tpacket_block_desc* desc = block(cur_);
      const uint32_t count = desc->hdr.bh1.num_pkts;
      if (taken_ >= count) {
         blockRelease();
         continue;
      }
      const char* hdr =
          next_ ? next_ : reinterpret_cast<const char*>(desc) + desc->hdr.bh1.offset_to_first_pkt;
      next_ = hdr + reinterpret_cast<const tpacket3_hdr*>(hdr)->tp_next_offset;
      ++taken_;
      Vel::Ptr<Wire::Pkt> pkt = frameToPkt(hdr);
      // Hand the block back as soon as it is read, so the kernel has the most room.
      if (taken_ == count) blockRelease();
      if (pkt) {
         ++rxFrames_;
         return pkt;
      }
   }
   return nullptr;
}

Vel::Ptr<Wire::Pkt> LinuxPam::frameToPkt(const char* hdr) {
   const auto* h = reinterpret_cast<const tpacket3_hdr*>(hdr);
   const auto* sll = reinterpret_cast<const sockaddr_ll*>(hdr + sllOffset);
   if (sll->sll_pkttype == PACKET_OUTGOING) return nullptr;
   if (h->tp_snaplen < h->tp_len || h->tp_len > options_.settings.maxRxPktData) {
      ++rxDropsOversize_;
      VEL_TRACE(trace, 2, intfId() << ": dropped a frame of " << h->tp_len << " bytes: too long");
      return nullptr;
   }
   const bool offloaded = h->tp_status & TP_STATUS_VLAN_VALID;
   // With the outer tag already out, an inner one stays in the frame.
   Vel::Ptr<Wire::Pkt> pkt = rxPktFromBytes(hdr + h->tp_mac, h->tp_snaplen, !offloaded);
   if (pkt && offloaded) {
      const uint16_t tpid =
          (h->tp_status & TP_STATUS_VLAN_TPID_VALID) ? h->hv1.tp_vlan_tpid : Wire::ethTypeDot1Q;
      pkt->dot1qHdrIs(tpid, h->hv1.tp_vlan_tci);
   }
   return pkt;
}

void LinuxPam::txPktIs(const Vel::Ptr<Wire::Pkt>& pkt) {
   if (!pkt || pkt->bytes() < Wire::ethHdrLen) {
      ++txErrors_;
      VEL_TRACE(trace, 0, intfId() << ": not sent: no Ethernet frame");
      return;
   }
   char* data = pkt->data();
   char tag[Wire::dot1qHdrLen];
   iovec iov[3];
   int iovCount;
   uint16_t ethType;
   if (pkt->dot1qHdrValid()) {
      Wire::Be::put16(tag, pkt->dot1qTpid());
      Wire::Be::put16(tag + 2, pkt->dot1qTci());
      iov[0] = {data, 12};
      iov[1] = {tag, sizeof(tag)};
      iov[2] = {data + 12, pkt->bytes() - 12};
      iovCount = 3;
      ethType = pkt->dot1qTpid();
   } else {
      iov[0] = {data, pkt->bytes()};
      iovCount = 1;
      ethType = Wire::Be::get16(data + 12);
   }
   sockaddr_ll sll{};
   sll.sll_family = AF_PACKET;
   sll.sll_protocol = htons(ethType);
   sll.sll_ifindex = ifIndex_;
   sll.sll_halen = 6;
   std::memcpy(sll.sll_addr, data, 6);
   msghdr msg{};
   msg.msg_name = &sll;
   msg.msg_namelen = sizeof(sll);
   msg.msg_iov = iov;
   msg.msg_iovlen = size_t(iovCount);
   if (::sendmsg(fd_, &msg, MSG_DONTWAIT) < 0) {
      ++txErrors_;
      VEL_TRACE(trace, 0, intfId() << ": send failed: " << std::strerror(errno));
      return;
   }
   ++txFrames_;
}

Wire::PamMan::Factory LinuxPam::factory(const Options& ring) {
   return [ring](const Wire::IntfId& intf, const Wire::PamSettings& settings, std::string* error) {
      Options options = ring;
      options.settings = settings;
      return Vel::Ptr<Wire::Pam>(open(intf, options, error));
   };
}

uint64_t LinuxPam::rxDropsRingFull() {
   tpacket_stats_v3 st{};
   socklen_t len = sizeof(st);
   if (::getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &st, &len) == 0) ringDrops_ += st.tp_drops;
   return ringDrops_;
}

}  // namespace Platform::Linux
