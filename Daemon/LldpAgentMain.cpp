// lldp-agent: the LLDP daemon. Reads its configuration file, fills the platform records
// from the kernel, starts the agent, serves the control socket, and runs the event loop
// until SIGTERM or SIGINT; SIGHUP re-reads the configuration file.
#include <grp.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "Cli/CliService.h"
#include "Cli/PowerAgentService.h"
#include "Config/ConfigLanguage.h"
#include "Daemon/ControlSocket.h"
#include "Daemon/ExternalTlvService.h"
#include "Daemon/MetricsExporter.h"
#include "Daemon/NbrClassificationService.h"
#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Lldp/LldpAgent.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Snmp/AgentxSubagent.h"

namespace {

constexpr const char* defaultSocket = "/run/lldp-agent.sock";

const char* const usage = R"(Usage: lldp-agent [OPTION]...
Runs LLDP (IEEE 802.1AB) on every Ethernet and management port of this host or switch:
advertises it to its neighbours and keeps the table of the neighbours it hears.

Options:
  --config FILE           configuration file (the configuration language of `lldp
                          configure`; `vlan ID name NAME` lines name VLANs); re-read on
                          SIGHUP
  --socket PATH           control socket for `lldp` (default /run/lldp-agent.sock)
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
  --help                  this text

Signals: SIGTERM and SIGINT stop the agent cleanly; SIGHUP re-reads the configuration file,
the host name and the system description.
Exit status: 0 after a clean stop, 1 when the agent cannot start (bad configuration
file, control socket in use, no netlink), 2 on a bad command line.

Read and change the running agent with the command line `lldp` (`lldp --help`): show
neighbors, statistics, local, power, configuration; configure; clear neighbors; watch.
Power agents publish their ports' PoE status through the socket (see the README).
)";

struct Args {
   std::string config;
   std::string socket = defaultSocket;
   uint32_t socketGroup = ::Daemon::ControlSocket::noGroup;
   std::string trace;
   std::string metrics;
   bool foreground = false;
   Platform::Linux::LinuxPlatform::Options platform;
   Snmp::SubagentOptions snmp;
};

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
      auto value = [&]() -> std::string {
         if (i + 1 >= argc) badUsage("option " + opt + " needs a value");
         return argv[++i];
      };
      if (opt == "--help" || opt == "-h") {
         std::cout << usage << "\nSNMP:\n" << Snmp::SubagentOptions::usage();
         std::exit(0);
      } else if (opt == "--config") {
         args.config = value();
      } else if (opt == "--socket") {
         args.socket = value();
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
      } else {
         badUsage("unknown option '" + opt + "'");
      }
   }
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

      auto& db = Vel::StateDb::instance();
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

      control_ = std::make_unique<::Daemon::ControlSocket>(cliConfig_);
      if (!control_->listen(args_.socket, &error, args_.socketGroup)) return fail(error);
      cliService_ = std::make_unique<Cli::CliService>(*control_, db);
      externalTlvs_ = std::make_unique<::Daemon::ExternalTlvService>(*control_, db, cliConfig_);
      classification_ =
          std::make_unique<::Daemon::NbrClassificationService>(*control_, db, cliConfig_);
      powerAgentService_ = std::make_unique<Cli::PowerAgentService>(*control_, db);
      if (!args_.metrics.empty()) {
         metrics_ = std::make_unique<::Daemon::MetricsExporter>(db);
         if (!metrics_->listen(args_.metrics, &error)) return fail(error);
      }

      if (!watchSignals(&error)) return fail(error);
      agent_ = Lldp::Agent::agentFactory("lldp-agent");
      agent_->doInit();
      if (args_.snmp.enabled) snmp_ = Snmp::AgentxSubagent::start(args_.snmp, db);
      std::cerr << (args_.foreground ? "lldp-agent: running; control socket " + args_.socket + "\n"
                                     : std::string());
      // Started by systemd (Type=notify): ready once the control socket listens and the
      // agent's mounts have completed, on the loop's first turn.
      Vel::EventLoop::instance().post([] { ::sd_notify(0, "READY=1"); });
      Vel::EventLoop::instance().run();
      ::sd_notify(0, "STOPPING=1");

      snmp_.reset();
      metrics_.reset();
      agent_->doCleanup();
      agent_ = nullptr;
      externalTlvs_.reset();
      classification_.reset();
      cliService_.reset();
      powerAgentService_.reset();
      control_.reset();
      platform_.reset();
      return 0;
   }

private:
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

   Args args_;
   Lldp::CliConfig::Ptr cliConfig_;
   std::unique_ptr<Platform::Linux::LinuxPlatform> platform_;
   std::unique_ptr<::Daemon::ControlSocket> control_;
   std::unique_ptr<Cli::CliService> cliService_;
   std::unique_ptr<::Daemon::ExternalTlvService> externalTlvs_;
   std::unique_ptr<::Daemon::NbrClassificationService> classification_;
   std::unique_ptr<Cli::PowerAgentService> powerAgentService_;
   std::unique_ptr<::Daemon::MetricsExporter> metrics_;
   Vel::Ptr<Lldp::Agent::Agent> agent_;
   std::unique_ptr<Snmp::AgentxSubagent> snmp_;
   int signalFd_ = -1;
   std::unique_ptr<Vel::FdReactor> signals_;
};

}  // namespace

int main(int argc, char** argv) {
   return AgentDaemon(parseArgs(argc, argv)).run();
}
