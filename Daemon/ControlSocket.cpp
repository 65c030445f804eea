#include "Daemon/ControlSocket.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <exception>
#include <string_view>
#include <vector>

#include "Config/ConfigLanguage.h"
#include "Framework/Assert.h"
#include "Framework/Trace.h"
#include "Framework/Vel/StateDb.h"

namespace Daemon {

namespace {

Vel::Trace::Handle traceControl("ControlSocket");

constexpr size_t readChunk = 64 * 1024;
constexpr int acceptsPerTurn = 64;

std::string errnoText(const std::string& what) {
   return what + ": " + std::strerror(errno);
}

std::string serialize(const Vel::Json& message) {
   // Text from neighbours or the operator may hold bytes that are not UTF-8; they are
   // replaced rather than failing the whole reply.
   std::string s = message.dump(-1, ' ', false, Vel::Json::error_handler_t::replace);
   s += '\n';
   return s;
}

std::string userName(uid_t uid) {
   passwd pw;
   passwd* found = nullptr;
   char buf[4096];
   if (getpwuid_r(uid, &pw, buf, sizeof buf, &found) == 0 && found) return pw.pw_name;
   return "uid " + std::to_string(uid);
}

std::string groupName(gid_t gid) {
   group gr;
   group* found = nullptr;
   char buf[4096];
   if (getgrgid_r(gid, &gr, buf, sizeof buf, &found) == 0 && found) return gr.gr_name;
   return "gid " + std::to_string(gid);
}

bool unixAddress(const std::string& path, sockaddr_un& addr, std::string* error) {
   addr = {};
   addr.sun_family = AF_UNIX;
   if (path.empty() || path.size() >= sizeof addr.sun_path) {
      if (error) *error = "socket path '" + path + "' is empty or too long";
      return false;
   }
   std::memcpy(addr.sun_path, path.data(), path.size());
   return true;
}

}  // namespace

struct ControlSocket::Client {
   uint64_t id = 0;
   int fd = -1;
   std::unique_ptr<Vel::FdReactor> reader;
   std::string in;   // the request line received so far
   std::string out;  // replies not written yet, from outPos
   size_t outPos = 0;
   bool waitingWritable = false;  // registered in writeEpollFd_
   bool closing = false;          // close once `out` is written
   Vel::Ptr<ControlConnection> connection;
   std::vector<int> fdsNext;  // copies that go with the next message queued
   std::vector<int> fdsOut;   // copies that go with the byte at `fdsAt` of `out`
   size_t fdsAt = 0;

