#include "fuzz/SnmpHarness.h"

#include <algorithm>

#include "Framework/Vel/EventLoop.h"

namespace Fuzz {

namespace {

bool sameValue(const Snmp::Value& a, const Snmp::Value& b) {
   if (a.type != b.type) return false;
   switch (a.type) {
      case Snmp::Asn::octetString:
         return a.bytes() == b.bytes();
      case Snmp::Asn::objectId:
         return (a.oid == nullptr) == (b.oid == nullptr) && (!a.oid || *a.oid == *b.oid);
      default:
         return a.num == b.num;
   }
}

// Reads a BER-style sub-identifier; false at the end of the input.
bool readSubId(const uint8_t*& p, const uint8_t* end, uint32_t& out) {
   out = 0;
   for (int i = 0; i < 5; ++i) {
      if (p == end) return false;
      const uint8_t b = *p++;
      out = (out << 7) | (b & 0x7f);
      if (!(b & 0x80)) return true;
   }
   return true;
}

}  // namespace

SnmpHarness::SnmpHarness() {
   rx_.replayCorpus();
   db_.entityIs("l2discovery/lldp/config", rx_.config());
   db_.entityIs("l2discovery/lldp/localSystem", rx_.localSystem());
   auto all = db_.mount<Lldp::AllStatus>("l2discovery/lldp/status/all");
   auto intfs = db_.mount<Interface::AllIntfStatusDir>("interface/status/all");
   for (size_t i = 0; i < RxHarness::portCount; ++i) {
      intfs->intfStatusIs(rx_.intf(i))->ifIndexIs(uint32_t((i + 2) % RxHarness::portCount + 1));
      all->portStatusIs(rx_.intf(i), rx_.portStatus(i));
   }
   source_ = std::make_unique<Snmp::LldpMibSource>(db_, 0);
   tree_ = std::make_unique<Snmp::MibTree>(*source_);
}

SnmpHarness::~SnmpHarness() {
   tree_.reset();
   source_.reset();
}

size_t SnmpHarness::neighbours() const {
   size_t n = 0;
   for (size_t i = 0; i < RxHarness::portCount; ++i) n += rx_.portStatus(i)->remoteSystem().size();
   return n;
}

void SnmpHarness::feed(const uint8_t* data, size_t size) {
   const uint8_t* p = data;
   const uint8_t* end = data + size;
   while (p != end && wrong_.empty()) {
      const uint8_t op = *p++;
      uint8_t repetitions = 0;
      if (op % 3 == 2) {
         if (p == end) return;
         repetitions = *p++;
      }
      if (p == end) return;
      const size_t count = *p++;
      Snmp::Oid name;
      if (op & 0x04) name = Snmp::MibTree::root();
      for (size_t i = 0; i < count; ++i) {
         uint32_t id;
         if (!readSubId(p, end, id)) break;
         name.push(id);
      }
      request(op, repetitions, name);
   }
}

void SnmpHarness::request(uint8_t op, uint8_t repetitions, const Snmp::Oid& name) {
   const Snmp::Oid& root = Snmp::MibTree::root();
   Snmp::Value value;
   if (op % 3 == 0) {
      if (tree_->get(name, value) && !name.startsWith(root)) {
         wrong_ = "GET answered outside the tree: " + name.str();
      }
      return;
   }
   const size_t steps = op % 3 == 1 ? 1 : std::min<size_t>(repetitions, maxRepetitions);
   Snmp::Oid at = name;
   for (size_t i = 0; i < steps; ++i) {
      Snmp::Oid next;
      if (!tree_->getNext(at, next, value)) return;
      if (next.compare(at) <= 0) {
         wrong_ = "GETNEXT from " + at.str() + " went back to " + next.str();
         return;
      }
      if (!next.startsWith(root)) {
         wrong_ = "GETNEXT from " + at.str() + " left the tree: " + next.str();
         return;
      }
      Snmp::Value again;
      if (!tree_->get(next, again)) {
         wrong_ = "GETNEXT gave " + next.str() + ", which GET does not find";
         return;
      }
      if (!sameValue(value, again)) {
         wrong_ = "GETNEXT and GET give different values for " + next.str();
         return;
      }
      at = next;
   }
}

}  // namespace Fuzz
