// A small fleet in network namespaces: three agents linked in a triangle by veths, a
// "phone" (raw frames, no agent) on one of them, and a real Prometheus server in a
// namespace of its own that scrapes the three agents over management veths
// (192.0.2.0/24). Prometheus's own parser must take every scrape whole, a neighbour's
// hostile system name must come through as valid UTF-8, and `lldp topology` must draw
// exactly the lab's links, from Prometheus and from one agent's own view.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Cli/Topology.h"
#include "tests/Support/AgentProcess.h"
#include "tests/Support/Frames.h"
#include "tests/Support/IpCmd.h"
#include "tests/Support/NetNs.h"
#include "tests/Support/Poll.h"

namespace {

using TestSupport::Process;
using TestSupport::runCmd;
using TestSupport::tmpName;
using TestSupport::waitFor;

// Namespaces (with them every veth) and a directory for the lab's files, removed when the
// lab goes.
struct Lab {
   std::vector<std::string> names;
   std::string dir = tmpName("metrics-lab");
   ~Lab() {
      for (const auto& n : names) runCmd("ip netns del " + n);
      runCmd("rm -rf " + dir);
   }
};

size_t collect(char* data, size_t size, size_t n, void* out) {
   static_cast<std::string*>(out)->append(data, size * n);
   return size * n;
}

// GET `url` from inside namespace `ns`.
std::string httpGet(const std::string& ns, const std::string& url) {
   TestSupport::NetNsScope scope(ns);
   std::string body;
   CURL* curl = curl_easy_init();
   curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
   curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
   curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
   curl_easy_setopt(curl, CURLOPT_TIMEOUT, 20L);
   const bool ok = curl_easy_perform(curl) == CURLE_OK;
   curl_easy_cleanup(curl);
   return ok ? body : std::string();
}

// One TLV: 7 bits of type, 9 of length.
void tlv(TestSupport::Bytes& f, int type, const std::string& value) {
   f.push_back(char((type << 1) | (value.size() >> 8)));
   f.push_back(char(value.size() & 0xff));
   f.insert(f.end(), value.begin(), value.end());
}

// A phone's LLDPDU: locally assigned chassis ID, MAC port ID, and the system name given.
TestSupport::Bytes phoneFrame(const std::string& sysName) {
   TestSupport::Bytes f =
       TestSupport::bytes({0x01, 0x80, 0xc2, 0, 0, 0x0e, 0x02, 0, 0, 0, 0, 0x42, 0x88, 0xcc});
   tlv(f, 1, std::string("\x07phone-7", 8));
   tlv(f, 2, std::string("\x03\x02\x00\x00\x00\x00\x42", 7));
   tlv(f, 3, std::string("\x00\x78", 2));
   tlv(f, 4, "handset \"front desk\"");
   tlv(f, 5, sysName);
   tlv(f, 8, std::string("\x05\x01\xc6\x33\x64\x07\x01\x00\x00\x00\x00\x00", 12));
   tlv(f, 0, "");
   return f;
}

TEST(MetricsLab, PrometheusScrapesTheFleetAndTopologyDrawsIt) {
   if (::geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
   for (const char* p : {"prometheus", "promtool", "dot"}) {
      if (!runCmd(std::string("command -v ") + p)) GTEST_SKIP() << p << " is not installed";
   }
   const std::string tag = std::to_string(::getpid() % 100000);
   Lab lab;
   ASSERT_TRUE(runCmd("mkdir -p " + lab.dir + "/data"));
   for (const char* n : {"p", "a", "b", "c", "d"}) lab.names.push_back("lldpm" + tag + n);
   const std::string &nsP = lab.names[0], &nsPhone = lab.names[4];
   for (const auto& n : lab.names) {
      ASSERT_TRUE(runCmd("ip netns add " + n));
      ASSERT_TRUE(TestSupport::ipIn(n, "link set lo up"));
   }
   auto link = [&](const std::string& nsX, const std::string& x, const std::string& nsY,
                   const std::string& y) {
      ASSERT_TRUE(runCmd("ip link add " + x + " netns " + nsX + " type veth peer name " + y +
                         " netns " + nsY));
      ASSERT_TRUE(TestSupport::ipIn(nsX, "link set " + x + " up"));
      ASSERT_TRUE(TestSupport::ipIn(nsY, "link set " + y + " up"));
   };
   // The triangle, and the phone on gamma.
   const std::string &nsA = lab.names[1], &nsB = lab.names[2], &nsC = lab.names[3];
   link(nsA, "lab1", nsB, "lab1");
   link(nsB, "lab2", nsC, "lab1");
   link(nsC, "lab2", nsA, "lab2");
   link(nsC, "lab3", nsPhone, "phone0");
   // Management: Prometheus reaches each agent over a /30 of its own. The agents run on
   // the lab links only, and serve metrics on their management address.
   const std::vector<std::string> agentNs = {nsA, nsB, nsC}, names = {"alpha", "beta", "gamma"};
   std::vector<std::string> targets, sockets;
   std::vector<std::unique_ptr<Process>> agents;
   for (size_t i = 0; i < 3; ++i) {
      const std::string file = lab.dir + "/" + names[i];
      const std::string agentIp = "192.0.2." + std::to_string(4 * i + 2);
      link(nsP, "m" + names[i], agentNs[i], "mgmt0");
      ASSERT_TRUE(TestSupport::ipIn(
          nsP, "addr add 192.0.2." + std::to_string(4 * i + 1) + "/30 dev m" + names[i]));
      ASSERT_TRUE(TestSupport::ipIn(agentNs[i], "addr add " + agentIp + "/30 dev mgmt0"));
      targets.push_back(agentIp + ":9101");
      std::ofstream(file + ".conf") << "lldp timer 2\nlldp system-name " << names[i] << "\n";
      sockets.push_back(file + ".sock");
      agents.push_back(std::make_unique<Process>(
          std::vector<std::string>{"ip", "netns", "exec", agentNs[i], LLDP_AGENT, "--config",
                                   file + ".conf", "--socket", sockets[i], "--interfaces", "lab*",
                                   "--metrics", targets[i], "--foreground"},
          file + ".log"));
   }
   // Prometheus with its own configuration, data and address, inside its namespace.
   std::ofstream(lab.dir + "/prometheus.yml")
       << "global: {scrape_interval: 1s, scrape_timeout: 1s}\n"
          "scrape_configs:\n  - job_name: lldp\n    static_configs:\n      - targets: ['"
       << targets[0] << "', '" << targets[1] << "', '" << targets[2] << "']\n";
   Process prometheus(
       {"ip", "netns", "exec", nsP, "prometheus", "--config.file=" + lab.dir + "/prometheus.yml",
        "--storage.tsdb.path=" + lab.dir + "/data", "--web.listen-address=127.0.0.1:9090"},
       lab.dir + "/log");
   const std::string api = "http://127.0.0.1:9090";
   auto query = [&](const std::string& q) {
      TestSupport::NetNsScope scope(nsP);
      Vel::Json result;
      std::string error;
      return Cli::prometheusQuery(api, q, &result, &error) ? result : Vel::Json();
   };

   // The phone's system name: quotes, a backslash, a line break, é, and bytes that are no
   // UTF-8 (a lone continuation byte, 0xff, a truncated sequence at the end).
   const std::string hostile = std::string("desk \"7\" \\ne\n caf\xc3\xa9 \x80\xff\xe2\x82");
   const std::string shown =
       "desk \"7\" \\ne\n caf\xc3\xa9 \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"
       "\xef\xbf\xbd";
   TestSupport::RawSender phone(nsPhone, "phone0");
   ASSERT_TRUE(phone.ok());
   // Every agent hears its two peers, gamma the phone too, and Prometheus has it all.
   const double took = waitFor(
       [&] {
          phone.send(phoneFrame(hostile));
          const Vel::Json r = query("lldp_neighbor_info");
          return r.is_array() && r.size() == 7;
       },
       60);
   ASSERT_GE(took, 0) << "Prometheus never saw the 7 neighbours; its log:\n"
                      << TestSupport::readFile(lab.dir + "/log");

   // Prometheus's own parser takes gamma's page as it is...
   const std::string page = httpGet(nsC, "http://" + targets[2] + "/metrics");
   ASSERT_FALSE(page.empty());
   std::ofstream(lab.dir + "/page.txt") << page;
   std::string lint;
   EXPECT_TRUE(runCmd("promtool check metrics < " + lab.dir + "/page.txt", &lint)) << lint;
   for (const char* series :
        {"lldp_tx_frames_total{interface=\"lab3\"}",
         "lldp_rx_frames_errors_total{interface=", "lldp_rx_lldpdus_rate_limited_total{",
         "lldp_neighbors{interface=\"lab3\"} 1", "lldp_admin_status{interface=\"lab1\"} 3",
         "lldp_remote_tables_inserts_total 3", "lldp_remote_tables_last_change_timestamp_seconds 1",
         "lldp_neighbor_ttl_seconds{interface=\"lab3\",chassis_id=\"phone-7\",port_id="
         "\"02:00:00:00:00:42\"} 120"}) {
      EXPECT_NE(page.find(series), std::string::npos) << series << "\n" << page;
   }
   // ... and the server kept every sample of every scrape: nothing dropped, nothing failed.
   std::istringstream lines(page);
   size_t pageSamples = 0;
   for (std::string line; std::getline(lines, line);)
      pageSamples += !line.empty() && line[0] != '#';
   for (const auto& t : targets) {
      const Vel::Json up = query("up{instance=\"" + t + "\"}");
      ASSERT_EQ(up.size(), 1u) << t;
      EXPECT_EQ(up[0]["value"][1], "1") << t;
   }
   const Vel::Json scraped =
       query("scrape_samples_post_metric_relabeling{instance=\"" + targets[2] + "\"}");
   ASSERT_EQ(scraped.size(), 1u);
   EXPECT_EQ(scraped[0]["value"][1], std::to_string(pageSamples)) << page;
   const Vel::Json stored =
       query("count({instance=\"" + targets[2] + "\",__name__=~\"lldp_.*|exposer_.*\"})");
   ASSERT_EQ(stored.size(), 1u);
   EXPECT_EQ(stored[0]["value"][1], std::to_string(pageSamples));

   // The phone's names and address arrive intact, the invalid bytes replaced.
   const Vel::Json phoneSeries = query("lldp_neighbor_info{chassis_id=\"phone-7\"}");
   ASSERT_EQ(phoneSeries.size(), 1u);
   const Vel::Json& labels = phoneSeries[0]["metric"];
   EXPECT_EQ(labels["system_name"], shown);
   EXPECT_EQ(labels["port_description"], "handset \"front desk\"");
   EXPECT_EQ(labels["management_address"], "198.51.100.7");
   EXPECT_EQ(labels["interface"], "lab3");

   // The fleet from Prometheus: the triangle and the phone as a leaf, each link once.
   std::map<std::string, std::string> chassis;  // name -> chassis ID
   for (size_t i = 0; i < 3; ++i) {
      const auto r = TestSupport::runCli(sockets[i], {"show", "local", "--json"});
      chassis[names[i]] = Vel::Json::parse(r.out)["chassisIdentifier"]["value"];
   }
   const std::string dotFile = lab.dir + "/fleet.dot";
   ASSERT_EQ(TestSupport::reap(TestSupport::spawn(
                 {"ip", "netns", "exec", nsP, LLDP_CLI, "topology", "--prometheus", api}, dotFile,
                 lab.dir + "/cli.err")),
             0)
       << TestSupport::readFile(lab.dir + "/cli.err");
   const std::string dot = TestSupport::readFile(dotFile);
   auto edge = [&](std::string a, std::string aPort, std::string b, std::string bPort) {
      if (std::pair(b, bPort) < std::pair(a, aPort)) std::swap(a, b), std::swap(aPort, bPort);
      return "\"" + a + "\" -- \"" + b + "\" [taillabel=\"" + aPort + "\", headlabel=\"" + bPort +
             "\"];";
   };
   const std::set<std::string> expected = {
       edge(chassis["alpha"], "lab1", chassis["beta"], "lab1"),
       edge(chassis["beta"], "lab2", chassis["gamma"], "lab1"),
       edge(chassis["gamma"], "lab2", chassis["alpha"], "lab2"),
       edge(chassis["gamma"], "lab3", "phone-7", "02:00:00:00:00:42")};
   std::set<std::string> edges;
   std::istringstream dotLines(dot);
   for (std::string line; std::getline(dotLines, line);) {
      if (line.find(" -- ") != std::string::npos) edges.insert(line.substr(line.find('"')));
   }
   EXPECT_EQ(edges, expected) << dot;
   for (const auto& name : names) {
      EXPECT_NE(dot.find("[label=\"" + name + "\", shape=box]"), std::string::npos) << dot;
   }
   EXPECT_NE(dot.find("\"phone-7\" [label=\"desk \\\"7\\\" \\\\ne\\n"), std::string::npos) << dot;
   std::string dotErrors;
   EXPECT_TRUE(runCmd("dot -Tcanon " + dotFile + " -o /dev/null", &dotErrors)) << dotErrors;

   // Gamma's own view, rendered: its three links.
   const auto local = TestSupport::runCli(sockets[2], {"topology"});
   ASSERT_EQ(local.status, 0) << local.err;
   size_t localLinks = 0;
   for (size_t at = 0; (at = local.out.find(" -- ", at)) != std::string::npos; ++at) ++localLinks;
   EXPECT_EQ(localLinks, 3u) << local.out;
   const std::string png = lab.dir + "/gamma.png";
   const auto rendered =
       TestSupport::runCli(sockets[2], {"topology", "--format", "png", "--output", png});
   ASSERT_EQ(rendered.status, 0) << rendered.err;
   EXPECT_EQ(TestSupport::readFile(png).substr(0, 4), "\x89PNG");
   EXPECT_EQ(TestSupport::runCli(sockets[2], {"topology", "--format", "svg"}).status, 2);
}

}  // namespace
