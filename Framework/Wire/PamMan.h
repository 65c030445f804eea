// The packet access manager: one Pam for every interface on which packet access is
// wanted, while the manager is enabled.
//
// Whoever decides which interfaces need frames writes them into the desired-interface
// directory; the manager keeps the Pam collection in line with it: a desired interface
// gets a Pam (made by the platform's factory with the manager's settings), an interface
// no longer desired loses it, and disabling the manager empties the collection, which
// closes every socket (frames are neither received nor sent while disabled). Readers of
// the collection see members come and go through its reactors.
//
// A Pam that cannot be made (the interface does not exist yet, say) is retried when the
// platform says the interface changed (intfRetry), and on the next enable.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Framework/Vel/Entity.h"
#include "Framework/Wire/Addr.h"
#include "Framework/Wire/IntfId.h"
#include "Framework/Wire/Pam.h"

namespace Interface {

// The interfaces on which packet access is wanted (`intfDesiredIs(intf, true)`).
// clang-format off
#define PAM_DESIRED_INTF_DIR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   MAP(Wire::IntfId, bool, intfDesired)
// clang-format on

class PamDesiredIntfDir : public Vel::Entity {
   VEL_ENTITY(PamDesiredIntfDir, PAM_DESIRED_INTF_DIR_ATTRS)
};

}  // namespace Interface

namespace Wire {

// The Pam of each interface that has one.
// clang-format off
#define PAM_COLLECTION_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   MAP(Wire::IntfId, Vel::Ptr<Wire::Pam>, intfPam)
// clang-format on

class PamCollection : public Vel::Entity {
   VEL_ENTITY(PamCollection, PAM_COLLECTION_ATTRS)
   size_t intfPams() const { return intfPam().size(); }
};

// One classic BPF instruction, laid out as the kernel's struct sock_filter.
struct BpfInsn {
   uint16_t code;
   uint8_t jt;
   uint8_t jf;
   uint32_t k;
   bool operator==(const BpfInsn&) const = default;
};

// What every Pam of a manager is made with.
struct PamSettings {
   // Deliver an 802.1Q tag beside the frame (in the packet's dot1qHdr) instead of in line.
   bool separateDot1QHdr = true;
   // The multicast address the interface must accept (all zero: none).
   EthAddr lldpDestMac;
   // Receive filter; empty passes every frame.
   std::vector<BpfInsn> filterProgram;
   // Longest frame handed to a reader; longer ones are dropped and counted.
   uint32_t maxRxPktData = Pam::rxFrameLimit;
   // Socket priority of transmitted frames.
   int sockPrio = 0;
};

class PamMan : public Vel::RefCounted {
public:
   // Makes the Pam of one interface, or returns null and says why.
   using Factory = std::function<Vel::Ptr<Pam>(const IntfId&, const PamSettings&, std::string*)>;
   static constexpr const char* typeName() { return "PamMan"; }

   PamMan(Vel::Ptr<const Interface::PamDesiredIntfDir> desired, Vel::Ptr<PamCollection> pams,
          Factory factory);
   ~PamMan() override;

   bool enabled() const { return enabled_; }
   void enabledIs(bool on);

   const PamSettings& settings() const { return settings_; }
   // Settings apply to Pams made afterwards; set them before enabling.
   void separateDot1QHdrIs(bool on) { settings_.separateDot1QHdr = on; }
   void lldpDestMacIs(const EthAddr& mac) { settings_.lldpDestMac = mac; }
   void filterProgramIs(std::vector<BpfInsn> program) {
      settings_.filterProgram = std::move(program);
   }
   void maxRxPktDataIs(uint32_t bytes) { settings_.maxRxPktData = bytes; }
   void sockPrioIs(int prio) { settings_.sockPrio = prio; }

   // The platform saw the interface change (appear, come up): try again if its Pam is
   // wanted but could not be made.
   void intfRetry(const IntfId& intf);
   // Interfaces whose Pam is wanted but could not be made, with the reason.
   const std::map<IntfId, std::string>& failed() const { return failed_; }

   const Vel::Ptr<PamCollection>& pamCollection() const { return pams_; }

private:
   struct DesiredReactor : Interface::PamDesiredIntfDir::Notifiee {
      PamMan* man;
      void intfDesiredChanged(const IntfId& intf) override { man->doSync(intf); }
   };
   bool wanted(const IntfId& intf) const;
   void doSync(const IntfId& intf);

   Vel::Ptr<const Interface::PamDesiredIntfDir> desired_;
   Vel::Ptr<PamCollection> pams_;
   Factory factory_;
   PamSettings settings_;
   bool enabled_ = false;
   std::map<IntfId, std::string> failed_;
   DesiredReactor desiredReactor_;
};

}  // namespace Wire
