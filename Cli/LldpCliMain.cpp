// lldp: the command line of the LLDP agent. It talks to lldp-agent over its control
// socket: shows neighbours, counters, the local system and the configuration, changes
// the configuration live, clears the neighbour tables and follows neighbour events.
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Cli/CliText.h"
#include "Cli/Topology.h"
#include "Config/ConfigForms.h"
#include "Config/ConfigLanguage.h"
#include "Daemon/ControlSocket.h"

namespace {

const char* const usageText = R"(Usage: lldp [--socket PATH] [--json] COMMAND

The command line of lldp-agent, the LLDP agent. It reads and changes the running agent
through its control socket.

Commands:
  show neighbors [detail] [interface NAME]
        The neighbours heard on each port: interface, chassis ID, port ID, system name,
        TTL and age. With `detail`, everything each neighbour told us, with the IEEE
        802.1, IEEE 802.3 and LLDP-MED contents decoded (VLAN names, MAU types and
        autonegotiation modes by name, power in watts, network policies, location,
        inventory).
  show statistics [interface NAME]
        Per-port frame and TLV counters and the neighbour-table counters.
  show local [interface NAME]
        What the agent advertises: the local system and each port, with each port's
        configured and advertised LLDP-MED network policies.
  show power [interface NAME]
        PoE per port: what the power agent reports, the neighbour whose power request
        the port answers (requested and allocated power in watts, type, class,
        priority, source) and the Power via MDI TLV the port sends.
  show classification [interface NAME]
        The neighbours classified on each port by MAC address: telephone or device,
        learnt from LLDP or configured, since when, whether a locked port lets the
        telephone through (`dot1x telephone bypass`) and the neighbour it came from.
  show redundancy
        The agent's redundancy role (active or standby), its peer, the mirror of the
        active agent's status (in sync, changes behind, resynchronisations) and the
        last switchover with its reason.
  show redundancy neighbors [detail] [interface NAME]
        On a standby: the neighbours it holds, mirrored from the active agent, as
        `show neighbors` shows them.
  show configuration
        The configuration in force, in the configuration language (save it as a
        configuration file as it stands).
  configure LINE...
        Applies each argument as one line of the configuration language, in order, e.g.
          lldp configure 'lldp timer 5'
          lldp configure 'interface eth1' 'no lldp transmit'
        A bad line refuses the whole request and changes nothing.
  configure -f FILE
        Applies the lines of FILE the same way ('-' reads standard input).
  clear neighbors
        Empties every neighbour table (the agent logs who asked).
  clear classification [mac MAC | interface NAME]
        Forgets the classifications learnt from LLDP: of one address, of one port or
        all (the agent logs who asked). They come back with the neighbour's next
        LLDPDU; configured classifications stay.
  switchover
        Asks the active agent (root only) to hand over to its standby agent (started
        with `lldp-agent --standby`): once the standby has every change, the active
        agent exits without shutdown LLDPDUs and the standby takes over its socket
        path, ports, SNMP and metrics, keeping every neighbour. Refused, with the
        reason, when no standby is in sync. The agent logs who asked.
  watch
        Prints each neighbour added, changed or removed as it happens, until interrupted.
  watch classification
        Prints each neighbour classified, reclassified or unclassified as it happens,
        until interrupted.
  topology [--format dot|svg|png] [--output FILE] [--prometheus URL]
        The links between systems as a Graphviz graph: this system and its neighbours,
        or with --prometheus every agent a Prometheus server scrapes (e.g.
        http://prometheus:9090). DOT on standard output by default; svg and png are
        rendered by Graphviz's `dot` into FILE.

Options (anywhere on the line):
  --socket PATH   the agent's control socket (default /run/lldp-agent.sock, or
                  $LLDP_SOCKET when set)
  --json          JSON instead of text, for scripts (see the README for the schema):
                  numbers with their names beside them (...Name), neighbours' age and
                  ttlRemaining in seconds, times also as RFC 3339 UTC (...Timestamp);
                  indented on a terminal, one line otherwise; `watch` prints one JSON
                  object per line
  --help          this text

Exit status: 0 on success; 2 with one line on standard error when the command, a value
or the configuration is refused or the agent cannot be reached.
)";

