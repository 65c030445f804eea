#include "Lldp/LldpInputMgmtAddr.h"

#include <algorithm>

#include "Framework/Assert.h"
#include "Lldp/LldpInputSm.h"

namespace Lldp::Agent::Input {

namespace {

uint32_t ipv4Value(const Wire::IpAddr& a) {
   const auto& b = a.bytes();
   return uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
}

std::string_view mgmtVrf(const Root& root) {
   return root.status()->mgmtAddrVrf().value();
}

}  // namespace

void intfNameToVlanIdAndManAddrPriority(const Wire::IntfId& intf, Bridging::VlanIdOrNone* vlanId,
                                        Lldp::ManAddrPriority* manAddrPriority) {
   *vlanId = Bridging::VlanIdOrNone(0);
   const Interface::IntfNumbers n = Interface::intfNumbers(intf);
   const uint32_t slotId = n.module;
   const uint32_t port = n.port;
   uint32_t primary = 0;
   switch (intf.kind()) {
      case Wire::IntfKind::intfKindLoopback:
         primary = loopbackPriorityBase + port;
         VEL_ASSERT(primary < managementPriorityBase,
                    "manAddrPriority->primaryPriority() < managementPriorityBase");
         break;
      case Wire::IntfKind::intfKindManagement:
         primary = managementPriorityBase + 10 * slotId + port;
         VEL_ASSERT(primary < ethernetPriorityBase,
                    "manAddrPriority->primaryPriority() < ethernetPriorityBase");
         VEL_ASSERT(slotId <= maxSlotId, "slotId <= maxSlotId");
         VEL_ASSERT(port <= mgmtIntfPerSlot, "port <= mgmtIntfPerSlot");
         break;
      case Wire::IntfKind::intfKindEthernet:
         // Unsigned 32-bit arithmetic throughout, port 0 included.
         primary = ethernetPriorityBase + 32 * (128 * slotId + port - 1) + n.lane;
         VEL_ASSERT(primary < portChannelPriorityBase,
                    "manAddrPriority->primaryPriority() < portChannelPriorityBase");
         VEL_ASSERT(slotId <= maxSlotId, "slotId <= maxSlotId");
         VEL_ASSERT(port <= phyIntfPerSlot, "port <= phyIntfPerSlot");
         break;
      case Wire::IntfKind::intfKindPortChannel:
         primary = portChannelPriorityBase + port;
         VEL_ASSERT(primary < vlanPriorityBase,
                    "manAddrPriority->primaryPriority() < vlanPriorityBase");
         break;
      case Wire::IntfKind::intfKindVlan:
         if (port >= 1 && port <= Bridging::VlanId::max) {
            primary = vlanPriorityBase + port;
            *vlanId = Bridging::VlanIdOrNone(uint16_t(port));
         }
         break;
      case Wire::IntfKind::intfKindOther:
         break;
   }
   *manAddrPriority = Lldp::ManAddrPriority(
       {.flag = 0, .primaryPriority = primary, .secondaryPriority = 0, .intf = intf});
}

Lldp::ManagementAddress makeManagementAddress(int32_t ifIndexValue,
                                              const Lldp::ManagementAddress::Key& key) {
   VEL_ASSERT(ifIndexValue >= 0, "ifIndexValue >= 0 && \"pre-condition: validate ifIndexValue\"");
   return Lldp::ManagementAddress({.key = key,
                                   .ifNumberingSubtype = Lldp::ifNumberingIfIndex,
                                   .ifNumber = uint32_t(ifIndexValue),
                                   .oid = {}});
}

Lldp::ManagementAddress::Key ipv4Key(const Wire::IpAddr& addr) {
   const auto& b = addr.bytes();
   return Lldp::ManagementAddress::Key(
       {.subtype = Lldp::addrFamilyIpv4,
        .address = std::string_view(reinterpret_cast<const char*>(b.data()), b.size())});
}

Lldp::ManagementAddress makeIp6ManagementAddress(int32_t ifIndexValue, const Wire::Ip6Addr& addr) {
   const auto& b = addr.bytes();
   return makeManagementAddress(
       ifIndexValue,
       Lldp::ManagementAddress::Key(
           {.subtype = Lldp::addrFamilyIpv6,
            .address = std::string_view(reinterpret_cast<const char*>(b.data()), b.size())}));
}

bool isLinkLocal(const Wire::Ip6Addr& addr) {
   return addr.bytes()[0] == 0xfe && (addr.bytes()[1] & 0xc0) == 0x80;
}

Wire::Ip6Addr getStableIp6Addr(const Ip6::IntfStatus& intfStatus, const Wire::Ip6Addr& previous) {
   if (!previous.isZero() && intfStatus.addr(previous)) return previous;
   for (const auto& [addr, len] : intfStatus.addr()) {
      if (!isLinkLocal(addr) && !addr.isZero()) return addr;
   }
   return {};
}

void clearIp6ManagementAddress(Root& root) {
   Lldp::LocalSystem& local = *root.localSystem();
   if (local.ip6ManagementAddress() == Lldp::ManagementAddress()) return;
   VEL_TRACE(traceLldpAgent, 6, "ipv6 management address removed ");
   local.ip6ManagementAddressIs({});
}

void maybeAddFallbackManAddr(Root& root) {
   Lldp::LocalSystem& local = *root.localSystem();
   for (const auto& [prio, key] : local.managementAddressPrio()) {
      if (!(prio == zeroManAddrPriority)) return;
   }
   if (!root.fallbackManagementAddressKeyPresent()) return;
   const Lldp::ManagementAddress::Key& key = root.fallbackManagementAddressKey();
   const Lldp::ManagementAddress* addr = local.managementAddress(key);
   if (!addr || *addr == Lldp::ManagementAddress()) return;
   VEL_TRACE(traceLldpAgent, 6, "Adding fallback management address " << key);
   local.managementAddressPrioIs(zeroManAddrPriority, key);
}

void removeFallbackManAddr(Root& root) {
   Lldp::LocalSystem& local = *root.localSystem();
   if (const auto* key = local.managementAddressPrio(zeroManAddrPriority)) {
      VEL_TRACE(traceLldpAgent, 6, "Deleting fallback management address " << *key);
      local.managementAddressPrioDel(zeroManAddrPriority);
   }
}

void Root::skippedAddrIntfIs(const Lldp::ManagementAddress::Key& key, const Wire::IntfId& intf) {
   skippedAddr_[key].insert(intf);
}

void Root::skippedAddrIntfDel(const Lldp::ManagementAddress::Key& key, const Wire::IntfId& intf) {
   auto it = skippedAddr_.find(key);
   if (it == skippedAddr_.end()) return;
   it->second.erase(intf);
   if (it->second.empty()) skippedAddr_.erase(it);
}

// ---------------------------------------------------------------------------------------
// The input machine's side: options, the VRF, and which interfaces have a machine.

void InputSm::handleMgmtAddrTxOption() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleMgmtAddrTxOption()");
   const uint8_t mode = cliConfig_->mgmtAddrTxMode();
   if (mode != Lldp::mgmtAddrTxModeIntfName) {
      // The interface-name priority stays as it was: the interface named last keeps its
      // place ahead of the others.
      root_->config()->maxTxMgmtAddrsIs(mode == Lldp::mgmtAddrTxModeAll ? 4294967295u : 1u);
   } else {
      VEL_ASSERT(cliConfig()->mgmtAddrTxMode() == Lldp::mgmtAddrTxModeIntfName,
                 "cliConfig()->mgmtAddrTxOption().mgmtAddrTxMode() == "
                 "Lldp::mgmtAddrTxModeIntfName()");
      root_->config()->maxTxMgmtAddrsIs(1);
      // The platform's identifier of the interface knows its kind; the configured name
      // alone may not.
      Wire::IntfId named = cliConfig_->mgmtAddrTxIntf();
      if (auto st = root_->allIntfStatusDir()->intfStatus(named)) named = st->intfId();
      if (!Interface::intfNumbersInRange(named)) {
         // A configured name no interface can have: refused, nothing moves.
         VEL_TRACE(traceLldpAgent, 0, "mgmtAddrTxIntf " << named << " out of range, ignored");
         return;
      }
      Bridging::VlanIdOrNone vlan;
      Lldp::ManAddrPriority source;
      intfNameToVlanIdAndManAddrPriority(named, &vlan, &source);
      if (!(source == root_->sourceIntfNamePriority())) {
         root_->sourceIntfNamePriorityIs(source);
         for (const auto& sm : Wire::valuesOf(ipIntfStatusSm_)) sm->handleSourceIntfChange();
      }
   }
   handleIp6ManagementAddress();
}

