// LLDP-MED network policy: the voice and video VLANs a port advertises to the phones and
// other endpoints behind it. The operator configures a policy per application on a port;
// the port advertises them only once a neighbour has asked (sent a Network Policy TLV of
// its own), and only while the Network Policy TLV is selected.
//
// Applications are the ANSI/TIA-1057 types 1 to 8, all of which we support: 1 voice,
// 2 voice signalling, 3 guest voice, 4 guest voice signalling, 5 softphone voice, 6 video
// conferencing, 7 streaming video, 8 video signalling. Other type numbers are reserved
// and never advertised. The signalling applications pair with the media they control:
// voice signalling with voice, guest voice signalling with guest voice and video
// signalling with video conferencing. A signalling policy that says the same as its
// media's (VLAN, tagging, priority, DSCP) is left out: the endpoint uses the media policy
// for its signalling then, and the LLDPDU keeps its room.
#pragma once

#include <map>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/IntSet.h"
#include "Framework/Wire/IntfMap.h"
#include "Records/Lldp.h"

namespace Lldp::Agent::Input {

class Root;
class NetworkPolicySm;

namespace NetworkPolicy {

enum AppType : uint8_t {
   appVoice = 1,
   appVoiceSignaling = 2,
   appGuestVoice = 3,
   appGuestVoiceSignaling = 4,
   appSoftphoneVoice = 5,
   appVideoConferencing = 6,
   appStreamingVideo = 7,
   appVideoSignaling = 8,
};

bool supportedApplication(uint8_t appType);
// The media application a signalling application pairs with; 0 for any other.
uint8_t streamingApplicationOf(uint8_t appType);
// Whether the port's policy for a signalling application adds nothing to its media's.
bool shouldSkipSignalingApplication(const Lldp::PortConfig& portConfig,
                                    const Lldp::NetworkPolicyConfig& config);
// Brings the port's advertised policies in line with its configuration and neighbours.
// Does nothing unless all three records exist.
void doSyncLocalNetworkPolicy(const Wire::IntfId& intf, const Lldp::PortConfig* portConfig,
                              const Lldp::PortStatus* portStatus, Lldp::LocalPort* localPort);

}  // namespace NetworkPolicy

// The port's configured policies (`cli` null: none) copied into its configuration, and
// the network policy capability of its local port set while it has any.
void syncPortConfigNetworkPolicy(Lldp::PortConfig& portConfig, const Lldp::CliPortConfig* cli,
                                 Root& root);
// Sets or clears the network policy bit of the local port's LLDP-MED capabilities.
void syncMedNetworkPolicyCapability(Lldp::LocalPort& localPort, bool anyPolicy);

// One port's status: follows the Network Policy TLVs its neighbours send and the port's
// policies and TLV selection. It is the notifiee of both records itself, and holds the
// port status as that notifiee from construction until doClose().
class NetworkPolicyPortStatusSm : public Vel::RefCounted,
                                  private Lldp::PortStatus::Notifiee,
                                  private Lldp::PortConfig::Notifiee {
public:
   NetworkPolicyPortStatusSm(NetworkPolicySm* sm, Lldp::PortStatus::PtrConst portStatus);
   Lldp::PortStatus::PtrConst portStatus() const { return PortStatusReactor::notifier(); }
   const Wire::IntfId& intfId() const { return PortStatusReactor::notifierPtr()->intfId(); }
   void handleInitialized();
   void doClose();
   void handleNetworkPolicyRequest(const Wire::IntfId& intf);
   // Watches the port's current configuration record (null: none).
   void portConfigIs(Lldp::PortConfig::PtrConst portConfig);

private:
   using PortStatusReactor = Lldp::PortStatus::Notifiee;
   using PortConfigReactor = Lldp::PortConfig::Notifiee;
   const Lldp::PortStatus& status() const { return *PortStatusReactor::notifier(); }
   void remoteSystemChanged(const int&) override;
   void networkPolicyConfigChanged(const uint8_t&) override;
   void tiaEnabledTlvsChanged() override;
   NetworkPolicySm* sm_;
   // Whether the port's neighbours had asked for policies at the last sync, so that a
   // neighbour's refresh costs no sync.
   bool requested_ = false;
   // The neighbours (by index) that sent network policies, kept up to date one changed
   // neighbour at a time: whether any asks is then a size check, not a walk of a table
   // that may hold many thousands of neighbours.
   Vel::IntSet asking_;
};

// Keeps one NetworkPolicyPortStatusSm per port status and re-syncs a port's advertised
// policies when its configuration, status or local port comes, goes or changes.
class NetworkPolicySm : public Vel::RefCounted {
public:
   explicit NetworkPolicySm(Root* root);
   ~NetworkPolicySm() override;
   Root* root() const { return root_; }
   void handleInitialized();
   void doClose();
   void handleNetworkPolicyConfig(const Wire::IntfId& intf);
   void handleNetworkPolicyPortStatus(const Wire::IntfId& intf);
   bool networkPolicyPortStatusSmHas(const Wire::IntfId& intf) const {
      return networkPolicyPortStatusSm_.count(intf) != 0;
   }

private:
   struct ConfigReactor : Lldp::Config::Notifiee {
      NetworkPolicySm* sm;
      void portConfigChanged(const Wire::IntfId& intf) override {
         sm->handleNetworkPolicyConfig(intf);
      }
   };
   struct StatusReactor : Lldp::Status::Notifiee {
      NetworkPolicySm* sm;
      void portStatusChanged(const Wire::IntfId& intf) override {
         sm->handleNetworkPolicyPortStatus(intf);
      }
   };
   struct LocalSystemReactor : Lldp::LocalSystem::Notifiee {
      NetworkPolicySm* sm;
      void localPortChanged(const Wire::IntfId& intf) override {
         sm->handleNetworkPolicyConfig(intf);
      }
   };
   Root* root_;
   Wire::MachineMap<NetworkPolicyPortStatusSm> networkPolicyPortStatusSm_;
   ConfigReactor configReactor_;
   StatusReactor statusReactor_;
   LocalSystemReactor localSystemReactor_;
};

}  // namespace Lldp::Agent::Input
