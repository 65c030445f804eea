// One request to a control socket that this thread's event loop serves: the blocking client
// runs in a thread of its own while the loop runs here, and an eventfd wakes the loop when
// the client is done (nothing else would, once the reply is out). Header only.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "Daemon/ControlSocket.h"
#include "Framework/Vel/EventLoop.h"

namespace TestSupport {

// The reply, or {"failed": why} when the exchange itself failed.
inline Vel::Json controlCall(const std::string& path, const Vel::Json& req) {
   const int wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
   Vel::FdReactor waker(wake, [wake] {
      uint64_t v;
      (void)!read(wake, &v, sizeof v);
   });
   std::atomic<bool> done{false};
   bool ok = false;
   Vel::Json reply;
   std::string err;
   std::thread t([&] {
      ok = Daemon::request(path, req, &reply, &err, 10);
      done = true;
      uint64_t one = 1;
      (void)!write(wake, &one, sizeof one);
   });
   Vel::EventLoop::instance().runUntil([&] { return done.load(); }, 15);
   t.join();
   close(wake);
   return ok ? reply : Vel::Json{{"failed", err}};
}

}  // namespace TestSupport