void InputSm::handleMgmtAddrVrf() {
   VEL_TRACE(traceLldpAgent, 8, "InputSm::handleMgmtAddrVrf()");
   const std::string& vrf = cliConfig_->mgmtAddrVrf();
   root_->status()->mgmtAddrVrfIs(L3::VrfName(std::string_view(vrf).substr(0, 64)));
   // A machine may close and hand its address over while others are visited.
   for (const auto& sm : Wire::valuesOf(ipIntfStatusSm_)) sm->handleVrf();
   handleIp6ManagementAddress();
}

IpIntfStatusSm* InputSm::ipIntfStatusSm(const Wire::IntfId& intf) const {
   auto it = ipIntfStatusSm_.find(intf);
   return it == ipIntfStatusSm_.end() ? nullptr : it->second.ptr();
}

void InputSm::handleIntfStatusOrIpIntfStatus(const Wire::IntfId& intf) {
   if (!initialized_) return;
   const auto ip = ipStatus_->ipIntfStatus(intf);
   const auto status = root_->allIntfStatusDir()->intfStatus(intf);
   if (!status) VEL_TRACE(traceLldpAgent, 6, " intfId not in allIntfStatusDir: " << intf);
   auto it = ipIntfStatusSm_.find(intf);
   if (it != ipIntfStatusSm_.end() && (!ip || !status || it->second->ipIntfStatus() != ip)) {
      if (!status) VEL_TRACE(traceLldpAgent, 6, " clearing up stale status for " << intf);
      const auto sm = it->second;
      ipIntfStatusSm_.erase(it);
      sm->doClose();
      it = ipIntfStatusSm_.end();
   }
   if (ip && status && it == ipIntfStatusSm_.end()) {
      auto sm = Vel::make<IpIntfStatusSm>(root_, ip);
      ipIntfStatusSm_[intf] = sm;
      sm->handleInitialized();
   } else if (it != ipIntfStatusSm_.end()) {
      it->second->handleIfIndex();
   }
   // The interface named in interface-name mode may be known only now.
   if (cliConfig_->mgmtAddrTxMode() == Lldp::mgmtAddrTxModeIntfName &&
       intf == cliConfig_->mgmtAddrTxIntf()) {
      handleMgmtAddrTxOption();
   }
}