   size_t backlog() const { return out.size() - outPos; }
   ~Client() {
      reader.reset();  // before the descriptor goes
      if (fd >= 0) close(fd);
      for (int f : fdsNext) close(f);
      for (int f : fdsOut) close(f);
   }
};

void ControlConnection::send(const Vel::Json& message) {
   if (server_) server_->send(id_, message);
}

bool ControlConnection::attachFds(const std::vector<int>& fds) {
   if (!server_) return false;
   auto it = server_->clients_.find(id_);
   if (it == server_->clients_.end()) return false;
   auto& c = *it->second;
   if (c.fdsNext.size() + fds.size() > maxFds) {
      VEL_TRACE(traceControl, 0, "cannot hand over more than " << maxFds << " descriptors");
      return false;
   }
   const size_t before = c.fdsNext.size();
   for (int f : fds) {
      const int copy = fcntl(f, F_DUPFD_CLOEXEC, 0);
      if (copy < 0) {
         VEL_TRACE(traceControl, 0, errnoText("cannot copy a descriptor to hand over"));
         // All or none: the copies made so far go.
         for (size_t k = before; k < c.fdsNext.size(); ++k) close(c.fdsNext[k]);
         c.fdsNext.resize(before);
         return false;
      }
      c.fdsNext.push_back(copy);
   }
   return true;
}

Vel::Json ControlSocket::okReply(Vel::Json data) {
   return Vel::Json{{"ok", true}, {"data", std::move(data)}};
}

Vel::Json ControlSocket::errorReply(const std::string& text) {
   return Vel::Json{{"ok", false}, {"error", text}};
}

ControlSocket::ControlSocket(Vel::Ptr<Lldp::CliConfig> config)
    : config_(std::move(config)),
      limits_(Vel::StateDb::instance().mount<ClientLimits>(ClientLimits::path)) {
   VEL_ASSERT(config_, "ControlSocket: serves a configuration");
   using Vel::Json;
   opIs(
       "get",
       [](const Json& req) {
          auto p = req.find("path");
          if (p == req.end() || !p->is_string())
             return errorReply("get: \"path\" must be a string");
          const std::string path = p->get<std::string>();
          Vel::StateDb& db = Vel::StateDb::instance();
          if (db.typeName(path).empty()) return errorReply("no entity at path " + path);
          return okReply(db.json(path));
       },
       Access::read);
   opIs(
       "list",
       [](const Json&) {
          Vel::StateDb& db = Vel::StateDb::instance();
          Json data = Json::object();
          for (const std::string& path : db.paths()) data[path] = db.typeName(path);
          return okReply(std::move(data));
       },
       Access::read);
   opIs("configure", [this](const Json& req) {
      auto l = req.find("lines");
      std::vector<std::string> lines;
      bool good = l != req.end() && l->is_array();
      for (size_t i = 0; good && i < l->size(); ++i) {
         good = (*l)[i].is_string();
         if (good) lines.push_back((*l)[i].get<std::string>());
      }
      if (!good) return errorReply("configure: \"lines\" must be an array of strings");
      Config::Result r = Config::apply(lines, *config_);
      return r ? okReply() : errorReply(r.error->message());
   });
   opIs("load", [this](const Json& req) {
      auto t = req.find("text");
      if (t == req.end() || !t->is_string()) return errorReply("load: \"text\" must be a string");
      Config::Result r = Config::load(t->get<std::string>(), *config_);
      return r ? okReply() : errorReply(r.error->message());
   });
   opIs(
       "show-configuration", [this](const Json&) { return okReply(Config::render(*config_)); },
       Access::read);
}

ControlSocket::~ControlSocket() {
   while (!clients_.empty()) drop(clients_.begin()->first);
   listenReactor_.reset();
   writeReactor_.reset();
   if (listenFd_ >= 0) {
      // Only the socket file this server made: a later server may own the path by now.
      struct stat st;
      if (!keepSocketFile_ && lstat(path_.c_str(), &st) == 0 && st.st_dev == boundDev_ &&
          st.st_ino == boundIno_) {
         unlink(path_.c_str());
      }
      close(listenFd_);
   }
   if (writeEpollFd_ >= 0) close(writeEpollFd_);
   if (spareFd_ >= 0) close(spareFd_);
}

void ControlSocket::opIs(const std::string& name, Handler handler, Access access) {
   opIs(
       name,
       [h = std::move(handler)](const Vel::Json& req, const Vel::Ptr<ControlConnection>&) {
          return h(req);
       },
       access);
}

void ControlSocket::opIs(const std::string& name, StreamHandler handler, Access access) {
   ops_[name] = Op{std::move(handler), access};
}

size_t ControlSocket::clientCount() const {
   return clients_.size();
}

// Makes the listening socket at `path`: the socket file's identity in `st`.
static bool bindListener(const std::string& path, uint32_t readGroup, int* out, struct stat& st,
                         std::string* error) {
   auto fail = [&](const std::string& text) {
      if (error) *error = text;
      VEL_TRACE(traceControl, 0, text);
      return false;
   };
   sockaddr_un addr;
   if (!unixAddress(path, addr, error)) return false;

   // A socket file left by a daemon that died is replaced; one that answers is not.
   if (lstat(path.c_str(), &st) == 0) {
      if (!S_ISSOCK(st.st_mode)) return fail(path + " exists and is not a socket");
      int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (probe < 0) return fail(errnoText("socket"));
      int rc = connect(probe, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
      int err = errno;
      close(probe);
      if (rc == 0 || err != ECONNREFUSED) {
         return fail("another daemon is listening on " + path);
      }
      if (unlink(path.c_str()) != 0 && errno != ENOENT) {
         return fail(errnoText("cannot remove stale socket " + path));
      }
   }

   int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd < 0) return fail(errnoText("socket"));
   // The file is created owner-only, so nobody else can connect even for a moment.
   mode_t old = umask(0177);
   int rc = bind(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
   int err = errno;
   umask(old);
   if (rc != 0) {
      close(fd);
      errno = err;
      return fail(errnoText("cannot bind " + path));
   }
   // The group's members may connect once the file is theirs too: group first, then mode.
   const bool grouped = readGroup != ControlSocket::noGroup;
   if ((grouped && chown(path.c_str(), uid_t(-1), gid_t(readGroup)) != 0) ||
       chmod(path.c_str(), grouped ? 0660 : 0600) != 0 || lstat(path.c_str(), &st) != 0 ||
       ::listen(fd, 64) != 0) {
      std::string text = errnoText("cannot listen on " + path);
      unlink(path.c_str());
      close(fd);
      return fail(text);
   }
   *out = fd;
   return true;
}

bool ControlSocket::listen(const std::string& path, std::string* error, uint32_t readGroup) {
   auto fail = [&](const std::string& text) {
      if (error) *error = text;
      VEL_TRACE(traceControl, 0, text);
      return false;
   };
   if (listenFd_ >= 0) return fail("control socket already listening on " + path_);
   struct stat st;
   int fd = -1;
   if (!bindListener(path, readGroup, &fd, st, error)) return false;
   int wfd = epoll_create1(EPOLL_CLOEXEC);
   if (wfd < 0) {
      std::string text = errnoText("epoll_create1");
      unlink(path.c_str());
      close(fd);
      return fail(text);
   }
   listenFd_ = fd;
   readGroup_ = readGroup;
   writeEpollFd_ = wfd;
   boundDev_ = st.st_dev;
   boundIno_ = st.st_ino;
   path_ = path;
   spareFd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
   listenReactor_ = std::make_unique<Vel::FdReactor>(fd, [this] { onAcceptable(); });
   writeReactor_ = std::make_unique<Vel::FdReactor>(wfd, [this] { onWritable(); });
   if (!listenReactor_->registered() || !writeReactor_->registered()) {
      return fail("cannot watch the control socket on the event loop");
   }
   VEL_TRACE(traceControl, 4, "listening on " << path);
   return true;
}

bool ControlSocket::relisten(const std::string& path, std::string* error) {
   if (listenFd_ < 0) return listen(path, error, readGroup_);
   struct stat st;
   int fd = -1;
   if (!bindListener(path, readGroup_, &fd, st, error)) return false;
   auto reactor = std::make_unique<Vel::FdReactor>(fd, [this] { onAcceptable(); });
   if (!reactor->registered()) {
      unlink(path.c_str());
      close(fd);
      if (error) *error = "cannot watch the control socket on the event loop";
      return false;
   }
   VEL_TRACE(traceControl, 4, "moved from " << path_ << " to " << path);
   serveInstead(fd, std::move(reactor), st, path);
   return true;
}

void ControlSocket::serveInstead(int fd, std::unique_ptr<Vel::FdReactor> reactor,
                                 const struct stat& st, const std::string& path) {
   // The old socket file goes, if it is still the one this server made.
   struct stat old;
   if (lstat(path_.c_str(), &old) == 0 && old.st_dev == boundDev_ && old.st_ino == boundIno_) {
      unlink(path_.c_str());
   }
   listenReactor_ = std::move(reactor);
   close(listenFd_);
   listenFd_ = fd;
   boundDev_ = st.st_dev;
   boundIno_ = st.st_ino;
   path_ = path;
}

bool ControlSocket::adopt(int fd, const std::string& path, std::string* error) {
   auto fail = [&](const std::string& text) {
      close(fd);
      if (error) *error = text;
      VEL_TRACE(traceControl, 0, text);
      return false;
   };
   if (listenFd_ < 0) return fail("adopt: the control socket is not listening");
   // It must be a listening Unix socket bound to `path`, and the file there must exist.
   sockaddr_un addr{};
   socklen_t len = sizeof addr;
   int listening = 0;
   socklen_t optLen = sizeof listening;
   if (getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0 ||
       addr.sun_family != AF_UNIX ||
       getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &optLen) != 0 || !listening) {
      return fail("the socket handed over for " + path + " is not a listening Unix socket");
   }
   const size_t nameLen = len > offsetof(sockaddr_un, sun_path)
                              ? strnlen(addr.sun_path, len - offsetof(sockaddr_un, sun_path))
                              : 0;
   if (std::string_view(addr.sun_path, nameLen) != path) {
      return fail("the socket handed over is bound to '" + std::string(addr.sun_path, nameLen) +
                  "', not " + path);
   }
   struct stat st;
   if (lstat(path.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) {
      return fail(errnoText("the socket file " + path + " handed over is gone"));
   }
   fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
   auto reactor = std::make_unique<Vel::FdReactor>(fd, [this] { onAcceptable(); });
   if (!reactor->registered()) return fail("cannot watch the control socket on the event loop");
   VEL_TRACE(traceControl, 4, "serving " << path << " handed over, instead of " << path_);
   serveInstead(fd, std::move(reactor), st, path);
   return true;
}

void ControlSocket::onAcceptable() {
   for (int i = 0; i < acceptsPerTurn; ++i) {
      int fd = accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (fd < 0) {
         if (errno == EINTR || errno == ECONNABORTED) continue;
         if (errno == EAGAIN || errno == EWOULDBLOCK) return;
         if ((errno == EMFILE || errno == ENFILE) && spareFd_ >= 0) {
            // Out of descriptors: take the client with the spare one and close it at
            // once, rather than leave it pending and the listener readable forever.
            VEL_TRACE(traceControl, 0, "out of descriptors, refusing a client");
            close(spareFd_);
            int c = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (c >= 0) close(c);
            spareFd_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
            continue;
         }
         VEL_TRACE(traceControl, 0, errnoText("accept"));
         return;
      }
      if (clients_.size() >= limits_->maxClients()) {
         const std::string busy = serialize(errorReply(
             "too many clients (at most " + std::to_string(limits_->maxClients()) + ")"));
         (void)!::send(fd, busy.data(), busy.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
         close(fd);
         limits_->clientsRefusedInc();
         VEL_TRACE(traceControl, 2, "too many clients, one refused");
         continue;
      }
      // A client the daemon does not serve still gets its first request answered, with
      // the reason, before it is closed: the reason then reaches the operator.
      Peer peer;
      if (!identify(fd, peer, peer.refusal)) {
         VEL_TRACE(traceControl, 2, "client refused: " << peer.refusal);
      }
      auto c = std::make_unique<Client>();
      c->id = ++lastId_;
      c->fd = fd;
      c->connection = Vel::Ptr<ControlConnection>(new ControlConnection(this, c->id));
      c->connection->peer_ = std::move(peer);
      c->reader = std::make_unique<Vel::FdReactor>(fd, [this, id = c->id] { onReadable(id); });
      if (!c->reader->registered()) continue;  // traced by the loop; closed by ~Client
      VEL_TRACE(traceControl, 4,
                "client " << c->id << " connected: " << c->connection->peer_.user << " pid "
                          << c->connection->peer_.pid);
      clients_.emplace(c->id, std::move(c));
   }
}

bool ControlSocket::identify(int fd, Peer& peer, std::string& reason) const {
   ucred cred{};
   socklen_t len = sizeof cred;
   if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
      reason = errnoText("permission denied: cannot tell who is connecting");
      return false;
   }
   peer.uid = cred.uid;
   peer.gid = cred.gid;
   peer.pid = cred.pid;
   peer.user = userName(cred.uid);
   // Root, and the daemon's own user (which owns the socket file), may do everything.
   peer.privileged = cred.uid == 0 || cred.uid == geteuid();
   if (peer.privileged) return true;
   bool member = readGroup_ != noGroup && cred.gid == readGroup_;
   if (readGroup_ != noGroup && !member) {
      // The groups the client had when it connected, as the kernel kept them.
      gid_t groups[256];
      socklen_t size = sizeof groups;
      if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &size) == 0) {
         for (size_t i = 0; i < size / sizeof(gid_t) && !member; ++i) {
            member = groups[i] == readGroup_;
         }
      }
   }
   if (member) return true;
   reason = "permission denied: user " + peer.user + " is not root" +
            (readGroup_ != noGroup ? " nor in group " + groupName(readGroup_) : std::string());
   return false;
}

