// The receive processor: mandatory TLV checks, shutdown frames, decoding of the optional
// TLVs, creation and reconciliation of remote systems, counters and logs.
#include "tests/Lldp/LldpRxFixture.h"

using namespace LldpRxTest;

namespace {

// ---------------------------------------------------------------------------------------
// Mandatory TLVs and whole-frame discards.

// Identifier subtypes above 7 are kept as 8, 0 stays 0; TTL bytes past the first two are
// ignored.
TEST_F(LldpProtocolRxTest, ThreeMandatoryTlvsMakeANeighbour) {
   auto r = rx(neighbour(1, 90));
   ASSERT_TRUE(r);
   EXPECT_EQ(r, stored(1));
   EXPECT_EQ(r->index(), 1);
   EXPECT_EQ(r->ttl(), 90);
   EXPECT_EQ(r->ethAddr(), mac);
   EXPECT_EQ(r->creationTime(), 1000);
   EXPECT_EQ(r->lastChangeTime(), 1000);
   EXPECT_EQ(r->lastRefreshTime(), 1000);
   EXPECT_EQ(r->expiryTime(), 1090);
   EXPECT_EQ(port->rxFramesTotal(), 1u);
   EXPECT_EQ(status->remTablesInserts(), 1u);
   EXPECT_EQ(status->remTablesLastChangeTime(), 1000);
   EXPECT_EQ(status->lastPacketParsedTime(), 1000);

   r = rx(Pdu().id(1, 9, "c").id(2, 0, "p").tlv(3, bytes({0, 30, 0x7f, 0xff})));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().chassisIdentifier().subtype(), 8);
   EXPECT_EQ(r->msap().chassisIdentifier().value().value(), "c");
   EXPECT_EQ(r->msap().portIdentifier().subtype(), 0);
   EXPECT_EQ(r->ttl(), 30);
   EXPECT_TRUE(traced("Unknown chassid ID subtype 9"));
   r = rx(Pdu().id(1, 0, "c").id(2, 200, "p").ttl(30));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->msap().chassisIdentifier().subtype(), 0);
   EXPECT_EQ(r->msap().portIdentifier().subtype(), 8);
   EXPECT_TRUE(traced("Unknown port ID subtype 200"));
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->remoteSystem().size(), 3u);
}

// Each frame is sent by a known neighbour, whose record must not move, and by an unknown
// one, which must not be created. Only the port's frame counters change.
TEST_F(LldpProtocolRxTest, FatalFramesTouchNothingButPortCounters) {
   TestSupport::ScopedToggle ztp("LldpBootVlanTlv", true);
   Bytes mgmtShortOid = mgmtAddr({10, 0, 0, 1}, 3, bytes({0x2b, 0x06, 0x01}));
   mgmtShortOid.resize(mgmtShortOid.size() - 2);
   // The frames of neighbour `n`.
   auto frames = [&](int n) {
      const std::string chassis = chassisName(n);
      const std::string portId = portName(n);
      const Pdu named = neighbour(n).tlv(5, "new-name");
      return std::vector<std::pair<const char*, Pdu>>{
          {"empty", Pdu()},
          {"port ID first", Pdu().id(2, 7, portId).ttl(9)},
          {"chassis ID of 1 byte", Pdu().tlv(1, "\x07").id(2, 7, portId).ttl(9)},
          {"chassis ID of 257 bytes",
           Pdu().id(1, 7, std::string(256, 'c')).id(2, 7, portId).ttl(9)},
          {"no port ID", Pdu().id(1, 7, chassis).ttl(9)},
          {"TTL of 1 byte", Pdu().id(1, 7, chassis).id(2, 7, portId).tlv(3, "\x01")},
          {"TTL cut short", neighbour(n).cut(1)},
          {"second chassis ID", Pdu(named).id(1, 7, chassis)},
          {"second TTL", Pdu(named).ttl(5)},
          {"system capabilities of 3 bytes", Pdu(named).tlv(7, bytes({0, 4, 0}))},
          {"management address of 8 bytes", Pdu(named).tlv(8, bytes({5, 1, 10, 0, 0, 1, 2, 0}))},
          {"management address shorter than its address",
           Pdu(named).tlv(8, bytes({32, 1, 10, 0, 0, 1, 2, 0, 0}))},
          {"management address shorter than its OID", Pdu(named).tlv(8, mgmtShortOid)},
          {"organizationally specific of 3 bytes", Pdu(named).tlv(127, bytes({0x00, 0x80, 0xc2}))},
          {"fatal result of a family decoder", Pdu(named).org(ouiDot1, 1, bytes({0}))},
          {"ZTP boot VLAN of 1 byte", Pdu(named).org(ouiZorven, 1, bytes({0x01}))},
      };
   };
   ASSERT_TRUE(rx(neighbour(1).tlv(5, "old-name")));
   fakeNow = 2000;
   const std::string before = snapshot(*stored(1));
   const std::string statusBefore = snapshot(*status);
   uint32_t total = port->rxFramesTotal();
   for (int n : {1, 2}) {
      for (auto& [what, frame] : frames(n)) {
         SCOPED_TRACE(std::string(what) + (n == 1 ? ", known neighbour" : ", new neighbour"));
         const uint32_t discarded = port->rxFramesDiscardedTotal();
         const uint32_t errors = port->rxFramesErrors();
         EXPECT_FALSE(rx(frame.data()));
         EXPECT_EQ(port->rxFramesTotal(), ++total);
         EXPECT_EQ(port->rxFramesDiscardedTotal(), discarded + 1);
         EXPECT_EQ(port->rxFramesErrors(), errors + 1);
         EXPECT_EQ(port->remoteSystem().size(), 1u);
         EXPECT_EQ(port->remoteSystemByMsap().size(), 1u);
         EXPECT_EQ(snapshot(*stored(1)), before);
         EXPECT_EQ(snapshot(*status), statusBefore);
      }
   }
   EXPECT_TRUE(traced("Error in first mandatory TLV"));
   EXPECT_TRUE(traced("Error in second mandatory TLV"));
   EXPECT_TRUE(traced("Error in third mandatory TLV"));
   EXPECT_TRUE(traced("Error: frame contains duplicate TLV of type 1"));
   EXPECT_TRUE(traced("Error: System Capabilities TLV is too short (infoLen=3)"));
   EXPECT_TRUE(traced("Error: Management Address TLV is too short (infoLen=8)"));
   EXPECT_TRUE(
       traced("Error: Management Address TLV is too short (infoLen=9, manAddrStringLen=32)"));
   EXPECT_TRUE(
       traced("Error: Management Address TLV is too short (infoLen=13, "
              "manAddrStringLen=5, oidStringLen=3)"));
   EXPECT_TRUE(traced("Error: Organizationally Specific TLV is too short (infoLen=3)"));
   EXPECT_TRUE(traced("Error: ZTP boot vlan TLV is too short (orgDefInfoLen=)1)"));
   EXPECT_TRUE(traced("Frame had a fatal error -- discarding"));
}

