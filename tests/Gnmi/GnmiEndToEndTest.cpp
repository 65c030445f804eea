// The gNMI server end to end: our daemon with --gnmi in one namespace, lldpd as its
// neighbour in another, and a gNMI client (Python's gRPC from Debian, tests/Gnmi/
// gnmi_client.py) on the daemon's loopback. What the client sees is compared with what
// lldpd is told to be and with what crosses the link.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/Interop/LldpdInteropFixture.h"

namespace {

using namespace Interop;

std::vector<Json> jsonLines(const std::string& text) {
   std::vector<Json> out;
   std::istringstream in(text);
   for (std::string line; std::getline(in, line);) {
      Json j = Json::parse(line, nullptr, false);
      if (!j.is_discarded()) out.push_back(std::move(j));
   }
   return out;
}

std::vector<std::string> clientArgs(const std::string& ns, const std::string& target,
                                    std::vector<std::string> args) {
   args.insert(args.begin(), {"ip", "netns", "exec", ns, "env", "GNMI_PY_DIR=" GNMI_PY_DIR,
                              "/usr/bin/python3", GNMI_CLIENT, target});
   return args;
}

// A leaf of a notification line, by the end of its relative path; null when absent.
Json leaf(const Json& line, const std::string& suffix) {
   const Json u = at(line, {"update", "update"});
   if (!u.is_object()) return nullptr;
   for (auto it = u.begin(); it != u.end(); ++it) {
      const std::string& k = it.key();
      if (k.size() >= suffix.size() &&
          k.compare(k.size() - suffix.size(), suffix.size(), suffix) == 0)
         return it.value();
   }
   return nullptr;
}

class GnmiEndToEnd : public LldpdInterop {
protected:
   void SetUp() override {
      LldpdInterop::SetUp();
      if (IsSkipped()) return;
      if (!haveProgram("/usr/bin/python3") ||
          !TestSupport::runCmd("/usr/bin/python3 -c 'import grpc'")) {
         GTEST_SKIP() << "python3-grpcio is not installed";
      }
      ASSERT_TRUE(TestSupport::ipIn(ns_->nsA(), "link set lo up"));
      link_ = addLink();
   }

   // Our daemon on the link's port in namespace A, serving gNMI on its loopback.
   void startAgent(const std::string& config, std::vector<std::string> extra,
                   std::vector<std::string> clientTls = {}) {
      socket_ = tmpName("gnmi.sock");
      configPath_ = tmpName("gnmi.conf");
      logPath_ = tmpName("gnmi.log");
      std::ofstream(configPath_) << config;
      std::vector<std::string> args = {
          "ip",       "netns", "exec",         ns_->nsA(), LLDP_AGENT,     "--config", configPath_,
          "--socket", socket_, "--interfaces", ourPorts(), "--foreground", "--gnmi",   target_};
      args.insert(args.end(), extra.begin(), extra.end());
      ASSERT_TRUE(agent_.start(args, logPath_));
      std::vector<std::string> caps = {"capabilities"};
      caps.insert(caps.end(), clientTls.begin(), clientTls.end());
      ASSERT_GE(waitFor([&] { return !gnmi(caps).empty() && ok_; }, 10), 0) << readFile(logPath_);
   }
   void TearDown() override {
      if (agent_.running()) {
         EXPECT_EQ(agent_.stop(SIGTERM), 0) << readFile(logPath_);
      }
      if (HasFailure()) std::fprintf(stderr, "--- agent log:\n%s", readFile(logPath_).c_str());
      for (const std::string& f : {socket_, configPath_, logPath_}) ::unlink(f.c_str());
   }

   // One run of the client to its end: its lines; ok_ says whether it exited 0.
   std::vector<Json> gnmi(std::vector<std::string> args) {
      const std::string outPath = tmpName("gnmi-client.out");
      const pid_t pid =
          TestSupport::spawn(clientArgs(ns_->nsA(), target_, std::move(args)), outPath);
      ok_ = pid > 0 && TestSupport::reap(pid) == 0;
      const std::string text = readFile(outPath);
      ::unlink(outPath.c_str());
      return jsonLines(text);
   }
   // The gRPC status code a refused call ended with ("" when it succeeded).
   std::string refusal(std::vector<std::string> args) {
      const std::vector<Json> lines = gnmi(std::move(args));
      if (ok_ || lines.empty()) return "";
      return at(lines.back(), {"error", "code"}).get<std::string>();
   }
   // The value of one leaf by Get in JSON; null when the Get failed.
   Json leafGet(const std::string& path) {
      const std::vector<Json> lines = gnmi({"get", path, "--encoding", "json"});
      const Json u = lines.size() == 1 ? at(lines[0], {"update", "update"}) : Json();
      return u.is_object() && u.size() == 1 ? u.begin().value() : Json();
   }
   Json control(const Json& request) {
      Json reply;
      std::string error;
      return Daemon::request(socket_, request, &reply, &error) ? reply : Json{{"failed", error}};
   }