void ControlSocket::onReadable(uint64_t id) {
   auto it = clients_.find(id);
   if (it == clients_.end()) return;
   Client& c = *it->second;
   char buf[readChunk];
   ssize_t n = recv(c.fd, buf, sizeof buf, MSG_DONTWAIT);
   if (n < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) return;
      VEL_TRACE(traceControl, 2, "client " << id << ": " << errnoText("read"));
      drop(id);
      return;
   }
   if (n == 0) {
      // The client is done sending. What it still waits for is written, then it goes;
      // a request cut off without its newline is abandoned.
      VEL_TRACE(traceControl, 4, "client " << id << " closed its side");
      c.reader.reset();
      c.closing = true;
      if (c.backlog() == 0) drop(id);
      return;
   }
   const char* p = buf;
   const char* end = buf + n;
   while (p < end) {
      const char* nl = static_cast<const char*>(std::memchr(p, '\n', size_t(end - p)));
      const char* stop = nl ? nl : end;
      const uint64_t maxRequest = limits_->maxRequestBytes();
      if (c.in.size() + size_t(stop - p) > maxRequest) {
         VEL_TRACE(traceControl, 2, "client " << id << ": request over the size limit");
         limits_->requestsTooLongInc();
         c.in.clear();
         c.in.shrink_to_fit();
         c.reader.reset();
         c.closing = true;
         // Nothing more is read: the reply goes out, then the connection is closed.
         shutdown(c.fd, SHUT_RD);
         send(id, errorReply("request longer than " + std::to_string(maxRequest) +
                             " bytes without a newline"));
         return;
      }
      c.in.append(p, stop);
      if (!nl) break;
      p = nl + 1;
      std::string line;
      line.swap(c.in);
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      Vel::Ptr<ControlConnection> connection = c.connection;
      if (!connection->peer().refusal.empty()) {
         c.in.clear();
         c.reader.reset();
         c.closing = true;
         shutdown(c.fd, SHUT_RD);
         send(id, errorReply(connection->peer().refusal));
         return;
      }
      Vel::Json reply = handle(line, connection);
      if (!send(id, reply)) return;  // the client is gone
      if (clients_.find(id) == clients_.end()) return;
   }
}

