#include "Gnmi/GnmiWatch.h"

#include <time.h>

#include <algorithm>

#include "Framework/Vel/EventLoop.h"
#include "Framework/Vel/StateDb.h"
#include "Gnmi/OpenconfigLldp.h"

// Notifiees that hear of any change of a record: every attribute and collection reactor
// calls one function. In the records' namespace, where their attribute lists name types.
namespace Lldp {
namespace {

#define GW_NONE2(a, b)
#define GW_ATTR(T, n, d)        \
   void n##Changed() override { \
      fn();                     \
   }
#define GW_COUNTER(T, n)        \
   void n##Changed() override { \
      fn();                     \
   }
#define GW_COLL(K, V, n)                \
   void n##Changed(const K&) override { \
      fn();                             \
   }
#define GW_REFCOLL(K, E, n, f)          \
   void n##Changed(const K&) override { \
      fn();                             \
   }
#define GW_ANY(ATTRS) ATTRS(GW_NONE2, GW_ATTR, GW_COUNTER, GW_COLL, GW_COLL, GW_COLL, GW_REFCOLL)

struct AnyCliConfig : CliConfig::Notifiee {
   std::function<void()> fn;
   GW_ANY(LLDP_CLI_CONFIG_ATTRS)
};
struct AnyCliPortConfig : CliPortConfig::Notifiee {
   std::function<void()> fn;
   GW_ANY(LLDP_CLI_PORT_CONFIG_ATTRS)
};
struct AnyConfig : Config::Notifiee {
   std::function<void()> fn;
   GW_ANY(LLDP_CONFIG_ATTRS)
};
// Of a port's configuration only its admin status shows in the tree.
struct PortAdminStatus : PortConfig::Notifiee {
   std::function<void()> fn;
   void adminStatusChanged() override { fn(); }
};
struct LocalIdentity : LocalSystem::Notifiee {
   std::function<void()> fn;
   void chassisIdentifierChanged() override { fn(); }
   void sysNameChanged() override { fn(); }
   void sysDescChanged() override { fn(); }
};

}  // namespace
}  // namespace Lldp

namespace Gnmi {

namespace {

using Print = std::vector<std::pair<uint32_t, uint64_t>>;  // path id, value hash; by id

uint64_t mix(uint64_t h, uint64_t v) {
   return (h ^ v) * 0x100000001b3ull + 0x9e3779b97f4a7c15ull;
}

uint64_t hashValue(const Value& v) {
   uint64_t h = v.index();
   std::visit(
       [&](const auto& x) {
          using T = std::decay_t<decltype(x)>;
          if constexpr (std::is_same_v<T, std::vector<std::string>>) {
             for (const std::string& s : x) h = mix(h, std::hash<std::string>()(s));
          } else {
             h = mix(h, std::hash<T>()(x));
          }
       },
       v);
   return h;
}

uint64_t wallNowNs() {
   timespec ts;
   clock_gettime(CLOCK_REALTIME, &ts);
   return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

// Whether `pattern` and the path prefix+rel lie on one line: the pattern covers the
// path (it is the path or above it), or, with `below`, the path is above the pattern.
bool related(const Path& pattern, const Path& prefix, const Path& rel, bool below) {
   const size_t n = prefix.elems.size() + rel.elems.size();
   if (pattern.elems.size() > n && !below) return false;
   const size_t m = std::min(n, pattern.elems.size());
   for (size_t i = 0; i < m; ++i) {
      const PathElem& a = pattern.elems[i];
      const PathElem& b =
          i < prefix.elems.size() ? prefix.elems[i] : rel.elems[i - prefix.elems.size()];
      if (a.name != b.name) return false;
      for (const auto& [k, v] : a.keys) {
         if (v == "*") continue;
         bool same = false;
         for (const auto& [bk, bv] : b.keys) {
            if (bk == k) {
               same = bv == v;
               break;
            }
         }
         if (!same) return false;
      }
   }
   return true;
}

}  // namespace

struct GnmiWatch::State : std::enable_shared_from_this<GnmiWatch::State> {
   explicit State(Vel::StateDb& d) : db(d) {}