   std::pair<std::string, std::string> link_;
   std::string target_ = "127.0.0.1:9339";
   Process agent_;
   std::string socket_, configPath_, logPath_;
   bool ok_ = false;
};

// A subscriber running in the background, its lines read as they come.
class Subscriber {
public:
   Subscriber(const std::string& ns, std::vector<std::string> args,
              const std::string& target = "127.0.0.1:9339")
       : outPath_(tmpName("gnmi-sub-" + std::to_string(++count_) + ".out")) {
      proc_.start(clientArgs(ns, target, std::move(args)), outPath_);
   }
   ~Subscriber() {
      proc_.stop(SIGKILL);
      ::unlink(outPath_.c_str());
   }
   std::vector<Json> lines() const { return jsonLines(readFile(outPath_)); }
   bool synced() const {
      const auto l = lines();
      return std::any_of(l.begin(), l.end(), [](const Json& j) { return j.contains("sync"); });
   }
   bool waitExit(double s) { return proc_.waitExit(s); }

private:
   static inline int count_ = 0;
   std::string outPath_;
   Process proc_;
};

// The README's gnmic subscription as our test client's arguments: the path and the modes
// users are told to ask for are the ones this test subscribes with.
std::vector<std::string> readmeSubscription() {
   std::ifstream in(std::string(LLDP_SOURCE_DIR) + "/README.md");
   std::string line, command;
   while (std::getline(in, line)) {
      const auto start = line.find_first_not_of(' ');
      if (command.empty() && (start == std::string::npos || line.compare(start, 6, "gnmic ") != 0))
         continue;
      const bool more = !line.empty() && line.back() == '\\';
      command += line.substr(0, line.size() - more) + " ";
      if (!more) break;
   }
   std::istringstream words(command);
   std::vector<std::string> w{std::istream_iterator<std::string>(words), {}};
   std::vector<std::string> args;
   for (size_t i = 0; i + 1 < w.size(); ++i) {
      std::string v = w[i + 1];
      if (v.size() >= 2 && v.front() == '\'' && v.back() == '\'') v = v.substr(1, v.size() - 2);
      if (w[i] == "subscribe") args.insert(args.begin(), "subscribe");
      if (w[i] == "--path") args.insert(args.begin() + std::min<size_t>(1, args.size()), v);
      if (w[i] == "--mode") args.insert(args.end(), {"--mode", v});
      if (w[i] == "--stream-mode") args.insert(args.end(), {"--sub", v});
   }
   return args;
}

TEST_F(GnmiEndToEnd, LldpdsNeighbourInGetAndStreamOneNotificationPerChangeDeleteOnShutdown) {
   startAgent(agentTimers, {});
   Lldpd peer(ns_->nsB(), "gnmi-peer", peerPorts());
   ASSERT_TRUE(peer.running());
   ASSERT_TRUE(peer.cli("configure system hostname peer-one"));
   const std::string intf = link_.first;
   const std::string nbrs = "/lldp/interfaces/interface[name=" + intf + "]/neighbors";

   // Get: the neighbour's subtree, JSON_IETF, holds lldpd's system name.
   ASSERT_GE(waitFor(
                 [&] {
                    return gnmi({"get", nbrs}).size() == 1 && ok_ &&
                           gnmi({"get", nbrs})[0].dump().find("peer-one") != std::string::npos;
                 },
                 15),
             0);

   // STREAM ON_CHANGE: the current state first, then sync_response.
   // As the README tells users to subscribe.
   std::vector<std::string> readme = readmeSubscription();
   ASSERT_EQ(readme.size(), 6u) << "the README's gnmic subscribe command";
   EXPECT_EQ(readme[1], "/lldp/interfaces/interface[name=*]/neighbors/neighbor[id=*]/state");
   readme.insert(readme.end(), {"--seconds", "40"});
   Subscriber sub(ns_->nsA(), readme);
   ASSERT_GE(waitFor([&] { return sub.synced(); }, 10), 0) << Json(sub.lines()).dump();
   std::string prefix;
   for (const Json& l : sub.lines()) {
      if (leaf(l, "system-name") == "peer-one") prefix = at(l, {"update", "prefix"});
   }
   ASSERT_NE(prefix.find("neighbor[id="), std::string::npos) << Json(sub.lines()).dump();

   // A new system name: one notification carries it, however many frames repeat it.
   const size_t before = sub.lines().size();
   ASSERT_TRUE(peer.cli("configure system hostname peer-two"));
   const auto renamed = [&] {
      size_t n = 0;
      const auto l = sub.lines();
      for (size_t i = before; i < l.size(); ++i) n += leaf(l[i], "system-name") == "peer-two";
      return n;
   };
   ASSERT_GE(waitFor([&] { return renamed() > 0; }, 10), 0) << Json(sub.lines()).dump();
   std::this_thread::sleep_for(std::chrono::seconds(3));  // three more frames from lldpd
   EXPECT_EQ(renamed(), 1u) << Json(sub.lines()).dump();
   for (size_t i = before; i < sub.lines().size(); ++i) {
      EXPECT_EQ(at(sub.lines()[i], {"update", "prefix"}), prefix) << "one neighbour only";
   }

   // lldpd's shutdown LLDPDU: a delete of the neighbour itself.
   // lldpd exits 0 or 1 on SIGTERM; what matters is that it said goodbye first.
   EXPECT_LT(peer.stop(SIGTERM), 128);
   const auto deleted = [&] {
      for (const Json& l : sub.lines()) {
         if (at(l, {"update", "prefix"}) == prefix &&
             at(l, {"update", "delete"}) == Json::array({""}))
            return true;
      }
      return false;
   };
   EXPECT_GE(waitFor(deleted, 5), 0) << Json(sub.lines()).dump();
   EXPECT_TRUE(gnmi({"get", nbrs}).size() <= 1 && ok_);
}

TEST_F(GnmiEndToEnd, SetHelloTimerChangesOurIntervalOnTheWireAndABadSetChangesNothing) {
   startAgent(agentTimers, {"--gnmi-allow-insecure-set"});
   ASSERT_EQ(leafGet("/lldp/config/hello-timer").dump(), Json(1).dump());

   gnmi({"set", "--update", "/lldp/config/hello-timer=3"});
   ASSERT_TRUE(ok_);
   EXPECT_EQ(leafGet("/lldp/config/hello-timer").dump(), Json(3).dump());

   // A Set with one good and one bad change is refused whole; so is a value of a wrong type.
   EXPECT_EQ(refusal({"set", "--update", "/lldp/config/hello-timer=5", "--update",
                      "/lldp/config/no-such-leaf=1"}),
             "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"set", "--update", "/lldp/config/hello-timer=\"soon\""}), "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"set", "--update", "/lldp/state/ttl=9"}), "INVALID_ARGUMENT");
   EXPECT_EQ(leafGet("/lldp/config/hello-timer").dump(), Json(3).dump());

