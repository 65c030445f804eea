// lldp-agent: the LLDP daemon. Reads its configuration file, fills the platform records
// from the kernel, starts the agent, serves the control socket, and runs the event loop
// until SIGTERM or SIGINT; SIGHUP re-reads the configuration file.
//
// With --standby it is the standby of the agent on --peer-socket: it mirrors that agent's
// status, sends and hears nothing, and takes over when that agent is gone. Every agent
// holds an exclusive lock on "<its socket>.lock" for its whole life; the kernel lets go
// of it however the process ends (kill -9 included), so a standby that can take the
// active agent's lock knows that agent is gone, where a broken connection proves nothing.
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "Config/ConfigLanguage.h"
#include "Daemon/CliService.h"
#include "Daemon/ControlSocket.h"
#include "Daemon/ExporterModules.h"
#include "Daemon/ExternalTlvService.h"
#include "Daemon/MirrorClient.h"
#include "Daemon/MirrorService.h"
#include "Daemon/NbrClassificationService.h"
#include "Daemon/PowerAgentService.h"
#include "Daemon/Privilege.h"
#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Gnmi/GnmiOptions.h"
#include "Lldp/LldpAgent.h"
#include "Platform/Linux/LinuxPam.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Snmp/SubagentOptions.h"

namespace {

constexpr const char* defaultSocket = "/run/lldp-agent.sock";

const char* const usage = R"(Usage: lldp-agent [OPTION]...
Runs LLDP (IEEE 802.1AB) on every Ethernet and management port of this host or switch:
advertises it to its neighbours and keeps the table of the neighbours it hears.

Options:
  --config FILE           configuration file (the configuration language of `lldp
                          configure`; `vlan ID name NAME` lines name VLANs); re-read on
                          SIGHUP
  --socket PATH           control socket for `lldp` (default /run/lldp-agent.sock; for a
                          standby, the peer socket's name with -standby before .sock)
  --standby               start as the standby of the agent on --peer-socket: mirror its
                          neighbours and counters, send and receive no frames, and take
                          over (its socket path, SNMP, metrics, the ports) when it is gone
                          or hands over with `lldp switchover`
  --peer-socket PATH      the active agent's control socket, for --standby (default
                          /run/lldp-agent.sock)
  --auto-standby          when an agent already serves --socket, start as its standby
                          (--standby --peer-socket that path) instead of failing: a
                          restart beside a running agent then loses no neighbour
  --socket-group NAME     members of group NAME may read through the socket (show,
                          get, list, watch); changes stay with root
  --interfaces PATTERN    run on the ports whose names match this shell pattern
                          (default: every Ethernet and management port)
  --mgmt-interfaces PATTERN
                          ports whose names match are management ports (default mgmt*)
  --system-mac MAC        chassis ID and fallback management address (default: the
                          bridge's MAC when there is one bridge, else the lowest port MAC)
  --trace SPEC            trace handles and levels, e.g. 'LldpAgent/0-6,LldpProtocol*/0-4'
  --metrics ADDRESS:PORT  serve Prometheus metrics over HTTP at /metrics (e.g.
                          127.0.0.1:9101; IPv4, 0.0.0.0 for all addresses)
  --foreground            log to standard error instead of syslog, trace to standard error
  --user NAME             start as root, open what needs root, then run as user NAME with
                          no capabilities and a system call filter (see lldp-agent(8))
  --help                  this text

Limits on what programs talking through the control socket may make the agent keep
(each hit is refused with the reason and counted at the path daemon/clientLimits):
  --max-clients N         connections at once (default 256)
  --max-request-bytes N   one request line (default 1048576)
  --max-reply-backlog-bytes N
                          replies a client has not read yet; a client further behind is
                          disconnected (default 16777216)
  --max-external-tlvs-per-client N
                          TLVs one external-TLV client publishes (default 1024)
  --max-external-tlvs N   TLVs of all external-TLV clients together (default 8192)
  --max-power-ports-per-agent N
                          ports one power agent publishes (default 1024)
  --max-power-ports N     ports of all power agents together (default 4096)

Signals: SIGTERM and SIGINT stop the agent cleanly; SIGHUP re-reads the configuration file,
the host name and the system description.
Exit status: 0 after a clean stop, 1 when the agent cannot start (bad configuration
file, control socket in use, no netlink), 2 on a bad command line.

Read and change the running agent with the command line `lldp` (`lldp --help`): show
neighbors, statistics, local, power, configuration; configure; clear neighbors; watch.
Power agents publish their ports' PoE status through the socket (see
/usr/share/doc/lldp-agent/docs/poe-and-policy.md).
)";

