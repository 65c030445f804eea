// Frames and a reader for the packet access tests, in memory and over Linux sockets.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Framework/Wire/Pam.h"
#include "Framework/Wire/Pkt.h"

namespace TestSupport {

inline const std::string lldpGroup("\x01\x80\xc2\x00\x00\x0e", 6);

// An Ethernet frame, padded to the 60 bytes a real link needs at least.
inline std::string ethFrame(const std::string& payload,
                            const std::string& src = std::string("\x02\0\0\0\0\x01", 6),
                            const std::string& dst = lldpGroup, uint16_t ethType = 0x88cc) {
   std::string f = dst + src;
   f += char(ethType >> 8);
   f += char(ethType & 0xff);
   f += payload;
   if (f.size() < 60) f.resize(60, '\0');
   return f;
}

// The same frame with an 802.1Q tag in line.
inline std::string tagged(const std::string& frame, uint16_t tci) {
   std::string tag("\x81\x00", 2);
   tag += char(tci >> 8);
   tag += char(tci & 0xff);
   return frame.substr(0, 12) + tag + frame.substr(12);
}

inline Vel::Ptr<Wire::Pkt> pktOf(const std::string& frame) {
   Vel::Ptr<Wire::Pkt> p = Wire::PktMan::instance().newPkt();
   std::memcpy(p->dataAppend(frame.size()), frame.data(), frame.size());
   return p;
}

// Takes one frame per notification, as an LLDP port does, and notes what it got.
struct PamReader : Wire::Pam::Notifiee {
   struct Frame {
      std::string bytes;
      int tci;  // -1 when the packet holds no tag apart
      uint16_t tpid;
   };
   explicit PamReader(Wire::Pam* p) : pam(p) { pam->notifieeIs(this); }
   ~PamReader() { pam->notifieeIs(nullptr); }
   void handleReadableCount() override {
      countsSeen.push_back(pam->readableCount());
      if (Vel::Ptr<Wire::Pkt> p = pam->rxPkt()) {
         const bool tag = p->dot1qHdrValid();
         frames.push_back({std::string(p->data(), p->bytes()), tag ? p->dot1qTci() : -1,
                           tag ? p->dot1qTpid() : uint16_t(0)});
         if (echo) pam->txPktIs(p);
      }
   }
   Wire::Pam* pam;
   bool echo = false;  // sends every frame back from the handler
   std::vector<uint32_t> countsSeen;
   std::vector<Frame> frames;
};

}  // namespace TestSupport