   // On the wire: our frames now come every three seconds.
   const std::string capture = tmpName("gnmi-tshark.out");
   Process tshark(
       {"ip", "netns", "exec", ns_->nsB(), "tshark", "-l", "-i", link_.second, "-f",
        "ether proto 0x88cc", "-a", "duration:11", "-T", "fields", "-e", "frame.time_epoch"},
       capture);
   ASSERT_TRUE(tshark.waitExit(20));
   std::vector<double> times;
   std::istringstream in(readFile(capture));
   for (std::string line; std::getline(in, line);) {
      if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0])) &&
          line.find(' ') == std::string::npos)
         times.push_back(std::atof(line.c_str()));
   }
   ::unlink(capture.c_str());
   ASSERT_GE(times.size(), 3u);
   for (size_t i = 1; i < times.size(); ++i) {
      EXPECT_NEAR(times[i] - times[i - 1], 3.0, 0.3) << "gap " << i;
   }
}

TEST_F(GnmiEndToEnd, BadRequestsGetAnErrorStatusAndTheAgentServesOn) {
   // As a user with no privileges under the system call filter: gRPC's threads must live
   // within it.
   startAgent(agentTimers,
              {"--metrics", "127.0.0.1:9101", "--user", "nobody", "--gnmi-max-subscribers", "1",
               "--gnmi-max-request-bytes", "4096", "--gnmi-max-queue", "16"});
   const std::vector<Json> caps = gnmi({"capabilities"});
   ASSERT_EQ(caps.size(), 1u);
   EXPECT_NE(caps[0].dump().find("openconfig-lldp"), std::string::npos) << caps[0].dump();
   EXPECT_NE(caps[0].dump().find("JSON_IETF"), std::string::npos) << caps[0].dump();

   // Paths: unknown element, wrong key name, empty element; unserved types and encodings;
   // a request beyond --gnmi-max-request-bytes; Set without a writer's certificate.
   EXPECT_EQ(refusal({"get", "/lldp/no-such-thing"}), "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"get", "/lldp/interfaces/interface[nom=x]/state"}), "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"get", "/lldp//config"}), "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"get", "/lldp/interfaces/interface[name=nosuch0]/state"}), "NOT_FOUND");
   EXPECT_EQ(refusal({"get", "/lldp", "--type", "config"}), "UNIMPLEMENTED");
   EXPECT_EQ(refusal({"get", "/lldp", "--encoding", "ascii"}), "UNIMPLEMENTED");
   EXPECT_EQ(refusal({"big-get", "8192"}), "RESOURCE_EXHAUSTED");
   EXPECT_EQ(refusal({"set", "--update", "/lldp/config/hello-timer=7"}), "PERMISSION_DENIED");
   EXPECT_EQ(refusal({"subscribe", "/lldp/state", "--sub", "sample", "--sample-ms", "10"}),
             "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"subscribe", "/lldp/nope", "--mode", "once"}), "INVALID_ARGUMENT");
   EXPECT_EQ(refusal({"subscribe", "/lldp/state", "--mode", "7", "--seconds", "3"}),
             "INVALID_ARGUMENT");
   EXPECT_EQ(leafGet("/lldp/config/hello-timer").dump(), Json(1).dump());

   // ONCE ends by itself after sync_response; POLL answers each Poll with another round.
   std::vector<Json> once = gnmi({"subscribe", "/lldp/state", "--mode", "once"});
   ASSERT_TRUE(ok_);
   ASSERT_GE(once.size(), 3u);
   EXPECT_TRUE(once[once.size() - 2].contains("sync"));
   EXPECT_EQ(once.back(), Json({{"end", "OK"}}));
   std::vector<Json> poll =
       gnmi({"subscribe", "/lldp/config", "--mode", "poll", "--polls", "2", "--seconds", "3"});
   EXPECT_EQ(
       std::count_if(poll.begin(), poll.end(), [](const Json& j) { return j.contains("sync"); }),
       3);

   // One subscriber at most; a second is refused while it lasts.
   {
      Subscriber first(ns_->nsA(), {"subscribe", "/lldp/state", "--seconds", "20"});
      ASSERT_GE(waitFor([&] { return first.synced(); }, 10), 0);
      EXPECT_EQ(refusal({"subscribe", "/lldp/state", "--seconds", "2"}), "RESOURCE_EXHAUSTED");
   }
   // A subscriber that never reads falls behind its own samples and is ended, counted.
   ASSERT_GE(waitFor(
                 [&] {
                    return at(control({{"op", "get"}, {"path", "daemon/gnmi"}}),
                              {"data", "subscribers"}) == 0;
                 },
                 10),
             0);
   std::vector<Json> stalled =
       gnmi({"subscribe", "/lldp", "/lldp", "/lldp", "/lldp", "--sub", "sample", "--sample-ms",
             "100", "--never-read", "--seconds", "12"});
   ASSERT_FALSE(stalled.empty());
   EXPECT_EQ(at(stalled.back(), {"error", "code"}), "RESOURCE_EXHAUSTED") << stalled.back().dump();
   const Json counters = at(control({{"op", "get"}, {"path", "daemon/gnmi"}}), {"data"});
   EXPECT_EQ(counters.value("subscribersDropped", 0), 1) << counters.dump();
   EXPECT_EQ(counters.value("subscribersRefused", 0), 1) << counters.dump();
   // And in the Prometheus metrics.
   std::string metrics;
   ASSERT_TRUE(TestSupport::runIn(
       ns_->nsA(),
       "/usr/bin/python3 -c \"import urllib.request; print(urllib.request.urlopen("
       "'http://127.0.0.1:9101/metrics').read().decode())\"",
       &metrics));
   EXPECT_NE(metrics.find("lldp_gnmi_subscribers_dropped_total 1"), std::string::npos) << metrics;
   EXPECT_NE(metrics.find("lldp_gnmi_subscribers_refused_total 1"), std::string::npos) << metrics;

   // Still serving.
   EXPECT_EQ(leafGet("/lldp/config/hello-timer").dump(), Json(1).dump());
   const Json privilege = control({{"op", "privilege"}});
   EXPECT_EQ(at(privilege, {"data", "syscallsRefused"}), 0) << privilege.dump();
   EXPECT_EQ(agent_.stop(SIGTERM), 0);
   // Nothing refused, nor anything gRPC's own libraries complain of ("RAW:" lines), up to
   // the last thread's exit.
   for (const char* bad : {"efused system call", "RAW:"}) {
      EXPECT_EQ(readFile(logPath_).find(bad), std::string::npos) << readFile(logPath_);
   }
}