struct Args {
   std::string config;
   std::string socket = defaultSocket;
   bool socketGiven = false;
   bool standby = false;
   bool autoStandby = false;
   std::string peerSocket = defaultSocket;
   uint32_t socketGroup = ::Daemon::ControlSocket::noGroup;
   std::string trace;
   std::string metrics;
   bool foreground = false;
   std::string user;
   ::Daemon::Privilege::Account account;
   std::map<std::string, uint64_t> limits;  // option name -> value
   Platform::Linux::LinuxPlatform::Options platform;
   Snmp::SubagentOptions snmp;
   Gnmi::Options gnmi;
};

// The limit options and the largest value each takes.
const std::map<std::string, uint64_t> limitOptions = {
    {"--max-clients", 65536},
    {"--max-request-bytes", uint64_t(1) << 30},
    {"--max-reply-backlog-bytes", uint64_t(1) << 34},
    {"--max-external-tlvs-per-client", 1u << 20},
    {"--max-external-tlvs", 1u << 20},
    {"--max-power-ports-per-agent", 1u << 20},
    {"--max-power-ports", 1u << 20},
};

void limitsIs(::Daemon::ClientLimits& l, const std::map<std::string, uint64_t>& values) {
   for (const auto& [opt, v] : values) {
      if (opt == "--max-clients") l.maxClientsIs(uint32_t(v));
      if (opt == "--max-request-bytes") l.maxRequestBytesIs(v);
      if (opt == "--max-reply-backlog-bytes") l.maxReplyBacklogBytesIs(v);
      if (opt == "--max-external-tlvs-per-client") l.maxExternalTlvsPerClientIs(uint32_t(v));
      if (opt == "--max-external-tlvs") l.maxExternalTlvsIs(uint32_t(v));
      if (opt == "--max-power-ports-per-agent") l.maxPowerPortsPerAgentIs(uint32_t(v));
      if (opt == "--max-power-ports") l.maxPowerPortsIs(uint32_t(v));
   }
}

// A standby's own socket when none is given: /run/lldp-agent.sock -> /run/lldp-agent-standby.sock.
std::string standbySocketFor(const std::string& peer) {
   const std::string suffix = ".sock";
   if (peer.size() > suffix.size() && peer.ends_with(suffix)) {
      return peer.substr(0, peer.size() - suffix.size()) + "-standby" + suffix;
   }
   return peer + "-standby";
}

// The lock an agent holds for its whole life, beside its control socket.
std::string lockPathFor(const std::string& socket) {
   return socket + ".lock";
}

// Takes the exclusive lock on `path` without waiting: the descriptor, or -1 (errno set;
// EWOULDBLOCK while another process holds it).
int openLock(const std::string& path) {
   return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
}

int takeLock(const std::string& path) {
   const int fd = openLock(path);
   if (fd < 0) return -1;
   if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int err = errno;
      ::close(fd);
      errno = err;
      return -1;
   }
   return fd;
}

[[noreturn]] void badUsage(const std::string& why) {
   std::cerr << "lldp-agent: " << why << "\nTry 'lldp-agent --help'.\n";
   std::exit(2);
}

