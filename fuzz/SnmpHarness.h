// Asks the MIB tree GET, GETNEXT and GETBULK on arbitrary OIDs over a populated neighbour
// table (the receive fuzz corpus, replayed through the receive harness), and checks the
// answers: a GETNEXT answer lies after what was asked, inside our tree, and a GET on it
// gives the same value; a GETBULK walks strictly forwards.
//
// An input is a sequence of requests. Each is an operation byte (its value modulo 3: GET,
// GETNEXT, GETBULK; with 0x04 set the OID is taken below 1.0.8802.1.1.2), for GETBULK a
// repetition count, then the OID: a count of sub-identifiers and the sub-identifiers, each
// in base 128 with the top bit marking more to come, as BER encodes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Framework/Vel/StateDb.h"
#include "Snmp/LldpMibSource.h"
#include "Snmp/MibTree.h"
#include "fuzz/RxHarness.h"

namespace Fuzz {

class SnmpHarness {
public:
   // A GETBULK walks at most this many steps (each checked, and read again with a GET).
   static constexpr size_t maxRepetitions = 32;

   SnmpHarness();
   ~SnmpHarness();
   void feed(const uint8_t* data, size_t size);
   std::string inconsistency() { return std::move(wrong_); }
   // How many neighbours the table holds.
   size_t neighbours() const;

private:
   void request(uint8_t op, uint8_t repetitions, const Snmp::Oid& name);

   RxHarness rx_;
   Vel::StateDb db_;
   std::unique_ptr<Snmp::LldpMibSource> source_;
   std::unique_ptr<Snmp::MibTree> tree_;
   std::string wrong_;
};

}  // namespace Fuzz