// ---------------------------------------------------------------------------------------
// New neighbours and shutdown LLDPDUs.

// A new neighbour is logged once. A shutdown LLDPDU: its optional TLVs are never read
// (those here would make the frame fatal); a known neighbour goes at once, an unknown one
// changes nothing but the count.
TEST_F(LldpProtocolRxTest, NewNeighbourLoggedAndShutdownRemovesItButIgnoresUnknownOnes) {
   auto ethernet7 = [](int ttl) { return Pdu().id(1, 4, macId).id(2, 5, "Ethernet7").ttl(ttl); };
   ASSERT_TRUE(rx(ethernet7(120)));
   ASSERT_TRUE(rx(ethernet7(120)));  // an update logs nothing
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].key, "LLDP_NEIGHBOR_NEW");
   EXPECT_EQ(logs[0].text,
             "LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId Ethernet7 added on "
             "interface Ethernet1");
   ASSERT_TRUE(rx(neighbour(2)));
   fakeNow = 1500;
   logs.clear();
   const std::string statusBefore = snapshot(*status);
   EXPECT_FALSE(rx(neighbour(1, 0).tlv(5, "x").tlv(7, "")));
   EXPECT_EQ(snapshot(*status), statusBefore);
   EXPECT_TRUE(traced("Received shutdown frame from unknown MSAP: " + snapshot(msapOf(1))));
   EXPECT_FALSE(rx(ethernet7(0).tlv(99, "x").tlv(7, "")));
   EXPECT_EQ(port->remoteSystem().size(), 1u);
   EXPECT_EQ(port->remoteSystemByMsap().size(), 1u);
   EXPECT_EQ(port->remoteSystem(2).ptr(), stored(2).ptr());
   EXPECT_EQ(status->remTablesDeletes(), 1u);
   EXPECT_EQ(status->remTablesLastChangeTime(), 1500);
   EXPECT_EQ(port->rxFramesTotal(), 5u);
   EXPECT_EQ(port->rxFramesDiscardedTotal() + port->rxFramesErrors() +
                 port->rxTLVsDiscardedTotal() + port->rxTLVsUnrecognizedTotal(),
             0u);
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].key, "LLDP_NEIGHBOR_GONE");
   EXPECT_EQ(logs[0].text,
             "Received a shutdown frame from LLDP neighbor with chassisId 00:1c:73:00:00:01 and "
             "portId Ethernet7 on interface Ethernet1");
   EXPECT_TRUE(traced("Deleting RemoteSystem"));
}