bool InputSm::ip6Eligible(const Wire::IntfId& intf) const {
   auto status = root_->allIntfStatusDir()->intfStatus(intf);
   if (!status || status->vrf() != mgmtVrf(*root_)) return false;
   return cliConfig_->mgmtAddrTxMode() != Lldp::mgmtAddrTxModeIntfName ||
          intf == cliConfig_->mgmtAddrTxIntf();
}

void InputSm::handleIp6IntfStatus(const Wire::IntfId& intf) {
   if (!initialized_) return;
   const auto status = ip6Status_->intf(intf);
   auto it = ip6IntfReactor_.find(intf);
   if (status && (it == ip6IntfReactor_.end() || it->second->notifier() != status)) {
      auto reactor = std::make_unique<Ip6IntfReactor>();
      reactor->sm = this;
      reactor->notifierIs(status);
      ip6IntfReactor_[intf] = std::move(reactor);
   } else if (!status && it != ip6IntfReactor_.end()) {
      ip6IntfReactor_.erase(it);
   }
   handleIp6ManagementAddress();
}

void InputSm::handleIp6ManagementAddress() {
   if (!initialized_) return;
   // The address advertised now stays while its interface holds it and may offer it, so
   // that a neighbour's view of the switch does not move with every new address.
   Wire::IntfId bestIntf;
   Wire::Ip6Addr bestAddr;
   if (!ip6Intf_.empty() && ip6Eligible(ip6Intf_)) {
      if (auto s = ip6Status_->intf(ip6Intf_); s && s->addr(ip6Addr_)) {
         bestIntf = ip6Intf_;
         bestAddr = ip6Addr_;
      }
   }
   if (bestIntf.empty()) {
      Lldp::ManAddrPriority bestPriority;
      for (const auto& [intf, s] : ip6Status_->intf()) {
         if (!ip6Eligible(intf)) continue;
         const Wire::Ip6Addr addr =
             getStableIp6Addr(*s, intf == ip6Intf_ ? ip6Addr_ : Wire::Ip6Addr());
         if (addr.isZero()) continue;
         Bridging::VlanIdOrNone vlan;
         Lldp::ManAddrPriority priority;
         intfNameToVlanIdAndManAddrPriority(root_->allIntfStatusDir()->intfStatus(intf)->intfId(),
                                            &vlan, &priority);
         if (bestIntf.empty() || priority < bestPriority) {
            bestIntf = intf;
            bestAddr = addr;
            bestPriority = priority;
         }
      }
   }
   ip6Intf_ = bestIntf;
   ip6Addr_ = bestAddr;
   if (bestIntf.empty()) {
      clearIp6ManagementAddress(*root_);
      return;
   }
   const Lldp::ManagementAddress addr =
       makeIp6ManagementAddress(int32_t(root_->ifIndexVal(bestIntf)), bestAddr);
   if (root_->localSystem()->ip6ManagementAddress() == addr) return;
   VEL_TRACE(traceLldpAgent, 6, "ipv6 management address " << addr.key() << " from " << bestIntf);
   root_->localSystem()->ip6ManagementAddressIs(addr);
}

