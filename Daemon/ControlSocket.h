// The daemon's control socket: a Unix-domain stream socket, served on the event loop,
// through which the command line reads the state database and changes the configuration.
//
// Protocol: newline-delimited JSON. A request is one JSON object on one line with an "op"
// string; the reply is one JSON object on one line, {"ok":true,"data":...} or
// {"ok":false,"error":"..."}. Replies come in request order. Built-in operations:
//    {"op":"get","path":P}                 the entity published at P, as JSON
//    {"op":"list"}                         {path: type name} for every published entity
//    {"op":"configure","lines":[...]}      configuration lines applied (Config::apply)
//    {"op":"load","text":"..."}            a whole configuration file (Config::load)
//    {"op":"show-configuration"}           the configuration in force, as text
// More are added with opIs().
//
// Who may use it. The socket file belongs to root, mode 0600, or 0660 with the group
// given to listen(): root may do everything, members of that group only what reads
// (operations registered as Access::read: get, list, show-configuration, and the command
// line's show and watch). The kernel says who is connected (SO_PEERCRED and
// SO_PEERGROUPS, taken when the client connects): a client that is neither gets an error
// naming the reason in reply to its first request and is closed; a group member asking
// for an operation that writes gets an error reply and stays connected.
//
// A client never holds up the daemon: sockets are non-blocking, and what a client may
// cost is bounded by the record at ClientLimits::path (Daemon/ClientLimits.h), read as
// each limit is checked: at most maxClients connections (one more gets an error reply
// and is closed), a request line longer than maxRequestBytes gets an error reply and the
// connection is closed, and a client that does not read its replies is dropped once it
// has more than maxReplyBacklogBytes of them waiting (one reply of any size is always
// accepted, so a large table still goes out). Each refusal is counted in the record.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Daemon/ClientLimits.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/Json.h"
#include "Framework/Vel/Ptr.h"
#include "Records/LldpConfig.h"

namespace Daemon {

class ControlSocket;

// The process at the other end of a connection, as the kernel reported it when it
// connected. `user` is the user name of `uid` (or "uid N" when it has none).
struct Peer {
   uint32_t uid = 0;
   uint32_t gid = 0;
   int32_t pid = 0;
   std::string user;
   bool privileged = false;  // may use every operation
   std::string refusal;      // why it may use none (its first request is answered so)
};

// One client connection, as an operation sees it: a streaming operation may keep the
// handle and send more messages later (each one JSON line). Sending on a closed
// connection does nothing.
class ControlConnection : public Vel::RefCounted {
public:
   bool closed() const { return server_ == nullptr; }
   void send(const Vel::Json& message);
   const Peer& peer() const { return peer_; }
   // The next message sent on this connection carries copies of `fds` (SCM_RIGHTS on its
   // first byte), at most maxFds of them. False when the connection is closed, there are
   // too many, or a copy cannot be made.
   static constexpr size_t maxFds = 4;
   bool attachFds(const std::vector<int>& fds);

private:
   friend class ControlSocket;
   explicit ControlConnection(ControlSocket* server, uint64_t id) : server_(server), id_(id) {}
   ControlSocket* server_;
   uint64_t id_;
   Peer peer_;
};

class ControlSocket {
public:
   using Handler = std::function<Vel::Json(const Vel::Json& request)>;
   // A handler that also gets the connection, for operations that keep sending (watch).
   using StreamHandler = std::function<Vel::Json(const Vel::Json& request,
                                                 const Vel::Ptr<ControlConnection>& connection)>;

   // Serves `config` (configure, load, show-configuration) and the state database.
   explicit ControlSocket(Vel::Ptr<Lldp::CliConfig> config);
   ~ControlSocket();
   ControlSocket(const ControlSocket&) = delete;
   ControlSocket& operator=(const ControlSocket&) = delete;

   // Who may use an operation: members of the socket's group too, or root only.
   enum class Access : uint8_t { read, write };
   static constexpr uint32_t noGroup = ~uint32_t(0);