Args parseArgs(int argc, char** argv) {
   Args args;
   for (int i = 1; i < argc; ++i) {
      const std::string opt = argv[i];
      if (std::string error; args.snmp.parse(argc, argv, i, &error)) {
         if (!error.empty()) badUsage(error);
         continue;
      }
      if (std::string error; args.gnmi.parse(argc, argv, i, &error)) {
         if (!error.empty()) badUsage(error);
         continue;
      }
      auto value = [&]() -> std::string {
         if (i + 1 >= argc) badUsage("option " + opt + " needs a value");
         return argv[++i];
      };
      if (opt == "--help" || opt == "-h") {
         std::cout << usage << "\nSNMP:\n"
                   << Snmp::SubagentOptions::usage() << "\ngNMI (see lldp-agent(8)):\n"
                   << Gnmi::Options::usage();
         std::exit(0);
      } else if (opt == "--config") {
         args.config = value();
      } else if (opt == "--socket") {
         args.socket = value();
         args.socketGiven = true;
      } else if (opt == "--standby") {
         args.standby = true;
      } else if (opt == "--auto-standby") {
         args.autoStandby = true;
      } else if (opt == "--peer-socket") {
         args.peerSocket = value();
         if (args.peerSocket.empty()) badUsage("--peer-socket: empty path");
      } else if (opt == "--socket-group") {
         const std::string name = value();
         group gr;
         group* found = nullptr;
         char buf[4096];
         if (getgrnam_r(name.c_str(), &gr, buf, sizeof buf, &found) != 0 || !found) {
            badUsage("--socket-group: no group named '" + name + "'");
         }
         args.socketGroup = gr.gr_gid;
      } else if (opt == "--interfaces") {
         args.platform.intfPattern = value();
      } else if (opt == "--mgmt-interfaces") {
         args.platform.mgmtPattern = value();
      } else if (opt == "--system-mac") {
         const std::string text = value();
         auto mac = Wire::EthAddr::parse(text);
         if (!mac || mac->isZero() || mac->isMulticast()) {
            badUsage("--system-mac: '" + text + "' is not a unicast MAC address");
         }
         args.platform.systemMac = *mac;
      } else if (opt == "--trace") {
         args.trace = value();
      } else if (opt == "--metrics") {
         args.metrics = value();
      } else if (opt == "--foreground") {
         args.foreground = true;
      } else if (opt == "--user") {
         args.user = value();
         if (std::string error; !::Daemon::Privilege::accountIs(args.user, &args.account, &error)) {
            badUsage("--user: " + error);
         }
      } else if (limitOptions.count(opt)) {
         const std::string text = value();
         char* end = nullptr;
         errno = 0;
         const unsigned long long n = std::strtoull(text.c_str(), &end, 10);
         if (text.empty() || *end || text[0] == '-' || errno || n < 1 || n > limitOptions.at(opt)) {
            badUsage(opt + ": '" + text + "' is not a number from 1 to " +
                     std::to_string(limitOptions.at(opt)));
         }
         args.limits[opt] = n;
      } else {
         badUsage("unknown option '" + opt + "'");
      }
   }
   if (args.standby) {
      if (!args.socketGiven) args.socket = standbySocketFor(args.peerSocket);
      if (args.socket == args.peerSocket) {
         badUsage("--standby: --socket must differ from --peer-socket (" + args.peerSocket + ")");
      }
   }
   if (std::string error; !args.gnmi.check(&error)) badUsage(error);
#ifndef LLDP_GNMI
   if (!args.gnmi.address.empty()) badUsage("--gnmi: this lldp-agent was built without gRPC");
#endif
   return args;
}

// The configuration file: the configuration language, plus `vlan ID name NAME` lines for
// the VLAN names the kernel does not keep. Those are taken out here (their lines left
// blank, so line numbers in errors stay right) and the rest goes to the language.
struct ConfigFile {
   std::string language;
   std::map<uint16_t, std::string> vlanNames;
};