// ---------------------------------------------------------------------------------------
// IpIntfStatusSm.

IpIntfStatusSm::IpIntfStatusSm(Root* root, Ip::IpIntfStatus::PtrConst ipIntfStatus)
    : root_(root), ipIntfStatus_(std::move(ipIntfStatus)) {
   intfNameToVlanIdAndManAddrPriority(intfId(), &vlanId_, &priority_);
}

void IpIntfStatusSm::handleInitialized() {
   VEL_TRACE(traceLldpAgent, 8, "IpIntfStatusSm::handleInitialized( " << intfId() << " )");
   notifierIs(ipIntfStatus_);
   handleVrf();
}

void IpIntfStatusSm::doClose() {
   notifierIs(nullptr);
   if (lastMgmtAddrPresent_) {
      doRemoveMgmtAddr();  // with the secondaries
   } else {
      doRemoveSecondaryMgmtAddrs();
   }
   removeAllSkippedAddrs();
   maybeAddFallbackManAddr(*root_);
}

bool IpIntfStatusSm::eligible() const {
   return ipIntfStatus_->vrf() == mgmtVrf(*root_);
}

Lldp::ManAddrPriority IpIntfStatusSm::primaryPriority() const {
   return priority_ == root_->sourceIntfNamePriority() ? sourceIntfManAddrPriority : priority_;
}

Lldp::ManAddrPriority IpIntfStatusSm::secondaryPriority(const Wire::IpAddrWithMask& addr) const {
   // After the primary (secondary 0) and ordered among themselves by address.
   return Lldp::ManAddrPriority(
       {.flag = 0,
        .primaryPriority = primaryPriority().primaryPriority(),
        .secondaryPriority = std::max<uint32_t>(ipv4Value(addr.address()), 1),
        .intf = intfId()});
}

void IpIntfStatusSm::handleVrf() {
   VEL_TRACE(traceLldpAgent, 8, "IpIntfStatusSm::handleVrf( " << intfId() << " )");
   doMaybeDelOldMgmtAddr();
   doMaybeAddNewMgmtAddr();
   doMaybeAddSecMgmtAddrs();
}

void IpIntfStatusSm::handleActiveAddrWithMask() {
   VEL_TRACE(traceLldpAgent, 8, "IpIntfStatusSm::handleActiveAddrWithMask( " << intfId() << " )");
   doMaybeDelOldMgmtAddr();
   doMaybeAddNewMgmtAddr();
   doMaybeAddSecMgmtAddrs();
}

void IpIntfStatusSm::handleSecondaryWithMask(const Wire::IpAddrWithMask& addr) {
   const bool* present = ipIntfStatus_->secondaryWithMask(addr);
   if (present && *present && eligible()) {
      doMaybeAddSecMgmtAddr(addr);
   } else if (secondaryMgmtAddr_.count(addr)) {
      doRemoveSecMgmtAddr(addr);
   } else {
      removeSkippedAddr(ipv4Key(addr.address()));
   }
}