   struct Entry {
      Path pattern;
      Model::Sink sink;
   };
   // Leaves collected for one neighbour or container, paths relative to its node.
   class Collector : public Oc::TreeSink {
   public:
      Collector(State& s, bool skipTop, const char* refuse)
          : state_(s), skipTop_(skipTop), refuse_(refuse) {}
      bool enter(std::string_view name, std::initializer_list<Oc::KeyView> keys,
                 Oc::Module) override {
         ++depth_;
         if (skipTop_ && depth_ == 1) return true;
         if (refuse_ && name == refuse_ && rel_.elems.empty()) {
            --depth_;
            return false;
         }
         PathElem& e = rel_.elems.emplace_back();
         e.name.assign(name);
         for (const auto& k : keys) e.keys.emplace_back(std::string(k.name), std::string(k.value));
         return true;
      }
      void leave() override {
         if (!(skipTop_ && depth_ == 1)) rel_.elems.pop_back();
         --depth_;
      }
      void leaf(std::string_view name, Value&& v, bool sampled, Oc::Module) override {
         if (sampled) return;
         rel_.elems.emplace_back().name.assign(name);
         leaves.emplace_back(state_.idOf(rel_), std::move(v));
         rel_.elems.pop_back();
      }
      const std::string* wanted(std::string_view, std::string_view) const override {
         return nullptr;
      }
      Print print() {
         std::sort(leaves.begin(), leaves.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
         Print p;
         p.reserve(leaves.size());
         for (const auto& [id, v] : leaves) p.emplace_back(id, hashValue(v));
         return p;
      }
      std::vector<std::pair<uint32_t, Value>> leaves;

   private:
      State& state_;
      bool skipTop_;
      const char* refuse_;
      size_t depth_ = 0;
      Path rel_;
   };

   // Relative paths by number, each kept while some fingerprint holds it, so the table
   // stays as small as the leaves that exist (custom TLVs and VLANs vary by neighbour).
   uint32_t idOf(const Path& rel) {
      std::string text = toString(rel);
      auto it = ids.find(text);
      if (it != ids.end()) return it->second;
      uint32_t id;
      if (!freeIds.empty()) {
         id = freeIds.back();
         freeIds.pop_back();
         paths[id] = rel;
         refs[id] = 0;
      } else {
         id = static_cast<uint32_t>(paths.size());
         paths.push_back(rel);
         refs.push_back(0);
      }
      ids.emplace(std::move(text), id);
      return id;
   }
   void retain(const Print& p) {
      for (const auto& [id, hash] : p) ++refs[id];
   }
   void release(const Print& p) {
      for (const auto& [id, hash] : p) {
         if (--refs[id] != 0) continue;
         ids.erase(toString(paths[id]));
         paths[id] = Path();
         freeIds.push_back(id);
      }
   }
   // The new fingerprint of a node replaces the old one.
   void replace(Print& last, Print&& now) {
      retain(now);
      release(last);
      last = std::move(now);
   }

   // Reports the difference between what was last reported for the node at `prefix`
   // and what the collector holds now, and remembers the new state.
   void report(const Path& prefix, Collector& c, Print& last) {
      Print now = c.print();
      Change change;
      size_t i = 0;
      for (const auto& [id, hash] : now) {
         while (i < last.size() && last[i].first < id)
            change.deletes.push_back(paths[last[i++].first]);
         const bool same = i < last.size() && last[i].first == id && last[i].second == hash;
         if (i < last.size() && last[i].first == id) ++i;
         if (same) continue;
         auto it = std::lower_bound(c.leaves.begin(), c.leaves.end(), id,
                                    [](const auto& l, uint32_t x) { return l.first < x; });
         change.updates.push_back(Leaf{paths[id], std::move(it->second)});
      }
      while (i < last.size()) change.deletes.push_back(paths[last[i++].first]);
      replace(last, std::move(now));
      if (change.updates.empty() && change.deletes.empty()) return;
      change.prefix = prefix;
      deliver(change);
   }

   void reportGone(const Path& prefix) {
      Change change;
      change.prefix = prefix;
      change.deletes.emplace_back();
      deliver(change);
   }

   void deliver(Change& change) {
      change.timestampNs = wallNowNs();
      const Path empty;
      std::vector<uint64_t> ids;
      for (const auto& [id, e] : watches) ids.push_back(id);
      for (uint64_t id : ids) {
         auto it = watches.find(id);
         if (it == watches.end()) continue;  // ended by an earlier sink
         const Path& pattern = it->second.pattern;
         if (!related(pattern, change.prefix, empty, true)) continue;
         if (pattern.elems.size() <= change.prefix.elems.size()) {
            Model::Sink sink = it->second.sink;  // the sink may end its own watch
            sink(change);
            continue;
         }
         Change part;
         part.timestampNs = change.timestampNs;
         part.prefix = change.prefix;
         for (const Leaf& l : change.updates) {
            if (related(pattern, change.prefix, l.path, false)) part.updates.push_back(l);
         }
         for (const Path& d : change.deletes) {
            if (related(pattern, change.prefix, d, true)) part.deletes.push_back(d);
         }
         if (part.updates.empty() && part.deletes.empty()) continue;
         Model::Sink sink = it->second.sink;
         sink(part);
      }
   }