bool readConfigFile(const std::string& path, ConfigFile* out, std::string* error) {
   std::ifstream in(path);
   if (!in) {
      *error = path + ": " + std::strerror(errno);
      return false;
   }
   std::stringstream text;
   text << in.rdbuf();
   int lineNo = 0;
   for (const std::string& line : Config::splitLines(text.str())) {
      ++lineNo;
      std::istringstream words(line);
      std::string first, vid, keyword;
      words >> first;
      if (first != "vlan") {
         out->language += line + "\n";
         continue;
      }
      words >> vid >> keyword;
      std::string name;
      std::getline(words >> std::ws, name);
      char* end = nullptr;
      const long id = std::strtol(vid.c_str(), &end, 10);
      const std::string where = path + ": line " + std::to_string(lineNo) + ": ";
      if (vid.empty() || *end || id < 1 || id > 4094) {
         *error = where + "vlan: '" + vid + "' is not a VLAN ID (1..4094)";
         return false;
      }
      if (keyword != "name" || name.empty()) {
         *error = where + "expected 'vlan ID name NAME'";
         return false;
      }
      if (name.size() > 32) {
         *error = where + "vlan name: longer than 32 bytes";
         return false;
      }
      out->vlanNames[uint16_t(id)] = name;
      out->language += "\n";
   }
   return true;
}

class AgentDaemon {
public:
   explicit AgentDaemon(Args args) : args_(std::move(args)) {}