void IpIntfStatusSm::handleSourceIntfChange() {
   Lldp::LocalSystem& local = *root_->localSystem();
   if (lastMgmtAddrPresent_ && !(primaryPriority() == lastMgmtAddrPriority_)) {
      local.managementAddressPrioDel(lastMgmtAddrPriority_);
      lastMgmtAddrPriority_ = primaryPriority();
      local.managementAddressPrioIs(lastMgmtAddrPriority_, lastMgmtAddr_);
   }
   for (const auto& [addr, key] : secondaryMgmtAddr_) {
      Lldp::ManAddrPriority& prio = secondaryMgmtAddrKeyPriority_[key];
      if (prio == secondaryPriority(addr)) continue;
      local.managementAddressPrioDel(prio);
      prio = secondaryPriority(addr);
      local.managementAddressPrioIs(prio, key);
   }
}

void IpIntfStatusSm::handleIfIndex() {
   // Rewriting an unchanged address is no change for the entity.
   const int32_t ifIndex = int32_t(root_->ifIndexVal(intfId()));
   Lldp::LocalSystem& local = *root_->localSystem();
   if (lastMgmtAddrPresent_)
      local.managementAddressIs(makeManagementAddress(ifIndex, lastMgmtAddr_));
   for (const auto& [addr, key] : secondaryMgmtAddr_) {
      local.managementAddressIs(makeManagementAddress(ifIndex, key));
   }
}

bool IpIntfStatusSm::publishedElsewhere(const Lldp::ManagementAddress::Key& key) {
   if (!root_->localSystem()->managementAddress(key)) return false;
   addSkippedAddr(key);
   return true;
}

void IpIntfStatusSm::addSkippedAddr(const Lldp::ManagementAddress::Key& key) {
   VEL_TRACE(traceLldpAgent, 6,
             "IpIntfStatusSm::addSkippedAddr( " << key.stringValue() << ", " << intfId() << " )");
   root_->skippedAddrIntfIs(key, intfId());
}

void IpIntfStatusSm::removeSkippedAddr(const Lldp::ManagementAddress::Key& key) {
   root_->skippedAddrIntfDel(key, intfId());
}

void IpIntfStatusSm::removeAllSkippedAddrs() {
   std::vector<Lldp::ManagementAddress::Key> mine;
   for (const auto& [key, intfs] : root_->skippedAddr()) {
      if (intfs.count(intfId())) mine.push_back(key);
   }
   for (const auto& key : mine) removeSkippedAddr(key);
}

void IpIntfStatusSm::doMaybeDelOldMgmtAddr() {
   const Wire::IpAddrWithMask primary = ipIntfStatus_->activeAddrWithMask();
   const bool keep =
       eligible() && !primary.address().isZero() && ipv4Key(primary.address()) == lastMgmtAddr_;
   if (lastMgmtAddrPresent_ && !keep) doRemoveMgmtAddr();
   if (!eligible()) {
      doRemoveSecondaryMgmtAddrs();
      removeAllSkippedAddrs();
      return;
   }
   // Waiting for an address this interface no longer has is pointless.
   std::vector<Lldp::ManagementAddress::Key> stale;
   for (const auto& [key, intfs] : root_->skippedAddr()) {
      if (!intfs.count(intfId())) continue;
      bool held = !primary.address().isZero() && ipv4Key(primary.address()) == key;
      for (const auto& [addr, present] : ipIntfStatus_->secondaryWithMask()) {
         held |= present && ipv4Key(addr.address()) == key;
      }
      if (!held) stale.push_back(key);
   }
   for (const auto& key : stale) removeSkippedAddr(key);
}

void IpIntfStatusSm::doMaybeAddNewMgmtAddr() {
   const Wire::IpAddrWithMask primary = ipIntfStatus_->activeAddrWithMask();
   if (!eligible() || primary.address().isZero() || lastMgmtAddrPresent_) return;
   const Lldp::ManagementAddress::Key key = ipv4Key(primary.address());
   if (publishedElsewhere(key)) return;
   lastMgmtAddr_ = key;
   lastMgmtAddrPresent_ = true;
   doAddMgmtAddr();
}

