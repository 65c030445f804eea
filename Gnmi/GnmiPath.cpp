// Paths in their text form, and the JSON and base64 text the model writes.
#include "Gnmi/GnmiPath.h"

#include <charconv>

#include "Gnmi/GnmiModel.h"

namespace Gnmi {

namespace {

bool isControl(char c) {
   return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

// Name characters: anything printable but the path's own punctuation and spaces.
bool isNameChar(char c) {
   return !isControl(c) && c != ' ' && c != '/' && c != '[' && c != ']' && c != '=' && c != '\\';
}

struct Parser {
   std::string_view text;
   size_t pos = 0;
   std::string error;

   bool fail(const std::string& why) {
      error = why + " at offset " + std::to_string(pos);
      return false;
   }
   bool atEnd() const { return pos >= text.size(); }
   char peek() const { return text[pos]; }

   bool name(std::string& out, const char* what) {
      const size_t start = pos;
      while (!atEnd() && isNameChar(peek())) ++pos;
      if (pos == start) {
         if (atEnd()) return fail(std::string("missing ") + what);
         if (isControl(peek())) return fail("control character in path");
         return fail(std::string("missing ") + what + " before '" + peek() + "'");
      }
      out.assign(text.substr(start, pos - start));
      return true;
   }

   bool keyValue(std::string& out) {
      out.clear();
      while (!atEnd() && peek() != ']') {
         char c = peek();
         if (isControl(c)) return fail("control character in key value");
         if (c == '\\') {
            ++pos;
            if (atEnd()) return fail("path ends inside an escape");
            c = peek();
            if (c != ']' && c != '\\' && c != '[' && c != '=' && c != '/') {
               return fail(std::string("unknown escape \\") + c);
            }
         }
         out.push_back(c);
         ++pos;
      }
      if (atEnd()) return fail("missing ']' after key value");
      ++pos;  // ']'
      return true;
   }

   bool elem(PathElem& e) {
      if (!name(e.name, "element name")) return false;
      while (!atEnd() && peek() == '[') {
         ++pos;
         std::string k, v;
         if (!name(k, "key name")) return false;
         if (atEnd() || peek() != '=') return fail("missing '=' after key name " + k);
         ++pos;
         if (!keyValue(v)) return false;
         for (const auto& [have, _] : e.keys) {
            if (have == k) return fail("key " + k + " given twice in " + e.name);
         }
         if (e.keys.size() == maxPathKeys) {
            return fail("more than " + std::to_string(maxPathKeys) + " keys in " + e.name);
         }
         e.keys.emplace_back(std::move(k), std::move(v));
      }
      if (!atEnd() && isControl(peek())) return fail("control character in path");
      if (!atEnd() && peek() != '/') return fail(std::string("unexpected '") + peek() + "'");
      return true;
   }
};

void appendKeyValue(std::string& out, const std::string& v) {
   for (char c : v) {
      if (c == ']' || c == '\\') out.push_back('\\');
      out.push_back(c);
   }
}

const char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Length of the UTF-8 sequence starting at s[i], or 0 when it is not valid.
size_t utf8Length(std::string_view s, size_t i) {
   const auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
   const unsigned char c = b(i);
   size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xe ? 3 : (c >> 3) == 0x1e ? 4 : 0;
   if (n == 0 || i + n > s.size()) return 0;
   for (size_t k = 1; k < n; ++k) {
      if ((b(i + k) & 0xc0) != 0x80) return 0;
   }
   // Overlong forms and surrogates are not valid either.
   if (n == 2 && c < 0xc2) return 0;
   if (n == 3 && c == 0xe0 && b(i + 1) < 0xa0) return 0;
   if (n == 3 && c == 0xed && b(i + 1) >= 0xa0) return 0;
   if (n == 4 && (c > 0xf4 || (c == 0xf0 && b(i + 1) < 0x90) || (c == 0xf4 && b(i + 1) >= 0x90)))
      return 0;
   return n;
}

}  // namespace

bool parsePath(std::string_view text, Path& out, std::string& error) {
   if (text.size() > maxPathTextBytes) {
      error = "path longer than " + std::to_string(maxPathTextBytes) + " bytes";
      return false;
   }
   Parser p{text, 0, {}};
   Path path;
   // "origin:/..." : a name, then ':' right before the first '/'.
   if (!text.empty() && text[0] != '/') {
      const size_t colon = text.find(":/");
      const size_t special = text.find_first_of("/[=");
      if (colon != std::string_view::npos && colon < special) {
         path.origin.assign(text.substr(0, colon));
         for (char c : path.origin) {
            if (!isNameChar(c)) {
               error = "bad character in origin at offset 0";
               return false;
            }
         }
         p.pos = colon + 1;
      }
   }
   if (!p.atEnd() && p.peek() == '/') ++p.pos;
   while (!p.atEnd()) {
      if (path.elems.size() == maxPathElems) {
         p.fail("more than " + std::to_string(maxPathElems) + " elements");
         error = p.error;
         return false;
      }
      PathElem e;
      if (!p.elem(e)) {
         error = p.error;
         return false;
      }
      path.elems.push_back(std::move(e));
      if (!p.atEnd()) {
         ++p.pos;  // '/'
         if (p.atEnd()) {
            p.fail("path ends with '/'");
            error = p.error;
            return false;
         }
      }
   }
   out = std::move(path);
   return true;
}

std::string toString(const Path& p) {
   std::string out;
   if (!p.origin.empty()) out += p.origin + ":";
   if (p.elems.empty()) return out + "/";
   for (const PathElem& e : p.elems) {
      out += '/';
      out += e.name;
      for (const auto& [k, v] : e.keys) {
         out += '[';
         out += k;
         out += '=';
         appendKeyValue(out, v);
         out += ']';
      }
   }
   return out;
}

Path join(const Path& prefix, const Path& p) {
   Path out = prefix;
   out.elems.insert(out.elems.end(), p.elems.begin(), p.elems.end());
   if (!p.origin.empty()) out.origin = p.origin;
   return out;
}

bool matches(const Path& pattern, const Path& concrete) {
   if (pattern.elems.size() != concrete.elems.size()) return false;
   for (size_t i = 0; i < pattern.elems.size(); ++i) {
      const PathElem& a = pattern.elems[i];
      const PathElem& b = concrete.elems[i];
      if (a.name != b.name) return false;
      for (const auto& [k, v] : a.keys) {
         if (v == "*") continue;
         bool found = false;
         for (const auto& [bk, bv] : b.keys) {
            if (bk == k) {
               found = bv == v;
               break;
            }
         }
         if (!found) return false;
      }
   }
   return true;
}

void appendJsonString(std::string& out, std::string_view s) {
   static const char hex[] = "0123456789abcdef";
   out.push_back('"');
   for (size_t i = 0; i < s.size();) {
      const unsigned char c = static_cast<unsigned char>(s[i]);
      if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
         out.push_back(static_cast<char>(c));
         ++i;
         continue;
      }
      if (c == '"' || c == '\\') {
         out.push_back('\\');
         out.push_back(static_cast<char>(c));
         ++i;
         continue;
      }
      if (c >= 0x80) {
         if (size_t n = utf8Length(s, i)) {
            out.append(s.substr(i, n));
            i += n;
            continue;
         }
      }
      out += "\\u00";
      out.push_back(hex[c >> 4]);
      out.push_back(hex[c & 0xf]);
      ++i;
   }
   out.push_back('"');
}

std::string base64(std::string_view bytes) {
   std::string out;
   out.reserve((bytes.size() + 2) / 3 * 4);
   size_t i = 0;
   const auto b = [&](size_t k) {
      return static_cast<uint32_t>(static_cast<unsigned char>(bytes[k]));
   };
   for (; i + 3 <= bytes.size(); i += 3) {
      const uint32_t v = b(i) << 16 | b(i + 1) << 8 | b(i + 2);
      for (int s = 18; s >= 0; s -= 6) out.push_back(base64Alphabet[(v >> s) & 0x3f]);
   }
   if (const size_t rest = bytes.size() - i) {
      const uint32_t v = b(i) << 16 | (rest == 2 ? b(i + 1) << 8 : 0);
      out.push_back(base64Alphabet[(v >> 18) & 0x3f]);
      out.push_back(base64Alphabet[(v >> 12) & 0x3f]);
      out.push_back(rest == 2 ? base64Alphabet[(v >> 6) & 0x3f] : '=');
      out.push_back('=');
   }
   return out;
}

bool unbase64(std::string_view text, std::string& out) {
   out.clear();
   while (!text.empty() && text.back() == '=') text.remove_suffix(1);
   uint32_t acc = 0;
   int bits = 0;
   for (char c : text) {
      const char* at = c ? std::char_traits<char>::find(base64Alphabet, 64, c) : nullptr;
      if (!at) return false;
      acc = acc << 6 | static_cast<uint32_t>(at - base64Alphabet);
      bits += 6;
      if (bits >= 8) {
         bits -= 8;
         out.push_back(static_cast<char>((acc >> bits) & 0xff));
      }
   }
   return true;
}

std::string jsonValue(const Value& v, Encoding e) {
   const bool ietf = e == Encoding::JsonIetf;
   std::string out;
   std::visit(
       [&](const auto& x) {
          using T = std::decay_t<decltype(x)>;
          if constexpr (std::is_same_v<T, std::string>) {
             appendJsonString(out, x);
          } else if constexpr (std::is_same_v<T, bool>) {
             out = x ? "true" : "false";
          } else if constexpr (std::is_same_v<T, std::vector<std::string>>) {
             out.push_back('[');
             for (size_t i = 0; i < x.size(); ++i) {
                if (i) out.push_back(',');
                appendJsonString(out, x[i]);
             }
             out.push_back(']');
          } else {
             // 64-bit integers and decimals are strings in JSON_IETF.
             char buf[32];
             auto r = std::to_chars(buf, buf + sizeof buf, x);
             if (ietf) out.push_back('"');
             out.append(buf, r.ptr);
             if (ietf) out.push_back('"');
          }
       },
       v);
   return out;
}

}  // namespace Gnmi
