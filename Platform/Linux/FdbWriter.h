// Static entries in a Linux bridge's forwarding database, written over rtnetlink: what
// `bridge fdb add|del MAC dev PORT master static` does. One blocking request per call on
// a socket of its own (the kernel answers at once), in the calling thread's namespace.
#pragma once

#include <memory>
#include <string>

#include "Framework/Wire/Addr.h"

struct nl_sock;

namespace Platform::Linux {

class FdbWriter {
public:
   // The outcome of a request: done, the entry is there already (add) or not there (del),
   // or refused for another reason (`error` says which).
   enum class Result { done, exists, absent, refused };

   FdbWriter();
   ~FdbWriter();
   FdbWriter(const FdbWriter&) = delete;
   FdbWriter& operator=(const FdbWriter&) = delete;

   // Whether the socket opened; every request is refused when it did not.
   bool ok() const { return sock_ != nullptr; }
   Result add(int ifindex, const Wire::EthAddr& mac, std::string* error);
   Result del(int ifindex, const Wire::EthAddr& mac, std::string* error);

private:
   Result request(int type, int flags, int ifindex, const Wire::EthAddr& mac, std::string* error);
   struct SockFree {
      void operator()(nl_sock* s) const;
   };
   std::unique_ptr<nl_sock, SockFree> sock_;
};

}  // namespace Platform::Linux
