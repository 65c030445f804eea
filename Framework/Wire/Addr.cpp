#include "Framework/Wire/Addr.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <ostream>

namespace Wire {

namespace {

template <size_t N>
size_t hashBytes(const std::array<uint8_t, N>& b) {
   return std::hash<std::string_view>()(
       std::string_view(reinterpret_cast<const char*>(b.data()), b.size()));
}

template <class A, int Family, size_t Len>
std::optional<A> parseInet(std::string_view text) {
   char buf[64];
   if (text.size() >= sizeof(buf)) return std::nullopt;
   std::memcpy(buf, text.data(), text.size());
   buf[text.size()] = 0;
   std::array<uint8_t, Len> b{};
   if (inet_pton(Family, buf, b.data()) != 1) return std::nullopt;
   return A(b);
}

template <int Family, size_t N>
std::string formatInet(const std::array<uint8_t, N>& b) {
   char buf[INET6_ADDRSTRLEN];
   return inet_ntop(Family, b.data(), buf, sizeof(buf)) ? buf : "";
}

}  // namespace

EthAddr EthAddr::fromBytes(const void* p) {
   std::array<uint8_t, 6> b;
   std::memcpy(b.data(), p, 6);
   return EthAddr(b);
}

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
   // Accepts aa:bb:cc:dd:ee:ff and aa-bb-cc-dd-ee-ff.
   if (text.size() != 17) return std::nullopt;
   std::array<uint8_t, 6> b{};
   for (size_t i = 0; i < 6; ++i) {
      unsigned v = 0;
      for (size_t j = 0; j < 2; ++j) {
         char c = text[i * 3 + j];
         unsigned d = (c >= '0' && c <= '9')   ? unsigned(c - '0')
                      : (c >= 'a' && c <= 'f') ? unsigned(c - 'a' + 10)
                      : (c >= 'A' && c <= 'F') ? unsigned(c - 'A' + 10)
                                               : 16u;
         if (d > 15) return std::nullopt;
         v = v * 16 + d;
      }
      if (i < 5 && text[i * 3 + 2] != ':' && text[i * 3 + 2] != '-') return std::nullopt;
      b[i] = static_cast<uint8_t>(v);
   }
   return EthAddr(b);
}

std::string EthAddr::stringValue() const {
   char buf[18];
   std::snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1], bytes_[2],
                 bytes_[3], bytes_[4], bytes_[5]);
   return buf;
}

size_t EthAddr::hash() const {
   return hashBytes(bytes_);
}
std::ostream& operator<<(std::ostream& os, const EthAddr& a) {
   return os << a.stringValue();
}

std::optional<IpAddr> IpAddr::parse(std::string_view t) {
   return parseInet<IpAddr, AF_INET, 4>(t);
}
std::string IpAddr::stringValue() const {
   return formatInet<AF_INET>(bytes_);
}
size_t IpAddr::hash() const {
   return hashBytes(bytes_);
}
std::ostream& operator<<(std::ostream& os, const IpAddr& a) {
   return os << a.stringValue();
}

std::string IpAddrWithMask::stringValue() const {
   return addr_.stringValue() + "/" + std::to_string(maskLen_);
}
std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a) {
   return os << a.stringValue();
}

std::optional<Ip6Addr> Ip6Addr::parse(std::string_view t) {
   return parseInet<Ip6Addr, AF_INET6, 16>(t);
}
std::string Ip6Addr::stringValue() const {
   return formatInet<AF_INET6>(bytes_);
}
size_t Ip6Addr::hash() const {
   return hashBytes(bytes_);
}
std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) {
   return os << a.stringValue();
}

}  // namespace Wire
