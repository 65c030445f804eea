// Packet access on Linux interfaces: each port's LinuxPam is a view onto one AF_PACKET
// socket and one receive ring shared by every port of the network namespace, so a switch
// with a thousand ports holds one socket, one ring and one descriptor in the event loop,
// not a thousand of each.
//
// Receiving: a classic BPF program in the kernel (the agent's passes only LLDP frames to
// the nearest bridge group address, untagged or behind one 802.1Q tag) keeps everything
// else from costing a wakeup. Frames of all interfaces land in a TPACKET_V3 ring shared
// with the kernel: the kernel packs frames into blocks and hands a block over when it is
// full or after a few milliseconds. When a block arrives the shared reader walks its
// frames in order and hands each to the LinuxPam of its interface (by the interface index
// the ring records with every frame): a port whose reader is waiting takes the frame at
// once (rxPkt() copies it out of the ring into a packet); otherwise it is copied into a
// short queue of the port, so the block goes back to the kernel straight away and no port
// can hold the ring for the others. Frames of interfaces without a LinuxPam are dropped.
//
// Tags: the socket listens to every EtherType (an LLDP frame behind a tag has the tag's
// EtherType), and the frame reaches the reader without its tag, which travels in the
// packet's dot1qHdr. Usually the kernel has already taken the tag out of the frame (VLAN
// offload on receive) and reports it beside the frame; then the filter, too, sees the
// untagged frame, so it checks EtherType 88-CC at offset 12 for those and 81-00 / 88-CC
// at offsets 12 / 16 for frames that still carry the tag in line. An in-line tag is
// separated here, so readers see one form either way.
//
// Sending: sendmsg() on the shared socket, addressed to the port's interface, at the
// configured priority (7, network control, for LLDP); a tag held in the packet's
// dot1qHdr goes out in line. The socket is bound to no interface in particular, so an
// interface going down leaves no error pending on it that a later send would report
// (a socket bound to one interface gets ENETDOWN queued when it goes down, and the first
// send after it comes back fails with it).
//
// The interface is named by the IntfId's name, which must be the Linux name, resolved in
// the network namespace of the thread that opens the Pam; LinuxPams opened in one
// namespace with the same ring options and settings share a ring.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/Pam.h"
#include "Framework/Wire/PamMan.h"

namespace Platform::Linux {

class LinuxPamRing;

class LinuxPam : public Wire::Pam {
public:
   struct Options {
      // The receive ring shared by the namespace's ports: blockCount blocks of blockSize
      // bytes (a power of two, at least a page and more than the longest frame). A block
      // is handed to us when full or after retireMs milliseconds. The reader empties
      // blocks as they come, so the ring only has to absorb a burst on one port (about
      // 1,000 typical LLDPDUs), however many ports share it.
      uint32_t blockSize = 1u << 16;
      uint32_t blockCount = 8;
      uint32_t retireMs = 4;
      // Filter, multicast membership, size limit, priority. The kernel takes most tags
      // out of the frame before any socket sees it, so tags are always delivered apart:
      // asking for them in line is refused.
      Wire::PamSettings settings;
   };

   // Opens the interface named intfId.name() in the calling thread's network namespace.
   // Null when it cannot; `error` (when given) then says why.
   static Vel::Ptr<LinuxPam> open(const Wire::IntfId& intfId, const Options& options,
                                  std::string* error = nullptr);
   static Vel::Ptr<LinuxPam> open(const Wire::IntfId& intfId, std::string* error = nullptr) {
      return open(intfId, Options(), error);
   }

   Vel::Ptr<Wire::Pkt> rxPkt() override;
   void txPktIs(const Vel::Ptr<Wire::Pkt>& pkt) override;
   uint32_t readableCount() const override;

   // Opens the ring that LinuxPams with these options share in the calling thread's
   // network namespace, unless it is open, and keeps it open for the life of the process
   // even while no port uses it: opening a packet socket takes privilege, adding a port
   // to an open one does not. False with the reason in `error`.
   static bool ringKeep(const Options& options, std::string* error = nullptr);

   // A packet access manager's factory that opens LinuxPams with these ring options
   // and the manager's settings.
   static Wire::PamMan::Factory factory(const Options& ring);
   static Wire::PamMan::Factory factory() { return factory(Options()); }

   int ifIndex() const { return ifIndex_; }
   // The interface's MAC address when the Pam was opened.
   const Wire::EthAddr& ethAddr() const { return ethAddr_; }
   // The shared socket.
   int fd() const;
   // Frames the kernel dropped because the shared ring was full, for all its ports (read
   // from the socket's statistics, which the kernel clears on each read, so it is kept).
   uint64_t rxDropsRingFull();
   // Reports the frames the kernel dropped because the shared receive ring was full, as
   // they are found (after each pass over the ring), to whoever counts them; the kernel
   // does not say for which interface. Null: nobody.
   using KernelDropsHandler = std::function<void(uint64_t frames)>;
   static void kernelDropsHandlerIs(KernelDropsHandler handler);
   // Frames kept for a reader that was not there (or did not take them at once) at most;
   // more are dropped and counted as frames for which no packet was free. Each holds a
   // packet, so a port nobody reads costs a bounded amount of memory.
   static constexpr size_t waitingLimit = 64;

private:
   friend class LinuxPamRing;
   explicit LinuxPam(const Wire::IntfId& intfId);
   ~LinuxPam() override;
   bool init(const Options& options, std::string* error);
   // A frame of this interface, in the ring until this call returns.
   void frameIs(const char* hdr);
   Vel::Ptr<Wire::Pkt> frameToPkt(const char* hdr);

   // The ring keeps the options, once for all its ports: an idle port holds no copy of
   // the receive filter, the size limit or the group address.
   int ifIndex_ = 0;
   Wire::EthAddr ethAddr_;
   bool member_ = false;  // joined the LLDP group address on the interface
   Vel::Ptr<LinuxPamRing> ring_;
   // Frames kept for the reader, oldest at `head`; made when a frame first has to wait (a
   // port whose reader takes every frame at once never needs it). A vector rather than a
   // deque: a deque allocates on construction. It never holds more than waitingLimit
   // slots: taken ones are dropped from the front when it is emptied, or when a frame
   // needs their room.
   struct Waiting {
      std::vector<Vel::Ptr<Wire::Pkt>> pkts;
      size_t head = 0;
   };
   size_t waitingCount() const { return waiting_ ? waiting_->pkts.size() - waiting_->head : 0; }
   std::unique_ptr<Waiting> waiting_;
   struct Offer {
      const LinuxPam* pam = nullptr;
      const char* hdr = nullptr;
   };
   static Offer offer_;
   bool offered() const { return offer_.pam == this && offer_.hdr != nullptr; }
};

}  // namespace Platform::Linux
