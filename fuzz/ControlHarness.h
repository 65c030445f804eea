// A control-socket session against the daemon's operations: the socket itself (get, list,
// configure, load, show-configuration), the command line's (show, clear-neighbors,
// watch), external TLVs and power agents, over neighbour tables filled from the receive
// fuzz corpus. Each input is the byte stream one client sends; the connection carries on
// from input to input until an input leaves it closed or in the middle of a line. The
// requests go one at a time and each reply is read (and otherwise discarded) before the
// next goes. Checks after each request: every request gets exactly one reply, and one
// that may write and is refused changes none of the records that requests write (the
// records are read whole, as bytes, only around those, and again only once such a request
// succeeded or a client that may have held external TLVs or power agents left).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Daemon/CliService.h"
#include "Daemon/ControlSocket.h"
#include "Daemon/ExternalTlvService.h"
#include "Daemon/PowerAgentService.h"
#include "fuzz/RxHarness.h"

namespace Fuzz {

class ControlHarness {
public:
   // Past this many configured ports, external TLV clients or power agents they are
   // removed, so that a long run does not slow down.
   static constexpr size_t objectLimit = 8;
   // Neighbours per port in the table the views show: the requests, not the table, are
   // what this harness explores, and every view of it is serialised in full.
   static constexpr uint32_t neighbourLimit = 3;

   ControlHarness();
   ~ControlHarness();
   ControlHarness(const ControlHarness&) = delete;
   ControlHarness& operator=(const ControlHarness&) = delete;

   void feed(const uint8_t* data, size_t size);
   std::string inconsistency() { return std::move(wrong_); }

private:
   // What requests may write, as bytes (RecordBytes.h) into `out`.
   void writable(std::string& out) const;
   // True when it removed something.
   bool trim();
   int connect();
   void disconnect();
   enum class Reply : uint8_t { none, accepted, refused, malformed };
   // What a line from the server is: not a reply, or one whose "ok" is true, false or
   // neither.
   static Reply replyOf(std::string_view line);
   // Sends the bytes and, when `wantReply`, reads lines until one is a reply (its text
   // goes to replyText_); none when the connection failed or no reply came, accepted
   // when no reply was wanted and the bytes went.
   Reply exchange(std::string_view bytes, bool wantReply);
   // Whether the request line may name an operation that writes.
   static bool mayWrite(std::string_view line);

   RxHarness rx_{neighbourLimit};
   std::string dir_;
   Vel::Ptr<Lldp::CliConfig> cliConfig_;
   std::unique_ptr<Daemon::ControlSocket> socket_;
   std::unique_ptr<Cli::CliService> cli_;
   std::unique_ptr<Daemon::ExternalTlvService> externalTlvs_;
   std::unique_ptr<Cli::PowerAgentService> power_;
   int fd_ = -1;
   std::string in_;      // what the server sent and the harness has not consumed
   size_t scanned_ = 0;  // how much of in_ has been looked at for a reply
   // The writable records as they were after the last request that may have changed
   // them; empty when they have to be read again. And as they are after a refusal.
   std::optional<std::string> known_;
   std::string now_;
   std::string replyText_;
   std::string wrong_;
};

}  // namespace Fuzz
