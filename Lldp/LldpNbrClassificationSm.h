// Neighbour classification: which stations behind each port are telephones and which are
// other devices, published for the identity side of the switch (which may, for example,
// let a telephone through a port that port authentication holds closed).
//
// A neighbour is a telephone when its LLDPDU says so: the telephone bit is enabled in its
// System Capabilities, or it is an LLDP-MED endpoint that sends a voice network policy.
// Any other neighbour is a device. A station is its LLDPDU's Ethernet source address on
// the port it came in on. The operator's classifications (per port, then switch-wide) win
// over what the station says of itself.
//
// The machine follows each port's neighbour table one neighbour at a time: a neighbour
// that refreshes without changing costs nothing, and no change walks a table. Only the
// operator's switch-wide lines and clear requests look at every port.
#pragma once

#include <map>
#include <memory>

#include "Framework/Trace.h"
#include "Framework/Vel/Entity.h"
#include "Framework/Wire/IntfMap.h"
#include "Records/Identity.h"
#include "Records/Lldp.h"

namespace Lldp::Agent {

// Trace handle "LldpNbrClassification".
extern Vel::Trace::Handle traceLldpNbrClassification;

// The class a neighbour's own LLDPDU gives it.
Identity::NbrClassification::NbrClass lldpClassOf(const Lldp::RemoteSystem& remote);

class NbrClassificationSm : public Vel::RefCounted {
public:
   using EntryKey = Identity::NbrClassification::EntryKey;
   using NbrClass = Identity::NbrClassification::NbrClass;

   NbrClassificationSm(Lldp::Status::PtrConst lldpStatus,
                       Identity::NbrClassification::Status::Ptr status,
                       Identity::NbrClassification::CliConfig::PtrConst cliConfig);
   ~NbrClassificationSm() override;
   void handleInitialized();
   // Stops following and removes every entry it published.
   void doClose();

   void handlePortStatus(const Wire::IntfId& intf);
   void handleRemoteSystem(const Wire::IntfId& intf, int index);
   // A cleared neighbour sent its next LLDPDU.
   void handleRefresh(const Wire::IntfId& intf, int index);
   void handleGlobalClass(const Wire::EthAddr& ethAddr);
   void handleIntfClass(const EntryKey& key);
   void handleClearRequest();

private:
   class PortSm;
   // What one neighbour said, as last counted.
   struct Learned;
   struct RefreshWatch;
   // The neighbours on a port that share one source address (almost always one), and the
   // one last counted (its index in the port's table).
   struct Station {
      uint32_t telephones = 0;
      uint32_t devices = 0;
      int neighbor = 0;
   };
   // A station's neighbours that a clear request forgot until they send again (rare, so
   // kept apart), and the one last counted, the same as the station's while it has both.
   struct Forgotten {
      uint32_t cleared = 0;
      int neighbor = 0;
   };
   struct CliReactor : Identity::NbrClassification::CliConfig::Notifiee {
      NbrClassificationSm* sm;
      void globalClassChanged(const Wire::EthAddr& a) override { sm->handleGlobalClass(a); }
      void intfClassChanged(const EntryKey& k) override { sm->handleIntfClass(k); }
      void clearRequestTimeChanged() override { sm->handleClearRequest(); }
   };
   struct StatusReactor : Lldp::Status::Notifiee {
      NbrClassificationSm* sm;
      void portStatusChanged(const Wire::IntfId& intf) override { sm->handlePortStatus(intf); }
   };

   void doCount(PortSm& port, int index, const Learned& l, int sign);
   // Brings the station's entry in line with its neighbours and the configuration.
   void doSyncEntry(const EntryKey& key);
   void doForget(PortSm& port, int index, Learned& l);
   void doResetCounts();

   Lldp::Status::PtrConst lldpStatus_;
   Identity::NbrClassification::Status::Ptr status_;
   Identity::NbrClassification::CliConfig::PtrConst cliConfig_;
   Wire::MachineMap<PortSm> portSm_;
   CliReactor cliReactor_;
   StatusReactor statusReactor_;
   bool initialized_ = false;
};

}  // namespace Lldp::Agent
