#include "tests/Support/Switch.h"

namespace TestSupport {

using Lldp::Agent::Protocol::Root;

Switch::Switch(const std::string& n, uint8_t chassisLast, Wire::PamMan::Factory factory)
    : name(n),
      config(Vel::make<Lldp::Config>()),
      cliConfig(Vel::make<Lldp::CliConfig>()),
      localSystem(Vel::make<Lldp::LocalSystem>()),
      status(Vel::make<Lldp::Status>()),
      intfStatusDir(Vel::make<Interface::EthPhyIntfStatusDir>()),
      desiredIntfDir(Vel::make<Interface::PamDesiredIntfDir>()),
      pamCollection(Vel::make<Wire::PamCollection>()),
      root(Lldp::Agent::Protocol::rootFactory(n)) {
   const std::string mac = std::string("\x02\xff\0\0\0", 5) + char(chassisLast);
   localSystem->chassisIdentifierIs(Lldp::ChassisIdentifier({.subtype = 4, .value = mac}));
   localSystem->sysNameIs(n);
   root->configIs(config);
   root->cliConfigIs(cliConfig);
   root->statusIs(status);
   root->localSystemIs(localSystem);
   root->ethPhyIntfStatusDirIs(intfStatusDir);
   root->deviceIntfStatusDirIs(intfStatusDir);
   root->desiredIntfDirIs(desiredIntfDir);
   root->pamCollectionIs(pamCollection);
   root->doInitializePamMan(std::move(factory));
}

Switch::~Switch() {
   root->doClose();
}

void Switch::start() {
   root->protocolSmIs();
   root->onOffSwitchSmIs();
}

void Switch::portIs(const std::string& intfName, uint8_t macLast) {
   const Wire::IntfId intf(intfName);
   auto intfStatus = intfStatusDir->intfStatusIs(intf);
   const uint8_t mac[6] = {0x02, 0, 0, 0, 0, macLast};
   intfStatus->addrIs(Wire::EthAddr::fromBytes(mac));
   intfStatus->linkStatusIs(Interface::linkStatusUp);
   config->portConfigIs(intf);
   auto localPort = localSystem->localPortIs(intf);
   localPort->portIdentifierIs(Lldp::PortIdentifier({.subtype = 5, .value = intfName}));
   status->portStatusIs(intf, 0.0);
   desiredIntfDir->intfDesiredIs(intf, true);
}

Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> Switch::sm(const std::string& intf) const {
   return root->protocolSm() ? root->protocolSm()->lldpPamSm(Wire::IntfId(intf)) : nullptr;
}

Lldp::PortStatus::Ptr Switch::portStatus(const std::string& intf) const {
   return status->portStatus(Wire::IntfId(intf));
}

size_t Switch::neighbours(const std::string& intf) const {
   auto ps = portStatus(intf);
   return ps ? ps->remoteSystem().size() : 0;
}

void InMemoryLinks::linkIs(const Wire::IntfId& a, const Wire::IntfId& b) {
   peerOf_[a] = b;
   peerOf_[b] = a;
   auto [pa, pb] = Wire::InMemoryPam::pair(a, b);
   waiting_[a] = pa;
   waiting_[b] = pb;
}

Wire::PamMan::Factory InMemoryLinks::factory() {
   return [this](const Wire::IntfId& intf, const Wire::PamSettings&,
                 std::string* error) -> Vel::Ptr<Wire::Pam> {
      if (missing.count(intf) || !peerOf_.count(intf)) {
         *error = "no such interface";
         return nullptr;
      }
      auto it = waiting_.find(intf);
      if (it == waiting_.end() || !it->second->peer()) {
         // Taken before and dropped since (packet access went off): a new cable.
         linkIs(intf, peerOf_[intf]);
         it = waiting_.find(intf);
      }
      Vel::Ptr<Wire::InMemoryPam> pam = it->second;
      waiting_.erase(it);
      ++made;
      return pam;
   };
}

Vel::Ptr<Wire::InMemoryPam> InMemoryLinks::far(const Wire::IntfId& intf) const {
   auto peer = peerOf_.find(intf);
   if (peer == peerOf_.end()) return nullptr;
   auto it = waiting_.find(peer->second);
   return it == waiting_.end() ? nullptr : it->second;
}

Wire::PamSettings lldpPamSettings() {
   auto root = Lldp::Agent::Protocol::rootFactory("settings");
   root->desiredIntfDirIs(Vel::make<Interface::PamDesiredIntfDir>());
   root->pamCollectionIs(Vel::make<Wire::PamCollection>());
   root->doInitializePamMan(nullptr);
   const Wire::PamSettings settings = root->pamMan()->settings();
   root->doClose();
   return settings;
}

}  // namespace TestSupport
