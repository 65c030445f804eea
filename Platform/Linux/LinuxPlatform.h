// The Linux platform: interface, address, bridging and system state from the kernel,
// published into the state database (see PlatformPublisher.h for the paths).
//
// Two rtnetlink sockets, opened in the calling thread's network namespace and bound to
// it for good: one subscribed to link, address and IPv4 netconf changes, watched by the
// event loop; one for dumps. At open we subscribe first and dump second, so nothing that
// changes in between is missed. Each time the event socket is readable we take what is
// queued (a bounded batch, without blocking), apply it to the model and publish once,
// so a burst of changes costs one publish. If the kernel dropped notifications because
// our socket buffer overflowed (ENOBUFS), the model is thrown away and dumped afresh.
//
// Whether IPv4 is forwarded comes from the kernel's netconf state for "all" interfaces
// (the same switch as /proc/sys/net/ipv4/ip_forward), which the kernel announces on
// every change; reading it over netlink keeps it in the socket's namespace. Only when
// the kernel cannot dump netconf do we fall back to reading the /proc file on each batch.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Platform/Linux/BridgeCapabilitySm.h"
#include "Platform/Linux/NetlinkModel.h"
#include "Platform/Linux/PlatformPublisher.h"
#include "Platform/Linux/TelephoneBypassSm.h"

struct nl_sock;
struct nl_msg;

namespace Platform::Linux {

class LinuxPlatform {
public:
   using Options = PlatformOptions;

   // Opens the sockets, reads everything and fills the entities. Null on failure, with
   // the reason in `error` (when given).
   static std::unique_ptr<LinuxPlatform> open(const Options& options, Vel::StateDb& db,
                                              std::string* error = nullptr);
   ~LinuxPlatform();
   LinuxPlatform(const LinuxPlatform&) = delete;
   LinuxPlatform& operator=(const LinuxPlatform&) = delete;

   const Options& options() const { return options_; }
   // New VLAN names from the configuration; republishes.
   void vlanNamesIs(const std::map<uint16_t, std::string>& names);
   // Host name, domain name and system description again (on SIGHUP).
   void refreshSystem();
   // Throws the model away and reads everything from the kernel again; false (and the
   // reason in `error`) when a dump failed, in which case the entities keep what they had.
   bool resync(std::string* error = nullptr);

   const NetModel& model() const { return model_; }
   // Full reads since open (the first included) and notification batches handled.
   uint64_t resyncs() const { return resyncs_; }
   uint64_t batches() const { return batches_; }
   // The notification socket (to look at or tune its buffer).
   int eventFd() const;

private:
   struct SockFree {
      void operator()(nl_sock* s) const;
   };
   using Sock = std::unique_ptr<nl_sock, SockFree>;

   LinuxPlatform(const Options& options, Vel::StateDb& db);
   bool init(std::string* error);
   bool dump(int type, int family, uint32_t extMask, std::string* error);
   void handleReadable();
   void readForwardingFile();
   void publish();
   static int onMessage(nl_msg* msg, void* self);

   Options options_;
   Vel::StateDb& db_;
   PlatformPublisher publisher_;
   BridgeCapabilitySm bridgeCapability_;
   // Classified telephones through locked ports (created once the model is first read).
   std::unique_ptr<TelephoneBypassSm> telephoneBypass_;
   NetModel model_;
   bool netconfDumped_ = false;
   uint64_t resyncs_ = 0;
   uint64_t batches_ = 0;
   Sock events_;
   Sock dumps_;
   std::unique_ptr<Vel::FdReactor> reactor_;  // last: goes before the sockets
};

}  // namespace Platform::Linux
