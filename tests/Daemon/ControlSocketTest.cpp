// The control socket over a real Unix socket in a temporary directory: the built-in
// operations, malformed and oversized requests, clients that vanish or stop reading,
// large replies, many clients, the socket file's mode and lifetime, and who may use it.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Config/ConfigLanguage.h"
#include "Daemon/ControlSocket.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "tests/Support/ControlCall.h"

namespace {

using Daemon::ControlSocket;
using Vel::Json;

Vel::EventLoop& loop() {
   return Vel::EventLoop::instance();
}

const std::string statePath = "l2discovery/lldp/test/config";

sockaddr_un addressOf(const std::string& path) {
   sockaddr_un addr{};
   addr.sun_family = AF_UNIX;
   std::strcpy(addr.sun_path, path.c_str());
   return addr;
}

struct ControlSocketTest : ::testing::Test {
   std::string dir;
   std::string path;
   Vel::Ptr<Lldp::CliConfig> config = Vel::make<Lldp::CliConfig>();
   std::unique_ptr<ControlSocket> server;

   void SetUp() override {
      char tmpl[] = "/tmp/control-socket-test.XXXXXX";
      ASSERT_NE(mkdtemp(tmpl), nullptr);
      dir = tmpl;
      path = dir + "/lldp.sock";
      server = std::make_unique<ControlSocket>(config);
      std::string error;
      ASSERT_TRUE(server->listen(path, &error)) << error;
      Vel::StateDb::instance().entityIs(statePath, config);
   }
   void TearDown() override {
      Vel::StateDb::instance().entityDel(statePath);
      Vel::StateDb::instance().entityDel(Daemon::ClientLimits::path);
      server.reset();
      std::filesystem::remove_all(dir);
   }

   // The reply, or {"failed": why} when the exchange failed.
   Json call(const Json& req) { return TestSupport::controlCall(path, req); }

   int connectRaw() {
      int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      const sockaddr_un addr = addressOf(path);
      EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
      // Let the server accept it.
      size_t before = server->clientCount();
      loop().runUntil([&] { return server->clientCount() > before; }, 5);
      return fd;
   }

   // Sends everything, serving the loop while the socket is full.
   void sendRaw(int fd, const std::string& bytes) {
      size_t done = 0;
      bool ok = loop().runUntil(
          [&] {
             while (done < bytes.size()) {
                ssize_t n = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
                if (n <= 0) return n < 0 && errno != EAGAIN;
                done += size_t(n);
             }
             return true;
          },
          10);
      EXPECT_TRUE(ok && done == bytes.size());
   }