// Whoever watches the port's table (the protocol machine's early LLDPDU, the PoE and
// network policy machines, the published views) hears of a neighbour once per frame that
// changes it, and finds it complete: a new one with all its first frame said, by index and
// by MSAP; an updated one with all of its new frame.
TEST_F(LldpProtocolRxTest, TableWatchersSeeNeighboursComplete) {
   struct Watcher : Lldp::PortStatus::Notifiee {
      std::vector<std::string> seen;
      void remoteSystemChanged(const int& index) override {
         const auto& port = *notifier();
         const auto r = port.remoteSystem(index);
         std::ostringstream os;
         os << std::boolalpha << index;
         if (r) {
            os << ' ' << r->sysName().value() << " policy=" << port.networkPolicyTlvReceived()
               << " byMsap=" << (port.remoteSystemByMsap(r->msap()) == r)
               << " created=" << r->creationTime() << " changed=" << r->lastChangeTime()
               << " expires=" << r->expiryTime() << " mac=" << r->ethAddr();
         }
         seen.push_back(os.str());
      }
   } watcher;
   watcher.notifierIs(port);
   auto phone = [](const char* name) {
      return neighbour(1, 120).tlv(5, name).org(ouiTia, 2, bytes({0x01, 0x80, 0x00, 0x00}));
   };
   ASSERT_TRUE(rx(phone("phone")));
   fakeNow = 1010;
   ASSERT_TRUE(rx(phone("phone")));  // a refresh: nothing to tell
   fakeNow = 1020;
   ASSERT_TRUE(rx(phone("renamed")));
   EXPECT_EQ(watcher.seen,
             (std::vector<std::string>{
                 "1 phone policy=true byMsap=true created=1000 changed=1000 expires=1120 "
                 "mac=00:1c:73:aa:bb:cc",
                 "1 renamed policy=true byMsap=true created=1000 changed=1020 expires=1140 "
                 "mac=00:1c:73:aa:bb:cc"}));
}

// ---------------------------------------------------------------------------------------
// Optional TLVs.

// Each optional TLV goes to its decoder; organizationally specific ones by OUI.
TEST_F(LldpProtocolRxTest, OptionalTlvsDecode) {
   TestSupport::ScopedToggle ztp("LldpBootVlanTlv", true);
   auto r = rx(neighbour()
                   .tlv(4, std::string(300, 'd'))
                   .tlv(5, "first")
                   .tlv(6, "a switch")
                   .tlv(5, "second")
                   .tlv(7, bytes({0x00, 0x14, 0x00, 0x04}))
                   .tlv(8, mgmtAddr({10, 0, 0, 1}, 7, enterpriseOid))
                   .tlv(8, mgmtAddr({10, 0, 0, 2}, 8, {}))
                   .tlv(8, mgmtAddr({10, 0, 0, 3}, 9, bytes({0x2b, 0x81})))  // ends mid-identifier
                   .tlv(8, mgmtAddr({10, 0, 0, 2}, 10, {}))  // replaces the second one
                   .tlv(9, "nine")
                   .tlv(126, "x")
                   .tlv(9, "again")
                   .org(ouiDot1, 1, bytes({0x00, 0x64}))       // port VLAN ID 100
                   .org(ouiDot3, 4, bytes({0x05, 0xee}))       // maximum frame size 1518
                   .org(ouiTia, 1, bytes({0x00, 0x01, 0x03}))  // LLDP-MED capabilities
                   .org(0x334455, 44, bytes({'a'}))
                   .org(0x334455, 44, bytes({'b'}))
                   .org(0x334455, 45, bytes({'c'}))
                   // ZTP boot VLAN 100: the top four bits are not part of the VLAN.
                   .org(ouiZorven, 1, bytes({0xf0, 0x64, 0, 0, 0, 0, 0, 0}))
                   .org(ouiZorven, 2, bytes({0, 5}))  // counted, but not kept
                   .tlv(0, "junk")                    // the End TLV's length is not examined
                   .tlv(1, "not read"));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->portDesc().value(), std::string(255, 'd'));
   EXPECT_EQ(r->sysName().value(), "second");
   EXPECT_EQ(r->sysDesc().value(), "a switch");
   EXPECT_EQ(r->systemCapabilities().supported().value(), 0x14);
   EXPECT_TRUE(r->systemCapabilities().enabled().bridge());
   EXPECT_FALSE(r->systemCapabilities().enabled().router());
   ASSERT_EQ(r->unknownTlv().size(), 2u);
   EXPECT_EQ(r->unknownTlv(uint8_t(9))->value().value(), "again");
   EXPECT_EQ(r->unknownTlv(uint8_t(126))->value().value(), "x");
   EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 7u);
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), 0u);
   EXPECT_TRUE(traced("End of LLDPDU"));

   ASSERT_EQ(r->managementAddress().size(), 3u);
   const auto* a = r->managementAddress(ipv4Key(10, 0, 0, 1));
   ASSERT_NE(a, nullptr);
   EXPECT_EQ(a->ifNumberingSubtype(), 2);
   EXPECT_EQ(a->ifNumber(), 7u);
   EXPECT_EQ(a->oid().stringValue(), "1.3.6.1.4.1.30065");
   EXPECT_EQ(r->managementAddress(ipv4Key(10, 0, 0, 2))->ifNumber(), 10u);
   const auto* bad = r->managementAddress(ipv4Key(10, 0, 0, 3));
   ASSERT_NE(bad, nullptr);
   EXPECT_TRUE(bad->oid().empty());
   EXPECT_TRUE(traced("Valid OID string"));
   EXPECT_TRUE(traced("Empty OID string"));
   EXPECT_TRUE(traced("Invalid OID string"));

   EXPECT_TRUE(r->portVlanIdTlvReceived());
   EXPECT_EQ(r->portVlanId(), 100);
   EXPECT_EQ(r->maximumFrameSizeInfo().maxFrameSize(), 1518);
   EXPECT_TRUE(r->medCapabilitiesTlvReceived());
   EXPECT_EQ(r->ztpBootVlan(), 100);
   using Key = Lldp::UnknownOrgDefTlv::Key;
   const Lldp::Oui oui(0x334455);
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 3u);
   EXPECT_EQ(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 44, .index = 1}))->value().value(),
             "a");
   EXPECT_EQ(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 44, .index = 2}))->value().value(),
             "b");
   EXPECT_EQ(r->unknownOrgDefTlv(Key({.oui = oui, .subtype = 45, .index = 1}))->value().value(),
             "c");
   EXPECT_TRUE(traced("Unrecognized ZORVEN OUI TLV (subtype=2)"));
}

