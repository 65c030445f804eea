#include "Cli/Topology.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

extern char** environ;

namespace Cli {

namespace {

// A DOT double-quoted string. A backslash starts an escape in DOT labels, so it is
// doubled; a line break becomes the label's \n.
std::string quoted(const std::string& s) {
   std::string out = "\"";
   for (char c : s) {
      if (c == '"' || c == '\\') {
         out += '\\';
         out += c;
      } else if (c == '\n') {
         out += "\\n";
      } else if (c != '\r') {
         out += c;
      }
   }
   return out + "\"";
}

size_t collect(char* data, size_t size, size_t n, void* out) {
   static_cast<std::string*>(out)->append(data, size * n);
   return size * n;
}

}  // namespace

bool prometheusQuery(const std::string& url, const std::string& query, Vel::Json* result,
                     std::string* error) {
   std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
   if (!curl) {
      *error = "cannot start an HTTP client";
      return false;
   }
   std::unique_ptr<char, void (*)(void*)> q(
       curl_easy_escape(curl.get(), query.data(), int(query.size())), curl_free);
   std::string base = url;
   while (!base.empty() && base.back() == '/') base.pop_back();
   const std::string full = base + "/api/v1/query?query=" + (q ? q.get() : "");
   std::string body;
   char curlError[CURL_ERROR_SIZE] = "";
   curl_easy_setopt(curl.get(), CURLOPT_URL, full.c_str());
   curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, collect);
   curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
   curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, curlError);
   curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 30L);
   curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT, 10L);
   curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
   curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "http,https");
   if (CURLcode rc = curl_easy_perform(curl.get()); rc != CURLE_OK) {
      *error = base + ": " + (*curlError ? curlError : curl_easy_strerror(rc));
      return false;
   }
   long status = 0;
   curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
   const Vel::Json reply = Vel::Json::parse(body, nullptr, false);
   if (reply.is_discarded() || !reply.is_object()) {
      *error = base + ": HTTP " + std::to_string(status) + ", not a Prometheus API answer";
      return false;
   }
   if (reply.value("status", "") != "success") {
      *error = base + ": " + reply.value("error", "HTTP " + std::to_string(status));
      return false;
   }
   const Vel::Json* data = reply.contains("data") ? &reply["data"] : nullptr;
   if (!data || !data->is_object() || data->value("resultType", "") != "vector" ||
       !(*data)["result"].is_array()) {
      *error = base + ": the query '" + query + "' did not return an instant vector";
      return false;
   }
   *result = (*data)["result"];
   return true;
}

namespace {

std::string label(const Vel::Json& series, const char* name) {
   const Vel::Json& m = series["metric"];
   auto it = m.find(name);
   return it != m.end() && it->is_string() ? it->get<std::string>() : std::string();
}

// A view's identifier ({"subtype": ..., "value": ...}) or string value as text.
std::string text(const Vel::Json& j) {
   if (j.is_string()) return j.get<std::string>();
   if (j.is_object() && j.contains("value")) return text(j["value"]);
   return j.is_null() ? std::string() : j.dump();
}

// Writes `dot` into Graphviz's `dot -TFORMAT -o FILE`.
bool render(const std::string& dot, const std::string& format, const std::string& file,
            std::string* error) {
   int fds[2];
   if (::pipe2(fds, O_CLOEXEC) != 0) {
      *error = std::string("pipe: ") + std::strerror(errno);
      return false;
   }
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init(&actions);
   posix_spawn_file_actions_adddup2(&actions, fds[0], 0);
   std::string t = "-T" + format, o = "-o" + file, prog = "dot";
   char* argv[] = {prog.data(), t.data(), o.data(), nullptr};
   pid_t pid = -1;
   const int rc = posix_spawnp(&pid, "dot", &actions, nullptr, argv, environ);
   posix_spawn_file_actions_destroy(&actions);
   ::close(fds[0]);
   if (rc != 0) {
      ::close(fds[1]);
      *error =
          std::string("cannot run Graphviz's dot (is graphviz installed?): ") + std::strerror(rc);
      return false;
   }
   ::signal(SIGPIPE, SIG_IGN);
   size_t done = 0;
   while (done < dot.size()) {
      const ssize_t n = ::write(fds[1], dot.data() + done, dot.size() - done);
      if (n <= 0 && errno != EINTR) break;
      if (n > 0) done += size_t(n);
   }
   ::close(fds[1]);
   int status = 0;
   while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
   }
   if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      *error = "Graphviz's dot could not render " + file;
      return false;
   }
   return true;
}

}  // namespace

void Topology::agentIs(const std::string& chassisId, const std::string& sysName) {
   Node& n = nodes_[chassisId];
   n.agent = true;
   if (!sysName.empty()) n.name = sysName;  // its own name beats what others heard
}