   int run() {
      Vel::Log::foregroundIs(args_.foreground);
      Vel::Log::syslogIs(!args_.foreground);
      if (!args_.trace.empty() && !Vel::Trace::configure(args_.trace)) {
         badUsage("--trace: malformed setting '" + args_.trace + "'");
      }
      if (!std::getenv("LLDP_TRACE_FILE")) Vel::Trace::textTraceIs(args_.foreground ? "" : "-");

      if (!args_.user.empty()) {
         // Before any thread starts (the metrics listener's), so that all have it empty.
         std::string error;
         if (::geteuid() != 0) return fail("--user " + args_.user + ": start as root");
         if (!::Daemon::Privilege::boundingSetClear(&error)) {
            return fail("--user " + args_.user + ": " + error);
         }
      }
      // Signals are blocked before any thread starts (the metrics listener's), so they
      // all reach the loop: a thread that did not block them would die of them.
      if (std::string error; !watchSignals(&error)) return fail(error);
      // The exporters asked for, loaded while still root: a standby starts its own only
      // after it took over, when it may have given root up.
      if (std::string error; !loadModules(&error)) return fail(error);
      auto& db = Vel::StateDb::instance();
      limitsIs(*db.mount<::Daemon::ClientLimits>(::Daemon::ClientLimits::path), args_.limits);
      cliConfig_ = db.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig");
      std::string error;
      ConfigFile file;
      if (!args_.config.empty()) {
         if (!readConfigFile(args_.config, &file, &error)) return fail(error);
         if (auto r = Config::load(file.language, *cliConfig_); !r) {
            return fail(args_.config + ": " + r.error->message());
         }
         args_.platform.vlanNames = file.vlanNames;
      }

      platform_ = Platform::Linux::LinuxPlatform::open(args_.platform, db, &error);
      if (!platform_) return fail("cannot read the interfaces: " + error);

      if (args_.autoStandby && !args_.standby) {
         lockFd_ = takeLock(lockPathFor(args_.socket));
         if (lockFd_ < 0 && errno == EWOULDBLOCK) {
            args_.standby = true;
            args_.peerSocket = args_.socket;
            args_.socket = standbySocketFor(args_.socket);
            std::cerr << "lldp-agent: an agent serves " << args_.peerSocket
                      << ": starting as its standby on " << args_.socket << "\n";
         }
      }
      control_ = std::make_unique<::Daemon::ControlSocket>(cliConfig_);
      if (!control_->listen(args_.socket, &error, args_.socketGroup)) return fail(error);
      // Held until the process ends: the sign, for a standby, that this agent lives.
      if (lockFd_ < 0) lockFd_ = takeLock(lockPathFor(args_.socket));
      if (lockFd_ < 0) {
         return fail(errno == EWOULDBLOCK
                         ? "another agent holds " + lockPathFor(args_.socket)
                         : lockPathFor(args_.socket) + ": " + std::strerror(errno));
      }
      cliService_ = std::make_unique<Cli::CliService>(*control_, db);
      externalTlvs_ = std::make_unique<::Daemon::ExternalTlvService>(*control_, db, cliConfig_);
      classification_ =
          std::make_unique<::Daemon::NbrClassificationService>(*control_, db, cliConfig_);
      powerAgentService_ = std::make_unique<Cli::PowerAgentService>(*control_, db);
      // A standby serves metrics, gNMI and SNMP only once it has taken over.
      if (!args_.standby && !startMetrics(&error)) return fail(error);
      if (!args_.standby && !startGnmi(&error)) return fail(error);

      Lldp::Agent::Agent::Options agentOptions;
      agentOptions.standby = args_.standby;
      agentOptions.activeGone = [this] { return probeActiveGone(); };
      agent_ = Vel::make<Lldp::Agent::Agent>("lldp-agent", std::move(agentOptions), db);
      agent_->doInit();
      if (args_.snmp.enabled && !args_.standby) {
         snmp_.reset(snmpStart_(args_.snmp, db));
      }
      std::cerr << (args_.foreground ? "lldp-agent: running; control socket " + args_.socket + "\n"
                                     : std::string());
      control_->opIs(
          "privilege",
          [](const Vel::Json& req, const Vel::Ptr<::Daemon::ControlConnection>& c) {
             return privilegeReply(req, c->peer());
          },
          ::Daemon::ControlSocket::Access::read);
      control_->opIs(
          "switchover",
          [this](const Vel::Json& req, const Vel::Ptr<::Daemon::ControlConnection>& c) {
             return switchover(req, c);
          },
          ::Daemon::ControlSocket::Access::write);
      Vel::EventLoop::instance().post([this] { finishStart(); });
      Vel::EventLoop::instance().run();
      ::sd_notify(0, "STOPPING=1");
      // A standby holding the listening socket serves this path once this agent is gone.
      if (mirrorService_ && mirrorService_->listenersHandedOver()) control_->keepSocketFile();

      // The standby hears that this agent stops before the clean-up empties the tables.
      if (const auto& sm = agent_->redundancyStatusSm(); sm && !handedOver_) sm->doActiveStopping();
      mirrorClient_.reset();
      mirrorService_.reset();
      snmp_.reset();
      gnmi_.reset();
      metrics_.reset();
      if (handedOver_) {
         // The standby is waiting for this agent's socket path and lock: give them up
         // before the clean-up, which sends nothing (no shutdown LLDPDUs).
         control_.reset();
         ::close(std::exchange(lockFd_, -1));
      }
      agent_->doCleanup();
      agent_ = nullptr;
      externalTlvs_.reset();
      classification_.reset();
      cliService_.reset();
      powerAgentService_.reset();
      control_.reset();
      platform_.reset();
      if (lockFd_ >= 0) ::close(lockFd_);
      if (peerLockFd_ >= 0) ::close(peerLockFd_);
      if (peerLockProbeFd_ >= 0) ::close(peerLockProbeFd_);
      return exitCode_;
   }

private:
   bool loadModules(std::string* error) {
      namespace Modules = ::Daemon::ExporterModules;
      const auto load = [error](auto entry, auto** start, const char* what) {
         *start = Modules::load(entry, error);
         if (!*start) *error = std::string(what) + ": " + *error;
         return *start != nullptr;
      };
      return (args_.metrics.empty() || load(Modules::metrics, &metricsStart_,
                                            "--metrics: cannot load the metrics exporter")) &&
             (args_.gnmi.address.empty() ||
              load(Modules::gnmi, &gnmiStart_, "--gnmi: cannot load the gNMI server")) &&
             (!args_.snmp.enabled ||
              load(Modules::snmp, &snmpStart_, "--agentx: cannot load the SNMP subagent"));
   }

   bool startGnmi(std::string* error) {
      if (!gnmiStart_) return true;
      gnmi_.reset(gnmiStart_(args_.gnmi, Vel::StateDb::instance(), error));
      return gnmi_ != nullptr;
   }

   bool startMetrics(std::string* error) {
      if (!metricsStart_) return true;
      metrics_.reset(metricsStart_(args_.metrics, Vel::StateDb::instance(), error));
      return metrics_ != nullptr;
   }