// A malformed optional TLV is dropped and counted, and the TLVs around it are kept: the
// record is what the frame without it makes, each time the frame comes, decoded with the
// decoders traced or not. The frame is counted once in error, however many such TLVs it has.
TEST_F(LldpProtocolRxTest, BadOptionalTlvIsDroppedAndTheRestKept) {
   TestSupport::ScopedToggle ztp("LldpBootVlanTlv", true);
   Bytes longAddress = bytes({33, 1});
   longAddress.resize(33 + 7, 0);
   const std::string addressLength =
       "Error: Value of management address string length field is out of range ";
   const struct {
      Pdu tlv;
      std::string trace;
      bool last = false;  // the frame ends in it
   } cases[] = {
       // Enabled capabilities that are not supported.
       {Pdu().tlv(7, bytes({0x00, 0x04, 0x00, 0x14})),
        "Error: Supported and enabled capabilities are inconsistent (supported=0x4, "
        "enabled=0x14)"},
       {Pdu().tlv(8, bytes({1, 1, 2, 0, 0, 0, 1, 0, 0})), addressLength + "(manAddrStringLen=1)"},
       {Pdu().tlv(8, longAddress), addressLength + "(manAddrStringLen=33)"},
       {Pdu().tlv(8, mgmtAddr({10, 0, 0, 4}, 1, Bytes(129, 1))),
        "Error: Value of OID string length field is out of range (oidStringLen=129)"},
       {Pdu().org(ouiDot1, 0, bytes({1, 2})),
        "Error: Organizationally Specific TLV has invalid subtype of 0 (oui=00-80-c2)"},
       {Pdu().org(ouiZorven, 1, bytes({0x0f, 0xff})),
        "Error: ZTP boot VLAN is invalid (ztpBootVlan=4095)"},
       {Pdu().org(ouiZorven, 1, bytes({0x00, 0x00})),
        "Error: ZTP boot VLAN is invalid (ztpBootVlan=0)"},
       {Pdu().tlv(6, "cut").cut(2), "Error: frame ended during optional TLV", true},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.trace);
      auto frame = [&](bool withBadTlv) {
         Pdu p = neighbour().tlv(5, "before");
         if (withBadTlv) p.raw(c.tlv);
         return c.last ? p : p.tlv(4, "after");
      };
      Vel::Trace::configure("LldpProtocol/*");
      ASSERT_TRUE(rx(frame(false)));
      const std::string clean = snapshot(*stored());
      for (const bool traceOn : {true, false, false}) {
         Vel::Trace::configure(traceOn ? "LldpProtocol/*" : "");
         const uint32_t discarded = port->rxTLVsDiscardedTotal();
         const uint32_t errors = port->rxFramesErrors();
         auto r = rx(frame(true));
         ASSERT_TRUE(r);
         EXPECT_EQ(snapshot(*r), clean);
         EXPECT_EQ(port->rxTLVsDiscardedTotal(), discarded + 1);
         EXPECT_EQ(port->rxFramesErrors(), errors + 1);
      }
      EXPECT_TRUE(traced(c.trace));
   }
   const uint32_t discarded = port->rxTLVsDiscardedTotal();
   const uint32_t errors = port->rxFramesErrors();
   ASSERT_TRUE(rx(neighbour(2).raw(cases[0].tlv).raw(cases[1].tlv).tlv(5, "kept")));
   EXPECT_EQ(stored(2)->sysName().value(), "kept");
   EXPECT_EQ(port->rxTLVsDiscardedTotal(), discarded + 2);
   EXPECT_EQ(port->rxFramesErrors(), errors + 1);
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 0u);
   EXPECT_TRUE(traced("Frame had an error"));
}