Vel::Json ControlSocket::handle(const std::string& line,
                                const Vel::Ptr<ControlConnection>& connection) {
   Vel::Json req = Vel::Json::parse(line, nullptr, false);
   if (req.is_discarded()) return errorReply("malformed request: not JSON");
   if (!req.is_object()) return errorReply("malformed request: not a JSON object");
   auto op = req.find("op");
   if (op == req.end() || !op->is_string()) {
      return errorReply("malformed request: no \"op\" string");
   }
   const std::string name = op->get<std::string>();
   auto h = ops_.find(name);
   if (h == ops_.end()) return errorReply("unknown op '" + Vel::printableBytes(name) + "'");
   const Peer& peer = connection->peer();
   if (h->second.access == Access::write && !peer.privileged) {
      VEL_TRACE(traceControl, 2, "op " << name << " refused to " << peer.user);
      return errorReply("permission denied: '" + Vel::printableBytes(name) +
                        "' is for root only (" + peer.user + " may only read)");
   }
   VEL_TRACE(traceControl, 4, "op " << name << " by " << peer.user);
   // Copied: the handler may replace operations, its own included.
   StreamHandler handler = h->second.handler;
   try {
      return handler(req, connection);
   } catch (const std::exception& e) {
      VEL_TRACE(traceControl, 0, "op " << name << " failed: " << e.what());
      return errorReply(name + ": " + e.what());
   }
}

