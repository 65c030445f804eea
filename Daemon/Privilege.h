// Least privilege for the daemon. It starts as root, opens everything that needs root
// (the packet socket and its receive ring, netlink, the control socket, the metrics
// listener, the AgentX connection), then gives root up for good:
//
//    dropTo(account)   the account's groups, group and user (real, effective and saved),
//                      every capability gone from every set (the bounding and ambient
//                      sets too), and no new privileges (set-user-ID programs and file
//                      capabilities stay ineffective for the process and its children).
//    sandboxIs()       a seccomp filter that allows only the system calls the daemon
//                      makes from then on; sockets only of the families it uses (Unix,
//                      netlink, IPv4, IPv6). Any other call is not run: it fails with
//                      EPERM, the daemon goes on, and the call is logged
//                      (LLDP_SYSCALL_REFUSED, with its name and number) and counted.
//
// The refusal is reported from the event loop: the signal handler that turns the call
// into EPERM only notes its number and wakes the loop.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Framework/Vel/EventLoop.h"

namespace Daemon {

class Privilege {
public:
   struct Account {
      std::string name;
      uid_t uid = 0;
      gid_t gid = 0;
   };
   // The account named `name`; false with the reason when there is none, or it is root.
   static bool accountIs(const std::string& name, Account* out, std::string* error);

   // Empties the capability bounding set and the ambient set now, before any thread is
   // started, so that every thread has them empty; the capabilities the process holds stay
   // until dropTo. False with the reason.
   static bool boundingSetClear(std::string* error);

   // Gives up root for `account`, as above. Files the daemon keeps writing across the
   // drop (the trace ring log) are handed to the account first. False with the reason;
   // the process is then in no state to go on and should stop.
   static bool dropTo(const Account& account, std::string* error);

   // Installs the system call filter for this process and all its threads, and starts
   // reporting refused calls from the event loop. False with the reason.
   static bool sandboxIs(std::string* error);

   // Calls a system call that the filter refuses (syncfs on no file) and returns the
   // error it got: EPERM under the filter, EBADF without it. The refusal is reported as
   // any other.
   static int probe();

   // The process's state, from /proc/self/status: "Uid", "CapEff", "NoNewPrivs",
   // "Seccomp" (the value of each line, empty when missing).
   static std::string procStatus(const std::string& field);

   // Refused system calls since the filter went in.
   static uint64_t syscallsRefused();
};

}  // namespace Daemon