// ---------------------------------------------------------------------------------------
// Updates of a known neighbour.

// Of a collection, what is no longer sent goes (of a repeated organizationally specific
// TLV, the later indexes); an attribute falls back to its default.
TEST_F(LldpProtocolRxTest, WhatTheNeighbourStopsSendingIsCleared) {
   rx(neighbour()
          .tlv(4, "uplink")
          .tlv(8, mgmtAddr({10, 0, 0, 1}, 1, {}))
          .org(ouiDot1, 1, bytes({0x00, 0x64}))
          .org(0x334455, 44, bytes({'a'}))
          .org(0x334455, 44, bytes({'b'})));
   fakeNow = 1030;
   Vel::Trace::ringClear();
   auto r = rx(neighbour().tlv(8, mgmtAddr({10, 0, 0, 2}, 1, {})).org(0x334455, 44, bytes({'a'})));
   EXPECT_TRUE(r->portDesc().empty());
   EXPECT_FALSE(r->portVlanIdTlvReceived());
   EXPECT_EQ(r->portVlanId(), 0);
   ASSERT_EQ(r->managementAddress().size(), 1u);
   EXPECT_TRUE(r->managementAddress(ipv4Key(10, 0, 0, 2)));
   ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
   EXPECT_TRUE(r->unknownOrgDefTlv(
       Lldp::UnknownOrgDefTlv::Key({.oui = Lldp::Oui(0x334455), .subtype = 44, .index = 1})));
   EXPECT_TRUE(
       traced("Member UnknownOrgDefTlvKey(oui=33-44-55, subtype=44, index=2) of "
              "collection unknownOrgDefTlv deleted"));
   EXPECT_EQ(r->lastChangeTime(), 1030);
   EXPECT_EQ(status->remTablesLastChangeTime(), 1030);
   EXPECT_TRUE(traced("Attribute portDesc changed (was: uplink, now: )"));
   // Within a collection, removals come before additions; attributes keep their order.
   const std::string prefix = "Member ManagementAddressKey(subtype=1, address=\\x0a\\x00\\x00\\x0";
   const size_t deleted = traceAt(prefix + "1) of collection managementAddress deleted");
   const size_t added = traceAt(prefix + "2) of collection managementAddress added/updated");
   ASSERT_NE(deleted, std::string::npos);
   ASSERT_NE(added, std::string::npos);
   EXPECT_LT(traceAt("Attribute portDesc changed (was: uplink, now: )"), deleted);
   EXPECT_LT(deleted, added);
   EXPECT_TRUE(traced("Something changed -- updating lastChangeTime to 1030"));
}

// ---------------------------------------------------------------------------------------
// Creation: index and limit.

// Past its signed maximum the index starts again at 1, and a new neighbour never takes an
// index still in use: the counter moves on past it, wrapping again if need be.
TEST_F(LldpProtocolRxTest, IndexWrapsToOneAndSkipsIndexesInUse) {
   port->nextRemoteSystemIndexIs(INT32_MAX - 1);
   EXPECT_EQ(rx(neighbour(1))->index(), INT32_MAX);
   auto r = rx(neighbour(2));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->index(), 1);
   EXPECT_EQ(port->nextRemoteSystemIndex(), 1u);
   EXPECT_EQ(port->remoteSystem(1).ptr(), stored(2).ptr());
   EXPECT_TRUE(traced("Index for RemoteSystem tables has wrapped"));

   // Indexes from before the wrap are still in use: INT32_MAX, 1, 3 and 4; 2 is free again.
   EXPECT_EQ(rx(neighbour(3))->index(), 2);
   EXPECT_EQ(rx(neighbour(4))->index(), 3);
   EXPECT_EQ(rx(neighbour(5))->index(), 4);
   EXPECT_FALSE(rx(neighbour(3, 0)));
   auto indexOfNew = [&](int n) {
      const auto created = rx(neighbour(n).tlv(5, "n" + std::to_string(n)));
      return created ? created->index() : 0;
   };
   port->nextRemoteSystemIndexIs(INT32_MAX - 1);
   Vel::Trace::ringClear();
   EXPECT_EQ(indexOfNew(6), 2);
   EXPECT_LT(traceAt("Index 2147483647 still in use: skipped"),
             traceAt("Index for RemoteSystem tables has wrapped"));
   EXPECT_LT(traceAt("Index for RemoteSystem tables has wrapped"),
             traceAt("Index 1 still in use: skipped"));
   EXPECT_NE(traceAt("Index 1 still in use: skipped"), std::string::npos);
   EXPECT_EQ(indexOfNew(7), 5);  // past 3 and 4
   EXPECT_EQ(port->nextRemoteSystemIndex(), 5u);

   // Every neighbour kept its own record, filed under its own index.
   EXPECT_EQ(port->remoteSystem().size(), 6u);
   EXPECT_EQ(port->remoteSystemByMsap().size(), 6u);
   for (const auto& [index, remote] : port->remoteSystem()) {
      EXPECT_EQ(remote->index(), index);
      EXPECT_EQ(port->remoteSystemByMsap(remote->msap()), remote);
   }
   const std::pair<int, int> indexOf[] = {{1, INT32_MAX}, {2, 1}, {4, 3}, {5, 4}, {6, 2}, {7, 5}};
   for (const auto& [n, index] : indexOf) {
      ASSERT_TRUE(stored(n)) << "neighbour " << n;
      EXPECT_EQ(stored(n)->index(), index) << "neighbour " << n;
      EXPECT_EQ(stored(n)->sysName().value(), n < 6 ? "" : "n" + std::to_string(n));
   }
   EXPECT_EQ(status->remTablesInserts(), 7u);
}