bool ControlSocket::send(uint64_t id, const Vel::Json& message) {
   auto it = clients_.find(id);
   if (it == clients_.end()) return false;
   Client& c = *it->second;
   if (c.backlog() > limits_->maxReplyBacklogBytes()) {
      VEL_TRACE(traceControl, 2, "client " << id << " does not read its replies, dropped");
      limits_->clientsDroppedUnreadInc();
      drop(id);
      return false;
   }
   if (c.outPos == c.out.size() && c.fdsOut.empty()) {
      c.out.clear();
      c.outPos = 0;
   }
   if (!c.fdsNext.empty() && c.fdsOut.empty()) {
      c.fdsOut = std::move(c.fdsNext);
      c.fdsNext.clear();
      c.fdsAt = c.out.size();
   }
   c.out += serialize(message);
   if (!flush(c)) {
      drop(id);
      return false;
   }
   return true;
}

// Sends what is queued from `outPos` up to `end`, with the descriptors to hand over on
// their byte.
static ssize_t sendQueued(int fd, const std::string& out, size_t pos, size_t end,
                          std::vector<int>& fds, size_t fdsAt) {
   if (fds.empty() || pos < fdsAt) {
      return ::send(fd, out.data() + pos, std::min(end, fds.empty() ? end : fdsAt) - pos,
                    MSG_NOSIGNAL | MSG_DONTWAIT);
   }
   iovec iov{const_cast<char*>(out.data() + pos), end - pos};
   alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * ControlConnection::maxFds)];
   const size_t n = fds.size();  // at most maxFds: attachFds() sees to it
   msghdr msg{};
   msg.msg_iov = &iov;
   msg.msg_iovlen = 1;
   msg.msg_control = control;
   msg.msg_controllen = CMSG_SPACE(sizeof(int) * n);
   cmsghdr* cm = CMSG_FIRSTHDR(&msg);
   cm->cmsg_level = SOL_SOCKET;
   cm->cmsg_type = SCM_RIGHTS;
   cm->cmsg_len = CMSG_LEN(sizeof(int) * n);
   std::memcpy(CMSG_DATA(cm), fds.data(), sizeof(int) * n);
   const ssize_t sent = ::sendmsg(fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
   if (sent > 0) {
      for (int f : fds) close(f);
      fds.clear();
   }
   return sent;
}

