// Writes the platform's entities from the netlink model. Every publish derives the
// whole picture again from the model and writes it unconditionally: the entities notify
// only what really changed, records that stay are updated in place and only records
// whose interface (or VLAN) is gone are deleted.
//
// Paths and what they hold:
//    interface/status/eth/phy/all   a status record per Ethernet and management port
//    interface/config/eth/phy/all   its description (the interface alias)
//    interface/status/all           every interface's index and VRF
//    interface/status/eth/lag       each bond's member ports
//    bridging/config                system MAC, largest frame, switchports, VLANs
//    ip/status, ip6/status          addresses per interface
//    routing/config                 whether IPv4 is forwarded
//    sys/net/status, hardware/entmib  host and domain name, system description
#pragma once

#include <string>

#include "Framework/Vel/StateDb.h"
#include "Platform/Linux/NetlinkModel.h"
#include "Records/Bridging.h"
#include "Records/IntfStatus.h"
#include "Records/SystemStatus.h"

namespace Platform::Linux {

// Whether an address may be offered as a management address: not host-scope, and for
// IPv6 not tentative, failed, deprecated or temporary.
bool isCandidateAddr(const AddrInfo& a);

class PlatformPublisher {
public:
   explicit PlatformPublisher(Vel::StateDb& db);

   void publish(const NetModel& model, const PlatformOptions& options);
   // Host name, domain name and the system description.
   void publishSystem();

   // The system description: OS release, kernel and machine, at most 255 bytes.
   static std::string systemDescription();

   Interface::EthPhyIntfStatusDir::Ptr ethStatus;
   Interface::EthPhyIntfConfigDir::Ptr ethConfig;
   Interface::AllIntfStatusDir::Ptr allStatus;
   Interface::EthLagIntfStatusDir::Ptr lagStatus;
   Bridging::Config::Ptr bridging;
   Ip::Status::Ptr ipStatus;
   Ip6::Status::Ptr ip6Status;
   Routing::Config::Ptr routing;
   System::NetStatus::Ptr netStatus;
   EntityMib::SysDescr::Ptr sysDescr;
   // Whether any port or bond was a bridge port at the last publish.
   bool anyBridgePort = false;
};

}  // namespace Platform::Linux