// A full table refuses new neighbours (counted, logged once a minute) and still updates
// the ones it holds; raised, it holds a flood of distinct neighbours, each frame either
// stored or counted.
TEST_F(LldpProtocolRxTest, NeighbourLimitRefusesCountsAndLogsOnce) {
   Vel::Trace::configure("");               // thousands of frames
   Vel::Log::clockIs(+[] { return 2e9; });  // a fixed time: every refusal in one minute
   config->remoteSystemLimitIs(2);
   ASSERT_TRUE(rx(neighbour(1)));
   ASSERT_TRUE(rx(neighbour(2)));
   logs.clear();
   for (int n = 3; n < 10; ++n) EXPECT_FALSE(rx(neighbour(n).tlv(7, bytes({0, 4, 0, 0x14}))));
   EXPECT_FALSE(stored(3));
   EXPECT_EQ(port->remoteSystem().size(), 2u);
   EXPECT_EQ(port->rxNeighborsRefused(), 7u);
   EXPECT_EQ(port->rxFramesDiscardedTotal(), 7u);
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(status->remTablesInserts(), 2u);
   ASSERT_EQ(logs.size(), 1u);
   EXPECT_EQ(logs[0].text,
             "LLDP neighbor table full on interface Ethernet1 (limit 2 neighbors): new neighbor "
             "refused");
   auto r = rx(neighbour(1).tlv(5, "still updated"));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->sysName().value(), "still updated");

   config->remoteSystemLimitIs(5000);
   const uint32_t framesBefore = port->rxFramesTotal();
   for (int n = 1000; n < 4000; ++n) rx(neighbour(n));
   EXPECT_EQ(port->remoteSystem().size(), 3002u);
   EXPECT_EQ(port->remoteSystemByMsap().size(), 3002u);
   EXPECT_EQ(port->rxFramesTotal() - framesBefore, 3000u);
   EXPECT_EQ(port->rxNeighborsRefused(), 7u);
   config->remoteSystemLimitIs(3100);
   for (int n = 5000; n < 5200; ++n) rx(neighbour(n));
   EXPECT_EQ(port->remoteSystem().size(), 3100u);
   EXPECT_EQ(port->rxNeighborsRefused(), 7u + 102u);
   EXPECT_EQ(std::count_if(logs.begin(), logs.end(),
                           [](const auto& m) { return m.key == "LLDP_NEIGHBOR_LIMIT"; }),
             1);  // within the minute
   Vel::Log::clockIs(nullptr);
}