struct Options {
   std::string socket = "/run/lldp-agent.sock";
   bool json = false;
   std::vector<std::string> words;
};

[[noreturn]] void fail(const std::string& why) {
   std::cerr << "lldp: " << why << "\n";
   std::exit(2);
}

// For the shell's completion (packaging/completion/lldp): the keywords of every command
// of the configuration language, one command a line ("lldp timer reinitialization", "no
// lldp timer reinitialization"), read from the parser's own table so that completion
// never offers what the parser refuses nor misses what it accepts.
void listKeywords() {
   std::set<std::string> lines = {"exit", "interface", "no interface"};
   for (const auto& form : Config::detail::forms()) {
      std::string words;
      for (std::string_view w : form.words) words.append(words.empty() ? "" : " ").append(w);
      if (form.yes) lines.insert(words);
      if (form.no) lines.insert("no " + words);
   }
   for (const auto& line : lines) std::cout << line << "\n";
}

Options parse(int argc, char** argv) {
   Options o;
   if (const char* env = std::getenv("LLDP_SOCKET"); env && *env) o.socket = env;
   for (int i = 1; i < argc; ++i) {
      const std::string a = argv[i];
      if (a == "--json") {
         o.json = true;
      } else if (a == "--help" || a == "-h" || a == "help") {
         std::cout << usageText;
         std::exit(0);
      } else if (a == "--list-keywords") {
         listKeywords();
         std::exit(0);
      } else if (a == "--socket") {
         if (i + 1 >= argc) fail("--socket needs a path");
         o.socket = argv[++i];
      } else if (a.rfind("--socket=", 0) == 0) {
         o.socket = a.substr(9);
      } else {
         o.words.push_back(a);
      }
   }
   return o;
}

class Client {
public:
   explicit Client(const Options& o) : options_(o) {}

   // Sends the request and returns the reply's data; exits on any failure.
   Vel::Json call(const Vel::Json& req) {
      std::string line = exchange(req);
      Vel::Json reply = Vel::Json::parse(line, nullptr, false);
      if (reply.is_discarded() || !reply.is_object()) fail("malformed reply from the agent");
      if (!reply.value("ok", false)) fail(reply.value("error", std::string("request refused")));
      return reply.value("data", Vel::Json());
   }

   // For --json: the reply's data as the agent wrote it, without parsing it again when
   // it need not be reformatted (a table of many neighbours is large).
   void printData(const Vel::Json& req) {
      std::string line = exchange(req);
      static const std::string head = "{\"data\":", tail = ",\"ok\":true}";
      const bool plain =
          line.size() > head.size() + tail.size() && line.starts_with(head) && line.ends_with(tail);
      if (plain && !::isatty(STDOUT_FILENO)) {
         std::fwrite(line.data() + head.size(), 1, line.size() - head.size() - tail.size(), stdout);
         std::fputc('\n', stdout);
         return;
      }
      Vel::Json reply = Vel::Json::parse(line, nullptr, false);
      if (reply.is_discarded() || !reply.is_object()) fail("malformed reply from the agent");
      if (!reply.value("ok", false)) fail(reply.value("error", std::string("request refused")));
      printJson(reply.value("data", Vel::Json()));
   }

   void printJson(const Vel::Json& j) {
      std::cout << j.dump(::isatty(STDOUT_FILENO) ? 2 : -1, ' ', false,
                          Vel::Json::error_handler_t::replace)
                << "\n";
   }

   Daemon::ControlClient& connection() { return client_; }

   // Sends the request and reads the first reply line.
   std::string exchange(const Vel::Json& req, Vel::Seconds timeout = 60) {
      std::string error, line;
      if (!client_.connect(options_.socket, timeout, &error)) {
         fail("cannot reach the agent: " + error);
      }
      if (!client_.send(req, &error) || !client_.readLine(&line, &error)) fail(error);
      return line;
   }

private:
   const Options& options_;
   Daemon::ControlClient client_;
};

// `interface NAME` and `detail` after a show command.
struct ShowArgs {
   bool detail = false;
   std::string intf;
};

