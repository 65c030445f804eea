// Feeds received frames to the agent's per-port machines over a small switch whose
// neighbour tables persist from input to input, with the loop's timers advancing between
// inputs, and checks the tables' invariants after each. Used by the fuzz target and by
// the test that replays its corpus.
//
// An input is one control byte and one Ethernet frame (destination, source, EtherType or
// tag, payload). The control byte picks the port (its value modulo `portCount`) and how
// far time moves on after the frame (its value divided by `portCount`: steps of a quarter
// of a second up to 16 s, then of 10 s), so neighbours age out and rate-limit windows end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Framework/Wire/Pam.h"
#include "Lldp/LldpPamSm.h"
#include "Lldp/LldpProtocolSm.h"
#include "Records/IntfStatus.h"

namespace Fuzz {

class RxHarness {
public:
   static constexpr size_t portCount = 3;
   // A small neighbour limit, so that inputs reach the full-table path quickly.
   static constexpr uint32_t neighbourLimit = 8;
   // The largest frame a port takes in, and so what one neighbour may hold at most.
   static constexpr size_t maxFrameBytes = 1522;

   // `limit`: the neighbours a port holds at most (a harness that only needs a populated
   // table may keep it smaller, and every request over it cheaper).
   explicit RxHarness(uint32_t limit = neighbourLimit);
   ~RxHarness();
   RxHarness(const RxHarness&) = delete;
   RxHarness& operator=(const RxHarness&) = delete;

   void feed(const uint8_t* data, size_t size);
   // Fills the tables for the other harnesses: every kept input of the receive corpus,
   // delivered without letting time pass, so that nothing ages.
   void replayCorpus();
   // Empty when the tables and counters are consistent, else what is wrong.
   std::string inconsistency();

   // An input that delivers `lldpdu` (the bytes after the EtherType) on port `port` from
   // `source`, and lets `step` (in the control byte's units) pass.
   static std::vector<uint8_t> input(const std::vector<uint8_t>& lldpdu, size_t port = 0,
                                     uint8_t step = 0, uint8_t sourceLast = 1);

   const Wire::IntfId& intf(size_t port) const { return ports_[port]->intf; }
   const Lldp::PortStatus::Ptr& portStatus(size_t port) const { return ports_[port]->status; }
   const Lldp::Status::Ptr& status() const { return status_; }
   const Lldp::Config::Ptr& config() const { return config_; }
   const Lldp::LocalSystem::Ptr& localSystem() const { return localSystem_; }

private:
   struct Port {
      Wire::IntfId intf;
      Lldp::PortConfig::Ptr config;
      Lldp::PortStatus::Ptr status;
      Lldp::LocalPort::Ptr localPort;
      Interface::EthPhyIntfStatus::Ptr intfStatus;
      Vel::Ptr<Wire::InMemoryPam> near, far;
      Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> sm;
   };
   std::string portInconsistency(const Port& port) const;
   std::vector<uint64_t> counters() const;

   Lldp::Config::Ptr config_;
   Lldp::LocalSystem::Ptr localSystem_;
   Lldp::Status::Ptr status_;
   Interface::EthPhyIntfStatusDir::Ptr intfDir_;
   Vel::Ptr<Lldp::Agent::Protocol::Root> root_;
   uint32_t limit_;
   std::vector<std::unique_ptr<Port>> ports_;
   std::vector<uint64_t> lastCounters_;
};

}  // namespace Fuzz
