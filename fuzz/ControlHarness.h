// A control-socket session against the daemon's operations: the socket itself (get, list,
// configure, load, show-configuration), the command line's (show, clear-neighbors,
// watch), external TLVs and power agents, over neighbour tables filled from the receive
// fuzz corpus. Each input is the byte stream one client sends on a fresh connection; the
// requests go one at a time and each reply is read (and otherwise discarded) before the
// next goes. Checks after each request: one refused changes none of the records that
// requests write, and every request gets exactly one reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

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

   ControlHarness();
   ~ControlHarness();
   ControlHarness(const ControlHarness&) = delete;
   ControlHarness& operator=(const ControlHarness&) = delete;

   void feed(const uint8_t* data, size_t size);
   std::string inconsistency() { return std::move(wrong_); }

private:
   // What requests may write, as JSON.
   Vel::Json writable() const;
   void trim();
   int connect();
   // Sends the bytes and, when `wantReply`, reads lines until one is a reply; false when
   // the connection failed or no reply came.
   bool exchange(int fd, const std::string& bytes, bool wantReply, Vel::Json* reply);

   RxHarness rx_;
   std::string dir_;
   Vel::Ptr<Lldp::CliConfig> cliConfig_;
   std::unique_ptr<Daemon::ControlSocket> socket_;
   std::unique_ptr<Cli::CliService> cli_;
   std::unique_ptr<Daemon::ExternalTlvService> externalTlvs_;
   std::unique_ptr<Cli::PowerAgentService> power_;
   std::string in_;
   std::string wrong_;
};

}  // namespace Fuzz
