#include "fuzz/ControlHarness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Config/ConfigLanguage.h"
#include "Framework/Vel/Dir.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Records/Identity.h"
#include "Records/LldpExternalTlv.h"
#include "Records/LldpLocalSystem.h"
#include "fuzz/RecordBytes.h"

namespace Fuzz {

namespace {

Vel::EventLoop& loop() {
   return Vel::EventLoop::instance();
}
Vel::StateDb& db() {
   return Vel::StateDb::instance();
}

const char* const cliConfigPath = "l2discovery/lldp/cliConfig";
const char* const externalTlvsPath = "l2discovery/lldp/externalTlvs";
const char* const powerAgentsPath = "environment/power/status/poePort";

// The published records a request may write, each whole, as bytes.
template <class E>
void appendDir(std::string& out, const char* path) {
   auto dir = db().entityAs<Vel::Dir>(path);
   if (!dir) {
      out += '~';
      return;
   }
   appendRecordBytes(out, uint32_t(dir->entry().size()));
   for (const auto& [name, entry] : dir->entry()) {
      appendRecordBytes(out, name);
      if (auto e = dir->entryAs<E>(name)) {
         appendRecordBytes(out, *e);
      } else {
         out += '?';  // something else under the name
      }
   }
}

// A record at `path`, typed E as a rule; anything else there as its JSON export.
template <class E>
void appendRecord(std::string& out, const std::string& path) {
   if (auto e = db().entityAs<E>(path)) {
      out += '*';
      appendRecordBytes(out, *e);
   } else {
      appendJson(out, db().json(path));
   }
}

bool dirEmpty(const char* path) {
   auto dir = db().entityAs<Vel::Dir>(path);
   return !dir || dir->entry().empty();
}

}  // namespace

ControlHarness::ControlHarness() {
   rx_.replayCorpus();
   db().entityIs("l2discovery/lldp/config", rx_.config());
   db().entityIs("l2discovery/lldp/localSystem", rx_.localSystem());
   db().entityIs("l2discovery/lldp/status/local", rx_.status());
   auto all = db().mount<Lldp::AllStatus>("l2discovery/lldp/status/all");
   auto intfs = db().mount<Interface::AllIntfStatusDir>("interface/status/all");
   for (size_t i = 0; i < RxHarness::portCount; ++i) {
      intfs->intfStatusIs(rx_.intf(i))->ifIndexIs(uint32_t(i + 1));
      all->portStatusIs(rx_.intf(i), rx_.portStatus(i));
   }
   db().mount<Lldp::RemTablesStatus>("l2discovery/lldp/remTablesStatus");

   char tmpl[] = "/tmp/lldp-control-fuzz.XXXXXX";
   if (!mkdtemp(tmpl)) std::abort();
   dir_ = tmpl;
   cliConfig_ = db().mount<Lldp::CliConfig>(cliConfigPath);
   socket_ = std::make_unique<Daemon::ControlSocket>(cliConfig_);
   std::string error;
   if (!socket_->listen(dir_ + "/lldp.sock", &error)) std::abort();
   cli_ = std::make_unique<Cli::CliService>(*socket_, db());
   externalTlvs_ = std::make_unique<Daemon::ExternalTlvService>(*socket_, db(), cliConfig_);
   power_ = std::make_unique<Cli::PowerAgentService>(*socket_, db());
   loop().advanceBy(0);
}

ControlHarness::~ControlHarness() {
   disconnect();
   power_.reset();
   externalTlvs_.reset();
   cli_.reset();
   socket_.reset();
   std::filesystem::remove_all(dir_);
}

void ControlHarness::writable(std::string& out) const {
   out.clear();
   appendRecord<Lldp::CliConfig>(out, cliConfigPath);
   appendDir<Lldp::ExternalTlvConfig>(out, externalTlvsPath);
   appendDir<Environment::Power::PoePortStatus>(out, powerAgentsPath);
   appendRecord<Lldp::RemTablesCliConfig>(out, "l2discovery/lldp/remTablesCliConfig");
   appendRecord<Identity::Dot1x::Status>(out, "identity/dot1x/status");
   appendRecord<Identity::Macsec::Status>(out, "identity/macsec/status");
}

bool ControlHarness::trim() {
   bool trimmed = false;
   if (cliConfig_->cliPortConfig().size() > objectLimit) {
      Config::load("", *cliConfig_);
      trimmed = true;
   }
   if (auto dir = db().entityAs<Vel::Dir>(externalTlvsPath);
       dir && dir->entry().size() > objectLimit) {
      std::vector<std::string> names;
      for (const auto& [name, e] : dir->entry()) names.push_back(name);
      for (const auto& name : names) externalTlvs_->clientIs(name, nullptr);
      trimmed = true;
   }
   if (auto dir = db().entityAs<Vel::Dir>(powerAgentsPath);
       dir && dir->entry().size() > objectLimit) {
      std::vector<std::string> names;
      for (const auto& [name, e] : dir->entry()) names.push_back(name);
      for (const auto& name : names) {
         power_->powerAgent({{"op", "power-agent"}, {"agent", name}, {"withdraw", true}});
      }
      trimmed = true;
   }
   return trimmed;
}

int ControlHarness::connect() {
   int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   sockaddr_un addr{};
   addr.sun_family = AF_UNIX;
   std::strncpy(addr.sun_path, socket_->path().c_str(), sizeof addr.sun_path - 1);
   if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
      std::abort();
   }
   const size_t before = socket_->clientCount();
   loop().runUntil([&] { return socket_->clientCount() > before; }, 5);
   return fd;
}