   // What a raw client has read so far.
   struct Reader {
      explicit Reader(int f) : fd(f) {}
      int fd;
      std::string buf;
      bool eof = false;
   };
   // Reads all there is; true at end of file.
   static bool readSome(Reader& r) {
      char chunk[65536];
      ssize_t n;
      while ((n = recv(r.fd, chunk, sizeof chunk, MSG_DONTWAIT)) > 0)
         r.buf.append(chunk, size_t(n));
      if (n == 0 || (errno != EAGAIN && errno != EINTR)) r.eof = true;
      return r.eof;
   }
   // Reads one reply line, serving the loop meanwhile.
   Json readReply(Reader& r) {
      loop().runUntil([&] { return readSome(r) || r.buf.find('\n') != std::string::npos; }, 10);
      const size_t nl = r.buf.find('\n');
      const std::string line = r.buf.substr(0, nl);
      r.buf.erase(0, nl == std::string::npos ? nl : nl + 1);
      const Json j = Json::parse(line, nullptr, false);
      EXPECT_FALSE(j.is_discarded()) << line;
      return j;
   }
   bool waitEof(Reader& r) {
      return loop().runUntil([&] { return readSome(r); }, 10);
   }
};

TEST_F(ControlSocketTest, BuiltInOperations) {
   Json r = call({{"op", "get"}, {"path", statePath}});
   EXPECT_EQ(r, ControlSocket::okReply(Vel::StateDb::instance().json(statePath)));
   EXPECT_EQ(call({{"op", "get"}, {"path", "l2discovery/nothing"}}),
             ControlSocket::errorReply("no entity at path l2discovery/nothing"));

   r = call({{"op", "list"}});
   ASSERT_EQ(r["ok"], true);
   EXPECT_EQ(r["data"][statePath], "CliConfig");

   EXPECT_EQ(call({{"op", "configure"},
                   {"lines", {"lldp timer 5", "interface eth1", "  no lldp transmit"}}}),
             ControlSocket::okReply());
   EXPECT_EQ(config->messageTxInterval(), 5u);
   ASSERT_TRUE(config->cliPortConfig(Wire::IntfId("eth1")));
   EXPECT_EQ(config->cliPortConfig(Wire::IntfId("eth1"))->adminStatus(), Lldp::adminStatusRxOnly);

   // A bad line changes nothing.
   EXPECT_EQ(call({{"op", "configure"}, {"lines", {"lldp timer 6", "lldp timer 0"}}}),
             ControlSocket::errorReply("line 2: lldp timer: 0 is out of range 1..65535"));
   EXPECT_EQ(config->messageTxInterval(), 5u);

   EXPECT_EQ(call({{"op", "show-configuration"}}),
             ControlSocket::okReply("lldp timer 5\ninterface eth1\n   no lldp transmit\n"));

   EXPECT_EQ(call({{"op", "load"}, {"text", "lldp hold-time 60\n"}}), ControlSocket::okReply());
   EXPECT_EQ(config->messageTxInterval(), 30u);
   EXPECT_EQ(config->messageTxHoldTime(), 60u);
   EXPECT_TRUE(config->cliPortConfig().empty());
   EXPECT_EQ(call({{"op", "load"}, {"text", "interface\n"}}),
             ControlSocket::errorReply("line 1: interface: expected 'interface NAME'"));
   EXPECT_EQ(config->messageTxHoldTime(), 60u);

   // Operations added later, and a handler that throws.
   server->opIs("echo", [](const Json& req) { return ControlSocket::okReply(req.at("x")); });
   EXPECT_EQ(call({{"op", "echo"}, {"x", 7}}), ControlSocket::okReply(7));
   r = call({{"op", "echo"}});
   EXPECT_EQ(r["ok"], false);
   EXPECT_EQ(r["error"].get<std::string>().substr(0, 6), "echo: ");
}

TEST_F(ControlSocketTest, MalformedRequestsGetErrorsAndTheConnectionStays) {
   int fd = connectRaw();
   Reader rd{fd};
   // All in one write: the replies come back in order, blank lines get none.
   const std::pair<std::string, std::string> cases[] = {
       {"not json", "malformed request: not JSON"},
       {"[1,2]", "malformed request: not a JSON object"},
       {"\n{}", "malformed request: no \"op\" string"},
       {R"({"op":5})", "malformed request: no \"op\" string"},
       {R"({"op":"nope"})", "unknown op 'nope'"},
       {R"({"op":"get"})", "get: \"path\" must be a string"},
       {R"({"op":"get","path":[]})", "get: \"path\" must be a string"},
       {R"({"op":"configure","lines":[1]})", "configure: \"lines\" must be an array of strings"},
       {R"({"op":"configure","lines":"lldp run"})",
        "configure: \"lines\" must be an array of strings"},
       {R"({"op":"load"})", "load: \"text\" must be a string"},
   };
   std::string all;
   for (const auto& c : cases) all += c.first + "\n";
   sendRaw(fd, all + R"({"op":"list"})" + "\n");
   for (const auto& c : cases) EXPECT_EQ(readReply(rd), ControlSocket::errorReply(c.second));
   EXPECT_EQ(readReply(rd)["ok"], true);

   // A request split across writes is put together.
   sendRaw(fd, "{\"op\":\"show-");
   loop().runOnce(0.05);
   sendRaw(fd, "configuration\"}\n");
   EXPECT_EQ(readReply(rd), ControlSocket::okReply(""));
   EXPECT_EQ(server->clientCount(), 1u);
   close(fd);
}

TEST_F(ControlSocketTest, OversizedRequestGetsAnErrorAndIsClosed) {
   int fd = connectRaw();
   Reader rd{fd};
   sendRaw(fd, std::string(size_t(server->limits()->maxRequestBytes()) + 1, 'x'));
   EXPECT_EQ(readReply(rd), ControlSocket::errorReply("request longer than 1048576 bytes without "
                                                      "a newline"));
   EXPECT_TRUE(waitEof(rd));
   EXPECT_TRUE(loop().runUntil([&] { return server->clientCount() == 0; }, 5));
   EXPECT_EQ(server->clientsDropped(), 1u);
   close(fd);

   // Exactly the limit is still a request.
   fd = connectRaw();
   Reader ok{fd};
   std::string big = "{\"op\":\"list\",\"pad\":\"";
   big += std::string(size_t(server->limits()->maxRequestBytes()) - big.size() - 2, 'p') + "\"}";
   ASSERT_EQ(big.size(), size_t(server->limits()->maxRequestBytes()));
   sendRaw(fd, big + "\n");
   EXPECT_EQ(readReply(ok)["ok"], true);
   close(fd);
   EXPECT_EQ(call({{"op", "list"}})["ok"], true);
}

TEST_F(ControlSocketTest, VanishingAndManyClients) {
   // Gone in the middle of a request.
   int fd = connectRaw();
   sendRaw(fd, "{\"op\":\"li");
   close(fd);
   // Gone before reading the reply to a complete one.
   fd = connectRaw();
   sendRaw(fd, "{\"op\":\"list\"}\n{\"op\":\"list\"}\n");
   close(fd);
   EXPECT_TRUE(loop().runUntil([&] { return server->clientCount() == 0; }, 5));

   // A client that is done sending still gets its replies.
   fd = connectRaw();
   Reader half{fd};
   sendRaw(fd, "{\"op\":\"show-configuration\"}\n");
   shutdown(fd, SHUT_WR);
   EXPECT_EQ(readReply(half), ControlSocket::okReply(""));
   EXPECT_TRUE(waitEof(half));
   close(fd);

   // Many at once, each with its own request in flight.
   constexpr int count = 100;
   std::vector<Reader> readers;
   for (int i = 0; i < count; ++i) readers.push_back(Reader{connectRaw()});
   EXPECT_EQ(server->clientCount(), size_t(count));
   for (int i = 0; i < count; ++i) {
      sendRaw(readers[i].fd,
              Json{{"op", "configure"}, {"lines", {"lldp timer " + std::to_string(i + 1)}}}.dump() +
                  "\n");
   }
   for (auto& r : readers) {
      EXPECT_EQ(readReply(r), ControlSocket::okReply());
      close(r.fd);
   }
   EXPECT_EQ(config->messageTxInterval(), uint32_t(count));
   EXPECT_TRUE(loop().runUntil([&] { return server->clientCount() == 0; }, 5));
}

TEST_F(ControlSocketTest, LargeRepliesDoNotHoldUpOthersAndIdleReadersAreDropped) {
   const std::string payload(20 << 20, 'n');  // like a table of 100,000 neighbours
   server->opIs("big", [&](const Json&) { return ControlSocket::okReply(payload); });

   int slow = connectRaw();
   Reader slowReader{slow};
   sendRaw(slow, "{\"op\":\"big\"}\n");
   loop().runOnce(0.05);
   // Its reply waits for it; another client is served meanwhile.
   EXPECT_EQ(call({{"op", "list"}})["ok"], true);
   Json r = readReply(slowReader);
   ASSERT_EQ(r["ok"], true);
   EXPECT_EQ(r["data"].get<std::string>().size(), payload.size());

   // The blocking client reads a large reply whole.
   EXPECT_EQ(call({{"op", "big"}})["data"].get<std::string>().size(), payload.size());

   // One that keeps asking without reading is dropped, and nothing else suffers.
   int idle = connectRaw();
   Reader idleReader{idle};
   sendRaw(idle, "{\"op\":\"big\"}\n{\"op\":\"big\"}\n");
   EXPECT_TRUE(loop().runUntil([&] { return server->clientsDropped() == 1; }, 10));
   EXPECT_EQ(call({{"op", "list"}})["ok"], true);
   // The slow one stays connected (the blocking client's goes as the loop sees it close).
   EXPECT_TRUE(loop().runUntil([&] { return server->clientCount() == 1; }, 5));
   close(slow);
   close(idle);
}

TEST_F(ControlSocketTest, StreamingOperationSendsLater) {
   Vel::Ptr<Daemon::ControlConnection> watcher;
   server->opIs("watch", [&](const Json&, const Vel::Ptr<Daemon::ControlConnection>& c) {
      watcher = c;
      return ControlSocket::okReply("watching");
   });
   int fd = connectRaw();
   Reader rd{fd};
   sendRaw(fd, "{\"op\":\"watch\"}\n");
   EXPECT_EQ(readReply(rd), ControlSocket::okReply("watching"));
   ASSERT_TRUE(watcher);
   watcher->send(Json{{"event", 1}});
   EXPECT_EQ(readReply(rd), (Json{{"event", 1}}));
   close(fd);
   EXPECT_TRUE(loop().runUntil([&] { return watcher->closed(); }, 5));
   watcher->send(Json{{"event", 2}});  // nothing happens
}

TEST_F(ControlSocketTest, SocketFileModeStaleFilesAndASecondServer) {
   struct stat st;
   ASSERT_EQ(stat(path.c_str(), &st), 0);
   EXPECT_TRUE(S_ISSOCK(st.st_mode));
   EXPECT_EQ(st.st_mode & 0777, 0600u);

   // A second server on a live socket is refused and leaves it alone.
   ControlSocket second(config);
   std::string error;
   EXPECT_FALSE(second.listen(path, &error));
   EXPECT_EQ(error, "another daemon is listening on " + path);
   EXPECT_EQ(call({{"op", "list"}})["ok"], true);

   // The server removes its file when it goes; a stale one left by a crash is replaced.
   server.reset();
   EXPECT_NE(stat(path.c_str(), &st), 0);
   int stale = socket(AF_UNIX, SOCK_STREAM, 0);
   const sockaddr_un addr = addressOf(path);
   ASSERT_EQ(bind(stale, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
   close(stale);
   server = std::make_unique<ControlSocket>(config);
   ASSERT_TRUE(server->listen(path, &error)) << error;
   EXPECT_EQ(call({{"op", "list"}})["ok"], true);

   // Something that is not a socket is never removed.
   const std::string file = dir + "/plain";
   close(open(file.c_str(), O_CREAT | O_WRONLY, 0644));
   ControlSocket third(config);
   EXPECT_FALSE(third.listen(file, &error));
   EXPECT_EQ(error, file + " exists and is not a socket");
   EXPECT_EQ(stat(file.c_str(), &st), 0);

   // No server: the client says so.
   server.reset();
   error = call({{"op", "list"}}).value("failed", "");
   EXPECT_EQ(error.rfind("cannot connect to " + path + ": ", 0), 0u) << error;
}

// Sends the requests over one connection from a child with the given user, primary group
// and supplementary groups, serving the loop until it exits; returns one line per answer,
// or why it could not connect.
std::string askAs(const std::string& path, uid_t uid, gid_t gid, std::vector<gid_t> groups,
                  const std::vector<Json>& requests) {
   int pipeFds[2];
   EXPECT_EQ(pipe(pipeFds), 0);
   pid_t pid = fork();
   if (pid == 0) {
      close(pipeFds[0]);
      FILE* out = fdopen(pipeFds[1], "w");
      Daemon::ControlClient client;
      std::string line, err;
      if (setgroups(groups.size(), groups.data()) != 0 || setgid(gid) != 0 || setuid(uid) != 0) {
         fprintf(out, "cannot drop privileges\n");
      } else if (!client.connect(path, 10, &err)) {
         fprintf(out, "%s\n", err.c_str());
      } else {
         for (const Json& req : requests) {
            if (!client.send(req, &err) || !client.readLine(&line, &err)) line = err;
            fprintf(out, "%s\n", line.c_str());
         }
      }
      fclose(out);
      _exit(0);
   }
   close(pipeFds[1]);
   // The pipe's end of file says the child is done; the loop serves it meanwhile.
   std::string text;
   bool eof = false;
   Vel::FdReactor reader(pipeFds[0], [&] {
      char buf[4096];
      ssize_t n = read(pipeFds[0], buf, sizeof buf);
      if (n > 0) text.append(buf, size_t(n));
      eof = n <= 0;
   });
   loop().runUntil([&] { return eof; }, 30);
   waitpid(pid, nullptr, 0);
   close(pipeFds[0]);
   return text;
}

TEST_F(ControlSocketTest, GroupMembersReadOnlyRootWritesOthersCannotConnect) {
   if (geteuid() != 0) GTEST_SKIP() << "needs root to act as other users";
   // Ids no account uses, so no names: the socket's group and two users.
   const gid_t readers = 47000 + gid_t(getpid() % 1000), others = readers + 1000;
   const uid_t member = 47000 + uid_t(getpid() % 1000), outsider = member + 1000;
   server.reset();
   server = std::make_unique<ControlSocket>(config);
   std::string error;
   ASSERT_TRUE(server->listen(path, &error, readers)) << error;
   ASSERT_EQ(chmod(dir.c_str(), 0711), 0);
   struct stat st;
   ASSERT_EQ(stat(path.c_str(), &st), 0);
   EXPECT_EQ(st.st_mode & 0777, 0660u);
   EXPECT_EQ(st.st_gid, readers);
   server->opIs(
       "whoami",
       [](const Json&, const Vel::Ptr<Daemon::ControlConnection>& c) {
          return ControlSocket::okReply({{"user", c->peer().user}, {"uid", c->peer().uid}});
       },
       ControlSocket::Access::read);
   const Json show = {{"op", "show-configuration"}}, list = {{"op", "list"}};
   const std::string shown = ControlSocket::okReply("").dump() + "\n";

   // A member through a supplementary group reads; a write is refused, the connection
   // kept; the kernel, not the client, says who it is.
   const std::string memberName = "uid " + std::to_string(member);
   auto denied = [&](const std::string& op) {
      return ControlSocket::errorReply("permission denied: '" + op + "' is for root only (" +
                                       memberName + " may only read)")
                 .dump() +
             "\n";
   };
   EXPECT_EQ(askAs(path, member, others, {readers},
                   {show,
                    {{"op", "whoami"}},
                    {{"op", "configure"}, {"lines", {"lldp timer 5"}}},
                    {{"op", "load"}, {"text", ""}},
                    list}),
             shown + ControlSocket::okReply({{"user", memberName}, {"uid", member}}).dump() + "\n" +
                 denied("configure") + denied("load") + call(list).dump() + "\n");
   EXPECT_EQ(config->messageTxInterval(), 30u);

   // The same user by its primary group alone reads too; anyone else cannot even connect.
   EXPECT_EQ(askAs(path, member, readers, {}, {show}), shown);
   EXPECT_EQ(askAs(path, outsider, others, {}, {show}),
             "cannot connect to " + path + ": Permission denied\n");

   // Past the file's mode (opened up by mistake), the daemon still turns it away.
   ASSERT_EQ(chmod(path.c_str(), 0666), 0);
   EXPECT_EQ(askAs(path, outsider, others, {}, {show}),
             ControlSocket::errorReply("permission denied: user uid " + std::to_string(outsider) +
                                       " is not root nor in group gid " + std::to_string(readers))
                     .dump() +
                 "\n");

   // Root does everything, under its own name.
   EXPECT_EQ(call({{"op", "whoami"}}), ControlSocket::okReply({{"user", "root"}, {"uid", 0}}));
   EXPECT_EQ(call({{"op", "configure"}, {"lines", {"lldp timer 5"}}}), ControlSocket::okReply());
}

}  // namespace
