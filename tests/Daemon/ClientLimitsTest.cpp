// The limits on what clients of the control socket may make the daemon keep, each set low
// in the record the daemon fills from its command line: a request past a limit is refused
// with the reason, changes nothing and is counted; what frees room (a withdrawn set)
// makes room again. Over a real Unix socket, with the daemon's own services on it.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "Daemon/ClientLimits.h"
#include "Daemon/ControlSocket.h"
#include "Daemon/ExternalTlvService.h"
#include "Daemon/PowerAgentService.h"
#include "Framework/Vel/StateDb.h"
#include "tests/Support/ControlCall.h"

namespace {

using Daemon::ClientLimits;
using Daemon::ControlSocket;
using Vel::Json;

Vel::EventLoop& loop() {
   return Vel::EventLoop::instance();
}

// A request's TLV set: `count` TLVs on port et1.
Json tlvs(int count) {
   Json list = Json::array();
   for (int i = 0; i < count; ++i)
      list.push_back({{"oui", "33-44-66"}, {"subtype", i}, {"info", "ab"}});
   return {{"et1", list}};
}

Json ports(int count) {
   Json p = Json::object();
   for (int i = 0; i < count; ++i) p["et" + std::to_string(i + 1)] = {{"state", "delivering"}};
   return p;
}

struct ClientLimitsTest : ::testing::Test {
   std::string dir, path;
   Vel::StateDb& db = Vel::StateDb::instance();
   ClientLimits::Ptr limits = db.mount<ClientLimits>(ClientLimits::path);
   std::unique_ptr<ControlSocket> server;
   std::unique_ptr<Daemon::ExternalTlvService> external;
   std::unique_ptr<Cli::PowerAgentService> power;

   void SetUp() override {
      char tmpl[] = "/tmp/client-limits-test.XXXXXX";
      ASSERT_NE(mkdtemp(tmpl), nullptr);
      dir = tmpl;
      path = dir + "/lldp.sock";
      limits->maxClientsIs(2);
      limits->maxRequestBytesIs(4096);
      limits->maxReplyBacklogBytesIs(64 << 10);
      limits->maxExternalTlvsPerClientIs(3);
      limits->maxExternalTlvsIs(4);
      limits->maxPowerPortsPerAgentIs(3);
      limits->maxPowerPortsIs(4);
      auto config = db.mount<Lldp::CliConfig>("l2discovery/lldp/cliConfig");
      server = std::make_unique<ControlSocket>(config);
      external = std::make_unique<Daemon::ExternalTlvService>(*server, db, config);
      power = std::make_unique<Cli::PowerAgentService>(*server, db);
      std::string error;
      ASSERT_TRUE(server->listen(path, &error)) << error;
   }
   void TearDown() override {
      power.reset();
      external.reset();
      server.reset();
      db.clear();
      std::filesystem::remove_all(dir);
   }
   Json call(const Json& req) { return TestSupport::controlCall(path, req); }
   Json tlvCall(const std::string& client, int count) {
      return call({{"op", "external-tlvs"}, {"client", client}, {"tlvs", tlvs(count)}});
   }
   Json powerCall(const std::string& agent, int count) {
      return call({{"op", "power-agent"}, {"agent", agent}, {"ports", ports(count)}});
   }
   int connectRaw() {
      int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un addr{};
      addr.sun_family = AF_UNIX;
      std::strcpy(addr.sun_path, path.c_str());
      EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr), 0);
      loop().runOnce(0.05);
      return fd;
   }
   // What the server wrote to a raw client until it closed (or 5 s passed).
   std::string readAll(int fd) {
      std::string got;
      loop().runUntil(
          [&] {
             char buf[65536];
             ssize_t n;
             while ((n = recv(fd, buf, sizeof buf, MSG_DONTWAIT)) > 0) got.append(buf, size_t(n));
             return n == 0 || errno != EAGAIN;
          },
          5);
      return got;
   }
};

