#include "Daemon/MetricsExporter.h"

#include <arpa/inet.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <optional>

#include "Daemon/MetricsSnapshot.h"
#include "Framework/Vel/EventLoop.h"

namespace Daemon {

namespace {

// How long a scrape waits for the loop before it answers with nothing: only a loop that
// is stopping (or stuck) takes that long.
constexpr auto scrapeWait = std::chrono::seconds(10);

// The meeting point of the HTTP threads and the loop. Everything here is guarded by
// `mutex`; `serve` lets one scrape at a time ask.
class ScrapeBridge : public prometheus::Collectable {
public:
   explicit ScrapeBridge(int wakeFd) : wakeFd_(wakeFd) {}

   std::vector<prometheus::MetricFamily> Collect() const override {
      std::lock_guard<std::mutex> one(serve_);
      MetricsSnapshot snap;
      {
         std::unique_lock<std::mutex> lock(mutex_);
         if (closing_) return {};
         ready_ = false;
         const uint64_t wake = 1;
         if (::write(wakeFd_, &wake, sizeof(wake)) != sizeof(wake)) return {};
         cv_.wait_for(lock, scrapeWait, [&] { return ready_ || closing_; });
         if (!ready_) return {};
         snap = std::move(result_);
         ready_ = false;
      }
      return metricFamilies(snap);
   }

   // From the loop: the snapshot asked for.
   void resultIs(MetricsSnapshot snap) {
      std::lock_guard<std::mutex> lock(mutex_);
      result_ = std::move(snap);
      ready_ = true;
      cv_.notify_all();
   }
   // Lets every waiting scrape go, with nothing, for good.
   void close() {
      std::lock_guard<std::mutex> lock(mutex_);
      closing_ = true;
      cv_.notify_all();
   }

private:
   const int wakeFd_;
   mutable std::mutex serve_;
   mutable std::mutex mutex_;
   mutable std::condition_variable cv_;
   mutable bool ready_ = false;
   bool closing_ = false;
   mutable MetricsSnapshot result_;
};

double unixNow() {
   timespec ts{};
   ::clock_gettime(CLOCK_REALTIME, &ts);
   return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// "ADDRESS:PORT" with an IPv4 address and a port 1..65535. (Debian's build of the HTTP
// server listens on IPv4 only.)
bool validAddress(const std::string& text, std::string* error) {
   const size_t colon = text.rfind(':');
   const std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
   const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
   char* end = nullptr;
   const long p = port.empty() ? 0 : std::strtol(port.c_str(), &end, 10);
   unsigned char buf[4];
   if (port.empty() || *end != 0 || p < 1 || p > 65535 ||
       ::inet_pton(AF_INET, host.c_str(), buf) != 1) {
      *error = "--metrics: '" + text + "' is not ADDRESS:PORT (an IPv4 address and a port)";
      return false;
   }
   return true;
}

}  // namespace

struct MetricsExporter::Impl {
   explicit Impl(Vel::StateDb& db) : db(db) {}

   // The loop's side: a scrape has asked.
   void onWake() {
      uint64_t n;
      while (::read(wakeFd, &n, sizeof(n)) == sizeof(n)) {
      }
      if (builder) return;  // the snapshot under way serves it
      builder.emplace(db.entityAs<const Lldp::AllStatus>("l2discovery/lldp/status/all"),
                      db.entityAs<const Lldp::RemTablesStatus>("l2discovery/lldp/remTablesStatus"),
                      db.entityAs<const Lldp::Config>("l2discovery/lldp/config"),
                      db.entityAs<const Lldp::LocalSystem>("l2discovery/lldp/localSystem"));
      builder->classificationIs(db.entityAs<const Identity::NbrClassification::Status>(
                                    "identity/nbrClassification/status"),
                                db.entityAs<const Identity::NbrClassification::BypassStatus>(
                                    "identity/nbrClassification/bypassStatus"));
      builder->clientLimitsIs(db.entityAs<const ClientLimits>(ClientLimits::path));
      builder->gnmiIs(db.entityAs<const Gnmi::GnmiServerStatus>(Gnmi::GnmiServerStatus::path));
      builder->start(Vel::EventLoop::instance().now(), unixNow());
      slice();
   }
   void slice() {
      if (!builder->step(sliceNeighbors)) {
         // The next slice on the next turn, after whatever else is ready.
         sliceClock.timeMinIs(Vel::EventLoop::instance().now());
         return;
      }
      bridge->resultIs(builder->take());
      builder.reset();
   }

   Vel::StateDb& db;
   int wakeFd = -1;
   std::shared_ptr<ScrapeBridge> bridge;
   std::unique_ptr<Vel::FdReactor> wake;
   Vel::Clock sliceClock{[this] { slice(); }};
   std::optional<MetricsSnapshotBuilder> builder;
   std::unique_ptr<prometheus::Exposer> exposer;
};

MetricsExporter::MetricsExporter(Vel::StateDb& db) : impl_(std::make_unique<Impl>(db)) {}

MetricsExporter::~MetricsExporter() {
   // Scrapes waiting for the loop give up first, so the server's threads can be joined.
   if (impl_->bridge) impl_->bridge->close();
   impl_->exposer.reset();
   impl_->wake.reset();
   if (impl_->wakeFd >= 0) ::close(impl_->wakeFd);
}

bool MetricsExporter::listen(const std::string& address, std::string* error) {
   if (!validAddress(address, error)) return false;
   impl_->wakeFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
   if (impl_->wakeFd < 0) {
      *error = std::string("eventfd: ") + std::strerror(errno);
      return false;
   }
   impl_->wake = std::make_unique<Vel::FdReactor>(impl_->wakeFd, [this] { impl_->onWake(); });
   impl_->bridge = std::make_shared<ScrapeBridge>(impl_->wakeFd);
   try {
      impl_->exposer = std::make_unique<prometheus::Exposer>(address, 2);
   } catch (const std::exception&) {
      // The server says no more than that it could not bind.
      *error = "--metrics: cannot listen on " + address +
               " (not an address of this host, or the port is in use)";
      return false;
   }
   impl_->exposer->RegisterCollectable(impl_->bridge);
   return true;
}

}  // namespace Daemon
