#include "fuzz/RxHarness.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pkt.h"

namespace Fuzz {

namespace {

Vel::EventLoop& loop() {
   return Vel::EventLoop::instance();
}

constexpr Vel::Seconds startTime = 1000;

Vel::Seconds stepSeconds(uint8_t step) {
   return step < 64 ? step * 0.25 : (step - 63) * 10.0;
}

}  // namespace

RxHarness::RxHarness(uint32_t limit) : limit_(limit) {
   Vel::Log::syslogIs(false);
   Vel::Log::sinkIs([](const Vel::Log::Message&) {});
   Vel::Trace::textTraceIs("-");
   loop().virtualTimeIs(true, startTime);

   config_ = Vel::make<Lldp::Config>();
   localSystem_ = Vel::make<Lldp::LocalSystem>();
   status_ = Vel::make<Lldp::Status>();
   intfDir_ = Vel::make<Interface::EthPhyIntfStatusDir>();
   localSystem_->chassisIdentifierIs(
       Lldp::ChassisIdentifier({.subtype = 4, .value = std::string("\x02\0\0\0\0\x10", 6)}));
   localSystem_->sysNameIs("fuzz");
   root_ = Vel::make<Lldp::Agent::Protocol::Root>(config_, localSystem_, status_);
   root_->ethPhyIntfStatusDirIs(intfDir_);

   for (size_t i = 0; i < portCount; ++i) {
      auto p = std::make_unique<Port>();
      p->intf = Wire::IntfId("Ethernet" + std::to_string(i + 1));
      p->localPort = localSystem_->localPortIs(p->intf);
      p->localPort->portIdentifierIs(
          Lldp::PortIdentifier({.subtype = 5, .value = "Ethernet" + std::to_string(i + 1)}));
      p->config = config_->portConfigIs(p->intf);
      p->config->remoteSystemLimitIs(limit_);
      p->status = status_->portStatusIs(p->intf, 0.0);
      p->intfStatus = intfDir_->intfStatusIs(p->intf);
      const uint8_t mac[6] = {0x02, 0, 0, 0, 0, uint8_t(i + 1)};
      p->intfStatus->addrIs(Wire::EthAddr::fromBytes(mac));
      p->intfStatus->linkStatusIs(Interface::linkStatusUp);
      if (i == 0) {
         // A PoE port with a fallback allocation: a changed power request nudges the
         // transmit machine, so that path is reached too.
         p->config->poeAllocatedPowerFallbackIs(15400);
         auto poe = Vel::make<Lldp::LocalPortPoeInfo>();
         poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus(
             {.state = Environment::Power::PoePortStatus::PortStatus::stateDelivering}));
         p->localPort->localPortPoeInfoIs(poe);
      } else {
         // Receive only: the others cost no transmissions. The last port has a tight
         // rate limit, so that windows fill and end.
         p->config->adminStatusIs(Lldp::adminStatusRxOnly);
         if (i == portCount - 1) p->config->rxRateLimitMaxLldpdusIs(3);
      }
      std::tie(p->near, p->far) = Wire::InMemoryPam::pair(p->intf, Wire::IntfId("Ethernet99"));
      p->sm = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(p->intf, p->near, root_);
      p->sm->handleInitialized();
      ports_.push_back(std::move(p));
   }
   loop().advanceBy(0);
   lastCounters_ = counters();
}

RxHarness::~RxHarness() {
   for (auto& p : ports_) {
      if (p->sm->initialized()) p->sm->doClose();
   }
   loop().advanceBy(0);
   ports_.clear();
   root_ = nullptr;
   loop().advanceBy(0);
   loop().virtualTimeIs(false);
   Vel::Log::sinkIs(nullptr);
   Vel::Log::syslogIs(true);
}

std::vector<uint8_t> RxHarness::input(const std::vector<uint8_t>& lldpdu, size_t port, uint8_t step,
                                      uint8_t sourceLast) {
   const uint8_t head[15] = {uint8_t(step * portCount + port),
                             0x01,
                             0x80,
                             0xc2,
                             0,
                             0,
                             0x0e,
                             0x02,
                             0,
                             0,
                             0,
                             0,
                             sourceLast,
                             0x88,
                             0xcc};
   std::vector<uint8_t> in(sizeof head + lldpdu.size());
   std::memcpy(in.data(), head, sizeof head);
   if (!lldpdu.empty()) std::memcpy(in.data() + sizeof head, lldpdu.data(), lldpdu.size());
   return in;
}