// The limit on all ports together: new neighbours beyond it are refused on whichever port
// they come (counted apart from the port's own limit), and room made by any removal --
// a shutdown frame, a cleared table, a port's table emptied on another path -- is
// room again.
TEST_F(LldpProtocolRxTest, NeighbourLimitAcrossPortsRefusesAndCountsOnEveryPort) {
   Vel::Trace::configure("");
   Vel::Log::clockIs(+[] { return 2e9; });
   auto config2 = Vel::make<Lldp::PortConfig>(Wire::IntfId("Ethernet2"));
   auto port2 = status->portStatusIs(Wire::IntfId("Ethernet2"), 0.0);
   auto rx2 = [&](Pdu pdu) {
      Bytes frame = pdu.data();
      return processRxLldpdu(frame.data(), frame.data() + frame.size(), config2, status, port2,
                             localPort, pamSm, mac);
   };
   config->remoteSystemLimitTotalIs(5);
   config2->remoteSystemLimitTotalIs(5);
   for (int n = 1; n <= 3; ++n) ASSERT_TRUE(rx(neighbour(n)));
   for (int n = 11; n <= 12; ++n) ASSERT_TRUE(rx2(neighbour(n)));
   logs.clear();
   EXPECT_FALSE(rx(neighbour(4)));
   EXPECT_FALSE(rx2(neighbour(13)));
   EXPECT_FALSE(rx2(neighbour(14)));
   EXPECT_EQ(port->rxNeighborsRefusedTotalLimit(), 1u);
   EXPECT_EQ(port2->rxNeighborsRefusedTotalLimit(), 2u);
   EXPECT_EQ(port2->rxFramesDiscardedTotal(), 2u);
   EXPECT_EQ(port2->rxNeighborsRefused(), 0u);
   EXPECT_EQ(port2->rxFramesErrors(), 0u);
   EXPECT_EQ(port->remoteSystem().size() + port2->remoteSystem().size(), 5u);
   ASSERT_EQ(logs.size(), 1u);  // once a minute
   EXPECT_EQ(logs[0].key, "LLDP_NEIGHBOR_LIMIT_TOTAL");
   EXPECT_EQ(logs[0].text,
             "LLDP neighbor tables full (limit 5 neighbors on all interfaces): new neighbor on "
             "interface Ethernet1 refused");
   // Known neighbours are still refreshed and updated.
   auto r = rx2(neighbour(11).tlv(5, "still updated"));
   ASSERT_TRUE(r);
   EXPECT_EQ(r->sysName().value(), "still updated");

   // A shutdown frame on one port makes room on the other.
   EXPECT_FALSE(rx(neighbour(1, 0)));
   EXPECT_TRUE(rx2(neighbour(13)));
   EXPECT_FALSE(rx2(neighbour(14)));
   // So does a table emptied without the processor (a clear request, a link going down).
   port->remoteSystemByMsapDelAll();
   port->remoteSystemDelAll();
   for (int n = 14; n <= 15; ++n) EXPECT_TRUE(rx2(neighbour(n)));
   EXPECT_FALSE(rx2(neighbour(16)));
   EXPECT_EQ(port2->remoteSystem().size(), 5u);
   // The port's own limit still applies below the total, counted as its own.
   config2->remoteSystemLimitTotalIs(100);
   config2->remoteSystemLimitIs(6);
   EXPECT_TRUE(rx2(neighbour(16)));
   EXPECT_FALSE(rx2(neighbour(17)));
   EXPECT_EQ(port2->rxNeighborsRefused(), 1u);
   EXPECT_EQ(port2->rxNeighborsRefusedTotalLimit(), 4u);
   Vel::Log::clockIs(nullptr);
}

// ---------------------------------------------------------------------------------------
// A changed power request hurries the next transmission.

TEST_F(LldpProtocolRxTest, PowerRequestChangeNudgesTransmitMachine) {
   using Lldp::Agent::Protocol::txFsmIdle;
   using Lldp::Agent::Protocol::txFsmTxDelay;
   auto request = [](int power) {  // IEEE 802.3at Power via MDI from a PD
      return neighbour().org(ouiDot3, 2,
                             bytes({0x00, 0x01, 0x04, 0x53, power >> 8, power & 0xff, 0, 0}));
   };
   config->poeAllocatedPowerFallbackIs(15400);
   pamSm->txFsmStateIs(txFsmIdle);
   rx(request(130));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // no PoE record on the port yet

   auto poe = localPort->initilizeLocalPortPoeInfo();
   rx(request(130));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // same request
   rx(request(140));
   EXPECT_EQ(pamSm->txFsmState(), txFsmTxDelay);

   pamSm->txFsmStateIs(txFsmIdle);
   poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus({.state = 4}));
   rx(request(150));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // the port is in fault

   poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus({.state = 3}));
   config->poeAllocatedPowerFallbackIs(0);
   rx(request(160));
   EXPECT_EQ(pamSm->txFsmState(), txFsmIdle);  // no fallback configured

   config->poeAllocatedPowerFallbackIs(15400);
   rx(request(170));
   EXPECT_EQ(pamSm->txFsmState(), txFsmTxDelay);
}

// ---------------------------------------------------------------------------------------
// Refreshing a known neighbour must not touch the heap.

TEST_F(LldpProtocolRxTest, RefreshDoesNotAllocate) {
   Vel::Trace::configure("");
   // Every TLV our builder sends, an unknown organizationally specific one among them.
   TestSupport::FullPort full;
   Bytes frame(1500);
   frame.resize(size_t(full.build(frame.data(), frame.data() + frame.size()) - frame.data()));
   ASSERT_TRUE(rx(frame));
   {
      TestSupport::AllocScope scope;
      rx(frame);
      EXPECT_EQ(scope.count(), 0u);
   }
   EXPECT_EQ(port->rxFramesErrors(), 0u);
   EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 2u);
}

// ---------------------------------------------------------------------------------------
// Repeated LLDPDUs. With the decoders' traces off, a known neighbour that sends the same
// optional TLVs again is not decoded; these check that the outcome is what a full decode
// gives, frame after frame.

