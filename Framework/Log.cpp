// Log facility: typed formatting into a stack buffer, per-handle rate limits and the
// syslog, standard error and sink destinations.
#include "Framework/Log.h"

#include <syslog.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "Framework/Vel/EventLoop.h"

namespace Vel::Log {

namespace {

// Room for the formatted text; a longer message is cut. The tail is kept free for the
// note that counts suppressed messages.
constexpr size_t textSize = 1024;
constexpr size_t noteSize = 48;
// Bounds on a width or precision taken from a format or an argument, so a silly value
// cannot make one conversion spin over megabytes the buffer could not hold anyway.
constexpr int maxWidth = int(textSize);

bool foreground = false;
bool toSyslog = true;

std::function<void(const Message&)>& sink() {
   static std::function<void(const Message&)> s;
   return s;
}

// Rate limits follow the event loop's activity clock, so they run in virtual time in tests.
double loopNow() {
   return Vel::EventLoop::instance().now();
}

double (*clockFn)() = loopNow;

// Appends to a fixed buffer, dropping whatever does not fit; the buffer stays terminated.
class Out {
public:
   Out(char* buf, size_t size) : buf_(buf), cap_(size - 1) { buf_[0] = '\0'; }

   size_t len() const { return len_; }
   void put(char c) {
      if (len_ < cap_) buf_[len_++] = c;
      buf_[len_] = '\0';
   }
   void append(const char* p, size_t n) {
      n = std::min(n, cap_ - len_);
      memcpy(buf_ + len_, p, n);
      len_ += n;
      buf_[len_] = '\0';
   }
   void pad(size_t n) {
      while (n-- > 0 && len_ < cap_) buf_[len_++] = ' ';
      buf_[len_] = '\0';
   }
   // The pattern is built by the formatter from a fixed set of characters and
   // always matches the type of v.
   template <typename T>
   void print(const char* pattern, T v) {
      if (len_ >= cap_) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
      int r = snprintf(buf_ + len_, cap_ - len_ + 1, pattern, v);
#pragma GCC diagnostic pop
      if (r > 0) len_ += std::min(size_t(r), cap_ - len_);
   }

private:
   char* buf_;
   size_t cap_;
   size_t len_ = 0;
};

// One parsed conversion: flags, width, precision and the conversion character.
struct Conversion {
   bool left = false, plus = false, space = false, alt = false, zero = false;
   int width = -1;
   int precision = -1;
   char conv = 0;