   // Whether the active agent is gone: its lock can be taken. Once taken it is kept, so
   // no other agent starts on that path while this one serves it.
   bool probeActiveGone() {
      if (peerLockFd_ >= 0) return true;
      // The descriptor opened at start (as root, when --user gives root up later).
      if (peerLockProbeFd_ < 0) peerLockProbeFd_ = openLock(lockPathFor(args_.peerSocket));
      if (peerLockProbeFd_ < 0 || ::flock(peerLockProbeFd_, LOCK_EX | LOCK_NB) != 0) return false;
      peerLockFd_ = std::exchange(peerLockProbeFd_, -1);
      return true;
   }

   // The standby becomes the active agent, before its machines start: the mirror stops
   // for good, the active agent's socket path is served from now on (the dead agent's
   // socket file replaced, now that it is proven gone), then metrics and SNMP.
   void takeover(Lldp::SwitchoverReason reason) {
      std::cerr << "lldp-agent: taking over from the active agent (" << reason << ")\n";
      if (mirrorClient_) mirrorClient_->stop();
      std::string error;
      // The active agent's listening socket, if it handed it over, is served as it is: no
      // socket file to make (which a standby run as --user could not).
      const int listener = mirrorClient_ ? mirrorClient_->takeListener("control") : -1;
      if (listener >= 0 ? control_->adopt(listener, args_.peerSocket, &error)
                        : control_->relisten(args_.peerSocket, &error)) {
         // This agent is now the one on that path: its lock is the one to hold, and the
         // standby's path is free for the next standby.
         ::close(std::exchange(lockFd_, std::exchange(peerLockFd_, -1)));
         args_.socket = args_.peerSocket;
      } else {
         std::cerr << "lldp-agent: takeover: cannot serve " << args_.peerSocket << ": " << error
                   << "; still serving " << control_->path() << "\n";
      }
      if (!startMetrics(&error)) std::cerr << "lldp-agent: takeover: " << error << "\n";
      if (!startGnmi(&error)) std::cerr << "lldp-agent: takeover: " << error << "\n";
      if (args_.snmp.enabled) {
         snmp_.reset(snmpStart_(args_.snmp, Vel::StateDb::instance()));
      }
      startMirrorService();
      ::sd_notify(0, "STATUS=active (took over)");
   }

   // The active agent's side of the mirror, for a standby of its own.
   void startMirrorService() {
      auto& db = Vel::StateDb::instance();
      mirrorService_ = std::make_unique<::Daemon::MirrorService>(
          *control_, db.mount<Lldp::AllStatus>("l2discovery/lldp/status/all"),
          agent_->redundancyStatus());
      agent_->redundancyStatusSm()->mirrorServerIs(mirrorService_->hooks());
   }

   // {"op":"switchover","user":U,"terminal":T}: hands over to the standby in sync, then
   // exits without shutdown LLDPDUs; refused with the reason when there is none.
   Vel::Json switchover(const Vel::Json& req, const Vel::Ptr<::Daemon::ControlConnection>& c) {
      const auto& sm = agent_->redundancyStatusSm();
      if (!sm) return ::Daemon::ControlSocket::errorReply("switchover: the agent is not ready");
      std::string who = c->peer().user + " pid " + std::to_string(c->peer().pid);
      if (auto u = req.find("user");
          u != req.end() && u->is_string() && u->get<std::string>() != c->peer().user) {
         who += " (client says " + Vel::printableBytes(u->get<std::string>()) + ")";
      }
      if (auto t = req.find("terminal"); t != req.end() && t->is_string()) {
         who += " on " + Vel::printableBytes(t->get<std::string>());
      }
      if (who.size() > 255) who.resize(255);
      sm->exitHandlerIs([this] {
         handedOver_ = true;
         Vel::EventLoop::instance().stop();
      });
      // Refused at once, or handed over at once, or later (the standby confirms): then
      // the final word goes after the first.
      auto answer = std::make_shared<std::optional<std::string>>();
      auto inCall = std::make_shared<bool>(true);
      Vel::Ptr<::Daemon::ControlConnection> conn = c;
      sm->switchoverRequest(who, [answer, inCall, conn](const std::string& why) {
         if (*inCall) {
            *answer = why;
         } else if (!conn->closed()) {
            conn->send(switchoverReply(why));
         }
      });
      *inCall = false;
      if (answer->has_value()) return switchoverReply(**answer);
      return ::Daemon::ControlSocket::okReply({{"state", "handingOver"}});
   }
   static Vel::Json switchoverReply(const std::string& why) {
      if (!why.empty()) return ::Daemon::ControlSocket::errorReply("switchover: " + why);
      return ::Daemon::ControlSocket::okReply({{"state", "handedOver"}});
   }

