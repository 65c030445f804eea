#include "Gnmi/GnmiOptions.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstdlib>

namespace Gnmi {

namespace {

bool number(const std::string& text, uint64_t min, uint64_t max, uint64_t* out) {
   if (text.empty() || text[0] == '-') return false;
   char* end = nullptr;
   errno = 0;
   const unsigned long long n = std::strtoull(text.c_str(), &end, 10);
   if (*end || errno || n < min || n > max) return false;
   *out = n;
   return true;
}

}  // namespace

bool splitHostPort(const std::string& address, std::string* host, uint16_t* port) {
   const size_t colon = address.rfind(':');
   if (colon == std::string::npos || colon == 0) return false;
   std::string h = address.substr(0, colon);
   if (h.front() == '[') {
      if (h.size() < 3 || h.back() != ']') return false;
      h = h.substr(1, h.size() - 2);
   } else if (h.find(':') != std::string::npos) {
      return false;  // an IPv6 address needs its brackets
   }
   uint64_t p = 0;
   if (!number(address.substr(colon + 1), 1, 65535, &p)) return false;
   *host = h;
   *port = uint16_t(p);
   return true;
}

bool isLoopback(const std::string& address) {
   std::string host;
   uint16_t port = 0;
   if (!splitHostPort(address, &host, &port)) return false;
   if (host == "localhost") return true;
   in_addr v4;
   if (::inet_pton(AF_INET, host.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
   in6_addr v6;
   if (::inet_pton(AF_INET6, host.c_str(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6);
   return false;
}

bool Options::parse(int argc, char** argv, int& i, std::string* error) {
   const std::string opt = argv[i];
   if (opt == "--gnmi-allow-insecure-set") {
      allowInsecureSet = true;
      return true;
   }
   static const char* const withValue[] = {
       "--gnmi",          "--gnmi-tls-cert",        "--gnmi-tls-key",   "--gnmi-tls-ca",
       "--gnmi-write-cn", "--gnmi-max-subscribers", "--gnmi-max-queue", "--gnmi-max-request-bytes"};
   bool ours = false;
   for (const char* o : withValue) ours = ours || opt == o;
   if (!ours) return false;
   if (i + 1 >= argc) {
      *error = "option " + opt + " needs a value";
      return true;
   }
   const std::string value = argv[++i];
   uint64_t n = 0;
   if (opt == "--gnmi") {
      std::string host;
      uint16_t port = 0;
      if (!splitHostPort(value, &host, &port)) {
         *error = "--gnmi: '" + value + "' is not ADDRESS:PORT";
      }
      address = value;
   } else if (opt == "--gnmi-tls-cert") {
      tlsCert = value;
   } else if (opt == "--gnmi-tls-key") {
      tlsKey = value;
   } else if (opt == "--gnmi-tls-ca") {
      tlsCa = value;
   } else if (opt == "--gnmi-write-cn") {
      if (value.empty()) *error = "--gnmi-write-cn: empty name";
      writeCns.push_back(value);
   } else if (opt == "--gnmi-max-subscribers") {
      if (!number(value, 1, 65536, &n))
         *error = opt + ": '" + value + "' is not a number from 1 to 65536";
      maxSubscribers = uint32_t(n);
   } else if (opt == "--gnmi-max-queue") {
      if (!number(value, 16, 1u << 24, &n))
         *error = opt + ": '" + value + "' is not a number from 16 to 16777216";
      maxQueue = uint32_t(n);
   } else {
      if (!number(value, 4096, 1u << 30, &n)) {
         *error = opt + ": '" + value + "' is not a number from 4096 to 1073741824";
      }
      maxRequestBytes = uint32_t(n);
   }
   return true;
}

bool Options::check(std::string* error) const {
   const bool anyTls = !tlsCert.empty() || !tlsKey.empty() || !tlsCa.empty() || !writeCns.empty();
   if (address.empty()) {
      if (anyTls || allowInsecureSet) *error = "the --gnmi-* options need --gnmi ADDRESS:PORT";
      return !anyTls && !allowInsecureSet;
   }
   if (tlsCert.empty() != tlsKey.empty()) {
      *error = "--gnmi-tls-cert and --gnmi-tls-key go together";
      return false;
   }
   if (tlsCert.empty() && !tlsCa.empty()) {
      *error = "--gnmi-tls-ca needs --gnmi-tls-cert and --gnmi-tls-key";
      return false;
   }
   if (!writeCns.empty() && tlsCa.empty()) {
      *error = "--gnmi-write-cn needs --gnmi-tls-ca (client certificates are what name a writer)";
      return false;
   }
   if (tlsCert.empty() && !isLoopback(address)) {
      *error = "--gnmi " + address +
               ": plaintext gNMI only on a loopback address; give --gnmi-tls-cert and "
               "--gnmi-tls-key to serve other addresses";
      return false;
   }
   return true;
}

const char* Options::usage() {
   return R"(  --gnmi ADDRESS:PORT     serve gNMI (OpenConfig LLDP model) at ADDRESS:PORT, e.g.
                          127.0.0.1:9339 or [::]:9339; plaintext only on a loopback address
  --gnmi-tls-cert FILE    the server's certificate chain (PEM) for TLS
  --gnmi-tls-key FILE     its private key (PEM)
  --gnmi-tls-ca FILE      clients must present a certificate this CA signed (PEM)
  --gnmi-write-cn NAME    a client whose certificate's common name is NAME may Set
                          (repeatable; needs --gnmi-tls-ca); others only read
  --gnmi-allow-insecure-set
                          clients without a verified certificate may Set too (e.g.
                          plaintext on loopback)
  --gnmi-max-subscribers N
                          Subscribe calls at once; one more is refused (default 64)
  --gnmi-max-queue N      notifications waiting for one subscriber after its initial
                          state; a subscriber further behind is ended (default 4096)
  --gnmi-max-request-bytes N
                          largest request message (default 4194304)
)";
}

}  // namespace Gnmi
