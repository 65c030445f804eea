#include "Platform/Linux/LinuxPam.h"

#include <absl/container/flat_hash_map.h>
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

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

const char* errnoText(int err) {
   const char* text = ::strerrordesc_np(err);
   return text ? text : "unknown error";
}

// The network namespace of the calling thread, as the device and inode of its handle.
bool netNsOfThread(dev_t* dev, ino_t* ino) {
   struct stat st {};
   if (::stat("/proc/thread-self/ns/net", &st) != 0) return false;
   *dev = st.st_dev;
   *ino = st.st_ino;
   return true;
}

}  // namespace

// The socket and receive ring that the LinuxPams of one namespace (opened with the same
// ring options and settings) share, and the reader that hands each frame to its port.
class LinuxPamRing : public Vel::RefCounted {
public:
   // The ring for these options in the calling thread's namespace, opened when there is
   // none yet; null (and why in `error`) when it cannot be.
   static Vel::Ptr<LinuxPamRing> ringFor(const LinuxPam::Options& options, std::string* error);

   int fd() const { return fd_; }
   // What the ring's ports were opened with.
   const Wire::PamSettings& settings() const { return options_.settings; }
   // The latest Pam opened on an interface gets its frames (one being replaced may live
   // on a little, until the last reference to it goes).
   void portIs(int ifIndex, LinuxPam* pam) { ports_[ifIndex] = pam; }
   void portDel(int ifIndex, const LinuxPam* pam) {
      auto it = ports_.find(ifIndex);
      if (it != ports_.end() && it->second == pam) ports_.erase(it);
   }
   uint64_t dropsRingFull();
   // Reads (and so resets) the kernel's drop count, adds it up and reports it.
   void readDrops();
   static LinuxPam::KernelDropsHandler& kernelDropsHandler() {
      static auto* handler = new LinuxPam::KernelDropsHandler;
      return *handler;
   }

private:
   explicit LinuxPamRing(const LinuxPam::Options& options) : options_(options) {}
   ~LinuxPamRing() override;
   bool init(std::string* error);
   bool sameAs(const LinuxPam::Options& o, dev_t dev, ino_t ino) const;
   void handleReadable();
   tpacket_block_desc* block(uint32_t i) const {
      return reinterpret_cast<tpacket_block_desc*>(ring_ + size_t(i) * options_.blockSize);
   }
   uint32_t blockStatus(uint32_t i) const {
      // Acquire: the frames of a block are visible once its status says it is ours.
      return __atomic_load_n(&block(i)->hdr.bh1.block_status, __ATOMIC_ACQUIRE);
   }
   static std::vector<LinuxPamRing*>& rings() {
      // Never destroyed: a ring may close during static destruction.
      static auto* all = new std::vector<LinuxPamRing*>;
      return *all;
   }

   LinuxPam::Options options_;
   dev_t nsDev_ = 0;
   ino_t nsIno_ = 0;
   int fd_ = -1;
   char* ring_ = nullptr;
   size_t ringBytes_ = 0;
   uint32_t cur_ = 0;  // the next block the kernel hands over
   uint64_t ringDrops_ = 0;
   uint64_t unclaimed_ = 0;                     // frames of interfaces without a LinuxPam
   absl::flat_hash_map<int, LinuxPam*> ports_;  // by interface index
   std::unique_ptr<Vel::FdReactor> reactor_;
};

Vel::Ptr<LinuxPamRing> LinuxPamRing::ringFor(const LinuxPam::Options& options, std::string* error) {
   dev_t dev = 0;
   ino_t ino = 0;
   if (!netNsOfThread(&dev, &ino)) {
      errorIs(error, std::string("network namespace of this thread: ") + errnoText(errno));
      return nullptr;
   }
   for (LinuxPamRing* ring : rings()) {
      if (ring->sameAs(options, dev, ino)) return Vel::Ptr<LinuxPamRing>(ring);
   }
   Vel::Ptr<LinuxPamRing> ring(new LinuxPamRing(options));
   ring->nsDev_ = dev;
   ring->nsIno_ = ino;
   if (!ring->init(error)) return nullptr;
   rings().push_back(ring.ptr());
   VEL_TRACE(trace, 6,
             "packet ring open: " << options.blockCount << " blocks of " << options.blockSize
                                  << " bytes");
   return ring;
}

bool LinuxPamRing::sameAs(const LinuxPam::Options& o, dev_t dev, ino_t ino) const {
   const LinuxPam::Options& m = options_;
   return dev == nsDev_ && ino == nsIno_ && o.blockSize == m.blockSize &&
          o.blockCount == m.blockCount && o.retireMs == m.retireMs &&
          o.settings.filterProgram == m.settings.filterProgram &&
          o.settings.sockPrio == m.settings.sockPrio &&
          o.settings.maxRxPktData == m.settings.maxRxPktData &&
          o.settings.lldpDestMac == m.settings.lldpDestMac;
}

