// Ordered maps for the collections that hold one member per neighbour or per interface: a
// B-tree keeps its members side by side in nodes of about 256 bytes (dozens of small keys,
// four or five large ones), where a red-black tree allocates a node with four words of
// links for each.
//
//    VEL_COMPACT_ENTITY_MAP(int, Lldp::RemoteSystem)
//
// after the record's class makes every ECOLL(int, RemoteSystem, ...) a B-tree. Positions
// move when members are added or removed: nothing keeps an iterator across a change.
#pragma once

#include <absl/container/btree_map.h>

#include "Framework/Vel/Entity.h"

#define VEL_COMPACT_ENTITY_MAP(K, E)                \
   template <>                                      \
   struct Vel::EntityMap<K, E> {                    \
      using type = absl::btree_map<K, Vel::Ptr<E>>; \
   };
