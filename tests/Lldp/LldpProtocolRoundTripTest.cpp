// What the builder sends for a port that advertises everything, the processor stores back
// as the same values.
#include <gtest/gtest.h>

#include "Framework/Log.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/FullPort.h"

namespace {

TEST(LldpProtocolRoundTrip, EveryAdvertisedTlvIsStoredBackUnchanged) {
   Lldp::clockIs([] { return 500.0; });
   Vel::Log::syslogIs(false);
   TestSupport::FullPort tx;
   char frame[1500];
   char* end = tx.build(frame, frame + sizeof(frame));
   EXPECT_EQ(tx.portStatus->txFramesLengthExceeded(), 0u) << "the full frame must fit";

   const Wire::IntfId intf("Ethernet2");
   auto rxConfig = Vel::make<Lldp::PortConfig>(intf);
   auto status = Vel::make<Lldp::Status>();
   auto rxPort = status->portStatusIs(intf, 0.0);
   auto remote = processRxLldpdu(frame, end, rxConfig, status, rxPort, nullptr, nullptr,
                                 *Wire::EthAddr::parse("00:1c:73:00:00:01"));
   Lldp::clockIs(nullptr);
   Vel::Log::syslogIs(true);
   ASSERT_TRUE(remote);
   EXPECT_EQ(rxPort->rxTLVsDiscardedTotal(), 0u);
   // Only the operator-defined TLV is foreign to the receiver: kept, and counted.
   EXPECT_EQ(rxPort->rxTLVsUnrecognizedTotal(), 1u);
   EXPECT_EQ(rxPort->rxFramesErrors(), 0u);

   const Lldp::LocalSystem& sys = *tx.localSystem;
   const Lldp::LocalPort& port = *tx.localPort;
   EXPECT_EQ(remote->msap().chassisIdentifier(), sys.chassisIdentifier());
   EXPECT_EQ(remote->msap().portIdentifier(), port.portIdentifier());
   EXPECT_EQ(remote->ttl(), tx.config->messageTxHoldTime());
   EXPECT_EQ(remote->portDesc().value(), port.portDesc().value());
   EXPECT_EQ(remote->sysName().value(), sys.sysName().value());
   EXPECT_EQ(remote->sysDesc().value(), sys.sysDesc().value());
   EXPECT_EQ(remote->systemCapabilities(),
             Lldp::SystemCapabilitiesTlv::create(sys.sysCapSupported(), sys.sysCapEnabled()));

   // Both management addresses, exactly as configured.
   ASSERT_EQ(remote->managementAddress().size(), 2u);
   const auto& v6 = sys.ip6ManagementAddress();
   ASSERT_TRUE(remote->managementAddress(v6.key()));
   EXPECT_EQ(*remote->managementAddress(v6.key()), v6);
   for (const auto& [key, addr] : sys.managementAddress()) {
      ASSERT_TRUE(remote->managementAddress(key));
      EXPECT_EQ(*remote->managementAddress(key), addr);
   }

   EXPECT_EQ(remote->portVlanId(), port.portVlanId());
   EXPECT_TRUE(remote->portVlanIdTlvReceived());
   EXPECT_EQ(remote->vlanName(), tx.portStatus->vlanName());
   EXPECT_EQ(remote->linkAggregationInfo(), port.linkAggregationInfo());
   EXPECT_EQ(remote->maximumFrameSizeInfo(), port.maximumFrameSizeInfo());
   EXPECT_TRUE(remote->powerViaMdiTlvReceived());
   EXPECT_TRUE(remote->powerViaMdiInfo().fromPse());
   EXPECT_EQ(remote->powerViaMdiInfo().pseAllocatedPower(),
             port.localPortPoeInfo()->poePortStatus().allocatedPower());
   EXPECT_EQ(remote->medCapabilitiesInfo(), port.medCapabilities());
   EXPECT_EQ(remote->networkPolicyTlv(), port.localNetworkPolicyTlv());
   EXPECT_EQ(remote->ztpBootVlan(), port.ztpBootVlan());

   // The operator-defined TLV comes back with its OUI, subtype and content.
   ASSERT_EQ(remote->unknownOrgDefTlv().size(), 1u);
   const auto& sent = port.unknownOrgDefTlv().begin()->second;
   const auto& got = remote->unknownOrgDefTlv().begin()->second;
   EXPECT_EQ(got.key().oui(), sent.key().oui());
   EXPECT_EQ(got.key().subtype(), sent.key().subtype());
   EXPECT_EQ(got.value(), sent.value());
}

}  // namespace
