#include "Daemon/Privilege.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <seccomp.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "Framework/Log.h"
#include "Framework/Trace.h"

namespace Daemon {

namespace {

Vel::Trace::Handle tracePrivilege("Privilege");

constinit const Vel::Log::Handle LLDP_SYSCALL_REFUSED(
    "LLDP_SYSCALL_REFUSED", 3, "Refused system call %s (number %d): it is not on the list",
    "The agent made a system call outside the list it allowed itself after giving up root; "
    "the call failed with EPERM and the agent went on.",
    "Report the call with the agent's version: the list must be amended, or the agent has "
    "been made to do something it never does.",
    10);

// What the agent calls once it runs as its own user: the event loop, sockets it has or
// makes again (syslog, AgentX, netlink), files it reads (the configuration, the user
// database), its trace files, and the threads of the metrics listener and the gNMI server
// (whose locks ask for their thread's scheduling policy).
constexpr const char* allowed[] = {
    // Files and descriptors.
    "read", "write", "readv", "writev", "pread64", "pwrite64", "close", "close_range", "lseek",
    "fstat", "newfstatat", "stat", "lstat", "statx", "fstatfs", "statfs", "access", "faccessat",
    "faccessat2", "open", "openat", "readlink", "readlinkat", "getdents64", "fcntl", "dup", "dup2",
    "dup3", "ioctl", "flock", "fsync", "fdatasync", "ftruncate", "unlink", "unlinkat", "getcwd",
    "umask",
    // Memory.
    "mmap", "munmap", "mprotect", "mremap", "madvise", "brk",
    // Signals, time, waiting.
    "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sigaltstack", "restart_syscall", "kill",
    "tgkill", "tkill", "clock_gettime", "clock_getres", "gettimeofday", "time", "nanosleep",
    "clock_nanosleep", "timerfd_create", "timerfd_settime", "timerfd_gettime", "epoll_create",
    "epoll_create1", "epoll_ctl", "epoll_wait", "epoll_pwait", "epoll_pwait2", "poll", "ppoll",
    "select", "pselect6", "eventfd", "eventfd2", "signalfd", "signalfd4", "pipe", "pipe2",
    // Sockets (socket() itself only for some families, below). bind and listen: a standby
    // that takes over starts the metrics and gNMI listeners then (ports that need no
    // privilege; the control socket itself is handed over, never bound again).
    "bind", "listen", "connect", "accept", "accept4", "sendto", "recvfrom", "sendmsg", "recvmsg",
    "sendmmsg", "recvmmsg", "shutdown", "getsockname", "getpeername", "setsockopt", "getsockopt",
    // Threads and the process.
    "exit", "exit_group", "futex", "set_robust_list", "get_robust_list", "rseq", "clone", "clone3",
    "set_tid_address", "sched_yield", "sched_getaffinity", "sched_getparam", "sched_getscheduler",
    "getrandom", "prctl", "membarrier", "getpid", "gettid", "getppid", "getuid", "geteuid",
    "getgid", "getegid", "getgroups", "getresuid", "getresgid", "capget", "uname", "sysinfo",
    "getrusage", "prlimit64", "getrlimit"};

constexpr int socketFamilies[] = {AF_UNIX, AF_NETLINK, AF_INET, AF_INET6};

// Refused calls, noted by the signal handler (which may do nothing else) for the loop.
constexpr size_t noteSlots = 16;
std::atomic<uint64_t> refusedCount{0};
std::atomic<int> refusedCalls[noteSlots];
std::atomic<int> wakeFd{-1};
uint64_t reported = 0;

void onSigsys(int, siginfo_t* info, void* context) {
   const int saved = errno;
   auto* uc = static_cast<ucontext_t*>(context);
#if defined(__x86_64__)
   uc->uc_mcontext.gregs[REG_RAX] = -EPERM;
#elif defined(__aarch64__)
   uc->uc_mcontext.regs[0] = uint64_t(-EPERM);
#else
#error "set the system call's return value for this architecture"
#endif
   const uint64_t n = refusedCount.load(std::memory_order_relaxed);
   refusedCalls[n % noteSlots].store(info->si_syscall, std::memory_order_relaxed);
   refusedCount.store(n + 1, std::memory_order_release);
   const uint64_t one = 1;
   if (const int fd = wakeFd.load(std::memory_order_relaxed); fd >= 0) {
      (void)!::write(fd, &one, sizeof one);
   }
   errno = saved;
}

void reportRefused() {
   uint64_t value;
   (void)!::read(wakeFd.load(), &value, sizeof value);
   const uint64_t now = refusedCount.load(std::memory_order_acquire);
   // Only the last few are still noted; the rest were counted.
   if (now - reported > noteSlots) reported = now - noteSlots;
   for (; reported < now; ++reported) {
      const int nr = refusedCalls[reported % noteSlots].load(std::memory_order_relaxed);
      char* name = seccomp_syscall_resolve_num_arch(SCMP_ARCH_NATIVE, nr);
      const char* shown = name ? name : "?";
      VEL_TRACE(tracePrivilege, 0, "refused system call " << shown << " (" << nr << ")");
      LLDP_SYSCALL_REFUSED.log(shown, nr);
      std::free(name);
   }
}

bool fail(std::string* error, const std::string& why) {
   if (error) *error = why;
   VEL_TRACE(tracePrivilege, 0, why);
   return false;
}

std::string errnoText(const std::string& what) {
   return what + ": " + std::strerror(errno);
}

}  // namespace

bool Privilege::accountIs(const std::string& name, Account* out, std::string* error) {
   passwd pw;
   passwd* found = nullptr;
   char buf[4096];
   if (getpwnam_r(name.c_str(), &pw, buf, sizeof buf, &found) != 0 || !found) {
      return fail(error, "no user named '" + name + "'");
   }
   if (pw.pw_uid == 0) return fail(error, "user '" + name + "' is root");
   out->name = name;
   out->uid = pw.pw_uid;
   out->gid = pw.pw_gid;
   return true;
}

bool Privilege::boundingSetClear(std::string* error) {
   ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
   for (int cap = 0; ::prctl(PR_CAPBSET_READ, cap, 0, 0, 0) >= 0; ++cap) {
      if (::prctl(PR_CAPBSET_READ, cap, 0, 0, 0) == 1 &&
          ::prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) != 0) {
         return fail(error, errnoText("emptying the capability bounding set"));
      }
   }
   return true;
}

