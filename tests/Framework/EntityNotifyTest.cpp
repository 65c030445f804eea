// Reactors on entities: what notifies, what does not, and re-entrancy.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Vel/Dir.h"
#include "Framework/Vel/Entity.h"

namespace Demo {

struct Item {
   int id = 0;
   int value = 0;
   int key() const { return id; }
   bool operator==(const Item&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const Item& i) { return os << i.id; }
};

class Child : public Vel::Entity {
public:
#define DEMO_CHILD_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(int, id)                                                         \
   ATTR(int, level, 0)
   VEL_ENTITY(Child, DEMO_CHILD_ATTRS)
   explicit Child(int id) : id_(id) {}
};

class Parent : public Vel::Entity {
public:
#define DEMO_PARENT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ATTR(std::string, name, "")                                           \
   ATTR(int, speed, 0)                                                   \
   COUNTER(uint32_t, hits)                                               \
   COLL(int, Item, item)                                                 \
   ECOLL(int, Child, child)
   VEL_ENTITY(Parent, DEMO_PARENT_ATTRS)
};

class Derived : public Parent {
public:
#define DEMO_DERIVED_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) ATTR(bool, extra, false)
   VEL_ENTITY_DERIVED(Derived, Parent, DEMO_DERIVED_ATTRS)
};

class Leaf : public Vel::Entity {
public:
#define DEMO_LEAF_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) KEY(int, id)
   VEL_ENTITY(Leaf, DEMO_LEAF_ATTRS)
   explicit Leaf(int id) : id_(id) {}
};

class Port : public Vel::Entity {
public:
#define DEMO_PORT_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) KEY(int, id)
   VEL_ENTITY(Port, DEMO_PORT_ATTRS)
   explicit Port(int id) : id_(id) {}
};

}  // namespace Demo

VEL_COMPACT_ENTITY_MAP(int, Demo::Leaf)
VEL_COMPACT_ENTITY_SET(int, Demo::Port, id)

namespace Demo {

// A member per neighbour: its collection is a B-tree.
class Tree : public Vel::Entity {
public:
#define DEMO_TREE_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) ECOLL(int, Leaf, leaf)
   VEL_ENTITY(Tree, DEMO_TREE_ATTRS)
};

// A member per port, kept by pointer: its key is read from the member.
class Switch : public Vel::Entity {
public:
#define DEMO_SWITCH_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) ECOLL(int, Port, port)
   VEL_ENTITY(Switch, DEMO_SWITCH_ATTRS)
};

}  // namespace Demo