bool LinuxPamRing::init(std::string* error) {
   auto fail = [&](const std::string& what) {
      errorIs(error, what + ": " + errnoText(errno));
      return false;
   };
   const uint32_t bs = options_.blockSize;
   // Protocol 0: nothing is queued until the socket is bound, after the filter is on.
   fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd_ < 0) return fail("packet socket");
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
   // sockets send.
   int one = 1;
   if (::setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof(one)) < 0) {
      VEL_TRACE(trace, 2, "PACKET_IGNORE_OUTGOING: " << errnoText(errno));
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
   // Every interface of the namespace: the reader picks the frames of its ports.
   sockaddr_ll sll{};
   sll.sll_family = AF_PACKET;
   sll.sll_protocol = htons(ETH_P_ALL);
   sll.sll_ifindex = 0;
   if (::bind(fd_, reinterpret_cast<sockaddr*>(&sll), sizeof(sll)) < 0) return fail("bind");
   reactor_ = std::make_unique<Vel::FdReactor>(fd_, [this] { handleReadable(); });
   return true;
}

LinuxPamRing::~LinuxPamRing() {
   auto& all = rings();
   all.erase(std::remove(all.begin(), all.end(), this), all.end());
   reactor_.reset();
   if (ring_) ::munmap(ring_, ringBytes_);
   if (fd_ >= 0) ::close(fd_);
}

void LinuxPamRing::handleReadable() {
   // A port's reader may close Pams, even the last one that holds the ring.
   Vel::Ptr<LinuxPamRing> self(this);
   // The kernel hands blocks over in ring order and each is given back once walked, so
   // ours are the run starting at cur_; one pass over the ring at most, so that timers
   // and other descriptors get their turn under a flood.
   for (uint32_t n = 0; n < options_.blockCount && (blockStatus(cur_) & TP_STATUS_USER); ++n) {
      tpacket_block_desc* desc = block(cur_);
      const uint32_t count = desc->hdr.bh1.num_pkts;
      const char* hdr = reinterpret_cast<const char*>(desc) + desc->hdr.bh1.offset_to_first_pkt;
      for (uint32_t i = 0; i < count; ++i) {
         const auto* sll = reinterpret_cast<const sockaddr_ll*>(hdr + sllOffset);
         auto it = ports_.find(sll->sll_ifindex);
         if (it == ports_.end()) {
            ++unclaimed_;
         } else if (sll->sll_pkttype != PACKET_OUTGOING) {
            Vel::Ptr<LinuxPam> pam(it->second);
            pam->frameIs(hdr);
         }
         hdr += reinterpret_cast<const tpacket3_hdr*>(hdr)->tp_next_offset;
      }
      __atomic_store_n(&desc->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
      cur_ = (cur_ + 1) % options_.blockCount;
   }
   // Frames that found the ring full are gone; each wake-up asks how many (one system
   // call per pass over the ring, not per frame), so that every frame is read or counted.
   readDrops();
}

void LinuxPamRing::readDrops() {
   tpacket_stats_v3 st{};
   socklen_t len = sizeof(st);
   if (::getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &st, &len) != 0 || st.tp_drops == 0) {
      return;
   }
   ringDrops_ += st.tp_drops;
   if (const auto& handler = kernelDropsHandler()) handler(st.tp_drops);
}

uint64_t LinuxPamRing::dropsRingFull() {
   readDrops();
   return ringDrops_;
}

// ---------------------------------------------------------------------------------------

Vel::Ptr<LinuxPam> LinuxPam::open(const Wire::IntfId& intfId, const Options& options,
                                  std::string* error) {
   Vel::Ptr<LinuxPam> pam(new LinuxPam(intfId));
   std::string why;
   if (!pam->init(options, &why)) {
      VEL_TRACE(trace, 0, intfId << ": cannot open packet access: " << why);
      errorIs(error, why);
      return nullptr;
   }
   VEL_TRACE(trace, 6,
             intfId << ": packet access open, ifindex " << pam->ifIndex_ << ", " << pam->ethAddr_);
   return pam;
}

