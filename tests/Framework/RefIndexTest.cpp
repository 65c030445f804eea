// The entity index: lookups, replacement and deletion under heavy hash collisions, checked
// against a plain map after every step.
#include <gtest/gtest.h>

#include <map>
#include <random>

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

}  // namespace
