#include "fuzz/RxHarness.h"

#include "Framework/Log.h"
#include "Framework/Trace.h"

namespace Fuzz {

namespace {

// Time moves on with every frame, so change times and ageing values vary.
double fuzzNow = 1000;
double fuzzClock() {
   return fuzzNow;
}

}  // namespace

RxHarness::RxHarness() {
   Lldp::clockIs(fuzzClock);
   Vel::Log::syslogIs(false);
   Vel::Trace::textTraceIs("-");
   config_ = Vel::make<Lldp::PortConfig>(intf_);
   config_->remoteSystemLimitIs(neighbourLimit);
   // A PoE port with a fallback allocation: a changed power request nudges the transmit
   // machine, so that path is reached too.
   config_->poeAllocatedPowerFallbackIs(15400);
   status_ = Vel::make<Lldp::Status>();
   port_ = status_->portStatusIs(intf_, 0.0);
   localPort_ = Vel::make<Lldp::LocalPort>(intf_);
   auto poe = Vel::make<Lldp::LocalPortPoeInfo>();
   poe->poePortStatusIs(Environment::Power::PoePortStatus::PortStatus(
       {.state = Environment::Power::PoePortStatus::PortStatus::stateDelivering}));
   localPort_->localPortPoeInfoIs(poe);
   pamSm_ = Vel::make<Lldp::Agent::Protocol::LldpPamSm>(intf_);
}

RxHarness::~RxHarness() {
   Lldp::clockIs(nullptr);
   Vel::Log::syslogIs(true);
}

void RxHarness::feed(const uint8_t* data, size_t size) {
   fuzzNow += 1;
   frame_.assign(data, data + size);
   processRxLldpdu(frame_.data(), frame_.data() + frame_.size(), config_, status_, port_,
                   localPort_, pamSm_, Wire::EthAddr());
}

std::string RxHarness::inconsistency() const {
   const size_t stored = port_->remoteSystem().size();
   if (stored > neighbourLimit) return "more neighbours than the limit";
   if (port_->remoteSystemByMsap().size() != stored) return "MSAP index and table differ in size";
   if (status_->remTablesInserts() - status_->remTablesDeletes() != stored) {
      return "inserts minus deletes is not the table size";
   }
   for (const auto& [index, remote] : port_->remoteSystem()) {
      if (remote->index() != index) return "a neighbour is filed under another index";
      if (port_->remoteSystemByMsap(remote->msap()) != remote) {
         return "a neighbour is missing from the MSAP index";
      }
      if (remote->ttl() == 0) return "a neighbour with a time to live of 0 is stored";
      if (remote->expiryTime() != remote->lastRefreshTime() + remote->ttl()) {
         return "expiry time is not refresh time plus time to live";
      }
   }
   return {};
}

}  // namespace Fuzz
