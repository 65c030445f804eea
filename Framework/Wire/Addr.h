// Link-layer and network-layer addresses.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

namespace Wire {

// A 48-bit MAC address, printed as aa:bb:cc:dd:ee:ff.
class EthAddr {
public:
   constexpr EthAddr() = default;
   constexpr explicit EthAddr(const std::array<uint8_t, 6>& b) : bytes_(b) {}
   static EthAddr fromBytes(const void* p);
   static std::optional<EthAddr> parse(std::string_view text);

   const std::array<uint8_t, 6>& bytes() const { return bytes_; }
   bool isZero() const { return *this == EthAddr(); }
   bool isMulticast() const { return bytes_[0] & 1; }
   std::string stringValue() const;

   bool operator==(const EthAddr&) const = default;
   auto operator<=>(const EthAddr&) const = default;
   size_t hash() const;
   friend std::ostream& operator<<(std::ostream& os, const EthAddr& a);

private:
   std::array<uint8_t, 6> bytes_{};
};

// An IPv4 address in network byte order.
class IpAddr {
public:
   constexpr IpAddr() = default;
   constexpr explicit IpAddr(const std::array<uint8_t, 4>& b) : bytes_(b) {}
   static std::optional<IpAddr> parse(std::string_view text);
   const std::array<uint8_t, 4>& bytes() const { return bytes_; }
   bool isZero() const { return *this == IpAddr(); }
   std::string stringValue() const;
   bool operator==(const IpAddr&) const = default;
   auto operator<=>(const IpAddr&) const = default;
   size_t hash() const;
   friend std::ostream& operator<<(std::ostream& os, const IpAddr& a);

private:
   std::array<uint8_t, 4> bytes_{};
};

// An IPv4 address with its prefix length, as configured on an interface.
class IpAddrWithMask {
public:
   constexpr IpAddrWithMask() = default;
   constexpr IpAddrWithMask(IpAddr a, uint8_t len) : addr_(a), maskLen_(len) {}
   IpAddr address() const { return addr_; }
   uint8_t maskLen() const { return maskLen_; }
   std::string stringValue() const;
   bool operator==(const IpAddrWithMask&) const = default;
   auto operator<=>(const IpAddrWithMask&) const = default;
   size_t hash() const { return addr_.hash() ^ maskLen_; }
   friend std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a);

private:
   IpAddr addr_;
   uint8_t maskLen_ = 0;
};

// An IPv6 address in network byte order.
class Ip6Addr {
public:
   constexpr Ip6Addr() = default;
   constexpr explicit Ip6Addr(const std::array<uint8_t, 16>& b) : bytes_(b) {}
   static std::optional<Ip6Addr> parse(std::string_view text);
   const std::array<uint8_t, 16>& bytes() const { return bytes_; }
   bool isZero() const { return *this == Ip6Addr(); }
   bool isLinkLocal() const { return bytes_[0] == 0xfe && (bytes_[1] & 0xc0) == 0x80; }
   std::string stringValue() const;
   bool operator==(const Ip6Addr&) const = default;
   auto operator<=>(const Ip6Addr&) const = default;
   size_t hash() const;
   friend std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);

private:
   std::array<uint8_t, 16> bytes_{};
};

}  // namespace Wire