void ControlHarness::disconnect() {
   if (fd_ < 0) return;
   ::shutdown(fd_, SHUT_WR);
   loop().runUntil(
       [&] {
          char chunk[4096];
          while (::recv(fd_, chunk, sizeof chunk, MSG_DONTWAIT) > 0) {
          }
          return socket_->clientCount() == 0;
       },
       10);
   ::close(fd_);
   fd_ = -1;
   // What a client leaves behind goes with it (its external TLVs, its power agent's ports).
   if (!dirEmpty(externalTlvsPath) || !dirEmpty(powerAgentsPath)) known_.reset();
   loop().runUntil([&] { return socket_->clientCount() == 0; }, 10);
   loop().advanceBy(0);
}

ControlHarness::Reply ControlHarness::replyOf(std::string_view line) {
   // The server writes each message as one JSON object on a line; a reply has "ok" among
   // its top-level members, an event of a watch stream does not.
   size_t i = line.find_first_not_of(" \t\r");
   if (i == std::string_view::npos || line[i] != '{') return Reply::none;
   int depth = 0;
   bool inString = false;
   char last = 0;  // the last character outside a string that was not a blank
   for (; i < line.size(); ++i) {
      const char c = line[i];
      if (inString) {
         if (c == '\\')
            ++i;
         else if (c == '"')
            inString = false;
         continue;
      }
      if (c == '"') {
         if (depth == 1 && (last == '{' || last == ',') && line.substr(i, 4) == "\"ok\"") {
            size_t v = line.find_first_not_of(" \t", i + 4);
            if (v == std::string_view::npos || line[v] != ':') return Reply::malformed;
            v = line.find_first_not_of(" \t", v + 1);
            if (v == std::string_view::npos) return Reply::malformed;
            if (line.substr(v, 4) == "true") return Reply::accepted;
            if (line.substr(v, 5) == "false") return Reply::refused;
            return Reply::malformed;
         }
         inString = true;
         last = c;
         continue;
      }
      if (c == '{' || c == '[')
         ++depth;
      else if (c == '}' || c == ']')
         --depth;
      if (c != ' ' && c != '\t') last = c;
   }
   return Reply::none;
}

ControlHarness::Reply ControlHarness::exchange(std::string_view bytes, bool wantReply) {
   size_t sent = 0;
   bool failed = false;
   Reply reply = Reply::none;
   bool done = loop().runUntil(
       [&] {
          while (sent < bytes.size()) {
             ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
             if (n < 0 && errno == EAGAIN) break;
             if (n <= 0) return failed = true;
             sent += size_t(n);
          }
          char chunk[16384];
          ssize_t n;
          while ((n = ::recv(fd_, chunk, sizeof chunk, MSG_DONTWAIT)) > 0)
             in_.append(chunk, size_t(n));
          if (n == 0) return failed = true;
          if (sent < bytes.size()) return false;
          if (!wantReply) return true;
          for (size_t nl; (nl = in_.find('\n', scanned_)) != std::string::npos;) {
             const std::string_view line(in_.data() + scanned_, nl - scanned_);
             scanned_ = nl + 1;
             reply = replyOf(line);
             if (reply != Reply::none) {
                replyText_.assign(line.substr(0, 200));
                in_.erase(0, scanned_);
                scanned_ = 0;
                return true;
             }
          }
          return false;
       },
       10);
   return done && !failed ? (wantReply ? reply : Reply::accepted) : Reply::none;
}

bool ControlHarness::mayWrite(std::string_view line) {
   // The operations that write (the others are served as reads), or an escape that could
   // spell one.
   for (std::string_view word :
        {"configure", "load", "clear-neighbors", "external-tlvs", "power-agent", "\\"}) {
      if (line.find(word) != std::string_view::npos) return true;
   }
   return false;
}

void ControlHarness::feed(const uint8_t* data, size_t size) {
   if (trim()) known_.reset();
   // One connection serves input after input, the way a long-lived client's does; a new
   // one replaces it when the last input left it closed or in the middle of a line.
   if (fd_ < 0) {
      in_.clear();
      scanned_ = 0;
      fd_ = connect();
   }
   const std::string_view stream(reinterpret_cast<const char*>(data), size);
   size_t pos = 0;
   bool midLine = false;
   while (pos < stream.size() && wrong_.empty()) {
      const size_t nl = stream.find('\n', pos);
      const size_t end = nl == std::string_view::npos ? stream.size() : nl + 1;
      const std::string_view line = stream.substr(pos, end - pos);
      pos = end;
      // The server answers every complete line that is not blank.
      const bool complete = nl != std::string_view::npos;
      const bool blank = line.find_first_not_of(" \t\r\n") == std::string_view::npos;
      const bool request = complete && !blank;
      // What the records held before a request that may write: what the last request
      // that changed them left (a refused one leaves them as they were).
      const bool checked = request && mayWrite(line);
      if (checked && !known_) writable(known_.emplace());
      const Reply reply = exchange(line, request);
      if (reply == Reply::none) {
         if (request) wrong_ = "no reply to a request: " + std::string(line.substr(0, 200));
         disconnect();
         return;
      }
      if (!complete) {
         midLine = true;
         continue;
      }
      if (blank) continue;
      // What the request set in motion settles first.
      loop().advanceBy(0);
      if (reply == Reply::malformed) {
         wrong_ = "a reply without \"ok\": " + replyText_;
      } else if (reply == Reply::accepted) {
         if (checked) known_.reset();
      } else if (checked && (writable(now_), now_ != *known_)) {
         wrong_ = "a refused request changed the records: " + std::string(line.substr(0, 200)) +
                  " -> " + replyText_;
      }
   }
   if (midLine || !wrong_.empty()) disconnect();
   loop().advanceBy(0);
}

}  // namespace Fuzz