void IpIntfStatusSm::publish(const Lldp::ManagementAddress::Key& key,
                             const Lldp::ManAddrPriority& prio) {
   // A real address displaces the fallback.
   removeFallbackManAddr(*root_);
   Lldp::LocalSystem& local = *root_->localSystem();
   local.managementAddressIs(makeManagementAddress(int32_t(root_->ifIndexVal(intfId())), key));
   local.managementAddressPrioIs(prio, key);
   VEL_TRACE(traceLldpAgent, 4,
             "IpIntfStatusSm::Adding " << key.stringValue() << " to VRF " << ipIntfStatus_->vrf());
   removeSkippedAddr(key);
}

void IpIntfStatusSm::unpublish(const Lldp::ManagementAddress::Key& key,
                               const Lldp::ManAddrPriority& prio) {
   VEL_TRACE(
       traceLldpAgent, 4,
       "IpIntfStatusSm::Removing " << key.stringValue() << " from VRF " << ipIntfStatus_->vrf());
   Lldp::LocalSystem& local = *root_->localSystem();
   local.managementAddressPrioDel(prio);
   local.managementAddressDel(key);
}

void IpIntfStatusSm::doAddMgmtAddr() {
   VEL_ASSERT(lastMgmtAddrPresent(), "lastMgmtAddrPresent()");
   lastMgmtAddrPriority_ = primaryPriority();
   publish(lastMgmtAddr_, lastMgmtAddrPriority_);
}

void IpIntfStatusSm::doRemoveMgmtAddr() {
   VEL_ASSERT(lastMgmtAddrPresent(), "lastMgmtAddrPresent()");
   const Lldp::ManagementAddress::Key key = lastMgmtAddr_;
   unpublish(key, lastMgmtAddrPriority_);
   lastMgmtAddrPresent_ = false;
   lastMgmtAddr_ = {};
   doMaybeDelSecMgmtAddrs();
   handleSkippedManAddrs(key);
   maybeAddFallbackManAddr(*root_);
}

void IpIntfStatusSm::doMaybeAddSecMgmtAddrs() {
   if (!eligible()) return;
   for (const auto& [addr, present] : ipIntfStatus_->secondaryWithMask()) {
      if (present) doMaybeAddSecMgmtAddr(addr);
   }
}

void IpIntfStatusSm::doMaybeAddSecMgmtAddr(const Wire::IpAddrWithMask& addr) {
   if (secondaryMgmtAddr_.count(addr) || addr.address().isZero()) return;
   const Lldp::ManagementAddress::Key key = ipv4Key(addr.address());
   if (publishedElsewhere(key)) return;
   const Lldp::ManAddrPriority prio = secondaryPriority(addr);
   secondaryMgmtAddr_[addr] = key;
   secondaryMgmtAddrKeyPriority_[key] = prio;
   publish(key, prio);
}

void IpIntfStatusSm::doRemoveSecMgmtAddr(const Wire::IpAddrWithMask& addr) {
   auto it = secondaryMgmtAddr_.find(addr);
   if (it == secondaryMgmtAddr_.end()) return;
   const Lldp::ManagementAddress::Key key = it->second;
   unpublish(key, secondaryMgmtAddrKeyPriority_[key]);
   secondaryMgmtAddrKeyPriority_.erase(key);
   secondaryMgmtAddr_.erase(it);
   handleSkippedManAddrs(key);
   maybeAddFallbackManAddr(*root_);
}

void IpIntfStatusSm::doRemoveSecondaryMgmtAddrs() {
   while (!secondaryMgmtAddr_.empty()) doRemoveSecMgmtAddr(secondaryMgmtAddr_.begin()->first);
}

void IpIntfStatusSm::doMaybeDelSecMgmtAddrs() {
   if (!secondaryMgmtAddr_.empty()) doRemoveSecondaryMgmtAddrs();
}

void IpIntfStatusSm::handleSkippedManAddrs(const Lldp::ManagementAddress::Key& key) {
   auto it = root_->skippedAddr().find(key);
   if (it == root_->skippedAddr().end() || it->second.empty()) return;
   const Wire::IntfId next = *it->second.begin();
   root_->skippedAddrIntfDel(key, next);
   VEL_TRACE(traceLldpAgent, 6,
             "IpIntfStatusSm::handleSkippedManAddrs( " << key.stringValue() << " )");
   if (!root_->inputSm()) return;
   if (IpIntfStatusSm* sm = root_->inputSm()->ipIntfStatusSm(next)) sm->handleActiveAddrWithMask();
}

}  // namespace Lldp::Agent::Input