// Writes what the socket takes; the rest waits for the socket to become writable. Returns
// false when the client has to go: an error, or a closing client with nothing left.
bool ControlSocket::flush(Client& c) {
   while (c.outPos < c.out.size()) {
      ssize_t n = sendQueued(c.fd, c.out, c.outPos, c.out.size(), c.fdsOut, c.fdsAt);
      if (n > 0) {
         c.outPos += size_t(n);
         continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
         if (!c.waitingWritable) {
            epoll_event ev{};
            ev.events = EPOLLOUT;
            ev.data.u64 = c.id;
            if (epoll_ctl(writeEpollFd_, EPOLL_CTL_ADD, c.fd, &ev) != 0) {
               VEL_TRACE(traceControl, 0, errnoText("cannot wait to write"));
               return false;
            }
            c.waitingWritable = true;
         }
         // Compact now and then so a long stream does not keep what it has written.
         if (c.fdsOut.empty() && c.outPos > (size_t(1) << 20) && c.outPos * 2 > c.out.size()) {
            c.out.erase(0, c.outPos);
            c.outPos = 0;
         }
         return true;
      }
      VEL_TRACE(traceControl, 2, "client " << c.id << ": " << errnoText("write"));
      return false;
   }
   // All written: a big reply's buffer is given back.
   if (c.out.capacity() > readChunk) {
      std::string().swap(c.out);
   } else {
      c.out.clear();
   }
   c.outPos = 0;
   if (c.waitingWritable) {
      epoll_ctl(writeEpollFd_, EPOLL_CTL_DEL, c.fd, nullptr);
      c.waitingWritable = false;
   }
   return !c.closing;
}