TEST_F(GnmiEndToEnd, TlsWithClientCertificatesAndOnlyNamedWritersMaySet) {
   const std::string dir = tmpName("gnmi-pki");
   ASSERT_TRUE(TestSupport::runCmd("mkdir -p " + dir));
   const auto ssl = [&](const std::string& args) {
      return TestSupport::runCmd("cd " + dir + " && openssl " + args);
   };
   const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
   std::ofstream(dir + "/san.ext") << "subjectAltName=IP:192.0.2.1\n";
   ASSERT_TRUE(ssl("req -x509 " + key + "-keyout ca.key -out ca.pem -days 2 -subj /CN=test-ca"));
   ASSERT_TRUE(
       ssl("req -x509 " + key + "-keyout rogue.key -out rogue.pem -days 2 -subj /CN=rogue"));
   for (const std::string name : {"agent", "writer", "reader", "stranger"}) {
      const bool byRogue = name == "stranger";
      ASSERT_TRUE(
          ssl("req " + key + "-keyout " + name + ".key -out " + name + ".csr -subj /CN=" + name));
      ASSERT_TRUE(ssl("x509 -req -in " + name + ".csr -CA " + (byRogue ? "rogue" : "ca") +
                      ".pem -CAkey " + (byRogue ? "rogue" : "ca") + ".key -CAcreateserial -out " +
                      name + ".pem -days 2" + (name == "agent" ? " -extfile san.ext" : "")));
   }
   const auto as = [&](const std::string& who) -> std::vector<std::string> {
      if (who.empty()) return {"--ca", dir + "/ca.pem"};
      return {"--ca",  dir + "/ca.pem",         "--cert", dir + "/" + who + ".pem",
              "--key", dir + "/" + who + ".key"};
   };
   const auto with = [](std::vector<std::string> a, const std::vector<std::string>& b) {
      a.insert(a.end(), b.begin(), b.end());
      return a;
   };
   ASSERT_TRUE(TestSupport::ipIn(ns_->nsA(), "addr add 192.0.2.1/24 dev " + link_.first));
   target_ = "192.0.2.1:9339";

   // Plaintext is for loopback only: the daemon refuses to start with it elsewhere.
   {
      Process plain({"ip", "netns", "exec", ns_->nsA(), LLDP_AGENT, "--socket",
                     tmpName("plain.sock"), "--interfaces", ourPorts(), "--gnmi", target_},
                    tmpName("plain.log"));
      ASSERT_TRUE(plain.waitExit(10));
      EXPECT_NE(readFile(tmpName("plain.log")).find("plaintext gNMI only on a loopback"),
                std::string::npos);
      ::unlink(tmpName("plain.log").c_str());
   }

   startAgent(agentTimers,
              {"--gnmi-tls-cert", dir + "/agent.pem", "--gnmi-tls-key", dir + "/agent.key",
               "--gnmi-tls-ca", dir + "/ca.pem", "--gnmi-write-cn", "writer"},
              as("reader"));
   const std::vector<std::string> set = {"set", "--update", "/lldp/config/hello-timer=4"};
   const std::vector<std::string> get = {"get", "/lldp/config/hello-timer", "--encoding", "json"};
   EXPECT_EQ(refusal(with(set, as("reader"))), "PERMISSION_DENIED");
   gnmi(with(get, as("reader")));
   EXPECT_TRUE(ok_) << "a reader reads";
   gnmi(with(set, as("writer")));
   EXPECT_TRUE(ok_) << "the named writer writes";
   const std::vector<Json> after = gnmi(with(get, as("reader")));
   ASSERT_EQ(after.size(), 1u);
   EXPECT_EQ(at(after[0], {"update", "update", "lldp/config/hello-timer"}), 4);
   // No certificate, one from another CA, or no TLS at all: no connection.
   EXPECT_EQ(refusal(with(get, as(""))), "UNAVAILABLE");
   EXPECT_EQ(refusal(with(get, as("stranger"))), "UNAVAILABLE");
   EXPECT_EQ(refusal(get), "UNAVAILABLE");
   TestSupport::runCmd("rm -rf " + dir);
}

}  // namespace
