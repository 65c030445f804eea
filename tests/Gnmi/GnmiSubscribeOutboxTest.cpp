// What waits for a slow subscriber: changes to one neighbour merge, a neighbour's delete
// replaces what waited for it, and past the bound the subscriber is told to go. The
// outbox writes to a reactor that no client ever reads (gRPC keeps an unbound reactor's
// first write waiting), so everything after it stays queued where the test can see it.
#include <gtest/gtest.h>

#include "Gnmi/GnmiSubscribeOutbox.h"

namespace {

using namespace Gnmi;
using Pushed = GnmiSubscribeOutbox::Pushed;

class NeverRead : public GnmiSubscribeOutbox::Reactor {
public:
   void OnDone() override {}
};

Path path(const std::string& text) {
   Path p;
   std::string error;
   EXPECT_TRUE(parsePath(text, p, error)) << error;
   return p;
}

Change change(const std::string& neighbour, std::vector<std::pair<std::string, uint64_t>> leaves,
              std::vector<std::string> deletes = {}) {
   Change c;
   c.prefix =
       path("/lldp/interfaces/interface[name=eth0]/neighbors/neighbor[id=" + neighbour + "]");
   for (auto& [p, v] : leaves) c.updates.push_back(Leaf{path(p), v});
   for (auto& d : deletes) c.deletes.push_back(d.empty() ? Path() : path(d));
   return c;
}

std::string show(const Change& c) {
   std::string s = toString(c.prefix);
   s.append(":");
   for (const Leaf& l : c.updates) {
      s.append(" ").append(toString(l.path)).append("=");
      s.append(std::to_string(std::get<uint64_t>(l.value)));
   }
   for (const Path& d : c.deletes) s.append(" -").append(toString(d));
   return s;
}

TEST(GnmiSubscribeOutbox, ChangesToOneNeighbourMergeWhileTheyWait) {
   NeverRead reactor;
   GnmiSubscribeOutbox box(&reactor, 100);
   const std::string n1 = "/lldp/interfaces/interface[name=eth0]/neighbors/neighbor[id=1]:";
   const std::string n2 = "/lldp/interfaces/interface[name=eth0]/neighbors/neighbor[id=2]:";
   // The first goes out at once (and never completes); the rest wait.
   EXPECT_EQ(box.push(change("1", {{"/state/ttl", 120}}), true), Pushed::queued);
   EXPECT_EQ(box.queued(), 0u);
   EXPECT_EQ(box.push(change("1", {{"/state/ttl", 90}, {"/state/age", 1}}), true), Pushed::queued);
   EXPECT_EQ(box.push(change("2", {{"/state/ttl", 5}}), true), Pushed::queued);
   // Newer values win, new leaves join, a leaf deleted goes from the updates and back.
   EXPECT_EQ(box.push(change("1", {{"/state/ttl", 60}}, {"/state/age"}), true), Pushed::coalesced);
   EXPECT_EQ(box.push(change("1", {{"/state/port-id", 7}}), true), Pushed::coalesced);
   ASSERT_EQ(box.queued(), 2u);
   EXPECT_EQ(show(box.waiting()[0]), n1 + " /state/ttl=60 /state/port-id=7 -/state/age");
   EXPECT_EQ(box.push(change("1", {{"/state/age", 2}}), true), Pushed::coalesced);
   EXPECT_EQ(show(box.waiting()[0]), n1 + " /state/ttl=60 /state/port-id=7 /state/age=2");

   // The neighbour goes: its delete replaces what waited; it comes back: both are told.
   EXPECT_EQ(box.push(change("1", {}, {""}), true), Pushed::coalesced);
   EXPECT_EQ(box.push(change("1", {{"/state/ttl", 120}}), true), Pushed::queued);
   ASSERT_EQ(box.queued(), 3u);
   EXPECT_EQ(show(box.waiting()[0]), n1 + " -/");
   EXPECT_EQ(show(box.waiting()[1]), n2 + " /state/ttl=5");
   EXPECT_EQ(show(box.waiting()[2]), n1 + " /state/ttl=120");

   // Without coalescing (samples), every push waits on its own.
   EXPECT_EQ(box.push(change("2", {{"/state/ttl", 4}}), false), Pushed::queued);
   EXPECT_EQ(box.queued(), 4u);
}

TEST(GnmiSubscribeOutbox, PastTheBoundAfterTheInitialStateTheSubscriberGoes) {
   NeverRead reactor;
   GnmiSubscribeOutbox box(&reactor, 3);
   // The initial state is not bounded: ten neighbours and the sync_response wait.
   for (int i = 0; i < 10; ++i) box.push(change(std::to_string(i), {{"/state/ttl", 1}}), false);
   box.pushSync();
   const size_t initial = box.queued();
   // Three more distinct neighbours fit; merging into them costs nothing; a fourth does not.
   for (int i = 10; i < 13; ++i) {
      EXPECT_EQ(box.push(change(std::to_string(i), {{"/state/ttl", 1}}), true), Pushed::queued);
   }
   EXPECT_EQ(box.push(change("11", {{"/state/ttl", 2}}), true), Pushed::coalesced);
   EXPECT_EQ(box.push(change("13", {{"/state/ttl", 1}}), true), Pushed::overflow);
   EXPECT_EQ(box.queued(), initial + 3);
   // Ended: nothing waits, nothing more is taken.
   box.finish(grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "behind"));
   EXPECT_TRUE(box.finished());
   EXPECT_EQ(box.queued(), 0u);
   EXPECT_EQ(box.push(change("14", {{"/state/ttl", 1}}), true), Pushed::finished);
}

}  // namespace
