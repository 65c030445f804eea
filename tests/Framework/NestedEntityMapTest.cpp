// The map of pair keys kept as a tree per first half, against std::map through random
// adds and erases: lookups, iteration both ways, bounds, and a record's collection of it.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/NestedEntityMap.h"
#include "Framework/Vel/Value.h"

namespace Nested {

#define NESTED_KEY_FIELDS(F) F(std::string, port, {}) F(int, station, 0)
class Key {
   VEL_VALUE(Key, NESTED_KEY_FIELDS)
};

class Member : public Vel::Entity {
public:
#define NESTED_MEMBER_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(std::string, port)                                                  \
   KEY(int, station)
   VEL_ENTITY(Member, NESTED_MEMBER_ATTRS)
   explicit Member(const Key& k) : port_(k.port()), station_(k.station()) {}
};

}  // namespace Nested

VEL_NESTED_ENTITY_MAP(Nested::Key, Nested::Member, port, station)

namespace Nested {

class Holder : public Vel::Entity {
public:
#define NESTED_HOLDER_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   ECOLL(Key, Member, member)
   VEL_ENTITY(Holder, NESTED_HOLDER_ATTRS)
};

namespace {

Key key(int port, int station) {
   return Key({.port = std::to_string(port * 1000), .station = station});
}

TEST(NestedEntityMap, AgreesWithAMapThroughAddsErasesAndBounds) {
   auto holder = Vel::make<Holder>();
   std::map<Key, Vel::Ptr<Member>> model;
   std::mt19937 rng(11);
   for (int step = 0; step < 6000; ++step) {
      const Key k = key(int(rng() % 5), int(rng() % 60));
      if (rng() % 3 == 0) {
         EXPECT_EQ(holder->memberDel(k), model.erase(k) == 1);
      } else {
         auto m = holder->memberIs(k);
         EXPECT_EQ(m, model.try_emplace(k, m).first->second) << "a taken key keeps its member";
      }
      const auto& map = holder->member();
      ASSERT_EQ(map.size(), model.size());
      if (step % 50 != 0) continue;
      // Forwards, backwards, and every bound, in key order.
      auto it = map.begin();
      for (const auto& [mk, mv] : model) {
         ASSERT_NE(it, map.end());
         EXPECT_EQ(it->first, mk);
         EXPECT_EQ(it->second, mv);
         ++it;
      }
      EXPECT_EQ(it, map.end());
      for (auto r = model.rbegin(); r != model.rend(); ++r) EXPECT_EQ((--it)->first, r->first);
      for (int port = 0; port < 6; ++port) {
         for (int station = -1; station <= 60; station += 7) {
            const Key q = key(port, station);
            auto lo = model.lower_bound(q), hi = model.upper_bound(q);
            EXPECT_EQ(map.lower_bound(q) == map.end() ? Key() : map.lower_bound(q)->first,
                      lo == model.end() ? Key() : lo->first);
            EXPECT_EQ(map.upper_bound(q) == map.end() ? Key() : map.upper_bound(q)->first,
                      hi == model.end() ? Key() : hi->first);
            EXPECT_EQ(holder->member(q), model.count(q) ? model[q] : nullptr);
         }
      }
   }
   holder->memberDelAll();
   EXPECT_TRUE(holder->member().empty());
   EXPECT_EQ(holder->member().begin(), holder->member().end());
}

}  // namespace
}  // namespace Nested