void Topology::neighborIs(const std::string& localChassis, const std::string& localPort,
                          const std::string& chassisId, const std::string& portId,
                          const std::string& sysName) {
   nodes_.try_emplace(localChassis);
   Node& n = nodes_[chassisId];
   if (n.name.empty()) n.name = sysName;
   auto a = std::pair(localChassis, localPort), b = std::pair(chassisId, portId);
   if (b < a) std::swap(a, b);
   links_.emplace(a.first, a.second, b.first, b.second);
}

std::string Topology::dot() const {
   std::string out = "graph lldp {\n   node [fontname=\"sans-serif\"];\n";
   // Room for a port name at each end of every edge, clear of the nodes.
   out += "   graph [nodesep=0.9, ranksep=1.0];\n";
   out += "   edge [fontname=\"sans-serif\", fontsize=9, labeldistance=2.2, labelangle=30];\n";
   for (const auto& [chassis, node] : nodes_) {
      out += "   " + quoted(chassis) + " [label=" + quoted(node.name.empty() ? chassis : node.name);
      out += node.agent ? ", shape=box];\n" : ", shape=ellipse, style=dashed];\n";
   }
   for (const auto& [a, aPort, b, bPort] : links_) {
      out += "   " + quoted(a) + " -- " + quoted(b) + " [taillabel=" + quoted(aPort) +
             ", headlabel=" + quoted(bPort) + "];\n";
   }
   return out + "}\n";
}

bool topologyFromPrometheus(const std::string& url, Topology* out, std::string* error) {
   Vel::Json locals, neighbors;
   if (!prometheusQuery(url, "lldp_local_info", &locals, error) ||
       !prometheusQuery(url, "lldp_neighbor_info", &neighbors, error)) {
      return false;
   }
   // Each target's own chassis ID, by job and instance.
   std::map<std::string, std::string> chassisOf;
   auto target = [](const Vel::Json& s) { return label(s, "job") + '\n' + label(s, "instance"); };
   for (const Vel::Json& s : locals) {
      const std::string chassis = label(s, "chassis_id");
      if (chassis.empty()) continue;
      chassisOf[target(s)] = chassis;
      out->agentIs(chassis, label(s, "system_name"));
   }
   for (const Vel::Json& s : neighbors) {
      auto local = chassisOf.find(target(s));
      const std::string chassis = label(s, "chassis_id");
      if (local == chassisOf.end() || chassis.empty()) continue;
      out->neighborIs(local->second, label(s, "interface"), chassis, label(s, "port_id"),
                      label(s, "system_name"));
   }
   return true;
}

Topology topologyFromViews(const Vel::Json& local, const Vel::Json& neighbors) {
   Topology t;
   const std::string self = text(local.value("chassisIdentifier", Vel::Json()));
   t.agentIs(self, text(local.value("sysName", Vel::Json())));
   const Vel::Json interfaces = neighbors.value("interfaces", Vel::Json::object());
   for (const auto& [intf, port] : interfaces.items()) {
      for (const Vel::Json& r : port.value("remoteSystem", Vel::Json::array())) {
         t.neighborIs(self, intf, text(r.value("chassisIdentifier", Vel::Json())),
                      text(r.value("portIdentifier", Vel::Json())),
                      text(r.value("sysName", Vel::Json())));
      }
   }
   return t;
}

std::string topologyCommand(const std::vector<std::string>& w,
                            const std::function<Vel::Json(const Vel::Json&)>& call) {
   std::string format = "dot", output, prometheus;
   for (size_t i = 1; i < w.size(); ++i) {
      std::string* value = w[i] == "--format"       ? &format
                           : w[i] == "--output"     ? &output
                           : w[i] == "--prometheus" ? &prometheus
                                                    : nullptr;
      if (!value) return "topology: unexpected '" + w[i] + "'";
      if (i + 1 >= w.size()) return "topology: " + w[i] + " needs a value";
      *value = w[++i];
   }
   if (format != "dot" && format != "svg" && format != "png") {
      return "topology: --format: '" + format + "' is not dot, svg or png";
   }
   if (format != "dot" && output.empty()) return "topology: --format " + format + " needs --output";

   Topology t;
   std::string error;
   if (!prometheus.empty()) {
      if (!topologyFromPrometheus(prometheus, &t, &error)) return error;
   } else {
      const Vel::Json local = call({{"op", "show"}, {"view", "local"}});
      const Vel::Json neighbors = call({{"op", "show"}, {"view", "neighbors"}});
      t = topologyFromViews(local, neighbors);
   }
   const std::string dot = t.dot();
   if (format != "dot") return render(dot, format, output, &error) ? "" : error;
   if (output.empty()) {
      std::cout << dot;
      return "";
   }
   std::ofstream file(output);
   if (!(file << dot) || !file.flush()) return output + ": " + std::strerror(errno);
   return "";
}

}  // namespace Cli