   // Started by systemd (Type=notify): ready once the control socket listens and the
   // agent's mounts have completed, on the loop's first turn, and root is given up.
   void finishStart() {
      if (!agent_->mountsComplete()) {
         Vel::EventLoop::instance().post([this] { finishStart(); });
         return;
      }
      startRedundancy();
      if (!args_.user.empty()) {
         std::string error;
         if (!dropPrivilege(&error)) {
            exitCode_ = fail("--user " + args_.user + ": " + error);
            Vel::EventLoop::instance().stop();
            return;
         }
      }
      ::sd_notify(0, "READY=1");
   }

   // Everything that needs root is open by now but the packet socket, which opens with
   // the first port: open it now and keep it, so ports that come later need nothing.
   bool dropPrivilege(std::string* error) {
      Platform::Linux::LinuxPam::Options ring;
      const auto& root = agent_->protocolRoot();
      if (root && root->pamMan()) ring.settings = root->pamMan()->settings();
      if (!Platform::Linux::LinuxPam::ringKeep(ring, error)) {
         *error = "cannot open packet access: " + *error;
         return false;
      }
      if (!::Daemon::Privilege::dropTo(args_.account, error) ||
          !::Daemon::Privilege::sandboxIs(error)) {
         return false;
      }
      // What the agent opens again later must be open to the user.
      if (!args_.config.empty() && ::access(args_.config.c_str(), R_OK) != 0) {
         std::cerr << "lldp-agent: warning: user " << args_.user << " cannot read " << args_.config
                   << " (" << std::strerror(errno)
                   << "): SIGHUP will keep the configuration in force\n";
      }
      if (args_.snmp.enabled && ::access(args_.snmp.socket.c_str(), W_OK) != 0 && errno != ENOENT) {
         std::cerr << "lldp-agent: warning: user " << args_.user
                   << " cannot connect to the AgentX socket " << args_.snmp.socket << " ("
                   << std::strerror(errno)
                   << "): after the master agent restarts the MIB is not registered again "
                      "(give a group of the user access with snmpd's agentXPerms)\n";
      }
      return true;
   }

   // {"op":"privilege"}: who the agent runs as and what holds it; {"probe":true} (root or
   // the agent's user) also makes one system call the filter refuses and says what the
   // kernel answered.
   static Vel::Json privilegeReply(const Vel::Json& req, const ::Daemon::Peer& peer) {
      using ::Daemon::Privilege;
      Vel::Json data = {{"uid", ::geteuid()},
                        {"capEff", Privilege::procStatus("CapEff")},
                        {"noNewPrivs", Privilege::procStatus("NoNewPrivs")},
                        {"seccomp", Privilege::procStatus("Seccomp")}};
      if (req.value("probe", false)) {
         if (!peer.privileged) {
            return ::Daemon::ControlSocket::errorReply("privilege: the probe is for root only");
         }
         const int err = Privilege::probe();
         data["probe"] = err == EPERM ? std::string("refused") : std::strerror(err);
      }
      data["syscallsRefused"] = Privilege::syscallsRefused();
      return ::Daemon::ControlSocket::okReply(std::move(data));
   }

   int fail(const std::string& why) {
      std::cerr << "lldp-agent: " << why << "\n";
      return 1;
   }

