// The records of one port on one switch, as the input side publishes them: the global and
// port configuration, the local system (chassis ID, system name) with the port's local
// record (port ID: the interface name), the status with the port's status, and the
// protocol root over them. Tests and benchmarks add what their port advertises.
#pragma once

#include <string>

#include "Lldp/LldpProtocolSm.h"

namespace TestSupport {

struct PortRecords {
   // `chassisMac` is the 6-byte MAC address advertised as the chassis ID.
   PortRecords(const std::string& intfName, const std::string& chassisMac,
               const std::string& sysName);

   Wire::IntfId intf;
   Lldp::Config::Ptr config;
   Lldp::LocalSystem::Ptr localSystem;
   Lldp::LocalPort::Ptr localPort;
   Lldp::PortConfig::Ptr portConfig;
   Lldp::Status::Ptr status;
   Lldp::PortStatus::Ptr portStatus;
   Vel::Ptr<Lldp::Agent::Protocol::Root> root;
};

}  // namespace TestSupport
