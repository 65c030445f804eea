// The standby's side of the mirror without sockets: a neighbour with every TLV a frame can
// carry crosses the mirror's record form unchanged, damaged records are refused without
// touching the copy, and a snapshot replaces the copy in place.
#include <gtest/gtest.h>

#include "Framework/Log.h"
#include "Framework/Vel/Json.h"
#include "Lldp/LldpMirrorCodec.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpStandbyLldpStatusDirSm.h"
#include "Records/LldpRedundancy.h"
#include "tests/Support/FullPort.h"

namespace {

using Lldp::Agent::StandbyCellDirSm;

// A neighbour as a full frame leaves it in the table, plus what no frame of ours carries.
Lldp::RemoteSystem::Ptr fullNeighbour(int index) {
   Lldp::clockIs([] { return 500.0; });
   Vel::Log::syslogIs(false);
   TestSupport::FullPort tx;
   char frame[1500];
   char* end = tx.build(frame, frame + sizeof(frame));
   const Wire::IntfId intf("Ethernet2");
   auto config = Vel::make<Lldp::PortConfig>(intf);
   auto status = Vel::make<Lldp::Status>();
   auto port = status->portStatusIs(intf, 0.0);
   port->nextRemoteSystemIndexIs(uint32_t(index));
   auto rx = processRxLldpdu(frame, end, config, status, port, nullptr, nullptr,
                             *Wire::EthAddr::parse("00:1c:73:00:00:01"));
   Lldp::clockIs(nullptr);
   Vel::Log::syslogIs(true);
   if (!rx) return nullptr;
   Lldp::RemoteSystem::Ptr r = port->remoteSystem(rx->index());
   r->protocolIdentityInfoIs(Lldp::ProtocolIdentityInfo({.index = 3, .identity = "\x88\x8e"}));
   r->expiryTimeIs(623.25);
   return r;
}

TEST(MirrorRecords, EveryAttributeCrossesAndDamageIsRefused) {
   auto r = fullNeighbour(7);
   ASSERT_TRUE(r);
   std::string bytes;
   Lldp::Mirror::encode(*r, bytes);

   auto back = Vel::make<Lldp::RemoteSystem>(0, Lldp::Msap());
   ASSERT_TRUE(Lldp::Mirror::decode(bytes, *back));
   EXPECT_EQ(Vel::toJson(*back), Vel::toJson(*r));
   EXPECT_EQ(back->index(), r->index());
   EXPECT_FALSE(r->managementAddress().empty());
   EXPECT_TRUE(back->powerViaMdiTlvReceived());

   // Through hexadecimal, as the stream carries it.
   std::string hex, unhex;
   Lldp::Mirror::appendHex(bytes, hex);
   ASSERT_TRUE(Lldp::Mirror::fromHex(hex, unhex));
   EXPECT_EQ(unhex, bytes);
   EXPECT_FALSE(Lldp::Mirror::fromHex(hex.substr(1), unhex));
   EXPECT_FALSE(Lldp::Mirror::fromHex("0g", unhex));

   // Cut anywhere, or with a byte too many: refused, never misread.
   for (size_t n = 0; n < bytes.size(); ++n) {
      auto scratch = Vel::make<Lldp::RemoteSystem>(0, Lldp::Msap());
      EXPECT_FALSE(Lldp::Mirror::decode(std::string_view(bytes).substr(0, n), *scratch)) << n;
   }
   auto scratch = Vel::make<Lldp::RemoteSystem>(0, Lldp::Msap());
   EXPECT_FALSE(Lldp::Mirror::decode(bytes + '\0', *scratch));
   // A bounded value out of its range (a port VLAN ID of 4095) is refused, not thrown.
   auto bad = Vel::make<Lldp::RemoteSystem>(0, Lldp::Msap());
   ASSERT_TRUE(Lldp::Mirror::decode(bytes, *bad));
   bad->portVlanIdIs(Bridging::VlanIdOrNone(4094));
   std::string withMax;
   Lldp::Mirror::encode(*bad, withMax);
   const size_t at = withMax.find(std::string("\xfe\x0f", 2));
   ASSERT_NE(at, std::string::npos);
   withMax[at] = char(0xff);
   EXPECT_FALSE(Lldp::Mirror::decode(withMax, *scratch));
}

TEST(MirrorRecords, TheCellCopyAppliesChangesRefusesDamageAndIsReplacedBySnapshots) {
   auto dir = Vel::make<Vel::Dir>();
   Lldp::Agent::StandbyLldpStatusDirSm dirSm(dir);
   auto cell = dirSm.standbyCellDirSmIs(1);
   ASSERT_TRUE(dir->entryAs<Lldp::Status>("1"));
   const Wire::IntfId eth1("Ethernet1"), eth2("Ethernet2");
   std::string error;

   auto port = Vel::make<Lldp::PortStatus>(eth1, 12.5);
   port->rxFramesTotalIs(42);
   port->nextRemoteSystemIndexIs(8);
   std::string bytes;
   Lldp::Mirror::encode(*port, bytes);
   ASSERT_TRUE(cell->handlePort(eth1, bytes, &error)) << error;
   // A port record under another port's name is refused.
   EXPECT_FALSE(cell->handlePort(eth2, bytes, &error));
   EXPECT_FALSE(cell->status()->portStatus(eth2));

   auto r = fullNeighbour(7);
   bytes.clear();
   Lldp::Mirror::encode(*r, bytes);
   EXPECT_FALSE(cell->handleRemoteSystem(eth2, bytes, &error)) << "a port not mirrored";
   ASSERT_TRUE(cell->handleRemoteSystem(eth1, bytes, &error)) << error;
   auto copy = cell->status()->portStatus(eth1);
   ASSERT_TRUE(copy);
   EXPECT_EQ(copy->creationTime(), 12.5);
   EXPECT_EQ(copy->rxFramesTotal(), 42u);
   EXPECT_EQ(copy->nextRemoteSystemIndex(), 8u);
   const int index = r->index();
   ASSERT_TRUE(copy->remoteSystem(index));
   EXPECT_EQ(Vel::toJson(*copy->remoteSystem(index)), Vel::toJson(*r));
   // Found by its MSAP too, as the receive path finds it after a takeover.
   EXPECT_EQ(copy->remoteSystemByMsap(r->msap()), copy->remoteSystem(index));

   // A refresh changes the record in place; damage leaves it as it was.
   Lldp::RemoteSystem::Ptr held = copy->remoteSystem(index);
   r->expiryTimeIs(700);
   bytes.clear();
   Lldp::Mirror::encode(*r, bytes);
   ASSERT_TRUE(cell->handleRemoteSystem(eth1, bytes, &error));
   EXPECT_EQ(copy->remoteSystem(index), held);
   EXPECT_EQ(held->expiryTime(), 700);
   EXPECT_FALSE(cell->handleRemoteSystem(eth1, bytes.substr(0, bytes.size() / 2), &error));
   EXPECT_FALSE(error.empty());
   EXPECT_EQ(held->expiryTime(), 700);
   EXPECT_EQ(cell->remoteSystemCount(), 1u);

   // A second neighbour, then a snapshot that names only the second: the first goes, the
   // second stays the same record (watchers see a removal, not a table refilled).
   auto r2 = Vel::make<Lldp::RemoteSystem>(
       index + 2, Lldp::Msap({.chassisIdentifier = Lldp::ChassisIdentifier(
                                  {.subtype = Lldp::chassisIdSubtypeLocal, .value = "other"})}));
   std::string bytes2;
   Lldp::Mirror::encode(*r2, bytes2);
   ASSERT_TRUE(cell->handleRemoteSystem(eth1, bytes2, &error));
   Lldp::RemoteSystem::Ptr second = copy->remoteSystem(index + 2);
   cell->handleSnapshotBegin();
   bytes.clear();
   Lldp::Mirror::encode(*port, bytes);
   ASSERT_TRUE(cell->handlePort(eth1, bytes, &error));
   ASSERT_TRUE(cell->handleRemoteSystem(eth1, bytes2, &error));
   cell->handleSnapshotEnd();
   EXPECT_FALSE(copy->remoteSystem(index));
   EXPECT_FALSE(copy->remoteSystemByMsap(r->msap()));
   EXPECT_EQ(copy->remoteSystem(index + 2), second);
   EXPECT_EQ(cell->remoteSystemCount(), 1u);
   // A snapshot without the port removes it.
   cell->handleSnapshotBegin();
   cell->handleSnapshotEnd();
   EXPECT_TRUE(cell->status()->portStatus().empty());
   EXPECT_EQ(cell->remoteSystemCount(), 0u);

   // Closing removes the entry it made.
   dirSm.doClose();
   EXPECT_FALSE(dir->entryAs<Lldp::Status>("1"));
}

}  // namespace
