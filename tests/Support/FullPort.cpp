#include "tests/Support/FullPort.h"

#include "Lldp/LldpProtocol.h"

namespace TestSupport {

namespace {

Lldp::ManagementAddress::Key addrKey(uint8_t family, const uint8_t* bytes, size_t len) {
   return Lldp::ManagementAddress::Key(
       {.subtype = family, .address = std::string_view(reinterpret_cast<const char*>(bytes), len)});
}

}  // namespace

FullPort::FullPort()
    : PortRecords("Ethernet1", std::string("\x00\x1c\x73\x00\x00\x01", 6), "leaf1.example.net") {
   config->maxTxMgmtAddrsIs(1);
   localSystem->sysDescIs("Linux 6.1.0 x86_64, lldp-agent");
   localSystem->sysCapSupportedIs(Lldp::SystemCapabilitiesMap(0x0014));  // bridge, router
   localSystem->sysCapEnabledIs(Lldp::SystemCapabilitiesMap(0x0004));
   const auto v4 = Wire::IpAddr::parse("192.0.2.1");
   const Lldp::ManagementAddress ipv4({.key = addrKey(Lldp::addrFamilyIpv4, v4->bytes().data(), 4),
                                       .ifNumberingSubtype = Lldp::ifNumberingIfIndex,
                                       .ifNumber = 7});
   localSystem->managementAddressIs(ipv4);
   localSystem->managementAddressPrioIs(Lldp::ManAddrPriority({.primaryPriority = 1}), ipv4.key());
   const auto v6 = Wire::Ip6Addr::parse("2001:db8::1");
   localSystem->ip6ManagementAddressIs(
       Lldp::ManagementAddress({.key = addrKey(Lldp::addrFamilyIpv6, v6->bytes().data(), 16),
                                .ifNumberingSubtype = Lldp::ifNumberingIfIndex,
                                .ifNumber = 7}));

   localPort->portDescIs("uplink to spine1");
   localPort->portVlanIdIs(10);
   localPort->linkAggregationInfoIs(Lldp::LinkAggregationInfo(
       {.status = Lldp::LinkAggStatusMap(0x03), .aggregatedPortId = 1000001}));
   localPort->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo({.maxFrameSize = 9236}));
   localPort->medCapabilitiesIs(
       Lldp::MedCapabilitiesInfo({.capabilities = Lldp::MedCapability(0x0f), .deviceType = 4}));
   localPort->localNetworkPolicyTlvIs(Lldp::NetworkPolicyTlv(
       {.appType = 1, .tagged = true, .vlanId = 100, .priority = 5, .dscp = 46}));
   localPort->unknownOrgDefTlvIs(Lldp::UnknownOrgDefTlv(
       {.key = Lldp::UnknownOrgDefTlv::Key({.oui = Lldp::Oui(0x00aabb), .subtype = 9}),
        .value = "operator data"}));
   localPort->ztpBootVlanIs(100);
   auto poe = Vel::make<Lldp::LocalPortPoeInfo>();
   poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus(
       {.state = Environment::Power::PoePortStatus::PortStatus::stateDelivering,
        .pseType = 2,
        .powerClass = 4,
        .priority = 3,
        .allocatedPower = 255,
        .maxAvailablePower = 300}));
   localPort->localPortPoeInfoIs(poe);

   portConfig->enabledTlvsIs(Lldp::EnabledTlvs(0x0f));
   portConfig->dot3EnabledTlvsIs(Lldp::Dot3EnabledTlvs(0x0e));
   portConfig->tiaEnabledTlvsIs(Lldp::TiaEnabledTlvs(0x03));
   portConfig->ztpBootVlanIs(1);
   // A fallback allocation makes the LLDP-MED TLVs go out before any LLDP-MED neighbour.
   portConfig->poeAllocatedPowerFallbackIs(15400);

   portStatus->vlanNameIs(Lldp::VlanName({.vlanId = 10, .name = "users"}));
   portStatus->vlanNameIs(Lldp::VlanName({.vlanId = 100, .name = "voice"}));
}

char* FullPort::build(char* start, char* end) {
   return buildTxLldpdu(start, end, root, localPort, portConfig, portStatus);
}

}  // namespace TestSupport
