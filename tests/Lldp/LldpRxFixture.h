// The receive processor's test fixture and frame builders, shared by the receive tests
// and the tests that replay captures from real devices.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Framework/Log.h"
#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"
#include "tests/Support/AllocCounter.h"
#include "tests/Support/Frames.h"
#include "tests/Support/FullPort.h"
#include "tests/Support/ScopedToggle.h"

using TestSupport::Bytes;
using TestSupport::bytes;

namespace LldpRxTest {

inline Vel::Seconds fakeNow = 1000;
inline Vel::Seconds fakeClock() {
   return fakeNow;
}

// Builds an LLDPDU TLV by TLV.
class Pdu {
public:
   Pdu& tlv(int type, std::string_view info) {
      const size_t len = info.size();
      b_.push_back(char((type << 1) | int(len >> 8)));
      b_.push_back(char(len & 0xff));
      b_.insert(b_.end(), info.begin(), info.end());
      return *this;
   }
   Pdu& tlv(int type, const Bytes& info) {
      return tlv(type, std::string_view(info.data(), info.size()));
   }
   Pdu& id(int type, int subtype, std::string_view value) {
      return tlv(type, std::string(1, char(subtype)).append(value));
   }
   Pdu& ttl(int seconds) { return tlv(3, bytes({seconds >> 8, seconds & 0xff})); }
   Pdu& org(uint32_t oui, int subtype, const Bytes& content) {
      Bytes info = bytes({int(oui >> 16), int((oui >> 8) & 0xff), int(oui & 0xff), subtype});
      info.insert(info.end(), content.begin(), content.end());
      return tlv(127, info);
   }
   Pdu& end() { return tlv(0, ""); }
   Pdu& raw(const Pdu& more) {
      b_.insert(b_.end(), more.b_.begin(), more.b_.end());
      return *this;
   }
   Pdu& cut(size_t n) {
      b_.resize(b_.size() - n);
      return *this;
   }
   Bytes& data() { return b_; }

private:
   Bytes b_;
};

inline std::string chassisName(int n) {
   return "chassis" + std::to_string(n);
}
inline std::string portName(int n) {
   return "port" + std::to_string(n);
}

// Chassis ID and Port ID (both locally assigned) and TTL of neighbour `n`.
inline Pdu neighbour(int n = 1, int ttl = 120) {
   return Pdu().id(1, 7, chassisName(n)).id(2, 7, portName(n)).ttl(ttl);
}

inline Lldp::Msap msapOf(int n) {
   Lldp::Msap m;
   m.chassisIdentifierIs(Lldp::ChassisIdentifier({.subtype = 7, .value = chassisName(n)}));
   m.portIdentifierIs(Lldp::PortIdentifier({.subtype = 7, .value = portName(n)}));
   return m;
}

// The information string of an IPv4 Management Address TLV.
inline Bytes mgmtAddr(std::vector<int> addr, uint32_t ifNumber, const Bytes& oid) {
   Bytes b = bytes({int(addr.size()) + 1, 1});
   for (int a : addr) b.push_back(char(a));
   b.push_back(2);
   for (int s : {24, 16, 8, 0}) b.push_back(char(ifNumber >> s));
   b.push_back(char(oid.size()));
   b.insert(b.end(), oid.begin(), oid.end());
   return b;
}
inline Lldp::ManagementAddress::Key ipv4Key(int a, int b, int c, int d) {
   const char addr[4] = {char(a), char(b), char(c), char(d)};
   return Lldp::ManagementAddress::Key({.subtype = 1, .address = std::string_view(addr, 4)});
}
// The MAC address 00:1c:73:00:00:01 as identifier bytes.
inline const std::string macId("\x00\x1c\x73\x00\x00\x01", 6);

// 1.3.6.1.4.1.30065 in BER.
inline const Bytes enterpriseOid = bytes({0x2b, 0x06, 0x01, 0x04, 0x01, 0x81, 0xea, 0x71});

inline constexpr uint32_t ouiDot1 = 0x0080c2;
inline constexpr uint32_t ouiDot3 = 0x00120f;
inline constexpr uint32_t ouiTia = 0x0012bb;
inline constexpr uint32_t ouiZorven = 0x027e51;

template <class Entity>
inline std::string snapshot(const Entity& r) {
   std::ostringstream os;
   os << r;
   return os.str();
}

// Counts the notifications of a record's attributes and collections.
struct RemoteSystemWatcher : Lldp::RemoteSystem::Notifiee {
   int ttl = 0;
   int sysName = 0;
   int unknownOrgDefTlv = 0;
   void ttlChanged() override { ++ttl; }
   void sysNameChanged() override { ++sysName; }
   void unknownOrgDefTlvChanged(const Lldp::UnknownOrgDefTlv::Key&) override { ++unknownOrgDefTlv; }
};

// One organizationally specific TLV of an LLDPDU: its subtype and its content (what follows
// OUI and subtype), to be sent again in a frame of its own.
struct OrgTlv {
   int subtype = 0;
   Bytes content;
};

inline std::vector<OrgTlv> orgTlvs(const Bytes& lldpdu) {
   std::vector<OrgTlv> out;
   const char* pos = lldpdu.data();
   const char* end = lldpdu.data() + lldpdu.size();
   int type = 0;
   int infoLen = 0;
   const char* info = nullptr;
   while (extractTlv(&pos, end, &type, &infoLen, &info) && type != Lldp::tlvTypeEnd) {
      if (type != Lldp::tlvTypeOrgSpecific || infoLen < Lldp::orgDefHeaderLen) continue;
      out.push_back({uint8_t(info[3]), Bytes(info + Lldp::orgDefHeaderLen, info + infoLen)});
   }
   return out;
}

// What the analyser displays of a NUL-padded string: the bytes before the first NUL.
inline std::string_view displayed(std::string_view raw) {
   return raw.substr(0, raw.find('\0'));
}

inline std::string_view caValue(const Lldp::CivicAddress& civic, uint8_t caType) {
   const auto* e = civic.caElements().find(caType);
   return e ? e->caValue().value() : std::string_view("<missing>");
}

class LldpProtocolRxTest : public ::testing::Test {
protected:
   void SetUp() override {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::configure("LldpProtocol/*");
      Vel::Trace::ringClear();
      fakeNow = 1000;
      Lldp::clockIs(fakeClock);
      Vel::Log::sinkIs([this](const Vel::Log::Message& m) { logs.push_back(m); });
      config = Vel::make<Lldp::PortConfig>(Wire::IntfId("Ethernet1"));
      status = Vel::make<Lldp::Status>();
      port = status->portStatusIs(Wire::IntfId("Ethernet1"), 0.0);
      localPort = Vel::make<Lldp::LocalPort>(Wire::IntfId("Ethernet1"));
      pamSm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(Wire::IntfId("Ethernet1"));
   }
   void TearDown() override {
      Vel::Trace::configure("");
      Lldp::clockIs(nullptr);
      Vel::Log::sinkIs(nullptr);
   }

