// Lets classified telephones through bridge ports that 802.1X holds. On Linux a port is
// held by the bridge port lock (`bridge link set dev PORT locked on`): a locked port
// forwards only frames from addresses in its forwarding database. For each telephone the
// agent classifies on a locked port with `dot1x telephone bypass`, this machine adds a
// static forwarding entry for the telephone's address on that port, and removes it when
// the telephone is no longer classified there (gone, aged out, cleared, reconfigured),
// when the port is unlocked or loses its setting, and when the machine goes (the daemon
// stopping).
//
// Only entries it added itself are ever removed: an address the port has an entry for
// already (someone else's) is left alone and not taken over. The kernel's refusals are
// counted and traced and not retried until the telephone's classification comes again.
// A port's entries change at most once a second, so a neighbour that flips between
// telephone and device with every frame cannot churn the forwarding database; the last
// state wins when the second is up.
#pragma once

#include <map>
#include <memory>
#include <set>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Platform/Linux/FdbWriter.h"
#include "Platform/Linux/NetlinkModel.h"
#include "Records/Identity.h"
#include "Records/LldpConfig.h"

namespace Platform::Linux {

class TelephoneBypassSm {
public:
   static constexpr Vel::Seconds minWriteInterval = 1.0;

   explicit TelephoneBypassSm(Vel::StateDb& db);
   // Removes every entry it added.
   ~TelephoneBypassSm();
   TelephoneBypassSm(const TelephoneBypassSm&) = delete;
   TelephoneBypassSm& operator=(const TelephoneBypassSm&) = delete;

   // The kernel's ports (indexes by name) and which of them are locked.
   void modelIs(const NetModel& model);

   void handleEntry(const Identity::NbrClassification::EntryKey& key);
   void handlePortConfig(const Wire::IntfId& intf);
   void handleLldpBypass();

private:
   struct Port {
      int ifindex = 0;
      bool locked = false;
      std::set<Wire::EthAddr> telephones;  // classified on the port
      std::set<Wire::EthAddr> installed;   // entries we added
      std::set<Wire::EthAddr> skipped;     // someone else's, or refused: left alone
      Vel::Seconds lastWrite = -Vel::never;
      std::unique_ptr<Vel::Clock> clock;
   };
   struct StatusReactor : Identity::NbrClassification::Status::Notifiee {
      TelephoneBypassSm* sm;
      void entryChanged(const Identity::NbrClassification::EntryKey& k) override {
         sm->handleEntry(k);
      }
   };
   struct ConfigReactor : Lldp::CliConfig::Notifiee {
      TelephoneBypassSm* sm;
      void cliPortConfigChanged(const Wire::IntfId& intf) override;
      void dot1xLldpBypassChanged() override { sm->handleLldpBypass(); }
   };
   struct PortConfigReactor : Lldp::CliPortConfig::Notifiee {
      TelephoneBypassSm* sm;
      Wire::IntfId intf;
      void dot1xTelephoneBypassChanged() override { sm->handlePortConfig(intf); }
   };

   bool bypassConfigured(const Wire::IntfId& intf) const;
   // Brings the port's entries in line now, or when its second is up.
   void doRequestSync(const Wire::IntfId& intf);
   void doSync(const Wire::IntfId& intf);
   void doRemove(const Wire::IntfId& intf, Port& port, const Wire::EthAddr& mac);

   Identity::NbrClassification::Status::Ptr status_;
   Lldp::CliConfig::Ptr cliConfig_;
   Identity::NbrClassification::BypassStatus::Ptr bypassStatus_;
   FdbWriter writer_;
   std::map<Wire::IntfId, Port> ports_;
   std::map<Wire::IntfId, std::unique_ptr<PortConfigReactor>> portConfigReactors_;
   StatusReactor statusReactor_;
   ConfigReactor configReactor_;
};

}  // namespace Platform::Linux