bool Privilege::dropTo(const Account& account, std::string* error) {
   if (::geteuid() != 0) return fail(error, "giving up root needs to start as root");
   // The ring log is started over in place when full: it must stay the daemon's.
   if (const std::string& ring = Vel::Trace::ringLogPath(); !ring.empty()) {
      if (::chown(ring.c_str(), account.uid, account.gid) != 0) {
         VEL_TRACE(tracePrivilege, 0, errnoText("cannot hand the ring log to the user"));
      }
   }
   if (::initgroups(account.name.c_str(), account.gid) != 0) {
      return fail(error, errnoText("setting the groups of " + account.name));
   }
   if (::setresgid(account.gid, account.gid, account.gid) != 0) {
      return fail(error, errnoText("setting the group of " + account.name));
   }
   // Nothing may come back later: no ambient capabilities, an empty bounding set, and
   // capabilities not kept across the change of user.
   if (!boundingSetClear(error)) return false;
   ::prctl(PR_SET_KEEPCAPS, 0, 0, 0, 0);
   if (::setresuid(account.uid, account.uid, account.uid) != 0) {
      return fail(error, errnoText("becoming user " + account.name));
   }
   // Leaving root clears the capabilities; make sure, and that root cannot come back.
   __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
   __user_cap_data_struct data[2] = {};
   if (::syscall(SYS_capset, &header, data) != 0) {
      return fail(error, errnoText("clearing the capabilities"));
   }
   if (::setuid(0) == 0 || ::getuid() != account.uid || ::geteuid() != account.uid) {
      return fail(error, "root could be taken back after the drop");
   }
   if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
      return fail(error, errnoText("refusing new privileges"));
   }
   VEL_TRACE(tracePrivilege, 2,
             "running as " << account.name << " (uid " << account.uid << ", gid " << account.gid
                           << ") without capabilities");
   return true;
}

