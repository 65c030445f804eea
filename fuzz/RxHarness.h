// Feeds LLDPDUs to the receive processor over one port whose neighbour table persists
// from input to input, and checks the table's invariants after each. Used by the fuzz
// target and by the test that replays the fuzz corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Lldp/LldpProtocol.h"
#include "Lldp/LldpProtocolSm.h"

namespace Fuzz {

class RxHarness {
public:
   // A small neighbour limit, so that inputs reach the full-table path quickly.
   static constexpr uint32_t neighbourLimit = 8;

   RxHarness();
   ~RxHarness();
   // Processes one LLDPDU (the bytes after the EtherType). The processor may not read
   // outside them: they are copied into a buffer of exactly their size.
   void feed(const uint8_t* data, size_t size);
   // Empty when the table and counters are consistent, else what is wrong.
   std::string inconsistency() const;

private:
   Wire::IntfId intf_{"Ethernet1"};
   Lldp::PortConfig::Ptr config_;
   Lldp::Status::Ptr status_;
   Lldp::PortStatus::Ptr port_;
   Lldp::LocalPort::Ptr localPort_;
   Vel::Ptr<Lldp::Agent::Protocol::LldpPamSm> pamSm_;
   std::vector<char> frame_;
};

}  // namespace Fuzz
