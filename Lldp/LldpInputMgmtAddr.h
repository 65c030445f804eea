// Which management addresses the switch advertises and in what order.
//
// Candidates are the primary and secondary IPv4 addresses of the interfaces in the
// management VRF, one IPv6 address, and the bridge MAC address as the address of last
// resort. Each advertised address is an entry of LocalSystem.managementAddress, and its
// place in the LLDPDU is its key in the priority map LocalSystem.managementAddressPrio,
// which the transmit builder walks in order, up to Config.maxTxMgmtAddrs addresses.
//
// Priorities rank interfaces by kind (loopback, management, Ethernet, port-channel, VLAN)
// and then by number within the kind, so that the most stable address of the switch is
// offered first.
#pragma once

#include <map>
#include <memory>

#include "Framework/Vel/Entity.h"
#include "Records/Bridging.h"
#include "Records/IntfStatus.h"
#include "Records/Lldp.h"
#include "Records/SystemStatus.h"

namespace Lldp::Agent::Input {

class Root;

// Priority bases by interface kind; an interface's priority is its base plus its number.
inline constexpr uint32_t loopbackPriorityBase = 2;
inline constexpr uint32_t managementPriorityBase = 2103;
inline constexpr uint32_t ethernetPriorityBase = 3394;
inline constexpr uint32_t portChannelPriorityBase = 531779;
inline constexpr uint32_t vlanPriorityBase = 1531779;
inline constexpr uint32_t maxSlotId = 128;
inline constexpr uint32_t mgmtIntfPerSlot = 10;
inline constexpr uint32_t phyIntfPerSlot = 128;

// The fallback address's priority: before everything, and used for nothing else.
inline const Lldp::ManAddrPriority zeroManAddrPriority{};
// The address of the interface named in interface-name mode sorts before every computed
// priority.
inline const Lldp::ManAddrPriority sourceIntfManAddrPriority(
    {.flag = 0, .primaryPriority = 1, .secondaryPriority = 0, .intf = {}});

// An interface's priority, and for a VLAN interface its VLAN: its kind's base plus its
// place within the kind (Interface::intfNumbers: switch-style names by their own numbers,
// Linux names by the kind the platform gave them and the number they end in). A number
// outside its kind's range is a programming error that stops the agent; the platform
// publishes no such interface. A VLAN interface outside 1..4094 ranks 0.
void intfNameToVlanIdAndManAddrPriority(const Wire::IntfId& intf, Bridging::VlanIdOrNone* vlanId,
                                        Lldp::ManAddrPriority* manAddrPriority);

// A management address numbered by the interface index of the interface carrying it.
Lldp::ManagementAddress makeManagementAddress(int32_t ifIndexValue,
                                              const Lldp::ManagementAddress::Key& key);
Lldp::ManagementAddress makeIp6ManagementAddress(int32_t ifIndexValue, const Wire::Ip6Addr& addr);
Lldp::ManagementAddress::Key ipv4Key(const Wire::IpAddr& addr);
// Not a candidate: fe80::/10.
bool isLinkLocal(const Wire::Ip6Addr& addr);
// The IPv6 address an interface offers: the one offered before while the interface still
// holds it, else its lowest address that is not link-local (zero when it has none).
Wire::Ip6Addr getStableIp6Addr(const Ip6::IntfStatus& intfStatus, const Wire::Ip6Addr& previous);
void clearIp6ManagementAddress(Root& root);

// The bridge MAC is advertised as management address while no other address is.
void maybeAddFallbackManAddr(Root& root);
void removeFallbackManAddr(Root& root);

// One IP interface: publishes its primary and secondary addresses while it is in the
// management VRF and no other interface already publishes the same address (then it
// waits in the root's skipped set and takes over when that interface lets go).
class IpIntfStatusSm : public Vel::RefCounted, private Ip::IpIntfStatus::Notifiee {
public:
   IpIntfStatusSm(Root* root, Ip::IpIntfStatus::PtrConst ipIntfStatus);
   const Wire::IntfId& intfId() const { return ipIntfStatus_->intfId(); }
   const Ip::IpIntfStatus::PtrConst& ipIntfStatus() const { return ipIntfStatus_; }
   const Lldp::ManAddrPriority& priority() const { return priority_; }
   bool lastMgmtAddrPresent() const { return lastMgmtAddrPresent_; }
   const Lldp::ManagementAddress::Key& lastMgmtAddr() const { return lastMgmtAddr_; }
   const std::map<Wire::IpAddrWithMask, Lldp::ManagementAddress::Key>& secondaryMgmtAddr() const {
      return secondaryMgmtAddr_;
   }

   void handleInitialized();
   void doClose();
   void handleVrf();
   void handleActiveAddrWithMask();
   void handleSecondaryWithMask(const Wire::IpAddrWithMask& addr);
   // The interface-name mode's source interface changed: entries move to their priority.
   void handleSourceIntfChange();
   // The interface's index may have changed (the interface was made anew under its name).
   void handleIfIndex();

private:
   void vrfChanged() override { handleVrf(); }
   void activeAddrWithMaskChanged() override { handleActiveAddrWithMask(); }
   void secondaryWithMaskChanged(const Wire::IpAddrWithMask& addr) override {
      handleSecondaryWithMask(addr);
   }
   bool eligible() const;
   // The priority of the primary address: the source-interface priority when this is the
   // interface named in interface-name mode.
   Lldp::ManAddrPriority primaryPriority() const;
   Lldp::ManAddrPriority secondaryPriority(const Wire::IpAddrWithMask& addr) const;
   // Whether another interface publishes the address; if so, this one is remembered.
   bool publishedElsewhere(const Lldp::ManagementAddress::Key& key);
   void addSkippedAddr(const Lldp::ManagementAddress::Key& key);
   void removeSkippedAddr(const Lldp::ManagementAddress::Key& key);
   void removeAllSkippedAddrs();
   void doMaybeDelOldMgmtAddr();
   void doMaybeAddNewMgmtAddr();
   void doAddMgmtAddr();
   void doRemoveMgmtAddr();
   void doMaybeAddSecMgmtAddrs();
   void doMaybeAddSecMgmtAddr(const Wire::IpAddrWithMask& addr);
   void doRemoveSecMgmtAddr(const Wire::IpAddrWithMask& addr);
   void doRemoveSecondaryMgmtAddrs();
   void doMaybeDelSecMgmtAddrs();
   // Another interface was waiting for the address: the lowest of them takes over.
   void handleSkippedManAddrs(const Lldp::ManagementAddress::Key& key);
   void publish(const Lldp::ManagementAddress::Key& key, const Lldp::ManAddrPriority& prio);
   void unpublish(const Lldp::ManagementAddress::Key& key, const Lldp::ManAddrPriority& prio);

   Root* root_;
   Ip::IpIntfStatus::PtrConst ipIntfStatus_;
   Lldp::ManAddrPriority priority_;
   Bridging::VlanIdOrNone vlanId_;
   Lldp::ManagementAddress::Key lastMgmtAddr_;
   bool lastMgmtAddrPresent_ = false;
   Lldp::ManAddrPriority lastMgmtAddrPriority_;
   std::map<Wire::IpAddrWithMask, Lldp::ManagementAddress::Key> secondaryMgmtAddr_;
   std::map<Lldp::ManagementAddress::Key, Lldp::ManAddrPriority> secondaryMgmtAddrKeyPriority_;
};

}  // namespace Lldp::Agent::Input
