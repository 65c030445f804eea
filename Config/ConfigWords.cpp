// The words of the configuration language: lines into words, arguments into values, and
// values back into words that read back as themselves.
#include <charconv>
#include <cstdio>

#include "Config/ConfigForms.h"

namespace Config::detail {

namespace {

constexpr size_t intfNameMax = 15;  // a Linux interface name (IFNAMSIZ less the NUL)
constexpr size_t textMax = Lldp::BoundedString255::maxBytes;

}  // namespace

// Records at their defaults, to read what a `no` form restores. Never destroyed.
const CliConfig& defaults() {
   static const CliConfig* d = new CliConfig();
   return *d;
}
const CliPortConfig& portDefaults() {
   static const CliPortConfig* d = new CliPortConfig(Wire::IntfId());
   return *d;
}

// --- Lines into words.

bool isSpace(char c) {
   return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

int hexDigit(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

// Splits a line into words, stopping at a comment. Returns an error text, empty if none.
std::string tokenize(std::string_view line, std::vector<Token>& out) {
   size_t i = 0;
   while (i < line.size()) {
      if (isSpace(line[i])) {
         ++i;
         continue;
      }
      if (line[i] == '!' || line[i] == '#') break;
      Token t;
      t.begin = i;
      if (line[i] != '"') {
         while (i < line.size() && !isSpace(line[i])) ++i;
         t.text = std::string(line.substr(t.begin, i - t.begin));
      } else {
         t.quoted = true;
         ++i;
         bool closed = false;
         while (i < line.size()) {
            char c = line[i++];
            if (c == '"') {
               closed = true;
               break;
            }
            if (c != '\\') {
               t.text.push_back(c);
               continue;
            }
            if (i >= line.size()) break;
            char e = line[i++];
            if (e == '"' || e == '\\') {
               t.text.push_back(e);
            } else if (e == 'x' && i + 1 < line.size() && hexDigit(line[i]) >= 0 &&
                       hexDigit(line[i + 1]) >= 0) {
               t.text.push_back(char(hexDigit(line[i]) * 16 + hexDigit(line[i + 1])));
               i += 2;
            } else {
               return std::string("unknown escape '\\") + e + "' in quoted text";
            }
         }
         if (!closed) return "unterminated quoted text";
         if (i < line.size() && !isSpace(line[i])) return "text after closing quote";
      }
      t.end = i;
      out.push_back(std::move(t));
   }
   return {};
}

std::string joinWords(const std::vector<std::string_view>& words) {
   std::string s;
   for (auto w : words) {
      if (!s.empty()) s += ' ';
      s += w;
   }
   return s;
}

// --- Arguments.

std::string rangeText(uint64_t lo, uint64_t hi) {
   return std::to_string(lo) + ".." + std::to_string(hi);
}

// Parses a decimal number in lo..hi into `out`; returns an error text, empty if none.
std::string parseNumber(const std::string& s, uint64_t lo, uint64_t hi, uint64_t& out) {
   if (s.empty() || s[0] < '0' || s[0] > '9') return "'" + s + "' is not a number";
   auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
   if (end != s.data() + s.size()) return "'" + s + "' is not a number";
   if (ec == std::errc::result_out_of_range || out < lo || out > hi) {
      return s + " is out of range " + rangeText(lo, hi);
   }
   return {};
}

// An interface (or VRF) name as Linux takes it.
std::string checkName(const char* what, const std::string& s) {
   if (s.empty()) return std::string(what) + " is empty";
   if (s.size() > intfNameMax) {
      return std::string(what) + " '" + Vel::printableBytes(s) + "' is longer than " +
             std::to_string(intfNameMax) + " bytes";
   }
   for (char c : s) {
      auto u = static_cast<unsigned char>(c);
      if (u <= 0x20 || u == 0x7f) {
         return std::string(what) + " '" + Vel::printableBytes(s) + "' has a space or control byte";
      }
   }
   if (s[0] == '!' || s[0] == '#' || s[0] == '"') {
      return std::string(what) + " '" + s + "' starts with '" + s[0] + "'";
   }
   return {};
}

// The rest of the line as text: one quoted word, or the words as written.
std::string parseText(const Args& a, std::string& out) {
   if (a.count == 1 && a.first[0].quoted) {
      out = a.first[0].text;
   } else {
      for (size_t i = 0; i < a.count; ++i) {
         if (a.first[i].quoted) return "quote the whole text or none of it";
      }
      size_t b = a.first[0].begin;
      out = std::string(a.line.substr(b, a.first[a.count - 1].end - b));
   }
   if (out.size() > textMax) {
      return "text is " + std::to_string(out.size()) + " bytes, at most " +
             std::to_string(textMax) + " allowed";
   }
   return {};
}

// --- Rendering.

// Text that reads back as itself without quotes: printable, no surrounding space, no
// quote, and no word that would start a comment.
bool plainText(std::string_view s) {
   if (s.empty() || isSpace(s.front()) || isSpace(s.back())) return false;
   for (size_t i = 0; i < s.size(); ++i) {
      auto u = static_cast<unsigned char>(s[i]);
      if ((u < 0x20 && s[i] != '\t') || u == 0x7f || s[i] == '"') return false;
      if ((s[i] == '!' || s[i] == '#') && (i == 0 || isSpace(s[i - 1]))) return false;
   }
   return true;
}

std::string textArgument(std::string_view s) {
   if (plainText(s)) return std::string(s);
   std::string q = "\"";
   for (char c : s) {
      auto u = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
         q += '\\';
         q += c;
      } else if (u < 0x20 || u == 0x7f) {
         char hex[5];
         std::snprintf(hex, sizeof hex, "\\x%02x", u);
         q += hex;
      } else {
         q += c;
      }
   }
   return q + '"';
}

std::string shortest(double v) {
   char buf[64];
   auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
   return std::string(buf, ec == std::errc() ? end : buf);
}

}  // namespace Config::detail