   Lldp::RemoteSystem::PtrConst rx(Bytes& frame) {
      return processRxLldpdu(frame.data(), frame.data() + frame.size(), config, status, port,
                             localPort, pamSm, mac);
   }
   Lldp::RemoteSystem::PtrConst rx(Pdu pdu) { return rx(pdu.data()); }
   // Runs a capture through the processor: no TLV may be dropped, `unrecognized` of them
   // are passed over as unknown.
   Lldp::RemoteSystem::PtrConst replay(const char* file, uint32_t unrecognized) {
      capture =
          TestSupport::lldpduOf(TestSupport::readPcapFrame(TestSupport::interopDir() + "/" + file));
      EXPECT_FALSE(capture.empty())
          << "cannot read " << file << " from " << TestSupport::interopDir();
      auto r = rx(capture);
      EXPECT_EQ(port->rxTLVsDiscardedTotal(), 0u);
      EXPECT_EQ(port->rxTLVsUnrecognizedTotal(), unrecognized);
      return r;
   }
   Lldp::RemoteSystem::PtrConst stored(int n = 1) { return port->remoteSystemByMsap(msapOf(n)); }
   // Position of the first trace line with exactly this text; npos when absent.
   static size_t traceAt(std::string_view text) {
      auto ring = Vel::Trace::ringSnapshot();
      auto it = std::find_if(ring.begin(), ring.end(), [&](auto& e) { return e.text == text; });
      return it == ring.end() ? std::string::npos : size_t(it - ring.begin());
   }
   static bool traced(std::string_view text) { return traceAt(text) != std::string::npos; }

   Lldp::PortConfig::Ptr config;
   Lldp::Status::Ptr status;
   Lldp::PortStatus::Ptr port;
   Lldp::LocalPort::Ptr localPort;
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm;
   Wire::EthAddr mac = *Wire::EthAddr::parse("00:1c:73:aa:bb:cc");
   std::vector<Vel::Log::Message> logs;
   Bytes capture;  // the LLDPDU of the last replay
};

}  // namespace LldpRxTest