   // Builds a printf conversion pattern for the conversion character c with length modifier
   // `length`, keeping only the flags that are defined for that conversion.
   void build(char* out, const char* length, char c) const {
      bool isSigned = c == 'd' || c == 'i';
      bool isFloat = strchr("fFeEgGaA", c) != nullptr;
      bool isUnsigned = c == 'u' || c == 'x' || c == 'X' || c == 'o';
      char* p = out;
      *p++ = '%';
      if (left) *p++ = '-';
      if (plus && (isSigned || isFloat)) *p++ = '+';
      if (space && (isSigned || isFloat)) *p++ = ' ';
      if (alt && (isFloat || c == 'x' || c == 'X' || c == 'o')) *p++ = '#';
      if (zero && (isSigned || isFloat || isUnsigned)) *p++ = '0';
      if (width >= 0) p += snprintf(p, 8, "%d", width);
      if (precision >= 0 && c != 'p' && c != 'c') p += snprintf(p, 9, ".%d", precision);
      p = stpcpy(p, length);
      *p++ = c;
      *p = '\0';
   }
};

int intOf(const Arg* a) {
   if (a == nullptr) return 0;
   switch (a->kind) {
      case Arg::argSigned:
         return int(std::clamp<long long>(a->i, -maxWidth, maxWidth));
      case Arg::argUnsigned:
         return int(std::min<unsigned long long>(a->u, maxWidth));
      default:
         return 0;
   }
}

long long signedOf(double d) {
   if (std::isnan(d)) return 0;
   if (d >= 9.2e18) return LLONG_MAX;
   if (d <= -9.2e18) return LLONG_MIN;
   return (long long)d;
}

unsigned long long unsignedOf(double d) {
   if (std::isnan(d) || d <= 0) return 0;
   if (d >= 1.8e19) return ULLONG_MAX;
   return (unsigned long long)d;
}

// Writes string bytes with the pattern's width, precision and '-' flag. Control bytes are
// written as "\xNN": string arguments may come from the wire and must not be able to
// start a new log line or drive a terminal.
void putString(Out& out, const Conversion& s, const char* data, size_t size) {
   size_t n = s.precision >= 0 ? std::min(size, size_t(s.precision)) : size;
   size_t padding = s.width > 0 && size_t(s.width) > n ? size_t(s.width) - n : 0;
   if (!s.left) out.pad(padding);
   for (size_t i = 0; i < n; ++i) {
      unsigned char c = static_cast<unsigned char>(data[i]);
      if (c < 0x20 || c == 0x7f) {
         char esc[5];
         snprintf(esc, sizeof esc, "\\x%02x", c);
         out.append(esc, 4);
      } else {
         out.put(char(c));
      }
   }
   if (s.left) out.pad(padding);
}

// Writes an argument in its own natural form, treated as a string for width and
// precision: used when the conversion in the format does not fit the argument.
void putNatural(Out& out, const Conversion& s, const Arg& a) {
   char tmp[64];
   int n = 0;
   switch (a.kind) {
      case Arg::argSigned:
         n = snprintf(tmp, sizeof tmp, "%lld", a.i);
         break;
      case Arg::argUnsigned:
         n = snprintf(tmp, sizeof tmp, "%llu", a.u);
         break;
      case Arg::argDouble:
         n = snprintf(tmp, sizeof tmp, "%g", a.d);
         break;
      case Arg::argPointer:
         n = snprintf(tmp, sizeof tmp, "%p", a.p);
         break;
      case Arg::argString:
         putString(out, s, a.s.data, a.s.size);
         return;
      case Arg::argNone:
         return;
   }
   putString(out, s, tmp, size_t(std::clamp(n, 0, int(sizeof tmp) - 1)));
}

void putSigned(Out& out, const Conversion& s, long long v) {
   char pattern[32];
   s.build(pattern, "ll", s.conv == 'i' ? 'd' : s.conv);
   out.print(pattern, v);
}

void putUnsigned(Out& out, const Conversion& s, char conv, unsigned long long v) {
   char pattern[32];
   s.build(pattern, "ll", conv);
   out.print(pattern, v);
}

void putDouble(Out& out, const Conversion& s, double v) {
   char pattern[32];
   s.build(pattern, "", s.conv);
   out.print(pattern, v);
}

void putArg(Out& out, const Conversion& s, const Arg& a) {
   switch (s.conv) {
      case 'd':
      case 'i':
         if (a.kind == Arg::argSigned) return putSigned(out, s, a.i);
         // A count held in an unsigned 64-bit value prints in full.
         if (a.kind == Arg::argUnsigned) return putUnsigned(out, s, 'u', a.u);
         if (a.kind == Arg::argDouble) return putSigned(out, s, signedOf(a.d));
         return putNatural(out, s, a);
      case 'u':
      case 'x':
      case 'X':
      case 'o':
         if (a.kind == Arg::argUnsigned) return putUnsigned(out, s, s.conv, a.u);
         // As printf reads a negative value for an unsigned conversion.
         if (a.kind == Arg::argSigned) {
            return putUnsigned(out, s, s.conv, static_cast<unsigned long long>(a.i));
         }
         if (a.kind == Arg::argDouble) return putUnsigned(out, s, s.conv, unsignedOf(a.d));
         return putNatural(out, s, a);
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
         if (a.kind == Arg::argDouble) return putDouble(out, s, a.d);
         if (a.kind == Arg::argSigned) return putDouble(out, s, double(a.i));
         if (a.kind == Arg::argUnsigned) return putDouble(out, s, double(a.u));
         return putNatural(out, s, a);
      case 'c':
         if (a.kind == Arg::argSigned || a.kind == Arg::argUnsigned) {
            char c = char(a.kind == Arg::argSigned ? a.i : (long long)a.u);
            return putString(out, s, &c, 1);
         }
         return putNatural(out, s, a);
      case 'p':
         if (a.kind == Arg::argPointer) {
            char pattern[32];
            s.build(pattern, "", 'p');
            return out.print(pattern, a.p);
         }
         return putNatural(out, s, a);
      default:  // 's'
         return putNatural(out, s, a);
   }
}

}  // namespace

size_t formatArgs(char* buf, size_t size, const char* format, const Arg* argv, size_t argc) {
   if (size == 0) return 0;
   Out out(buf, size);
   if (format == nullptr) return 0;
   size_t next = 0;
   auto nextArg = [&]() -> const Arg* { return next < argc ? &argv[next++] : nullptr; };
   const char* f = format;
   while (*f != '\0') {
      if (*f != '%') {
         out.put(*f++);
         continue;
      }
      const char* start = f++;
      if (*f == '%') {
         out.put('%');
         ++f;
         continue;
      }
      Conversion s;
      for (;; ++f) {
         if (*f == '-') {
            s.left = true;
         } else if (*f == '+') {
            s.plus = true;
         } else if (*f == ' ') {
            s.space = true;
         } else if (*f == '#') {
            s.alt = true;
         } else if (*f == '0') {
            s.zero = true;
         } else {
            break;
         }
      }
      if (*f == '*') {
         ++f;
         s.width = intOf(nextArg());
         if (s.width < 0) {
            s.left = true;
            s.width = -s.width;
         }
      } else {
         for (; *f >= '0' && *f <= '9'; ++f) {
            s.width = std::min(std::max(s.width, 0) * 10 + (*f - '0'), maxWidth);
         }
      }
      if (*f == '.') {
         ++f;
         s.precision = 0;
         if (*f == '*') {
            ++f;
            s.precision = intOf(nextArg());
            if (s.precision < 0) s.precision = -1;
         } else {
            for (; *f >= '0' && *f <= '9'; ++f) {
               s.precision = std::min(s.precision * 10 + (*f - '0'), maxWidth);
            }
         }
      }
      // Length modifiers say nothing here: every argument carries its own type.
      while (*f != '\0' && strchr("hlLqjzt", *f) != nullptr) ++f;
      if (*f == '\0' || strchr("diuxXofFeEgGaAcsp", *f) == nullptr) {
         // Not a conversion we know (and never %n): the text stays as written.
         size_t n = size_t(f - start) + (*f != '\0' ? 1 : 0);
         out.append(start, n);
         f += *f != '\0' ? 1 : 0;
         continue;
      }
      s.conv = *f++;
      const Arg* a = nextArg();
      if (a != nullptr) putArg(out, s, *a);
   }
   return out.len();
}

bool Handle::logArgs(const Arg* argv, size_t argc) const {
   if (rateLimit_ > 0) {
      double now = clockFn();
      // A clock that went back (only a test's clock can) reopens the interval rather
      // than silencing the handle until it catches up.
      if (now >= lastLogged_ && now - lastLogged_ < rateLimit_) {
         if (suppressed_ < UINT_MAX) ++suppressed_;
         return false;
      }
      lastLogged_ = now;
   }
   char text[textSize];
   size_t len = formatArgs(text, textSize - noteSize, format_, argv, argc);
   if (suppressed_ > 0) {
      snprintf(text + len, textSize - len, " (%u similar message%s suppressed)", suppressed_,
               suppressed_ == 1 ? "" : "s");
      suppressed_ = 0;
   }
   if (toSyslog) syslog(severity_ & LOG_PRIMASK, "%s: %s", key_, text);
   if (foreground) fprintf(stderr, "%s: %s\n", key_, text);
   if (sink()) sink()(Message{key_, severity_, text});
   return true;
}

void foregroundIs(bool fg) {
   foreground = fg;
}

void syslogIs(bool on) {
   toSyslog = on;
}

void sinkIs(std::function<void(const Message&)> s) {
   sink() = std::move(s);
}

void clockIs(double (*c)()) {
   clockFn = c != nullptr ? c : loopNow;
}

}  // namespace Vel::Log
