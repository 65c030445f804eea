// The entity index: lookups, replacement and deletion under heavy hash collisions, checked
// against a plain map after every step, and in a table past the size whose slots' own hash
// bits place them.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <vector>

#include "Framework/Vel/RefIndex.h"

namespace {

// Keys whose hash keeps only a few bits, so probe runs are long and wrap around the table.
struct Key {
   int v;
   bool operator==(const Key&) const = default;
   size_t hash() const { return size_t(v) % 7; }
};

struct Item : Vel::RefCounted {
   explicit Item(int v) : key{v} {}
   Key key;
};

TEST(RefIndex, AgreesWithAMapThroughInsertsReplacementsAndErases) {
   Vel::RefIndex<Key, Item> index;
   std::map<int, Vel::Ptr<Item>> model;
   std::mt19937 rng(7);
   for (int step = 0; step < 20000; ++step) {
      const int k = int(rng() % 200);
      if (rng() % 3 == 0) {
         EXPECT_EQ(index.erase(Key{k}), model.erase(k) == 1);
      } else {
         // Replaces any indexed item with the same key; the model then drops the old item,
         // so a slot that still pointed at its key would read freed memory.
         auto item = Vel::make<Item>(k);
         index.insert(item->key, item);
         model[k] = item;
      }
      ASSERT_EQ(index.size(), model.size());
      if (step % 97 == 0) {
         for (int q = 0; q < 200; ++q) {
            auto it = model.find(q);
            ASSERT_EQ(index.find(Key{q}), it == model.end() ? nullptr : it->second) << q;
         }
      }
   }
   index.clear();
   EXPECT_TRUE(index.empty());
   EXPECT_EQ(index.find(Key{1}), nullptr);
}

// Well-spread keys, enough to double the table past half a million slots, then every
// other one erased: what moves into a gap is then placed by its key, not by its slot.
struct Spread {
   int v;
   bool operator==(const Spread&) const = default;
   size_t hash() const { return std::hash<int>()(v); }
};
struct SpreadItem : Vel::RefCounted {
   explicit SpreadItem(int v) : key{v} {}
   Spread key;
};

TEST(RefIndex, LargeTableFindsEveryMemberAfterGrowingAndErasing) {
   constexpr int n = 450000;
   Vel::RefIndex<Spread, SpreadItem> index;
   std::vector<Vel::Ptr<SpreadItem>> items;
   for (int v = 0; v < n; ++v) {
      items.push_back(Vel::make<SpreadItem>(v));
      index.insert(items.back()->key, items.back());
   }
   for (int v = 0; v < n; v += 2) ASSERT_TRUE(index.erase(Spread{v}));
   ASSERT_EQ(index.size(), size_t(n / 2));
   for (int v = 0; v < n; ++v) {
      ASSERT_EQ(index.find(Spread{v}), v % 2 ? items[size_t(v)] : nullptr) << v;
   }
   // The index holds a reference: every kept item is held twice.
   EXPECT_EQ(items[1]->refCount(), 2u);
   EXPECT_EQ(items[0]->refCount(), 1u);
}

}  // namespace