ShowArgs showArgs(const std::vector<std::string>& w, size_t from, bool detailAllowed) {
   ShowArgs a;
   for (size_t i = from; i < w.size(); ++i) {
      if (w[i] == "detail" && detailAllowed && !a.detail) {
         a.detail = true;
      } else if (w[i] == "interface" && a.intf.empty()) {
         if (i + 1 >= w.size()) fail("interface: missing interface name");
         a.intf = w[++i];
      } else {
         fail("show " + w[1] + ": unexpected '" + w[i] + "'");
      }
   }
   return a;
}

std::string whoAmI() {
   if (const char* sudoUser = std::getenv("SUDO_USER"); sudoUser && *sudoUser) return sudoUser;
   if (passwd* pw = ::getpwuid(::getuid())) return pw->pw_name;
   return "uid " + std::to_string(::getuid());
}

std::string whereAmI() {
   for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      if (const char* tty = ::ttyname(fd)) return tty;
   }
   return "command line";
}

int show(const Options& o, Client& c) {
   const auto& w = o.words;
   if (w.size() < 2) {
      fail(
          "show: neighbors, statistics, local, power, classification, redundancy or "
          "configuration?");
   }
   const std::string& what = w[1];
   if (what == "redundancy") {
      const bool mirrored = w.size() > 2 && w[2] == "neighbors";
      const ShowArgs a = mirrored ? showArgs(w, 3, true) : showArgs(w, 2, false);
      Vel::Json req = {{"op", "show-redundancy"}};
      if (mirrored) req.update({{"neighbors", true}, {"detail", a.detail}});
      if (!a.intf.empty()) req["interface"] = a.intf;
      if (o.json) {
         c.printData(req);
      } else {
         const Vel::Json view = c.call(req);
         std::cout << (mirrored ? Cli::neighborsText(view, a.detail) : Cli::redundancyText(view));
      }
      return 0;
   }
   if (what == "classification") {
      const ShowArgs a = showArgs(w, 2, false);
      Vel::Json req = {{"op", "show-classification"}};
      if (!a.intf.empty()) req["interface"] = a.intf;
      if (o.json) {
         c.printData(req);
      } else {
         std::cout << Cli::classificationText(c.call(req));
      }
      return 0;
   }
   if (what == "configuration") {
      if (w.size() > 2) fail("show configuration: unexpected '" + w[2] + "'");
      if (o.json) {
         c.printData({{"op", "get"}, {"path", "l2discovery/lldp/cliConfig"}});
      } else {
         std::cout << c.call({{"op", "show-configuration"}}).get<std::string>();
      }
      return 0;
   }
   if (what != "neighbors" && what != "statistics" && what != "local" && what != "power") {
      fail("show: unknown '" + what +
           "' (neighbors, statistics, local, power, classification, redundancy or "
           "configuration)");
   }
   const ShowArgs a = showArgs(w, 2, what == "neighbors");
   Vel::Json req = {{"op", "show"}, {"view", what}, {"detail", a.detail}};
   if (!a.intf.empty()) req["interface"] = a.intf;
   if (o.json) {
      c.printData(req);
      return 0;
   }
   const Vel::Json view = c.call(req);
   if (what == "neighbors") std::cout << Cli::neighborsText(view, a.detail);
   if (what == "statistics") std::cout << Cli::statisticsText(view);
   if (what == "local") std::cout << Cli::localText(view);
   if (what == "power") std::cout << Cli::powerText(view);
   return 0;
}

int configure(const Options& o, Client& c) {
   const auto& w = o.words;
   std::vector<std::string> lines;
   if (w.size() >= 2 && w[1] == "-f") {
      if (w.size() != 3) fail("configure -f: one file name expected");
      std::stringstream text;
      if (w[2] == "-") {
         text << std::cin.rdbuf();
      } else {
         std::ifstream in(w[2]);
         if (!in) fail(w[2] + ": cannot read the file");
         text << in.rdbuf();
      }
      lines = Config::splitLines(text.str());
   } else {
      lines.assign(w.begin() + 1, w.end());
   }
   if (lines.empty()) fail("configure: no configuration line given");
   c.call({{"op", "configure"}, {"lines", lines}});
   return 0;
}