   static Path neighborPrefix(const Wire::IntfId& intf, int index) {
      Path p = interfacePrefix(intf);
      p.elems.push_back(PathElem{"neighbors", {}});
      p.elems.push_back(PathElem{"neighbor", {{"id", std::to_string(index)}}});
      return p;
   }
   static Path interfacePrefix(const Wire::IntfId& intf) {
      Path p;
      p.elems = {PathElem{"lldp", {}}, PathElem{"interfaces", {}},
                 PathElem{"interface", {{"name", std::string(intf.name())}}}};
      return p;
   }

   void neighborChanged(const Wire::IntfId& intf, int index, Lldp::NeighborChanges::Change change,
                        const Lldp::RemoteSystem& remote) {
      const std::pair<Wire::IntfId, int> key{intf, index};
      if (change == Lldp::NeighborChanges::changeRemoved) {
         if (auto it = neighborPrints.find(key); it != neighborPrints.end()) {
            release(it->second);
            neighborPrints.erase(it);
         }
         reportGone(neighborPrefix(intf, index));
         return;
      }
      Collector c(*this, true, nullptr);
      const Oc::Records r = Oc::Records::from(db);
      Oc::writeNeighbor(r, remote, c);
      report(neighborPrefix(intf, index), c, neighborPrints[key]);
   }

   // The global and interface containers, brought up to date after a configuration or
   // local-system change (and, silently, when tracking starts).
   void configChanged(bool silent) {
      const Oc::Records r = Oc::Records::from(db);
      followConfigRecords(r);
      Path lldp;
      lldp.elems.push_back(PathElem{"lldp", {}});
      {
         Collector c(*this, false, nullptr);
         Oc::writeGlobal(r, c);
         if (silent) {
            replace(globalPrint, c.print());
         } else {
            report(lldp, c, globalPrint);
         }
      }
      std::map<Wire::IntfId, Print> prints;
      for (const Wire::IntfId& intf : Oc::interfaceNames(r)) {
         Collector c(*this, true, "neighbors");
         Oc::writeInterface(r, intf, c);
         Print& last = prints[intf];
         auto old = interfacePrints.find(intf);
         if (old != interfacePrints.end()) last = std::move(old->second);
         if (silent) {
            replace(last, c.print());
         } else {
            report(interfacePrefix(intf), c, last);
         }
      }
      for (const auto& [intf, print] : interfacePrints) {
         if (prints.count(intf)) continue;
         release(print);
         if (!silent) reportGone(interfacePrefix(intf));
      }
      interfacePrints = std::move(prints);
   }

   void configTouched() {
      if (configFlushPosted) return;
      configFlushPosted = true;
      std::weak_ptr<State> self = weak_from_this();
      Vel::EventLoop::instance().post([self] {
         auto s = self.lock();
         if (!s) return;
         s->configFlushPosted = false;
         if (s->tracking) s->configChanged(false);
      });
   }

   // Notifiees on the records the containers come from, and on each port's records.
   void followConfigRecords(const Oc::Records& r) {
      auto touched = [this] { configTouched(); };
      portWatchers.clear();
      if (r.cliConfig && (!cliWatcher || cliWatcher->notifier() != r.cliConfig)) {
         cliWatcher = std::make_unique<Lldp::AnyCliConfig>();
         cliWatcher->fn = touched;
         cliWatcher->notifierIs(r.cliConfig);
      }
      if (r.cliConfig) {
         for (const auto& [intf, p] : r.cliConfig->cliPortConfig()) {
            auto w = std::make_unique<Lldp::AnyCliPortConfig>();
            w->fn = touched;
            w->notifierIs(p);
            portWatchers.push_back(std::move(w));
         }
      }
      if (r.config && (!configWatcher || configWatcher->notifier() != r.config)) {
         configWatcher = std::make_unique<Lldp::AnyConfig>();
         configWatcher->fn = touched;
         configWatcher->notifierIs(r.config);
      }
      if (r.config) {
         for (const auto& [intf, p] : r.config->portConfig()) {
            auto w = std::make_unique<Lldp::PortAdminStatus>();
            w->fn = touched;
            w->notifierIs(p);
            portWatchers.push_back(std::move(w));
         }
      }
      if (r.localSystem && (!localWatcher || localWatcher->notifier() != r.localSystem)) {
         localWatcher = std::make_unique<Lldp::LocalIdentity>();
         localWatcher->fn = touched;
         localWatcher->notifierIs(r.localSystem);
      }
   }