bool LinuxPam::init(const Options& options, std::string* error) {
   auto fail = [&](const std::string& what) {
      errorIs(error, what + ": " + errnoText(errno));
      return false;
   };
   const std::string name = intfId().stringValue();
   if (name.empty() || name.size() >= IFNAMSIZ) {
      errorIs(error, "not a Linux interface name: '" + name + "'");
      return false;
   }
   if (!options.settings.separateDot1QHdr) {
      errorIs(error, "802.1Q tags can only be delivered apart from the frame");
      return false;
   }
   const uint32_t bs = options.blockSize;
   if (bs < 4096 || (bs & (bs - 1)) != 0 || bs <= Pam::rxFrameLimit + 128 ||
       options.blockCount == 0) {
      errorIs(error, "bad receive ring size");
      return false;
   }
   const std::string what = "interface " + name;
   ifIndex_ = int(::if_nametoindex(name.c_str()));
   if (ifIndex_ == 0) return fail(what);
   ring_ = LinuxPamRing::ringFor(options, error);
   if (!ring_) return false;
   ifreq ifr{};
   std::memcpy(ifr.ifr_name, name.data(), name.size());
   if (::ioctl(ring_->fd(), SIOCGIFHWADDR, &ifr) < 0) return fail("SIOCGIFHWADDR on " + what);
   ethAddr_ = Wire::EthAddr::fromBytes(ifr.ifr_hwaddr.sa_data);
   if (const Wire::EthAddr& group = ring_->settings().lldpDestMac; !group.isZero()) {
      packet_mreq mr{};
      mr.mr_ifindex = ifIndex_;
      mr.mr_type = PACKET_MR_MULTICAST;
      mr.mr_alen = 6;
      std::memcpy(mr.mr_address, group.bytes().data(), 6);
      if (::setsockopt(ring_->fd(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof(mr)) < 0) {
         return fail("PACKET_ADD_MEMBERSHIP");
      }
      member_ = true;
   }
   ring_->portIs(ifIndex_, this);
   return true;
}

LinuxPam::LinuxPam(const Wire::IntfId& intfId) : Pam(intfId) {}

LinuxPam::~LinuxPam() {
   if (!ring_) return;
   ring_->portDel(ifIndex_, this);
   if (member_) {
      // Gone with the interface already, if it went.
      packet_mreq mr{};
      mr.mr_ifindex = ifIndex_;
      mr.mr_type = PACKET_MR_MULTICAST;
      mr.mr_alen = 6;
      std::memcpy(mr.mr_address, ring_->settings().lldpDestMac.bytes().data(), 6);
      ::setsockopt(ring_->fd(), SOL_PACKET, PACKET_DROP_MEMBERSHIP, &mr, sizeof(mr));
   }
}

int LinuxPam::fd() const {
   return ring_->fd();
}

// The ring's frame offered to a port's reader right now. One at a time for all ports: the
// ring hands its frames over one by one, and a reader reads its own port only.
LinuxPam::Offer LinuxPam::offer_;

void LinuxPam::frameIs(const char* hdr) {
   // A waiting reader takes the frame straight from the ring (unless older frames wait:
   // order is kept); anyone else gets a copy later.
   if (notifiee() && waitingCount() == 0) {
      offer_ = {this, hdr};
      notifiee()->handleReadableCount();
      const bool taken = offer_.hdr == nullptr;
      offer_ = {};
      if (taken) return;
   }
   if (waitingCount() >= waitingLimit) {
      ++rxDropsNoPkt_;
      VEL_TRACE(trace, 2, intfId() << ": dropped a frame: " << waitingLimit << " already wait");
      return;
   }
   Vel::Ptr<Wire::Pkt> pkt = frameToPkt(hdr);
   if (!pkt) return;
   if (!waiting_) waiting_ = std::make_unique<Waiting>();
   Waiting& w = *waiting_;
   if (w.pkts.size() >= waitingLimit) {  // room left only in front: moved down
      w.pkts.erase(w.pkts.begin(), w.pkts.begin() + std::ptrdiff_t(w.head));
      w.head = 0;
   }
   w.pkts.push_back(std::move(pkt));
   readableNotifyLater();
}

uint32_t LinuxPam::readableCount() const {
   return uint32_t(waitingCount()) + (offered() ? 1 : 0);
}

Vel::Ptr<Wire::Pkt> LinuxPam::rxPkt() {
   Vel::Ptr<Wire::Pkt> pkt;
   if (waitingCount() > 0) {
      Waiting& w = *waiting_;
      pkt = std::move(w.pkts[w.head++]);
      if (w.head == w.pkts.size()) {
         w.pkts.clear();
         w.head = 0;
      }
   } else if (offered()) {
      pkt = frameToPkt(std::exchange(offer_.hdr, nullptr));
   }
   if (pkt) ++rxFrames_;
   return pkt;
}

Vel::Ptr<Wire::Pkt> LinuxPam::frameToPkt(const char* hdr) {
   const auto* h = reinterpret_cast<const tpacket3_hdr*>(hdr);
   if (h->tp_snaplen < h->tp_len || h->tp_len > ring_->settings().maxRxPktData) {
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
      txErrorReason_ = "no Ethernet frame";
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
   if (::sendmsg(ring_->fd(), &msg, MSG_DONTWAIT) < 0) {
      ++txErrors_;
      txErrorReason_ = errnoText(errno);
      VEL_TRACE(trace, 0, intfId() << ": send failed: " << txErrorReason_);
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

bool LinuxPam::ringKeep(const Options& options, std::string* error) {
   Vel::Ptr<LinuxPamRing> ring = LinuxPamRing::ringFor(options, error);
   if (!ring) return false;
   // Never released: the rings go with the process.
   static auto* kept = new std::vector<Vel::Ptr<LinuxPamRing>>;
   kept->push_back(std::move(ring));
   return true;
}

void LinuxPam::kernelDropsHandlerIs(KernelDropsHandler handler) {
   LinuxPamRing::kernelDropsHandler() = std::move(handler);
}

uint64_t LinuxPam::rxDropsRingFull() {
   return ring_->dropsRingFull();
}

}  // namespace Platform::Linux