void ControlSocket::onWritable() {
   epoll_event events[64];
   int n = epoll_wait(writeEpollFd_, events, 64, 0);
   for (int i = 0; i < n; ++i) {
      uint64_t id = events[i].data.u64;
      auto it = clients_.find(id);
      if (it == clients_.end()) continue;
      if (!flush(*it->second)) drop(id);
   }
}

void ControlSocket::drop(uint64_t id) {
   auto it = clients_.find(id);
   if (it == clients_.end()) return;
   Client& c = *it->second;
   if (c.waitingWritable) epoll_ctl(writeEpollFd_, EPOLL_CTL_DEL, c.fd, nullptr);
   c.connection->server_ = nullptr;
   VEL_TRACE(traceControl, 4, "client " << id << " gone");
   clients_.erase(it);
}

// ---------------------------------------------------------------------------------------
// The client.

ControlClient::~ControlClient() {
   if (fd_ >= 0) close(fd_);
}

bool ControlClient::connect(const std::string& socketPath, Vel::Seconds timeout,
                            std::string* error) {
   auto fail = [&](const std::string& text) {
      if (error) *error = text;
      return false;
   };
   sockaddr_un addr;
   if (!unixAddress(socketPath, addr, error)) return false;
   if (fd_ >= 0) close(fd_);
   fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   if (fd_ < 0) return fail(errnoText("socket"));
   timeval tv{};
   if (timeout > 0 && std::isfinite(timeout)) {
      tv.tv_sec = time_t(timeout);
      tv.tv_usec = suseconds_t((timeout - double(tv.tv_sec)) * 1e6);
   }
   setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
   setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
   if (::connect(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) {
      return fail(errnoText("cannot connect to " + socketPath));
   }
   return true;
}

bool ControlClient::send(const Vel::Json& req, std::string* error) {
   const std::string line = serialize(req);
   for (size_t done = 0; done < line.size();) {
      ssize_t n = ::send(fd_, line.data() + done, line.size() - done, MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
         if (error) *error = "the daemon did not take the request in time";
         return false;
      }
      if (n <= 0) {
         if (error) *error = errnoText("cannot send the request");
         return false;
      }
      done += size_t(n);
   }
   return true;
}

bool ControlClient::readLine(std::string* line, std::string* error) {
   auto fail = [&](const std::string& text) {
      if (error) *error = text;
      return false;
   };
   line->clear();
   size_t scanned = used_;  // bytes before this hold no newline
   for (;;) {
      const char* nl =
          static_cast<const char*>(std::memchr(in_.data() + scanned, '\n', in_.size() - scanned));
      if (nl) {
         line->assign(in_.data() + used_, size_t(nl - (in_.data() + used_)));
         used_ = size_t(nl - in_.data()) + 1;
         return true;
      }
      // Keep only the unread part, then read more after it.
      in_.erase(0, used_);
      used_ = 0;
      scanned = in_.size();
      in_.resize(scanned + readChunk);
      ssize_t n = recv(fd_, in_.data() + scanned, readChunk, 0);
      in_.resize(scanned + size_t(std::max<ssize_t>(n, 0)));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
         return fail("no reply from the daemon in time");
      }
      if (n < 0) return fail(errnoText("cannot read the reply"));
      if (n == 0) return fail("the daemon closed the connection");
   }
}

bool request(const std::string& socketPath, const Vel::Json& req, Vel::Json* reply,
             std::string* error, Vel::Seconds timeout) {
   ControlClient client;
   std::string line;
   if (!client.connect(socketPath, timeout, error) || !client.send(req, error) ||
       !client.readLine(&line, error)) {
      return false;
   }
   Vel::Json parsed = Vel::Json::parse(line, nullptr, false);
   if (parsed.is_discarded() || !parsed.is_object()) {
      if (error) *error = "malformed reply from the daemon";
      return false;
   }
   if (reply) *reply = std::move(parsed);
   return true;
}

bool stringArg(const Vel::Json& req, const char* name, std::string* out, std::string fallback) {
   auto it = req.find(name);
   if (it == req.end() || it->is_null()) {
      *out = std::move(fallback);
      return true;
   }
   if (!it->is_string()) return false;
   *out = it->get<std::string>();
   return true;
}

}  // namespace Daemon
