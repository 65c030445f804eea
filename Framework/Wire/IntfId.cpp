#include "Framework/Wire/IntfId.h"

#include <ostream>

namespace Wire {

namespace {

struct Prefix {
   std::string_view text;
   IntfKind kind;
};

constexpr Prefix prefixes[] = {
    {"Ethernet", IntfKind::intfKindEthernet},        {"Management", IntfKind::intfKindManagement},
    {"Port-Channel", IntfKind::intfKindPortChannel}, {"Vlan", IntfKind::intfKindVlan},
    {"Loopback", IntfKind::intfKindLoopback},
};

bool isNumberPath(std::string_view s) {
   if (s.empty() || s.front() == '/' || s.back() == '/') return false;
   for (char c : s) {
      if (c != '/' && (c < '0' || c > '9')) return false;
   }
   return true;
}

struct ParsedName {
   IntfKind kind = IntfKind::intfKindOther;
   uint8_t numberCount = 0;
   std::array<uint32_t, 3> numbers{};
};

void parseNumbers(std::string_view digits, ParsedName* out) {
   uint64_t cur = 0;
   bool any = false;
   for (size_t i = 0; i <= digits.size(); ++i) {
      if (i == digits.size() || digits[i] == '/') {
         if (any && out->numberCount < out->numbers.size()) {
            out->numbers[out->numberCount++] = static_cast<uint32_t>(cur);
         }
         cur = 0;
         any = false;
      } else {
         cur = std::min<uint64_t>(cur * 10 + static_cast<uint64_t>(digits[i] - '0'), UINT32_MAX);
         any = true;
      }
   }
}

ParsedName parseName(std::string_view name) {
   ParsedName parsed;
   for (const auto& p : prefixes) {
      if (name.starts_with(p.text) && isNumberPath(name.substr(p.text.size()))) {
         parsed.kind = p.kind;
         parseNumbers(name.substr(p.text.size()), &parsed);
         return parsed;
      }
   }
   // Other names still get their trailing number, so "eth2" sorts before "eth10".
   size_t i = name.size();
   while (i > 0 && name[i - 1] >= '0' && name[i - 1] <= '9') --i;
   parseNumbers(name.substr(i), &parsed);
   return parsed;
}

}  // namespace

IntfId::IntfId(std::string_view name) {
   if (name.size() > maxNameLen) name = name.substr(0, maxNameLen);
   name_ = decltype(name_)(name);
   const ParsedName parsed = parseName(name);
   kind_ = parsed.kind;
   nameKind_ = uint8_t(parsed.kind) & 0xf;
   numberCount_ = parsed.numberCount & 0xf;
   for (size_t i = 0; i < numbers_.size(); ++i) {
      numbers_[i] = static_cast<uint16_t>(std::min<uint32_t>(parsed.numbers[i], saturated));
   }
}

IntfId IntfId::linux(std::string_view name, IntfKind kind) {
   IntfId id(name);
   id.kind_ = kind;
   return id;
}

std::array<uint32_t, 3> IntfId::exactNumbers() const {
   return parseName(name()).numbers;
}

std::strong_ordering IntfId::operator<=>(const IntfId& o) const {
   if (auto c = nameKind_ <=> o.nameKind_; c != 0) return c;
   for (size_t i = 0; i < numbers_.size(); ++i) {
      if (numbers_[i] == saturated || o.numbers_[i] == saturated) {
         // Equal so far; a number too large for its 16 bits decides on the exact ones.
         if (auto c = exactNumbers() <=> o.exactNumbers(); c != 0) return c;
         break;
      }
      if (auto c = numbers_[i] <=> o.numbers_[i]; c != 0) return c;
   }
   return name_ <=> o.name_;
}

std::ostream& operator<<(std::ostream& os, const IntfId& i) {
   return os << i.name();
}

}  // namespace Wire
