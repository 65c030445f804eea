#include "Records/LldpValues.h"

#include <cstdio>
#include <ostream>

#include "Framework/Vel/Json.h"

namespace Lldp {

std::string Oui::stringValue() const {
   char buf[9];
   std::snprintf(buf, sizeof(buf), "%02x-%02x-%02x", (value_ >> 16) & 0xff, (value_ >> 8) & 0xff,
                 value_ & 0xff);
   return buf;
}

std::ostream& operator<<(std::ostream& os, const Oui& o) {
   return os << o.stringValue();
}

std::ostream& operator<<(std::ostream& os, AdminStatus s) {
   switch (s) {
      case adminStatusTxOnly:
         return os << "txOnly";
      case adminStatusRxOnly:
         return os << "rxOnly";
      case adminStatusTxAndRx:
         return os << "txAndRx";
      default:
         return os << "disabled";
   }
}

namespace {

// An address carried in an identifier or a management address: an IANA family byte
// followed by the address.
std::string networkAddressString(uint8_t family, std::string_view bytes) {
   if (family == addrFamilyIpv4 && bytes.size() == 4) {
      std::array<uint8_t, 4> b;
      std::memcpy(b.data(), bytes.data(), 4);
      return Wire::IpAddr(b).stringValue();
   }
   if (family == addrFamilyIpv6 && bytes.size() == 16) {
      std::array<uint8_t, 16> b;
      std::memcpy(b.data(), bytes.data(), 16);
      return Wire::Ip6Addr(b).stringValue();
   }
   if (family == addrFamilyMac && bytes.size() == 6) {
      return Wire::EthAddr::fromBytes(bytes.data()).stringValue();
   }
   return Vel::colonHex(bytes);
}

std::string identifierString(std::string_view v, bool isMac, bool isNetworkAddress) {
   if (isMac && v.size() == 6) return Wire::EthAddr::fromBytes(v.data()).stringValue();
   if (isNetworkAddress && !v.empty()) {
      return networkAddressString(static_cast<uint8_t>(v[0]), v.substr(1));
   }
   return Vel::textOrHex(v);
}

Vel::Json subtypeJson(uint8_t subtype, std::initializer_list<const char*> names) {
   if (subtype >= 1 && subtype <= names.size()) return names.begin()[subtype - 1];
   return subtype;
}

}  // namespace

std::string ChassisIdentifier::stringValue() const {
   return identifierString(value_.value(), subtype_ == chassisIdSubtypeMacAddress,
                           subtype_ == chassisIdSubtypeNetworkAddress);
}

std::string PortIdentifier::stringValue() const {
   return identifierString(value_.value(), subtype_ == portIdSubtypeMacAddress,
                           subtype_ == portIdSubtypeNetworkAddress);
}

std::string ManagementAddressKey::stringValue() const {
   return networkAddressString(subtype_, address_.value());
}

Vel::Json ChassisIdentifier::toJson() const {
   return {{"subtype",
            subtypeJson(subtype_, {"chassisComponent", "interfaceAlias", "portComponent",
                                   "macAddress", "networkAddress", "interfaceName", "local"})},
           {"value", stringValue()}};
}

Vel::Json PortIdentifier::toJson() const {
   return {{"subtype",
            subtypeJson(subtype_, {"interfaceAlias", "portComponent", "macAddress",
                                   "networkAddress", "interfaceName", "agentCircuitId", "local"})},
           {"value", stringValue()}};
}

Vel::Json ManagementAddressKey::toJson() const {
   Vel::Json subtype = subtype_;
   if (subtype_ == addrFamilyIpv4) subtype = "ipv4";
   if (subtype_ == addrFamilyIpv6) subtype = "ipv6";
   if (subtype_ == addrFamilyMac) subtype = "mac";
   return {{"subtype", subtype}, {"address", stringValue()}};
}

bool NetworkPolicyConfig::equivalent(const NetworkPolicyConfig& a, const NetworkPolicyConfig& b) {
   return a.tagged() == b.tagged() && a.vlanId() == b.vlanId() && a.priority() == b.priority() &&
          a.dscp() == b.dscp();
}

NetworkPolicyTlv NetworkPolicyConfig::toNetworkPolicyTlv() const {
   return NetworkPolicyTlv({.appType = appType_,
                            .unknown = false,
                            .tagged = tagged_,
                            .vlanId = vlanId_,
                            .priority = priority_,
                            .dscp = dscp_});
}

}  // namespace Lldp
