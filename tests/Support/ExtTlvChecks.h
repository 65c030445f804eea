// Checks shared by the tests of the organizationally specific TLVs: the trace lines a
// builder or decoder wrote, the TLVs a builder wrote, and a record's whole state.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include "Framework/Trace.h"
#include "Lldp/LldpProtocol.h"

namespace TestSupport {

// Sends the lines of one trace handle, all levels, to an empty ring while it lives.
struct TraceCapture {
   explicit TraceCapture(const std::string& handle) {
      Vel::Trace::textTraceIs("-");
      Vel::Trace::configure(handle + "/*");
      Vel::Trace::ringClear();
   }
   ~TraceCapture() { Vel::Trace::configure(""); }
};

// Whether the ring holds `text` at `level`; with `prefix`, a line that starts with it at
// any level.
inline bool traced(std::string_view text, int level, bool prefix = false) {
   for (const auto& e : Vel::Trace::ringSnapshot()) {
      if (prefix ? e.text.starts_with(text) : e.text == text && e.level == level) return true;
   }
   return false;
}

// Everything a record holds, as it prints: equal snapshots mean an untouched record.
template <class Record>
std::string snapshot(const Record& r) {
   std::ostringstream os;
   os << r;
   return os.str();
}

struct OrgTlv {
   uint32_t oui;
   int subtype;
   const char* info;  // after OUI and subtype
   int infoLen;
};

// Calls f(OrgTlv) for each TLV in [begin, end), which must all be organizationally
// specific and fill the range exactly. Does not allocate.
template <class F>
void forEachOrgTlv(const char* begin, const char* end, F f) {
   int type = 0;
   int len = 0;
   const char* info = nullptr;
   while (begin < end) {
      const bool ok = extractTlv(&begin, end, &type, &len, &info);
      EXPECT_TRUE(ok);
      EXPECT_EQ(type, Lldp::tlvTypeOrgSpecific);
      if (!ok || type != Lldp::tlvTypeOrgSpecific || len < Lldp::orgDefHeaderLen) break;
      f(OrgTlv{Lldp::Be::get24(info), uint8_t(info[3]), info + Lldp::orgDefHeaderLen,
               len - Lldp::orgDefHeaderLen});
   }
   EXPECT_EQ(begin, end);
}

}  // namespace TestSupport
