// Maps and sets keyed by interface, for what a machine keeps per port: B-trees, whose
// nodes hold their entries side by side (about 25 bytes an entry for a pointer beside the
// 16-byte identifier) where a red-black tree allocates a 64-byte block for each. A change
// moves the other entries: nothing keeps an iterator or a reference into one across an
// insertion or an erasure, and a loop whose body may change the map walks a copy
// (`valuesOf`).
//
// A machine that knows its interface (`intfId()`, read from a record it holds) goes in a
// MachineMap instead: the B-tree holds the machines' pointers alone, about 9 bytes an
// entry, and reads each key from its machine, which must be able to say it for as long
// as it is in the map (one that lets its record go when closed is taken out first:
// `closeAll`, or erase before doClose). It reads like a map (find, erase, iteration over
// items with `first` and `second`); members are added with `add(sm)`, and a loop may
// change it while it runs (see Vel::EntitySet).
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <vector>

#include "Framework/Vel/CompactMap.h"
#include "Framework/Wire/IntfId.h"

namespace Wire {

template <class V>
using IntfMap = absl::btree_map<IntfId, V>;
using IntfSet = absl::btree_set<IntfId>;

template <class Sm>
struct MachineIntf {
   const IntfId& operator()(const Sm& sm) const { return sm.intfId(); }
};
template <class Sm>
using MachineMap = Vel::EntitySet<IntfId, Sm, MachineIntf<Sm>>;

// The values of a map of machines, for a loop whose body may add or remove machines.
template <class M>
std::vector<typename M::mapped_type> valuesOf(const M& m) {
   std::vector<typename M::mapped_type> values;
   values.reserve(m.size());
   for (const auto& [key, value] : m) values.push_back(value);
   return values;
}

// Empties a map of machines, then closes each one: a machine whose key is read from a
// record it lets go of when closed is out of its map by then, and what closing sets off
// finds no closed machine in it.
template <class M>
void closeAll(M& m) {
   const auto machines = valuesOf(m);
   m.clear();
   for (const auto& sm : machines) sm->doClose();
}

}  // namespace Wire