namespace {

using Seen = std::vector<std::string>;

// Records every notification as text, then runs `then` if set.
struct Recorder : Demo::Derived::Notifiee {
   Seen seen;
   std::function<void(const std::string&)> then;
   void note(const std::string& what) {
      seen.push_back(what);
      if (then) then(what);
   }
   void nameChanged() override { note("name"); }
   void speedChanged() override { note("speed"); }
   void hitsChanged() override { note("hits"); }
   void itemChanged(const int& k) override { note("item " + std::to_string(k)); }
   void childChanged(const int& k) override { note("child " + std::to_string(k)); }
   void extraChanged() override { note("extra"); }
};

TEST(EntityNotify, WritersNotifyOnlyRealChanges) {
   auto e = Vel::make<Demo::Derived>();
   for (int k : {3, 1, 2}) e->childIs(k);
   e->childDelAll();  // nobody watches: just empties
   EXPECT_TRUE(e->child().empty());
   Recorder r;
   r.notifierIs(e);
   e->nameIs("a");
   e->nameIs("a");  // same value: silent
   e->speedIs(0);   // the default: silent
   e->hitsInc();
   e->hitsIs(1);  // unchanged: silent
   e->extraIs(true);
   e->itemIs(Demo::Item{1, 10});
   e->itemIs(Demo::Item{1, 10});  // same member: silent
   e->itemIs(Demo::Item{1, 11});
   EXPECT_FALSE(e->itemDel(7));  // absent: silent
   e->itemDel(1);
   e->childIs(4);
   e->childIs(4);  // exists: silent
   e->childDel(4);
   EXPECT_EQ(r.seen,
             (Seen{"name", "hits", "extra", "item 1", "item 1", "item 1", "child 4", "child 4"}));
   // Deleting them all notifies every member, in key order.
   for (int k : {3, 1, 2}) e->itemIs(Demo::Item{k, 0});
   r.seen.clear();
   e->itemDelAll();
   EXPECT_EQ(r.seen, (Seen{"item 1", "item 2", "item 3"}));
   EXPECT_TRUE(e->item().empty());
}

TEST(EntityNotify, ReactorsNestDepthFirstAndMayDetachDuringDelivery) {
   auto e = Vel::make<Demo::Derived>();
   Seen order;
   Recorder first, second;
   // The first reactor writes another attribute: its reactors run before the second
   // reactor hears about the first write.
   first.then = [&](const std::string& what) {
      order.push_back("first " + what);
      if (what == "speed") e->nameIs("fast");
   };
   second.then = [&](const std::string& what) {
      order.push_back("second " + what);
      if (what == "speed") second.notifierIs(nullptr);  // detaches while the list is walked
   };
   first.notifierIs(e);
   second.notifierIs(e);
   e->speedIs(5);
   EXPECT_EQ(order, (Seen{"first speed", "first name", "second name", "second speed"}));
   EXPECT_EQ(e->notifieeCount(), 1u);
   order.clear();
   e->speedIs(6);
   EXPECT_EQ(order, (Seen{"first speed"}));  // name already "fast": silent
}

// The list of reactors changes shape (one held in place, more in a block) as reactors come
// and go, during delivery too; order and who hears what stay the same through each shape.
TEST(EntityNotify, ReactorListKeepsOrderAsItGrowsAndShrinks) {
   auto e = Vel::make<Demo::Derived>();
   Seen order;
   Recorder r[4];
   for (int i = 0; i < 4; ++i) {
      r[i].then = [&, i](const std::string&) { order.push_back(std::to_string(i)); };
   }
   r[0].notifierIs(e);
   // The only reactor detaches itself and attaches two others while it is told: neither
   // hears this write, both hear the next, in the order they were attached.
   r[0].then = [&](const std::string&) {
      order.push_back("0");
      r[0].notifierIs(nullptr);
      r[1].notifierIs(e);
      r[2].notifierIs(e);
   };
   e->speedIs(1);
   EXPECT_EQ(order, (Seen{"0"}));
   EXPECT_EQ(e->notifieeCount(), 2u);
   order.clear();
   r[3].notifierIs(e);
   r[0].then = nullptr;
   r[0].notifierIs(e);
   e->speedIs(2);
   EXPECT_EQ(order, (Seen{"1", "2", "3"}));  // r[0] has no `then` now
   EXPECT_EQ(r[0].seen.size(), 2u);
   // Back down to one, then none, outside delivery.
   r[1].notifierIs(nullptr);
   r[3].notifierIs(nullptr);
   r[0].notifierIs(nullptr);
   EXPECT_EQ(e->notifieeCount(), 1u);
   order.clear();
   e->speedIs(3);
   EXPECT_EQ(order, (Seen{"2"}));
   r[2].notifierIs(nullptr);
   EXPECT_EQ(e->notifieeCount(), 0u);
   e->speedIs(4);
   EXPECT_EQ(order, (Seen{"2"}));
   // Every reactor detaching during delivery leaves an empty list behind.
   for (auto& x : r) x.notifierIs(e);
   for (auto& x : r)
      x.then = [&](const std::string&) {
         for (auto& y : r) y.notifierIs(nullptr);
      };
   e->speedIs(5);
   EXPECT_EQ(e->notifieeCount(), 0u);
   EXPECT_EQ(r[0].seen.size(), 3u);
   EXPECT_EQ(r[1].seen.size(), 1u);  // detached by r[0] before its turn
}

// A member built and filled beforehand is announced once, already complete; a key that is
// taken keeps its member.
TEST(EntityNotify, ReadyMadeMemberIsAnnouncedComplete) {
   auto e = Vel::make<Demo::Derived>();
   Recorder r;
   int levelSeen = -1;
   r.then = [&](const std::string&) { levelSeen = e->child(5) ? e->child(5)->level() : -2; };
   r.notifierIs(e);
   auto made = Vel::make<Demo::Child>(5);
   made->levelIs(3);
   EXPECT_EQ(e->childIs(5, made), made);
   EXPECT_EQ(levelSeen, 3);
   EXPECT_EQ(e->childIs(5, Vel::make<Demo::Child>(5)), made);
   EXPECT_EQ(r.seen, (Seen{"child 5"}));
}

// In a B-tree, members move when others come: a reactor that adds members while it is
// told of one must not change which member the writer gets back.
TEST(EntityNotify, CompactCollectionReturnsTheMemberAddedWhateverItsReactorsAdd) {
   struct Grower : Demo::Tree::Notifiee {
      Vel::Ptr<Demo::Tree> tree;
      void leafChanged(const int& k) override {
         if (k != 1000) return;
         for (int i = 1; i <= 300; ++i) tree->leafIs(i, Vel::make<Demo::Leaf>(i));
      }
   };
   auto tree = Vel::make<Demo::Tree>();
   Grower g;
   g.tree = tree;
   g.notifierIs(tree);
   auto made = Vel::make<Demo::Leaf>(1000);
   EXPECT_EQ(tree->leafIs(1000, made), made);
   ASSERT_EQ(tree->leaf().size(), 301u);
   int last = 0;
   for (const auto& [k, leaf] : tree->leaf()) {
      EXPECT_EQ(leaf->id(), k);
      EXPECT_LT(last, k);
      last = k;
   }
   EXPECT_EQ(tree->leaf().rbegin()->second, made);
   EXPECT_EQ(tree->leaf().upper_bound(150)->first, 151);
   g.notifierIs(nullptr);
}

// A loop over a collection kept by pointer goes on after the member it stands on when its
// body adds or removes members, that member included, as a loop over a red-black tree
// does; the key it names stays readable while the body runs.
TEST(EntityNotify, KeyedSetLoopSurvivesChangesMadeByItsBody) {
   auto sw = Vel::make<Demo::Switch>();
   for (int id : {10, 20, 30, 40}) sw->portIs(id);
   auto held = sw->port(20);
   EXPECT_EQ(sw->portIs(20), held);  // a taken key keeps its member
   EXPECT_EQ(sw->port(25), nullptr);
   EXPECT_EQ(sw->port().lower_bound(21)->first, 30);
   std::vector<int> visited;
   for (const auto& [id, port] : sw->port()) {
      visited.push_back(id);
      if (id == 10) sw->portIs(35);  // later: visited
      if (id == 10) sw->portIs(5);   // earlier: not visited
      if (id == 20) {
         sw->portDel(20);  // the member itself
         sw->portDel(30);  // the next one
         EXPECT_EQ(id, 20);
         EXPECT_EQ(port->id(), 20);
      }
      if (id == 35) {
         for (int more = 100; more < 400; ++more) sw->portIs(more);  // splits nodes
      }
   }
   ASSERT_GE(visited.size(), 5u);
   EXPECT_EQ(std::vector<int>(visited.begin(), visited.begin() + 5),
             (std::vector<int>{10, 20, 35, 40, 100}));
   EXPECT_EQ(visited.size(), 4u + 300u);
   EXPECT_EQ(sw->port().size(), 4u + 300u);  // 5, 10, 35, 40 and the 300
   // Backwards from the end, and from a member after a change.
   auto it = sw->port().end();
   EXPECT_EQ((--it)->first, 399);
   auto at40 = sw->port().find(40);
   sw->portDel(35);
   EXPECT_EQ((--at40)->first, 10);
   sw->portDelAll();
   EXPECT_EQ(sw->port().begin(), sw->port().end());
}

TEST(EntityNotify, NotifieeKeepsItsEntityAliveAndDetachesOnDestruction) {
   Vel::Ptr<Demo::Child> c = Vel::make<Demo::Child>(1);
   auto watch = std::make_unique<Demo::Child::Notifiee>();
   watch->notifierIs(c);
   Demo::Child* raw = c.ptr();
   c = nullptr;
   EXPECT_EQ(watch->notifier().ptr(), raw);  // still alive through the notifiee
   EXPECT_EQ(raw->refCount(), 1u);           // the notifiee's own reference
   Vel::Ptr<Demo::Child> again(raw);
   watch.reset();
   EXPECT_EQ(again->notifieeCount(), 0u);
   again->levelIs(3);  // nobody left to call
}

TEST(EntityNotify, DirectoryEntriesComeAndGoByName) {
   auto dir = Vel::make<Vel::Dir>("externalTlvs");
   struct Watch : Vel::Dir::Notifiee {
      std::vector<std::string> seen;
      void entryChanged(const std::string& name) override { seen.push_back(name); }
   } watch;
   watch.notifierIs(dir);
   auto child = Vel::make<Demo::Child>(7);
   dir->entryIs("seven", child);
   dir->entryIs("seven", child);  // the same entity again: nothing changed
   dir->entryIs("other", Vel::make<Demo::Parent>());
   EXPECT_EQ(dir->entryAs<Demo::Child>("seven"), child);
   EXPECT_FALSE(dir->entryAs<Demo::Child>("other"));  // there, but another type
   EXPECT_FALSE(dir->entryAs<Demo::Child>("missing"));
   dir->entryDel("seven");
   EXPECT_EQ(watch.seen, (std::vector<std::string>{"seven", "other", "seven"}));
}

}  // namespace
