// The set-up engine tests share: the loop in virtual time from `start`, traces and syslog
// off, neighbour event log keys collected in `logs`. Declare it before the machines it
// serves, so that it is torn down after them.
#pragma once

#include <string>
#include <vector>

#include "Framework/Log.h"
#include "Framework/Trace.h"
#include "Framework/Vel/EventLoop.h"
#include "Framework/Wire/Pkt.h"

namespace TestSupport {

struct VirtualTime {
   explicit VirtualTime(Vel::Seconds start) {
      Vel::Trace::textTraceIs("-");
      Vel::Log::syslogIs(false);
      Vel::Log::sinkIs([this](const Vel::Log::Message& m) { logs.push_back(m.key); });
      Vel::EventLoop::instance().virtualTimeIs(true, start);
   }
   ~VirtualTime() {
      Vel::EventLoop::instance().advanceBy(0);
      Vel::EventLoop::instance().virtualTimeIs(false);
      Vel::Log::sinkIs(nullptr);
      Vel::Log::syslogIs(true);
      Wire::PktMan::instance().dataSizeIs(Wire::PktMan::defaultDataSize);
   }
   VirtualTime(const VirtualTime&) = delete;
   VirtualTime& operator=(const VirtualTime&) = delete;
   std::vector<std::string> logs;
};

}  // namespace TestSupport