   bool watchSignals(std::string* error) {
      sigset_t set;
      sigemptyset(&set);
      for (int s : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, s);
      ::sigprocmask(SIG_BLOCK, &set, nullptr);
      ::signal(SIGPIPE, SIG_IGN);
      signalFd_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
      if (signalFd_ < 0) {
         *error = std::string("signalfd: ") + std::strerror(errno);
         return false;
      }
      signals_ = std::make_unique<Vel::FdReactor>(signalFd_, [this] { handleSignals(); });
      return true;
   }

   void handleSignals() {
      signalfd_siginfo info;
      while (::read(signalFd_, &info, sizeof(info)) == ssize_t(sizeof(info))) {
         if (info.ssi_signo == SIGHUP) {
            reload();
         } else {
            Vel::EventLoop::instance().stop();
         }
      }
   }

   void reload() {
      platform_->refreshSystem();
      if (args_.config.empty()) return;
      ConfigFile file;
      std::string error;
      if (!readConfigFile(args_.config, &file, &error)) {
         std::cerr << "lldp-agent: SIGHUP: keeping the configuration in force: " << error << "\n";
         return;
      }
      if (auto r = Config::load(file.language, *cliConfig_); !r) {
         std::cerr << "lldp-agent: SIGHUP: keeping the configuration in force: " << args_.config
                   << ": " << r.error->message() << "\n";
         return;
      }
      platform_->vlanNamesIs(file.vlanNames);
   }

   // The role, once the agent's machines exist: an active agent serves a standby's mirror;
   // a standby mirrors the active agent and takes over from it.
   void startRedundancy() {
      const auto& sm = agent_->redundancyStatusSm();
      agent_->redundancyStatus()->peerSocketIs(args_.standby ? args_.peerSocket : std::string());
      if (!sm->standby()) {
         startMirrorService();
         return;
      }
      sm->takeoverHandlerIs([this](Lldp::SwitchoverReason reason) { takeover(reason); });
      peerLockProbeFd_ = openLock(lockPathFor(args_.peerSocket));
      ::Daemon::MirrorClient::Options options;
      options.peerSocket = args_.peerSocket;
      mirrorClient_ = std::make_unique<::Daemon::MirrorClient>(
          options, agent_->standbyLldpStatusDirSm(), agent_->redundancyStatus(), sm);
      mirrorClient_->start();
   }

   Args args_;
   Lldp::CliConfig::Ptr cliConfig_;
   std::unique_ptr<Platform::Linux::LinuxPlatform> platform_;
   std::unique_ptr<::Daemon::ControlSocket> control_;
   std::unique_ptr<Cli::CliService> cliService_;
   std::unique_ptr<::Daemon::ExternalTlvService> externalTlvs_;
   std::unique_ptr<::Daemon::NbrClassificationService> classification_;
   std::unique_ptr<Cli::PowerAgentService> powerAgentService_;
   std::unique_ptr<Vel::ModuleObject> metrics_;
   Vel::Ptr<Lldp::Agent::Agent> agent_;
   // The exporters' modules' entry points, when their options are given.
   ::Daemon::ExporterModules::MetricsStart* metricsStart_ = nullptr;
   ::Daemon::ExporterModules::GnmiStart* gnmiStart_ = nullptr;
   ::Daemon::ExporterModules::SnmpStart* snmpStart_ = nullptr;
   std::unique_ptr<Vel::ModuleObject> snmp_;
   std::unique_ptr<::Daemon::MirrorService> mirrorService_;
   std::unique_ptr<::Daemon::MirrorClient> mirrorClient_;
   int lockFd_ = -1;           // this agent's lock, beside its own socket
   int peerLockFd_ = -1;       // the former active agent's, once taken over
   int peerLockProbeFd_ = -1;  // the active agent's lock file, for probing
   bool handedOver_ = false;
   std::unique_ptr<Vel::ModuleObject> gnmi_;
   int signalFd_ = -1;
   std::unique_ptr<Vel::FdReactor> signals_;
   int exitCode_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
   return AgentDaemon(parseArgs(argc, argv)).run();
}