// A refresh with the same optional TLVs, decoded in full (decoders traced) or taken as
// repeated (traces off): the times, the source MAC and the TTL move, nothing else does.
TEST_F(LldpProtocolRxTest, RepeatedLldpduRefreshesWithoutChange) {
   for (const bool decoded : {true, false}) {
      SCOPED_TRACE(decoded ? "decoded" : "repeated");
      Vel::Trace::configure(decoded ? "LldpProtocol/*" : "");
      const int n = decoded ? 1 : 2;
      auto frame = [n](int ttl) {
         return neighbour(n, ttl)
             .tlv(5, "switch")
             .tlv(8, mgmtAddr({10, 0, 0, 1}, 1, {}))
             .org(0x334455, 44, bytes({'a'}))
             .end();
      };
      fakeNow = 1000;
      auto r = rx(frame(120));
      ASSERT_TRUE(r);
      RemoteSystemWatcher watcher;
      watcher.notifierIs(r);
      const uint32_t unrecognized = port->rxTLVsUnrecognizedTotal();
      fakeNow = 1030;
      Vel::Trace::ringClear();
      mac = *Wire::EthAddr::parse(decoded ? "00:1c:73:00:00:09" : "00:1c:73:00:00:0a");
      EXPECT_EQ(rx(frame(60)), r);
      EXPECT_EQ(r->lastRefreshTime(), 1030);
      EXPECT_EQ(r->expiryTime(), 1090);
      EXPECT_EQ(r->ttl(), 60);  // a new TTL is not a change
      EXPECT_EQ(r->ethAddr(), mac);
      EXPECT_EQ(r->lastChangeTime(), 1000);
      EXPECT_EQ(r->creationTime(), 1000);
      EXPECT_EQ(r->sysName().value(), "switch");
      EXPECT_EQ(r->managementAddress().size(), 1u);
      EXPECT_EQ(status->remTablesLastChangeTime(), 1000);
      EXPECT_EQ(status->lastPacketParsedTime(), 1030);
      EXPECT_EQ(status->remTablesInserts(), uint32_t(n));
      EXPECT_EQ(watcher.ttl, 1);
      EXPECT_EQ(watcher.sysName + watcher.unknownOrgDefTlv, 0);
      // Unknown TLVs are counted on every frame, as a decode counts them.
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), unrecognized + 1);
      EXPECT_EQ(port->rxFramesErrors(), 0u);
      EXPECT_EQ(traced("System Name: switch"), decoded);
      EXPECT_EQ(traced("Updating RemoteSystem"), decoded);
   }
}

TEST_F(LldpProtocolRxTest, AlternatingLldpdusAreEachAppliedInFull) {
   Vel::Trace::configure("");
   auto a = [] { return neighbour().tlv(5, "alpha").tlv(4, "uplink").end(); };
   auto b = [] { return neighbour().tlv(5, "bravo").end(); };
   auto r = rx(a());
   ASSERT_TRUE(r);
   for (int round = 1; round <= 3; ++round) {
      fakeNow = 1000 + 10 * round;
      rx(b());
      EXPECT_EQ(r->sysName().value(), "bravo");
      EXPECT_TRUE(r->portDesc().empty());
      EXPECT_EQ(r->lastChangeTime(), fakeNow);
      rx(b());  // repeated: nothing changes
      EXPECT_EQ(r->lastChangeTime(), fakeNow);
      fakeNow += 5;
      rx(a());
      EXPECT_EQ(r->sysName().value(), "alpha");
      EXPECT_EQ(r->portDesc().value(), "uplink");
      EXPECT_EQ(r->lastChangeTime(), fakeNow);
   }
   // A neighbour that left and came back is a new record, filled from its frame.
   rx(neighbour(1, 0));
   ASSERT_FALSE(stored(1));
   auto back = rx(a());
   ASSERT_TRUE(back);
   EXPECT_NE(back, r);
   EXPECT_EQ(back->sysName().value(), "alpha");
   EXPECT_EQ(back->portDesc().value(), "uplink");
}

// Switched off, the boot VLAN TLV is an unknown one under our OUI, and a repeat of the
// frame is counted again.
TEST_F(LldpProtocolRxTest, RepeatedLldpduFollowsTheBootVlanToggle) {
   Vel::Trace::configure("");
   auto frame = [] { return neighbour().org(ouiZorven, 1, bytes({0x00, 0x64})).end(); };
   Lldp::RemoteSystem::PtrConst r;
   {
      TestSupport::ScopedToggle on("LldpBootVlanTlv", true);
      r = rx(frame());
      rx(frame());
      ASSERT_TRUE(r);
      EXPECT_EQ(r->ztpBootVlan(), 100);
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 0u);
   }
   {
      TestSupport::ScopedToggle off("LldpBootVlanTlv", false);
      rx(frame());
      EXPECT_EQ(r->ztpBootVlan(), 0);
      ASSERT_EQ(r->unknownOrgDefTlv().size(), 1u);
      EXPECT_EQ(r->unknownOrgDefTlv().begin()->first.oui(), Lldp::ouiZorven);
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 1u);
      rx(frame());
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), 2u);
   }
}

}  // namespace
