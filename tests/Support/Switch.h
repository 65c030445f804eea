// A switch's protocol engine as the agent assembles it: the records, the protocol root
// with its packet access manager, the protocol machine and the on/off switch. Ports are
// added the way the input side adds them (records, link up, packet access wanted).
// Packet access comes from the factory given: in-memory links or real Linux sockets.
#pragma once

#include <map>
#include <string>

#include "Lldp/LldpProtocolSm.h"

namespace TestSupport {

class Switch {
public:
   // `chassisLast` is the last byte of the switch's MAC address (the chassis ID).
   Switch(const std::string& name, uint8_t chassisLast, Wire::PamMan::Factory factory);
   ~Switch();

   // Creates the protocol machine and the on/off switch, as the agent does at start.
   void start();
   // A port with every record it needs (port ID: its name; link up; packet access wanted).
   void portIs(const std::string& intf, uint8_t macLast);

   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> sm(const std::string& intf) const;
   Lldp::PortStatus::Ptr portStatus(const std::string& intf) const;
   size_t neighbours(const std::string& intf) const;

   std::string name;
   Lldp::Config::Ptr config;
   Lldp::CliConfig::Ptr cliConfig;
   Lldp::LocalSystem::Ptr localSystem;
   Lldp::Status::Ptr status;
   Interface::EthPhyIntfStatusDir::Ptr intfStatusDir;
   Interface::PamDesiredIntfDir::Ptr desiredIntfDir;
   Wire::PamCollection::Ptr pamCollection;
   Vel::Ptr<Lldp::Agent::Protocol::Root> root;
};

// In-memory links between named interfaces: the first end asked for gets one Pam of a
// pair, the other end the other. An end nobody asks for stays with the links, where a
// test can send and receive on it (`far`).
class InMemoryLinks {
public:
   void linkIs(const Wire::IntfId& a, const Wire::IntfId& b);
   Wire::PamMan::Factory factory();
   // The end of the link opposite `intf`, while the far side has not taken it.
   Vel::Ptr<Wire::InMemoryPam> far(const Wire::IntfId& intf) const;
   // Pams handed out so far.
   int made = 0;
   // Interfaces whose Pam cannot be made (as if they did not exist).
   std::map<Wire::IntfId, bool> missing;

private:
   std::map<Wire::IntfId, Wire::IntfId> peerOf_;
   std::map<Wire::IntfId, Vel::Ptr<Wire::InMemoryPam>> waiting_;
};

// The settings the protocol root gives every Pam it has made.
Wire::PamSettings lldpPamSettings();

}  // namespace TestSupport