TEST_F(ClientLimitsTest, SetsPastALimitAreRefusedCountedAndChangeNothing) {
   struct Step {
      std::function<Json()> request;
      std::string error;  // part of the refusal's text; empty: accepted
   };
   // External TLVs: at most 3 per client, 4 in all, each client counting at least one.
   const Step external[] = {
       {[&] { return tlvCall("a", 4); }, "4 TLVs, more than the 3 a client may publish"},
       {[&] { return tlvCall("a", 3); }, ""},
       {[&] { return tlvCall("b", 2); }, "all clients together may publish 4 TLVs"},
       {[&] { return tlvCall("b", 1); }, ""},
       {[&] { return tlvCall("c", 0); }, "4 are taken by others"},
       {[&] { return tlvCall("a", 2); }, ""},  // replacing its own set frees room
       {[&] { return tlvCall("c", 0); }, ""},
       {[&] {
           return call({{"op", "external-tlvs"}, {"client", "a"}, {"tlvs", nullptr}});
        },
        ""},
       {[&] { return tlvCall("b", 3); }, ""},
   };
   // Power agents: at most 3 ports per agent, 4 in all, each agent counting at least one.
   const Step power[] = {
       {[&] { return powerCall("p", 4); }, "4 ports, more than the 3 an agent may publish"},
       {[&] { return powerCall("p", 3); }, ""},
       {[&] { return powerCall("p", 3); }, ""},  // the same ports again
       {[&] { return powerCall("q", 2); }, "all agents together may publish 4 ports"},
       {[&] { return powerCall("q", 1); }, ""},
       {[&] {
           return call({{"op", "power-agent"}, {"agent", "p"}, {"withdraw", true}});
        },
        ""},
       {[&] { return powerCall("q", 3); }, ""},
   };
   int i = 0;
   for (const auto& steps : {std::span<const Step>(external), std::span<const Step>(power)}) {
      for (const Step& step : steps) {
         const Json reply = step.request();
         SCOPED_TRACE("step " + std::to_string(i++) + ": " + reply.dump());
         if (step.error.empty()) {
            EXPECT_EQ(reply["ok"], true);
         } else {
            EXPECT_EQ(reply["ok"], false);
            EXPECT_NE(reply.value("error", "").find(step.error), std::string::npos);
         }
      }
   }
   EXPECT_EQ(limits->externalTlvSetsRefused(), 3u);
   EXPECT_EQ(limits->powerRequestsRefused(), 2u);
   // What was refused was not published: the refused sets left the clients' sets alone.
   auto dir = db.entityAs<Vel::Dir>("l2discovery/lldp/externalTlvs");
   ASSERT_TRUE(dir);
   EXPECT_FALSE(dir->entryAs<Lldp::ExternalTlvConfig>("a"));
   EXPECT_EQ(
       dir->entryAs<Lldp::ExternalTlvConfig>("b")->portConfig(Wire::IntfId("et1"))->tlv().size(),
       3u);
   auto agents = db.entityAs<Vel::Dir>("environment/power/status/poePort");
   EXPECT_EQ(agents->entryAs<Environment::Power::PoePortStatus>("q")->portStatus().size(), 3u);
}

TEST_F(ClientLimitsTest, ConnectionsRequestsAndUnreadRepliesAreBounded) {
   // One client too many is told so and closed.
   const int a = connectRaw(), b = connectRaw(), c = connectRaw();
   EXPECT_NE(readAll(c).find("too many clients (at most 2)"), std::string::npos);
   EXPECT_EQ(limits->clientsRefused(), 1u);
   close(b);
   close(c);

   // A request line past the limit: an error, then the connection goes.
   limits->maxRequestBytesIs(200);
   const std::string longLine(201, 'x');
   ASSERT_EQ(send(a, longLine.data(), longLine.size(), MSG_NOSIGNAL), ssize_t(longLine.size()));
   EXPECT_NE(readAll(a).find("request longer than 200 bytes"), std::string::npos);
   EXPECT_EQ(limits->requestsTooLong(), 1u);
   close(a);

   // A client that asks and never reads is disconnected once its replies pass the limit.
   server->opIs("big",
                [](const Json&) { return ControlSocket::okReply(std::string(40 << 10, 'n')); });
   ASSERT_TRUE(loop().runUntil([&] { return server->clientCount() == 0; }, 5));
   const int idle = connectRaw();
   const int small = 4096;
   setsockopt(idle, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
   std::string asks;
   for (int i = 0; i < 40; ++i) asks += "{\"op\":\"big\"}\n";
   ASSERT_EQ(send(idle, asks.data(), asks.size(), MSG_NOSIGNAL), ssize_t(asks.size()));
   EXPECT_TRUE(loop().runUntil([&] { return limits->clientsDroppedUnread() == 1; }, 10));
   close(idle);
   // Everyone else is still served.
   EXPECT_EQ(call({{"op", "list"}})["ok"], true);
}

}  // namespace
