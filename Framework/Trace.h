// Tracing. Each module owns one handle with ten levels (0 errors and malformed input,
// 2 dropped frames and table events, 4 per-frame events, 6 state transitions and each
// TLV, 8 function entry and per-attribute detail). A statement whose level is off costs
// one test of a bit in the handle's mask and formats nothing.
//
// Levels are switched on from the environment, LLDP_TRACE="Handle/levels,...":
//    LLDP_TRACE="LldpProtocol/0-6,LldpMed,*/0"
// A handle name may end in '*'; levels are '*', a digit, a range "a-b" or a string of
// digits ("0246"); no levels means all. Enabled lines go to the text trace (the file
// named by LLDP_TRACE_FILE, standard error when unset) and to the ring log: an in-memory
// ring of the most recent lines that, once the program names it (ringLogIs), is also
// written to the file of that name in the directory RINGLOGDIR.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Vel::Trace {

class Handle {
public:
   explicit Handle(const char* name);
   Handle(const Handle&) = delete;
   Handle& operator=(const Handle&) = delete;
   ~Handle();

   bool enabled(int level) const { return (mask_ >> level) & 1u; }
   const char* name() const { return name_; }
   uint16_t mask() const { return mask_; }
   void maskIs(uint16_t m) { mask_ = m; }
   void write(int level, std::string_view text) const;

private:
   const char* name_;
   uint16_t mask_ = 0;
};

// Applies a LLDP_TRACE-style setting to every handle; returns false if it is malformed
// (in which case nothing changes).
bool configure(std::string_view setting);
// Where enabled lines are written as text; an empty path means standard error, "-" none.
void textTraceIs(const std::string& path);

// Names the ring log; a "%d" in the name stands for the process ID. When the environment
// variable RINGLOGDIR names a directory, every enabled line is also appended to the file
// of that name there (which starts over once it passes ringLogFileLimit bytes); without
// it the ring stays in memory. An empty name closes the file.
void ringLogIs(const std::string& name);
// The ring log's name with the process ID in place, and its file ("" while there is none).
const std::string& ringLogName();
const std::string& ringLogPath();
constexpr long ringLogFileLimit = 64L << 20;

struct RingEntry {
   double time;
   const char* handle;
   int level;
   std::string text;
};
// The most recent lines, oldest first (the ring keeps a fixed number of lines).
std::vector<RingEntry> ringSnapshot();
void ringClear();

// Formats one trace line and hands it to the handle when it goes out of scope.
class Line {
public:
   Line(const Handle& h, int level) : h_(h), level_(level) { os_.str(std::string()); }
   ~Line() { h_.write(level_, os_.view()); }
   std::ostream& os() { return os_; }

private:
   const Handle& h_;
   int level_;
   std::ostringstream os_;
};

}  // namespace Vel::Trace

#define VEL_TRACE(handle, level, expr)                        \
   do {                                                       \
      if (__builtin_expect((handle).enabled(level), 0)) {     \
         ::Vel::Trace::Line velTraceLine_((handle), (level)); \
         velTraceLine_.os() << expr;                          \
      }                                                       \
   } while (0)
