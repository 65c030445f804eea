// The command line's operations on the daemon's side, over a real control socket: who
// asked for a clear is who the kernel says is connected.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "Daemon/CliService.h"
#include "Framework/Vel/EventLoop.h"
#include "Records/LldpConfig.h"
#include "tests/Support/ControlCall.h"

namespace {

TEST(CliService, ClearRecordsTheKernelsUserAndWhatTheClientSays) {
   if (geteuid() != 0) GTEST_SKIP() << "the connected user must be root";
   char tmpl[] = "/tmp/cli-service-test.XXXXXX";
   ASSERT_NE(mkdtemp(tmpl), nullptr);
   const std::string path = std::string(tmpl) + "/lldp.sock";
   Daemon::ControlSocket socket(Vel::make<Lldp::CliConfig>());
   std::string error;
   ASSERT_TRUE(socket.listen(path, &error)) << error;
   Vel::StateDb& db = Vel::StateDb::instance();
   Cli::CliService service(socket, db);

   for (auto [claimed, expected] :
        {std::pair{"alice", "root (client says alice)"}, std::pair{"root", "root"}}) {
      const Vel::Json reply = TestSupport::controlCall(
          path, {{"op", "clear-neighbors"}, {"user", claimed}, {"terminal", "tty"}});
      EXPECT_TRUE(reply.value("ok", false)) << reply;
      auto request = db.mount<Lldp::RemTablesCliConfig>("l2discovery/lldp/remTablesCliConfig");
      EXPECT_EQ(request->clearRequestedBy().value(), expected);
      EXPECT_EQ(request->clearRequestedOn().value(), "tty");
   }
   std::filesystem::remove_all(tmpl);
}

}  // namespace