int clearClassification(const Options& o, Client& c) {
   const auto& w = o.words;
   Vel::Json req = {{"op", "clear-classification"}, {"user", whoAmI()}, {"terminal", whereAmI()}};
   if (w.size() == 4 && (w[2] == "mac" || w[2] == "interface")) {
      req[w[2]] = w[3];
   } else if (w.size() != 2) {
      fail("clear classification: expected 'clear classification [mac MAC | interface NAME]'");
   }
   const Vel::Json data = c.call(req);
   if (o.json) {
      c.printJson(data);
   } else {
      std::cout << "Cleared " << data.value("classificationsCleared", 0) << " classifications.\n";
   }
   return 0;
}

int clear(const Options& o, Client& c) {
   if (o.words.size() >= 2 && o.words[1] == "classification") return clearClassification(o, c);
   if (o.words.size() != 2 || o.words[1] != "neighbors") {
      fail("clear: 'clear neighbors' or 'clear classification'");
   }
   const Vel::Json data =
       c.call({{"op", "clear-neighbors"}, {"user", whoAmI()}, {"terminal", whereAmI()}});
   if (o.json) {
      c.printJson(data);
   } else {
      std::cout << "Cleared " << data.value("remoteSystemsCleared", 0) << " neighbors.\n";
   }
   return 0;
}

int switchover(const Options& o, Client& c) {
   if (o.words.size() != 1) fail("switchover: unexpected '" + o.words[1] + "'");
   Vel::Json data = c.call({{"op", "switchover"}, {"user", whoAmI()}, {"terminal", whereAmI()}});
   // Handing over: the final word follows once the standby has confirmed.
   if (data.value("state", std::string()) == "handingOver") {
      std::string line, error;
      if (!c.connection().readLine(&line, &error)) fail("switchover: " + error);
      Vel::Json reply = Vel::Json::parse(line, nullptr, false);
      if (reply.is_discarded() || !reply.is_object()) fail("malformed reply from the agent");
      if (!reply.value("ok", false)) fail(reply.value("error", std::string("switchover failed")));
      data = reply.value("data", Vel::Json());
   }
   if (o.json) {
      c.printJson(data);
   } else {
      std::cout << "Handed over to the standby agent.\n";
   }
   return 0;
}

int watch(const Options& o, Client& c) {
   const bool classification = o.words.size() == 2 && o.words[1] == "classification";
   if (o.words.size() != 1 && !classification) fail("watch: unexpected '" + o.words[1] + "'");
   // No time limit: events come when they come.
   const Vel::Json req = {{"op", classification ? "watch-classification" : "watch"}};
   Vel::Json reply = Vel::Json::parse(c.exchange(req, 0), nullptr, false);
   if (reply.is_discarded() || !reply.value("ok", false)) {
      fail(reply.is_object() ? reply.value("error", std::string("watch refused"))
                             : std::string("malformed reply from the agent"));
   }
   std::string line, error;
   while (c.connection().readLine(&line, &error)) {
      if (o.json) {
         std::cout << line << std::endl;
         continue;
      }
      Vel::Json event = Vel::Json::parse(line, nullptr, false);
      if (!event.is_discarded()) std::cout << Cli::watchEventText(event) << std::endl;
   }
   fail(error);
}

}  // namespace

int main(int argc, char** argv) {
   const Options o = parse(argc, argv);
   if (o.words.empty()) fail("no command given (try 'lldp --help')");
   Client c(o);
   const std::string& cmd = o.words[0];
   if (cmd == "show") return show(o, c);
   if (cmd == "configure") return configure(o, c);
   if (cmd == "clear") return clear(o, c);
   if (cmd == "watch") return watch(o, c);
   if (cmd == "switchover") return switchover(o, c);
   if (cmd == "topology") {
      const std::string error =
          Cli::topologyCommand(o.words, [&](const Vel::Json& req) { return c.call(req); });
      if (!error.empty()) fail(error);
      return 0;
   }
   fail("unknown command '" + cmd + "' (try 'lldp --help')");
}
