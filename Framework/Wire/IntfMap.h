// Maps and sets keyed by interface, for what a machine keeps per port: B-trees, whose
// nodes hold their entries side by side (about 37 bytes an entry for a pointer beside the
// 24-byte identifier) where a red-black tree allocates an 80-byte block for each. A change
// moves the other entries: nothing keeps an iterator or a reference into one across an
// insertion or an erasure, and a loop whose body may change the map walks a copy
// (`valuesOf`).
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <vector>

#include "Framework/Wire/IntfId.h"

namespace Wire {

template <class V>
using IntfMap = absl::btree_map<IntfId, V>;
using IntfSet = absl::btree_set<IntfId>;

// The values of a map of machines, for a loop whose body may add or remove machines.
template <class M>
std::vector<typename M::mapped_type> valuesOf(const M& m) {
   std::vector<typename M::mapped_type> values;
   values.reserve(m.size());
   for (const auto& [key, value] : m) values.push_back(value);
   return values;
}

}  // namespace Wire