void RxHarness::feed(const uint8_t* data, size_t size) {
   if (size == 0) return;
   Port& port = *ports_[data[0] % portCount];
   const uint8_t step = uint8_t(data[0] / portCount);
   const size_t frameBytes = std::min(size - 1, maxFrameBytes);
   Vel::Ptr<Wire::Pkt> pkt = Wire::PktMan::instance().newPkt();
   if (pkt && frameBytes) {
      std::memcpy(pkt->dataAppend(frameBytes), data + 1, frameBytes);
      port.far->txPktIs(pkt);
   }
   loop().advanceBy(0);
   loop().advanceBy(stepSeconds(step));
}

void RxHarness::replayCorpus() {
   const std::filesystem::path dir =
       std::filesystem::path(LLDP_SOURCE_DIR) / "fuzz" / "corpus" / "rx";
   std::vector<std::filesystem::path> inputs;
   if (std::filesystem::is_directory(dir)) {
      for (const auto& entry : std::filesystem::directory_iterator(dir)) {
         inputs.push_back(entry.path());
      }
   }
   std::sort(inputs.begin(), inputs.end());
   for (const auto& path : inputs) {
      std::ifstream in(path, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
      if (bytes.empty()) continue;
      bytes[0] = uint8_t(bytes[0] % portCount);
      feed(bytes.data(), bytes.size());
   }
   lastCounters_ = counters();
}

std::vector<uint64_t> RxHarness::counters() const {
   std::vector<uint64_t> c{status_->remTablesInserts(), status_->remTablesDeletes(),
                           status_->remTablesDrops(), status_->remTablesAgeouts()};
   for (const auto& p : ports_) {
      const Lldp::PortStatus& s = *p->status;
      for (uint64_t v : {s.rxFramesTotal(), s.rxFramesDiscardedTotal(), s.rxFramesErrors(),
                         s.rxTLVsDiscardedTotal(), s.rxTLVsUnrecognizedTotal(), s.rxAgeoutsTotal(),
                         s.rxLldpdusRateLimited(), s.rxNeighborsRefused(), s.txFramesTotal()}) {
         c.push_back(v);
      }
   }
   return c;
}

std::string RxHarness::portInconsistency(const Port& port) const {
   const Lldp::PortStatus& ps = *port.status;
   const size_t stored = ps.remoteSystem().size();
   if (stored > limit_) return "more neighbours than the limit";
   if (ps.remoteSystemByMsap().size() != stored) return "MSAP index and table differ in size";
   const Vel::Seconds now = loop().now();
   for (const auto& [index, remote] : ps.remoteSystem()) {
      if (remote->index() != index) return "a neighbour is filed under another index";
      if (ps.remoteSystemByMsap(remote->msap()) != remote) {
         return "a neighbour is missing from the MSAP index";
      }
      if (remote->ttl() == 0) return "a neighbour with a time to live of 0 is stored";
      if (remote->expiryTime() != remote->lastRefreshTime() + remote->ttl()) {
         return "expiry time is not refresh time plus time to live";
      }
      if (remote->expiryTime() <= now) return "a neighbour outlived its expiry";
      // Every entry comes from a TLV of at least two bytes of one frame.
      const size_t entries = remote->managementAddress().size() + remote->unknownTlv().size() +
                             remote->unknownOrgDefTlv().size() +
                             remote->portAndProtocolVlan().size() + remote->vlanName().size() +
                             remote->protocolIdentityInfo().size() +
                             remote->networkPolicyTlv().size();
      if (entries > maxFrameBytes / 2)
         return "a neighbour holds more entries than a frame has TLVs";
      if (remote->rxCache().optionalTlvs.value().size() > maxFrameBytes) {
         return "a neighbour keeps more bytes than a frame has";
      }
   }
   return {};
}

std::string RxHarness::inconsistency() {
   size_t stored = 0;
   for (const auto& p : ports_) {
      if (std::string wrong = portInconsistency(*p); !wrong.empty()) {
         return std::string(p->intf.name()) + ": " + wrong;
      }
      stored += p->status->remoteSystem().size();
   }
   if (status_->remTablesInserts() - status_->remTablesDeletes() != stored) {
      return "inserts minus deletes is not the number of neighbours";
   }
   std::vector<uint64_t> now = counters();
   for (size_t i = 0; i < now.size(); ++i) {
      if (now[i] < lastCounters_[i]) return "counter " + std::to_string(i) + " went back";
   }
   lastCounters_ = std::move(now);
   return {};
}

}  // namespace Fuzz
