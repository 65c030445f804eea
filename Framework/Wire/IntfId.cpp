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
   meta_ = uint8_t(uint8_t(parseName(name).kind) << kindShift);
   nameIs(name);
}

IntfId IntfId::linux(std::string_view name, IntfKind kind) {
   IntfId id(name);
   id.meta_ = uint8_t((id.meta_ & lenMask) | uint8_t(kind) << kindShift);
   return id;
}

void IntfId::nameIs(std::string_view name) {
   if (name.size() <= inlineBytes) {
      if (!name.empty()) std::memcpy(bytes_, name.data(), name.size());
      meta_ = uint8_t((meta_ & kindMask) | name.size());
      return;
   }
   char* p = new char[name.size()];
   std::memcpy(p, name.data(), name.size());
   std::memcpy(bytes_, &p, sizeof(p));
   bytes_[heapLenAt] = char(name.size());
   meta_ = uint8_t((meta_ & kindMask) | heapLen);
}

bool IntfId::switchStyleName() const {
   return parseName(name()).kind != IntfKind::intfKindOther;
}

uint32_t IntfId::number(size_t i) const {
   const ParsedName parsed = parseName(name());
   return i < parsed.numbers.size() ? parsed.numbers[i] : 0;
}

size_t IntfId::numberCount() const {
   return parseName(name()).numberCount;
}

std::strong_ordering IntfId::operator<=>(const IntfId& o) const {
   const std::string_view a = name(), b = o.name();
   if (a == b) return std::strong_ordering::equal;
   const ParsedName pa = parseName(a), pb = parseName(b);
   if (auto c = pa.kind <=> pb.kind; c != 0) return c;
   if (auto c = pa.numbers <=> pb.numbers; c != 0) return c;
   return a <=> b;
}

std::ostream& operator<<(std::ostream& os, const IntfId& i) {
   return os << i.name();
}

}  // namespace Wire