bool Privilege::sandboxIs(std::string* error) {
   static std::unique_ptr<Vel::FdReactor> reactor;
   if (reactor) return fail(error, "the system call filter is in already");
   const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
   if (fd < 0) return fail(error, errnoText("eventfd"));
   wakeFd = fd;
   reactor = std::make_unique<Vel::FdReactor>(fd, [] { reportRefused(); });

   struct sigaction sa {};
   sa.sa_sigaction = onSigsys;
   sa.sa_flags = SA_SIGINFO | SA_RESTART;
   sigemptyset(&sa.sa_mask);
   if (::sigaction(SIGSYS, &sa, nullptr) != 0) return fail(error, errnoText("sigaction SIGSYS"));

   scmp_filter_ctx ctx = seccomp_init(SCMP_ACT_TRAP);
   if (!ctx) return fail(error, "cannot make a system call filter");
   std::string why;
   // Every thread, so the metrics listener's threads are held too; the kernel logs what
   // the filter refuses, where it logs such things.
   if (int rc = seccomp_attr_set(ctx, SCMP_FLTATR_CTL_TSYNC, 1); rc != 0) {
      why = "cannot filter every thread: " + std::string(std::strerror(-rc));
   }
   seccomp_attr_set(ctx, SCMP_FLTATR_CTL_LOG, 1);
   // Every call the agent makes passes the filter: a binary tree of the allowed calls
   // rather than a list to walk.
   seccomp_attr_set(ctx, SCMP_FLTATR_CTL_OPTIMIZE, 2);
   for (const char* name : allowed) {
      if (!why.empty()) break;
      const int nr = seccomp_syscall_resolve_name(name);
      if (nr == __NR_SCMP_ERROR) continue;  // not a call on this architecture
      if (int rc = seccomp_rule_add(ctx, SCMP_ACT_ALLOW, nr, 0); rc != 0) {
         why = std::string("cannot allow ") + name + ": " + std::strerror(-rc);
      }
   }
   for (int family : socketFamilies) {
      if (!why.empty()) break;
      // The first argument, the family, must be this one.
      const scmp_arg_cmp first{0, SCMP_CMP_EQ, scmp_datum_t(family), 0};
      if (int rc = seccomp_rule_add_array(ctx, SCMP_ACT_ALLOW, SCMP_SYS(socket), 1, &first);
          rc != 0) {
         why = std::string("cannot allow socket: ") + std::strerror(-rc);
      }
   }
   if (why.empty()) {
      if (int rc = seccomp_load(ctx); rc != 0) {
         why = "cannot load the system call filter: " + std::string(std::strerror(-rc));
      }
   }
   seccomp_release(ctx);
   if (!why.empty()) return fail(error, why);
   VEL_TRACE(tracePrivilege, 2, "system call filter in");
   return true;
}

int Privilege::probe() {
   errno = 0;
   if (::syscall(SYS_syncfs, -1) == 0) return 0;
   return errno;
}

std::string Privilege::procStatus(const std::string& field) {
   std::ifstream in("/proc/self/status");
   for (std::string line; std::getline(in, line);) {
      if (line.compare(0, field.size() + 1, field + ":") != 0) continue;
      const size_t start = line.find_first_not_of(" \t", field.size() + 1);
      return start == std::string::npos ? std::string() : line.substr(start);
   }
   return {};
}

uint64_t Privilege::syscallsRefused() {
   return refusedCount.load(std::memory_order_acquire);
}

}  // namespace Daemon
