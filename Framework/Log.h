// Log facility: process-wide log handles, each with a key, a syslog severity, a printf-style
// message format, an explanation, a recommended action and a rate-limit interval.
// Messages go to syslog (with key and severity) and, when the process runs in the
// foreground, to standard error. A handle with a rate limit logs at most once per interval
// and says, when it next logs, how many messages it suppressed. Tests capture messages
// with a sink.
//
// Every destination receives the line "KEY: text", for example
//    LLDP_NEIGHBOR_NEW: LLDP neighbor with chassisId 00:1c:73:00:00:01 and portId ...
// syslog gets it at the handle's severity (the process does not call openlog, so the
// program name and facility are the C library's defaults); the sink gets key, severity and
// text separately.
//
// Arguments are typed. log() records each argument with its type and the formatter reads
// the value as the conversion in the format asks for it, so a mismatch between the two can
// never read the wrong bytes: a 64-bit count given to "%d" prints the full count, a
// std::string_view (or anything whose name() or value() is a string view, such as an
// interface identifier or a FixedString) given to "%s" prints exactly its bytes, and a
// missing argument prints nothing. The formatted text lives in a fixed buffer on the
// stack (longer texts are cut); nothing is allocated unless a sink is set.
//
// Rate limit: a handle with an interval above zero emits a call only when at least the
// interval has passed since its last emitted message; other calls are counted, and the
// next emitted message ends with " (N similar messages suppressed)". Handles are used from
// the agent's single event loop and are not synchronized.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Vel::Log {

struct Message {
   std::string key;
   int severity;
   std::string text;  // the formatted message, with any "(N similar messages suppressed)" note
};

// A string argument: its bytes, not necessarily terminated.
struct StrRef {
   const char* data;
   size_t size;
};
// One argument of a log call, as the formatter sees it.
struct Arg {
   enum Kind : uint8_t { argNone, argSigned, argUnsigned, argDouble, argString, argPointer };
   Kind kind = argNone;
   union {
      long long i;
      unsigned long long u;
      double d;
      const void* p;
      StrRef s;
   };
   Arg() : i(0) {}
};

namespace Impl {

template <typename T>
concept NamedView = requires(const T& t) {
   { t.name() } -> std::same_as<std::string_view>;
};
template <typename T>
concept ValuedView = requires(const T& t) {
   { t.value() } -> std::same_as<std::string_view>;
};

template <typename T>
Arg toArg(const T& v) {
   Arg a;
   if constexpr (std::is_same_v<T, bool>) {
      a.kind = Arg::argSigned;
      a.i = v ? 1 : 0;
   } else if constexpr (std::is_enum_v<T>) {
      return toArg(static_cast<std::underlying_type_t<T>>(v));
   } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
      a.kind = Arg::argSigned;
      a.i = v;
   } else if constexpr (std::is_integral_v<T>) {
      a.kind = Arg::argUnsigned;
      a.u = v;
   } else if constexpr (std::is_floating_point_v<T>) {
      a.kind = Arg::argDouble;
      a.d = static_cast<double>(v);
   } else if constexpr (std::is_same_v<std::decay_t<T>, const char*> ||
                        std::is_same_v<std::decay_t<T>, char*>) {
      const char* p = v;
      a.kind = Arg::argString;
      a.s.data = p != nullptr ? p : "(null)";
      a.s.size = std::char_traits<char>::length(a.s.data);
   } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
      a.kind = Arg::argString;
      a.s.data = v.data();
      a.s.size = v.size();
   } else if constexpr (NamedView<T>) {
      std::string_view sv = v.name();
      a.kind = Arg::argString;
      a.s.data = sv.data();
      a.s.size = sv.size();
   } else if constexpr (ValuedView<T>) {
      std::string_view sv = v.value();
      a.kind = Arg::argString;
      a.s.data = sv.data();
      a.s.size = sv.size();
   } else if constexpr (std::is_pointer_v<T>) {
      a.kind = Arg::argPointer;
      a.p = static_cast<const void*>(v);
   } else {
      static_assert(!sizeof(T), "unsupported log argument type");
   }
   return a;
}

}  // namespace Impl

class Handle {
public:
   constexpr Handle(const char* key, int severity, const char* format, const char* explanation,
                    const char* recommendedAction, double rateLimitSeconds)
       : key_(key),
         severity_(severity),
         format_(format),
         explanation_(explanation),
         action_(recommendedAction),
         rateLimit_(rateLimitSeconds) {}
   Handle(const Handle&) = delete;
   Handle& operator=(const Handle&) = delete;

   // Formats with the handle's format and logs, subject to the rate limit. Returns
   // whether the message was emitted.
   template <typename... Args>
   bool log(const Args&... args) const {
      const Arg argv[sizeof...(Args) + 1] = {Impl::toArg(args)...};
      return logArgs(argv, sizeof...(Args));
   }

   const char* key() const { return key_; }
   int severity() const { return severity_; }
   const char* format() const { return format_; }
   const char* explanation() const { return explanation_; }
   const char* recommendedAction() const { return action_; }
   double rateLimit() const { return rateLimit_; }

private:
   bool logArgs(const Arg* argv, size_t argc) const;

   const char* key_;
   int severity_;
   const char* format_;
   const char* explanation_;
   const char* action_;
   double rateLimit_;
   mutable double lastLogged_ = -1e300;
   mutable unsigned suppressed_ = 0;
};

// Formats `format` with the arguments into buf (always terminated when size > 0) and
// returns the length written. Handle::log uses it; it is exposed for tests.
size_t formatArgs(char* buf, size_t size, const char* format, const Arg* argv, size_t argc);

// Where messages go besides syslog. Foreground mode also writes them to standard error.
void foregroundIs(bool foreground);
// Whether messages go to syslog (on by default). Off suits containers without a syslog
// daemon, where every message would otherwise cost a failed connection attempt.
void syslogIs(bool on);
// Captures every emitted message (for tests and the command line); null removes it.
void sinkIs(std::function<void(const Message&)> sink);
// The clock the rate limits use (seconds); defaults to the monotonic clock. Null restores
// the default.
void clockIs(double (*clock)());

}  // namespace Vel::Log
