#include "Lldp/LldpProtocolSm.h"

#include <net/if.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Framework/Assert.h"

namespace Lldp::Agent::Protocol {

void LocalPortPoeInfoSm::handleInitialized(Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo) {
   notifierIs(std::move(poeInfo));
}

void LocalPortPoeInfoSm::doClose() {
   notifierIs(nullptr);
}

void LocalPortPoeInfoSm::handleAttrsChanged() {
   const Wire::IntfId& intf = owner_->localPort()->intfId();
   VEL_TRACE(traceLldpProtocolSm, 8, "LocalPortPoeInfoSm::handleAttrsChanged() for " << intf);
   handleLocalPortAttrsChanged(*owner_->root(), intf);
}

LocalPortSm::LocalPortSm(Root* root, Lldp::LocalPort::PtrConst localPort)
    : root_(root), localPort_(std::move(localPort)) {}

void LocalPortSm::handleInitialized() {
   notifierIs(localPort_);
   handleLocalPortPoE();
}

void LocalPortSm::doClose() {
   localPortPoeInfoSm_.doClose();
   notifierIs(nullptr);
}

void LocalPortSm::handleLocalPortAttrs() {
   VEL_TRACE(traceLldpProtocolSm, 8,
             "LocalPortSm::handleLocalPortAttrs() for " << localPort_->intfId());
   handleLocalPortAttrsChanged(*root_, localPort_->intfId());
}

void LocalPortSm::handleLocalPortPoE() {
   const Vel::Ptr<const Lldp::LocalPortPoeInfo> poeInfo = localPort_->localPortPoeInfo();
   if (localPortPoeInfoSm_.poeInfo() == poeInfo) return;
   localPortPoeInfoSm_.doClose();
   if (poeInfo) localPortPoeInfoSm_.handleInitialized(poeInfo);
}

void handleLocalPortAttrsChanged(Root& root, const Wire::IntfId& intf) {
   if (!root.protocolSm()) return;
   if (Vel::Ptr<LldpPamSm> sm = root.protocolSm()->lldpPamSm(intf)) {
      sm->doProcessSomethingChangedLocal();
   }
}

ProtocolSm::ProtocolSm(Root* root) : root_(root) {
   portReactor_.sm = statusReactor_.sm = intfStatusReactor_.sm = pamReactor_.sm =
       localSystemReactor_.sm = this;
}

ProtocolSm::~ProtocolSm() = default;

void ProtocolSm::handleInitialized() {
   VEL_TRACE(traceLldpProtocolSm, 8, "ProtocolSm::handleInitialized()");
   VEL_ASSERT(root_->pamCollection()->intfPams() == 0, "pamCollection()->intfPams() == 0");
   portReactor_.notifierIs(root_->config());
   statusReactor_.notifierIs(root_->status());
   intfStatusReactor_.notifierIs(root_->ethPhyIntfStatusDir());
   pamReactor_.notifierIs(root_->pamCollection());
   localSystemReactor_.notifierIs(root_->localSystem());
   initialized_ = true;
   for (const auto& [intf, localPort] : root_->localSystem()->localPort()) handleLocalPort(intf);
}

void ProtocolSm::doClose() {
   VEL_TRACE(traceLldpProtocolSm, 8, "ProtocolSm::doClose()");
   initialized_ = false;
   portReactor_.notifierIs(nullptr);
   statusReactor_.notifierIs(nullptr);
   intfStatusReactor_.notifierIs(nullptr);
   pamReactor_.notifierIs(nullptr);
   localSystemReactor_.notifierIs(nullptr);
   while (!lldpPamSm_.empty()) lldpPamSmDel(lldpPamSm_.begin()->first);
   while (!localPortSm_.empty()) localPortSmDel(localPortSm_.begin()->first);
}

void ProtocolSm::handlePam(const Wire::IntfId& intf) {
   if (!initialized_) return;
   const Root& root = *root_;
   const Vel::Ptr<Wire::Pam>* pam = root.pamCollection()->intfPam(intf);
   const auto intfStatus = root.ethPhyIntfStatusDir()->intfStatus(intf);
   const auto portConfig = root.config()->portConfig(intf);
   const auto portStatus = root.status()->portStatus(intf);
   const bool qualifies = pam && intfStatus && portConfig && portStatus;
   Vel::Ptr<LldpPamSm> sm = lldpPamSm(intf);
   // A machine is bound to the objects it was made with: one that were replaced needs a
   // fresh machine.
   if (sm && qualifies &&
       (sm->pam() != *pam || sm->ethPhyIntfStatus() != intfStatus ||
        sm->portConfig() != portConfig || sm->portStatus() != portStatus)) {
      lldpPamSmDel(intf);
      sm = nullptr;
   }
   if (qualifies && !sm) {
      lldpPamSmIs(intf, *pam);
   } else if (!qualifies && sm) {
      lldpPamSmDel(intf);
   } else if (sm && sm->localPort() != root.localSystem()->localPort(intf)) {
      sm->localPortIs(root.localSystem()->localPort(intf));  // a new local record
   }
}

Vel::Ptr<LldpPamSm> ProtocolSm::lldpPamSm(const Wire::IntfId& intf) const {
   return lldpPamSm_.member(intf);
}

Vel::Ptr<LldpPamSm> ProtocolSm::lldpPamSmIs(const Wire::IntfId& intf,
                                            const Vel::Ptr<Wire::Pam>& pam) {
   VEL_ASSERT(!lldpPamSmHas(intf), "!lldpPamSmHas( intfId )");
   VEL_TRACE(traceLldpProtocolSm, 4, "Creating LldpPamSm for " << intf);
   auto sm = Vel::make<LldpPamSm>(intf, pam, Vel::Ptr<const Root>(root_));
   lldpPamSm_.add(sm);
   sm->handleInitialized();
   return sm;
}

void ProtocolSm::lldpPamSmDel(const Wire::IntfId& intf) {
   auto it = lldpPamSm_.find(intf);
   if (it == lldpPamSm_.end()) return;
   VEL_TRACE(traceLldpProtocolSm, 4, "Removing LldpPamSm for " << intf);
   const Vel::Ptr<LldpPamSm> sm = it->second;
   // Closed while still in the collection: its neighbours go before the machine does.
   sm->doClose();
   lldpPamSm_.erase(intf);
}

void ProtocolSm::handleLocalPort(const Wire::IntfId& intf) {
   if (!initialized_) return;
   const auto localPort = root_->localSystem()->localPort(intf);
   auto it = localPortSm_.find(intf);
   if (localPort && it != localPortSm_.end() && it->second->localPort() != localPort) {
      localPortSmDel(intf);  // a new record for the port
   }
   if (localPort && !localPortSmHas(intf)) {
      VEL_ASSERT(!localPortSmHas(intf), "!localPortSmHas( intfId )");
      localPortSmIs(intf);
      VEL_ASSERT(localPortSmHas(intf), "localPortSmHas( intfId )");
   } else if (!localPort && localPortSmHas(intf)) {
      localPortSmDel(intf);
   }
   handlePam(intf);
}

Vel::Ptr<LocalPortSm> ProtocolSm::localPortSmIs(const Wire::IntfId& intf) {
   auto sm = Vel::make<LocalPortSm>(root_, root_->localSystem()->localPort(intf));
   localPortSm_.add(sm);
   sm->handleInitialized();
   return sm;
}

void ProtocolSm::localPortSmDel(const Wire::IntfId& intf) {
   auto it = localPortSm_.find(intf);
   if (it == localPortSm_.end()) return;
   const Vel::Ptr<LocalPortSm> sm = it->second;
   localPortSm_.erase(it);
   sm->doClose();
}

void ProtocolSm::handleLocalSystemAttrs() {
   VEL_TRACE(traceLldpProtocolSm, 8, "ProtocolSm::handleLocalSystemAttrs()");
   if (!initialized_) return;
   // A copy: a frame sent may reach reactors that change the set.
   for (const auto& sm : Wire::valuesOf(lldpPamSm_)) sm->doProcessSomethingChangedLocal();
}

OnOffSwitchSm::OnOffSwitchSm(Root* root) : root_(root) {}

void OnOffSwitchSm::handleInitialized() {
   notifierIs(root_->cliConfig());
   handleEnabled();
}

void OnOffSwitchSm::handleEnabled() {
   const bool on = root_->cliConfig()->enabled();
   VEL_TRACE(traceLldpProtocolSm, 4, "LLDP " << (on ? "enabled" : "disabled") << " globally");
   root_->pamMan()->enabledIs(on);
}

void OnOffSwitchSm::doClose() {
   notifierIs(nullptr);
   if (root_->pamMan()) root_->pamMan()->enabledIs(false);
}

// ---------------------------------------------------------------------------------------
// The root.

Root::Root(std::string name) : name_(std::move(name)) {
   deviceReactor_.root = allIntfStatusReactor_.root = this;
}

Root::Root(Vel::Ptr<const Lldp::Config> config, Vel::Ptr<const Lldp::LocalSystem> localSystem,
           Vel::Ptr<Lldp::Status> status)
    : config_(std::move(config)), status_(std::move(status)), localSystem_(std::move(localSystem)) {
   deviceReactor_.root = allIntfStatusReactor_.root = this;
}

Root::~Root() = default;

std::vector<Wire::BpfInsn> Root::lldpRxFilterProgram() {
   // Classic BPF opcodes: load word / half-word at an absolute offset, jump if equal to
   // the constant, return a constant.
   constexpr uint16_t ldW = 0x20, ldH = 0x28, jeq = 0x15, ret = 0x06;
   return {
       {ldW, 0, 0, 2},                   // 0: destination bytes 2..5
       {jeq, 0, 8, 0xC200000E},          // 1: else reject
       {ldH, 0, 0, 0},                   // 2: destination bytes 0..1
       {jeq, 0, 6, 0x0180},              // 3: else reject
       {ldH, 0, 0, 12},                  // 4: EtherType
       {jeq, 3, 0, Wire::ethTypeLldp},   // 5: untagged LLDP: accept
       {jeq, 0, 3, Wire::ethTypeDot1Q},  // 6: one tag, else reject
       {ldH, 0, 0, 16},                  // 7: EtherType behind the tag
       {jeq, 0, 1, Wire::ethTypeLldp},   // 8: tagged LLDP: accept, else reject
       {ret, 0, 0, 65535},               // 9: accept, whole
       {ret, 0, 0, 0},                   // 10: reject
   };
}

void Root::doInitializePamMan(Wire::PamMan::Factory factory) {
   Wire::PktMan::instance().dataSizeIs(10236);
   if (intfStatusManagerRoot()) {
      allIntfStatusDirIs(
          intfStatusManagerRoot()->mount<Interface::AllIntfStatusDir>("interface/status/all"));
      allIntfStatusLocalDirIs(Vel::make<Interface::AllIntfStatusDir>());
      allIntfStatusReactor_.notifierIs(allIntfStatusDir());
      for (const auto& [intf, st] : allIntfStatusDir()->intfStatus()) handleAllIntfStatus(intf);
   }
   if (factory && allIntfStatusLocalDir()) {
      // Packet access only where the agent can reach the interface.
      factory = [this, local = allIntfStatusLocalDir(), make = std::move(factory)](
                    const Wire::IntfId& intf, const Wire::PamSettings& settings,
                    std::string* why) -> Vel::Ptr<Wire::Pam> {
         if (filterByNetNs() && !local->intfStatus(intf)) {
            if (why) *why = "not in this agent's network namespace";
            return nullptr;
         }
         return make(intf, settings, why);
      };
   }
   auto man = Vel::make<Wire::PamMan>(desiredIntfDir(), pamCollection(), std::move(factory));
   man->separateDot1QHdrIs(true);
   man->lldpDestMacIs(Wire::EthAddr({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e}));
   man->filterProgramIs(lldpRxFilterProgram());
   man->maxRxPktDataIs(10236);
   man->sockPrioIs(7);
   pamManIs(man);
   deviceReactor_.notifierIs(deviceIntfStatusDir());
}

void Root::DeviceReactor::intfStatusChanged(const Wire::IntfId& intf) {
   if (root->pamMan()) root->pamMan()->intfRetry(intf);
}

namespace {

// Whether the interface the platform reported under this index is the one of that name
// in the agent's own network namespace.
bool inOwnNetNs(const Wire::IntfId& intf, uint32_t ifIndex) {
   const std::string name(intf.name());
   return ifIndex != 0 && ::if_nametoindex(name.c_str()) == ifIndex;
}

}  // namespace

void Root::handleAllIntfStatus(const Wire::IntfId& intf) {
   const Vel::Ptr<Interface::AllIntfStatusDir>& local = allIntfStatusLocalDir();
   if (!local) return;
   const auto status = allIntfStatusDir()->intfStatus(intf);
   const bool reachable = status && (!filterByNetNs() || inOwnNetNs(intf, status->ifIndex()));
   if (!reachable) {
      if (local->intfStatus(intf)) {
         VEL_TRACE(traceLldpProtocolSm, 6, intf << " left the agent's interfaces");
         local->intfStatusDel(intf);
      }
      return;
   }
   // The local directory lists the platform's records themselves (an idle port costs no
   // copy, and what they say is always the platform's). Nothing writes through it.
   Vel::Ptr<Interface::IntfStatus> shared(const_cast<Interface::IntfStatus*>(status.ptr()));
   const auto mine = local->intfStatus(intf);
   if (mine == shared) return;
   if (mine) {
      // The platform replaced the record: the interface stays.
      local->intfStatusDel(intf);
      local->intfStatusIs(intf, shared);
      return;
   }
   local->intfStatusIs(intf, shared);
   VEL_TRACE(traceLldpProtocolSm, 6, intf << " is one of the agent's interfaces");
   if (pamMan()) pamMan()->intfRetry(intf);
}

void Root::protocolSmIs() {
   if (protocolSm_) return;
   protocolSm_ = Vel::make<ProtocolSm>(this);
   protocolSm_->handleInitialized();
}

void Root::protocolSmDel() {
   if (!protocolSm_) return;
   const Vel::Ptr<ProtocolSm> sm = std::exchange(protocolSm_, nullptr);
   sm->doClose();
}

void Root::onOffSwitchSmIs() {
   if (onOffSwitchSm_) return;
   onOffSwitchSm_ = Vel::make<OnOffSwitchSm>(this);
   onOffSwitchSm_->handleInitialized();
}

void Root::onOffSwitchSmDel() {
   if (!onOffSwitchSm_) return;
   const Vel::Ptr<OnOffSwitchSm> sm = std::exchange(onOffSwitchSm_, nullptr);
   sm->doClose();
}

void Root::doClose() {
   onOffSwitchSmDel();
   protocolSmDel();
   deviceReactor_.notifierIs(nullptr);
   allIntfStatusReactor_.notifierIs(nullptr);
   pamManIs(nullptr);
}

Vel::Ptr<Root> rootFactory(const std::string& name) {
   return Vel::make<Root>(name);
}

}  // namespace Lldp::Agent::Protocol