   std::optional<Error> startTracking() {
      auto status = db.entityAs<Lldp::AllStatus>(Oc::allStatusPath);
      if (!status) return Error{codeUnavailable, "the agent has not published its status yet"};
      tracking = true;
      // What is there now is known, not reported.
      const Oc::Records r = Oc::Records::from(db);
      for (const auto& [intf, port] : status->portStatus()) {
         if (!port) continue;
         for (const auto& [index, remote] : port->remoteSystem()) {
            Collector c(*this, true, nullptr);
            Oc::writeNeighbor(r, *remote, c);
            replace(neighborPrints[{intf, index}], c.print());
         }
      }
      neighbors = std::make_unique<Lldp::NeighborChanges>(
          status, [this](const Wire::IntfId& intf, int index, Lldp::NeighborChanges::Change change,
                         const Lldp::RemoteSystem::PtrConst& remote) {
             neighborChanged(intf, index, change, *remote);
          });
      configChanged(true);
      return std::nullopt;
   }

   void stopTracking() {
      tracking = false;
      neighbors.reset();
      neighborPrints.clear();
      globalPrint.clear();
      interfacePrints.clear();
      cliWatcher.reset();
      configWatcher.reset();
      localWatcher.reset();
      portWatchers.clear();
      ids.clear();
      paths.clear();
      refs.clear();
      freeIds.clear();
   }

   void remove(uint64_t id) {
      watches.erase(id);
      if (!watches.empty() || stopPosted) return;
      // Not now: this may run inside a report that the tracking is delivering.
      stopPosted = true;
      std::weak_ptr<State> self = weak_from_this();
      Vel::EventLoop::instance().post([self] {
         auto s = self.lock();
         if (!s) return;
         s->stopPosted = false;
         if (s->watches.empty()) s->stopTracking();
      });
   }

   Vel::StateDb& db;
   std::map<uint64_t, Entry> watches;
   uint64_t nextId = 1;
   bool tracking = false;
   bool stopPosted = false;
   bool configFlushPosted = false;
   std::unique_ptr<Lldp::NeighborChanges> neighbors;
   std::map<std::pair<Wire::IntfId, int>, Print> neighborPrints;
   Print globalPrint;
   std::map<Wire::IntfId, Print> interfacePrints;
   std::unique_ptr<Lldp::AnyCliConfig> cliWatcher;
   std::unique_ptr<Lldp::AnyConfig> configWatcher;
   std::unique_ptr<Lldp::LocalIdentity> localWatcher;
   std::vector<std::unique_ptr<Vel::NotifieeBase>> portWatchers;
   std::unordered_map<std::string, uint32_t> ids;  // relative path text -> index in paths
   std::vector<Path> paths;
   std::vector<uint32_t> refs;  // fingerprints holding each path
   std::vector<uint32_t> freeIds;
};

namespace {

class WatchHandle : public Model::Watch {
public:
   WatchHandle(std::weak_ptr<GnmiWatch::State> s, uint64_t id) : state_(std::move(s)), id_(id) {}
   ~WatchHandle() override {
      if (auto s = state_.lock()) s->remove(id_);
   }

private:
   std::weak_ptr<GnmiWatch::State> state_;
   uint64_t id_;
};

}  // namespace

GnmiWatch::GnmiWatch(Vel::StateDb& db) : state_(std::make_shared<State>(db)) {}

GnmiWatch::~GnmiWatch() = default;

std::optional<Error> GnmiWatch::watch(const Path& pattern, Model::Sink sink,
                                      std::unique_ptr<Model::Watch>& out) {
   if (!state_->tracking) {
      if (auto e = state_->startTracking()) return e;
   }
   const uint64_t id = state_->nextId++;
   state_->watches[id] = State::Entry{pattern, std::move(sink)};
   out = std::make_unique<WatchHandle>(state_, id);
   return std::nullopt;
}

size_t GnmiWatch::watchCount() const {
   return state_->watches.size();
}

}  // namespace Gnmi
