// Packet access on a Linux interface: one AF_PACKET socket bound to the interface.
//
// Receiving: a classic BPF program in the kernel (the agent's passes only LLDP frames to
// the nearest bridge group address, untagged or behind one 802.1Q tag) keeps everything
// else from costing a wakeup. Frames land in a TPACKET_V3 ring shared
// with the kernel: the kernel packs frames into blocks and hands a block over when it is
// full or after a few milliseconds; rxPkt() copies one frame out of the current block
// into a packet and gives the block back once all its frames are taken.
//
// Tags: the socket listens to every EtherType (an LLDP frame behind a tag has the tag's
// EtherType), and the frame reaches the reader without its tag, which travels in the
// packet's dot1qHdr. Usually the kernel has already taken the tag out of the frame (VLAN
// offload on receive) and reports it beside the frame; then the filter, too, sees the
// untagged frame, so it checks EtherType 88-CC at offset 12 for those and 81-00 / 88-CC
// at offsets 12 / 16 for frames that still carry the tag in line. An in-line tag is
// separated here, so readers see one form either way.
//
// Sending: sendmsg() on the same socket at the configured priority (7, network control,
// for LLDP); a tag held in the packet's dot1qHdr goes out in line.
//
// The interface is named by the IntfId's name, which must be the Linux name, resolved in
// the network namespace of the thread that opens the Pam; the socket stays bound to that
// namespace's interface afterwards.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/Pam.h"
#include "Framework/Wire/PamMan.h"

struct tpacket_block_desc;

namespace Platform::Linux {

class LinuxPam : public Wire::Pam {
public:
   struct Options {
      // The receive ring: blockCount blocks of blockSize bytes (a power of two, at least
      // a page and more than the longest frame). A block is handed to us when full or
      // after retireMs milliseconds.
      uint32_t blockSize = 1u << 16;
      uint32_t blockCount = 4;
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

   // A packet access manager's factory that opens LinuxPams with these ring options
   // and the manager's settings.
   static Wire::PamMan::Factory factory(const Options& ring);
   static Wire::PamMan::Factory factory() { return factory(Options()); }

   int ifIndex() const { return ifIndex_; }
   // The interface's MAC address when the Pam was opened.
   const Wire::EthAddr& ethAddr() const { return ethAddr_; }
   int fd() const { return fd_; }
   // Frames the kernel dropped because the ring was full (read from the socket's
   // statistics, which the kernel clears on each read, so it is kept here).
   uint64_t rxDropsRingFull();

private:
   LinuxPam(const Wire::IntfId& intfId, const Options& options) : Pam(intfId), options_(options) {}
   ~LinuxPam() override;
   bool init(std::string* error);
   void notifieeChanged() override;
   void handleReadable();
   tpacket_block_desc* block(uint32_t i) const;
   uint32_t blockStatus(uint32_t i) const;
   void blockRelease();
   Vel::Ptr<Wire::Pkt> frameToPkt(const char* hdr);

   Options options_;
   int fd_ = -1;
   int ifIndex_ = 0;
   Wire::EthAddr ethAddr_;
   char* ring_ = nullptr;
   size_t ringBytes_ = 0;
   uint32_t cur_ = 0;            // the block being read
   uint32_t taken_ = 0;          // frames taken from it
   const char* next_ = nullptr;  // the next frame in it
   // Blocks from cur_ on known to be ours, and the frames they hold.
   mutable uint32_t knownBlocks_ = 0;
   mutable uint32_t knownFrames_ = 0;
   uint64_t ringDrops_ = 0;
   std::unique_ptr<Vel::FdReactor> reactor_;
};

}  // namespace Platform::Linux
