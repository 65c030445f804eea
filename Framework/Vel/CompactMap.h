// Ordered maps that cost a few words a member, for the collections that hold one member
// per neighbour: a B-tree keeps dozens of members to a node where a red-black tree
// allocates a node of four words of links for each one.
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
