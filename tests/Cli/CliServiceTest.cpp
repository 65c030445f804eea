// The command line's operations on the daemon's side, over a real control socket: who
// asked for a clear is who the kernel says is connected.
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "Cli/CliService.h"
#include "Framework/Vel/EventLoop.h"
#include "Records/LldpConfig.h"

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

   for (const auto& c :
        {std::pair{"alice", "root (client says alice)"}, std::pair{"root", "root"}}) {
      const std::string claimed = c.first, expected = c.second;
      int wake = eventfd(0, EFD_CLOEXEC);
      Vel::FdReactor waker(wake, [wake] {
         uint64_t v;
         (void)!read(wake, &v, sizeof v);
      });
      std::atomic<bool> done{false};
      Vel::Json reply;
      std::thread t([&] {
         Daemon::request(path, {{"op", "clear-neighbors"}, {"user", claimed}, {"terminal", "tty"}},
                         &reply, &error, 10);
         done = true;
         uint64_t one = 1;
         (void)!write(wake, &one, sizeof one);
      });
      Vel::EventLoop::instance().runUntil([&] { return done.load(); }, 15);
      t.join();
      close(wake);
      EXPECT_EQ(reply["ok"], true) << reply;
      auto request = db.mount<Lldp::RemTablesCliConfig>("l2discovery/lldp/remTablesCliConfig");
      EXPECT_EQ(request->clearRequestedBy().value(), expected);
      EXPECT_EQ(request->clearRequestedOn().value(), "tty");
   }
   std::filesystem::remove_all(tmpl);
}

}  // namespace