   // Starts listening at `path`, readable and writable by the owner only, or also by the
   // group `readGroup` (a gid), whose members get read-only access. A stale socket file is
   // replaced; a path another server answers on is refused. Returns false with the reason
   // in `error`.
   bool listen(const std::string& path, std::string* error, uint32_t readGroup = noGroup);
   const std::string& path() const { return path_; }
   // Moves the listener to `path` (a standby agent taking over its active agent's path),
   // with the same rules as listen(); connected clients stay, the old socket file goes.
   bool relisten(const std::string& path, std::string* error);
   // Serves `fd`, a listening socket handed over by the agent that served `path` (it stays
   // bound there: no new socket file is made, so no permission on its directory is
   // needed). The old socket file goes as with relisten(). Takes `fd` in every case.
   bool adopt(int fd, const std::string& path, std::string* error);
   // The listening socket, to hand over to a standby; -1 before listen().
   int listenerFd() const { return listenFd_; }
   // The socket file stays when this server goes: another process serves it now.
   void keepSocketFile() { keepSocketFile_ = true; }

   // Adds or replaces an operation. Handlers return the whole reply (okReply/errorReply);
   // an exception from a handler becomes an error reply. An operation is for root only
   // unless registered as Access::read.
   void opIs(const std::string& name, Handler handler, Access access = Access::write);
   void opIs(const std::string& name, StreamHandler handler, Access access = Access::write);

   static Vel::Json okReply(Vel::Json data = nullptr);
   static Vel::Json errorReply(const std::string& text);

   size_t clientCount() const;
   // Clients dropped for not reading their replies or for an oversized request.
   uint64_t clientsDropped() const {
      return limits_->clientsDroppedUnread() + limits_->requestsTooLong();
   }
   // The limits and their counters (the record at ClientLimits::path).
   const ClientLimits::Ptr& limits() const { return limits_; }

private:
   friend class ControlConnection;
   struct Client;

   void onAcceptable();
   // Serves the listening socket `fd` (bound to `path`, with the file `st`) in place of the
   // current one, whose file goes if it is still ours.
   void serveInstead(int fd, std::unique_ptr<Vel::FdReactor> reactor, const struct stat& st,
                     const std::string& path);
   void onReadable(uint64_t id);
   void onWritable();
   Vel::Json handle(const std::string& line, const Vel::Ptr<ControlConnection>& connection);
   // Queues a message for the client and writes what the socket takes now; returns false
   // (and drops the client) if the client is gone or too far behind.
   bool send(uint64_t id, const Vel::Json& message);
   bool flush(Client& c);
   void drop(uint64_t id);

   // Who the client is, from the kernel; false (with the reason) for one not allowed in.
   bool identify(int fd, Peer& peer, std::string& reason) const;

   struct Op {
      StreamHandler handler;
      Access access;
   };
   Vel::Ptr<Lldp::CliConfig> config_;
   ClientLimits::Ptr limits_;
   std::map<std::string, Op> ops_;
   uint32_t readGroup_ = noGroup;
   std::string path_;
   uint64_t boundDev_ = 0;  // the socket file this server made
   uint64_t boundIno_ = 0;
   int listenFd_ = -1;
   bool keepSocketFile_ = false;
   int spareFd_ = -1;       // given up to accept and close a client when out of descriptors
   int writeEpollFd_ = -1;  // clients waiting to write; readable when one of them can
   std::unique_ptr<Vel::FdReactor> listenReactor_;
   std::unique_ptr<Vel::FdReactor> writeReactor_;
   std::map<uint64_t, std::unique_ptr<Client>> clients_;
   uint64_t lastId_ = 0;
};

// A blocking client connection: requests out, reply lines in (a streaming operation such
// as watch sends more than one). Each step waits at most the timeout given to connect
// (0: for ever).
class ControlClient {
public:
   ControlClient() = default;
   ~ControlClient();
   ControlClient(const ControlClient&) = delete;
   ControlClient& operator=(const ControlClient&) = delete;
   bool connect(const std::string& socketPath, Vel::Seconds timeout, std::string* error);
   bool send(const Vel::Json& request, std::string* error);
   // The next line, without its newline.
   bool readLine(std::string* line, std::string* error);

private:
   int fd_ = -1;
   std::string in_;
   size_t used_ = 0;
};

// A blocking client: sends one request and waits for its reply (at most `timeout`
// seconds for each step). Returns false with the reason in `error` when the exchange
// fails; a reply with "ok":false still returns true.
bool request(const std::string& socketPath, const Vel::Json& req, Vel::Json* reply,
             std::string* error, Vel::Seconds timeout = 30);

// A string member of a request into `out`, or `fallback` when it is absent or null. False
// when it is present but not a string.
bool stringArg(const Vel::Json& req, const char* name, std::string* out, std::string fallback);

}  // namespace Daemon
