// Entities declared once. An entity lists its attributes in an X-macro that takes one
// macro per kind of attribute:
//    KEY(Type, name)                fixed at construction, getter only
//    ATTR(Type, name, default)      getter `name()`, setter `nameIs(v)`
//    COUNTER(Type, name)            getter, setter, incrementer `nameInc(amount)`
//    COLL(Key, Value, name)         values that carry their own key(): `nameIs(v)`,
//                                   `name(key)`, `nameDel(key)`, `nameDelAll()`, `name()`
//    MAP(Key, Value, name)          as COLL but `nameIs(key, value)`
//    ECOLL(Key, Entity, name)       owned child entities, ordered by key:
//                                   `nameIs(key, ctorArgs...)` creates if absent
//    REFCOLL(Key, Entity, name, f)  hashed references to entities kept elsewhere,
//                                   keyed by their key attribute `entity->f()`:
//                                   `nameIs(ptr)`
// VEL_ENTITY(Class, ATTRS) generates the members, the accessors above, attribute
// visitation (JSON export and printing) and resetAttrs(), which returns every attribute
// to its default and empties every collection while keeping its capacity.
#pragma once

#include <map>
#include <ostream>
#include <unordered_map>

#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/RefIndex.h"
#include "Framework/Vel/Types.h"
#include "Framework/Vel/Value.h"

namespace Vel {

class Entity : public RefCounted {};

}  // namespace Vel

#define VEL_E_NONE4(a, b, c, d)
#define VEL_E_NONE3(a, b, c)
#define VEL_E_NONE2(a, b)

// Members.
#define VEL_E_KEY_M(T, n) T n##_;
#define VEL_E_ATTR_M(T, n, d) T n##_ = d;
#define VEL_E_COUNTER_M(T, n) T n##_ = 0;
#define VEL_E_COLL_M(K, V, n) Vel::FlatMap<K, V> n##_;
#define VEL_E_ECOLL_M(K, E, n) std::map<K, Vel::Ptr<E>> n##_;
#define VEL_E_REFCOLL_M(K, E, n, f) Vel::RefIndex<K, E> n##_;

// Accessors.
#define VEL_E_KEY_A(T, n) \
   const T& n() const {   \
      return n##_;        \
   }
#define VEL_E_ATTR_A(T, n, d) \
   const T& n() const {       \
      return n##_;            \
   }                          \
   void n##Is(const T& v) {   \
      n##_ = v;               \
   }
#define VEL_E_COUNTER_A(T, n)               \
   T n() const {                            \
      return n##_;                          \
   }                                        \
   void n##Is(T v) {                        \
      n##_ = v;                             \
   }                                        \
   void n##Inc(unsigned amount = 1) {       \
      n##_ = static_cast<T>(n##_ + amount); \
   }
#define VEL_E_COLLCOMMON_A(K, V, n)      \
   const Vel::FlatMap<K, V>& n() const { \
      return n##_;                       \
   }                                     \
   const V* n(const K& k) const {        \
      return n##_.find(k);               \
   }                                     \
   bool n##Del(const K& k) {             \
      return n##_.erase(k);              \
   }                                     \
   void n##DelAll() {                    \
      n##_.clear();                      \
   }
#define VEL_E_COLL_A(K, V, n)      \
   VEL_E_COLLCOMMON_A(K, V, n)     \
   const V& n##Is(const V& v) {    \
      return n##_.set(v.key(), v); \
   }
#define VEL_E_MAP_A(K, V, n)                \
   VEL_E_COLLCOMMON_A(K, V, n)              \
   const V& n##Is(const K& k, const V& v) { \
      return n##_.set(k, v);                \
   }
// Deletion for the node-based entity collections.
#define VEL_E_NODE_DEL_A(K, n)   \
   bool n##Del(const K& k) {     \
      return n##_.erase(k) != 0; \
   }                             \
   void n##DelAll() {            \
      n##_.clear();              \
   }
#define VEL_E_ECOLL_A(K, E, n)                                              \
   const std::map<K, Vel::Ptr<E>>& n() const {                              \
      return n##_;                                                          \
   }                                                                        \
   Vel::Ptr<E> n(const K& k) {                                              \
      auto it = n##_.find(k);                                               \
      return it == n##_.end() ? nullptr : it->second;                       \
   }                                                                        \
   Vel::Ptr<const E> n(const K& k) const {                                  \
      auto it = n##_.find(k);                                               \
      return it == n##_.end() ? nullptr : Vel::Ptr<const E>(it->second);    \
   }                                                                        \
   template <class... A>                                                    \
   Vel::Ptr<E> n##Is(const K& k, A&&... a) {                                \
      auto [it, added] = n##_.try_emplace(k);                               \
      if (added) it->second = Vel::Ptr<E>(new E(k, std::forward<A>(a)...)); \
      return it->second;                                                    \
   }                                                                        \
   VEL_E_NODE_DEL_A(K, n)
#define VEL_E_REFCOLL_A(K, E, n, f)       \
   const Vel::RefIndex<K, E>& n() const { \
      return n##_;                        \
   }                                      \
   Vel::Ptr<E> n(const K& k) const {      \
      return n##_.find(k);                \
   }                                      \
   void n##Is(const Vel::Ptr<E>& p) {     \
      n##_.insert(p->f(), p);             \
   }                                      \
   VEL_E_NODE_DEL_A(K, n)

// Visitation, in declaration order.
#define VEL_E_KEY_V(T, n) fn(#n, n##_);
#define VEL_E_ATTR_V(T, n, d) fn(#n, n##_);
#define VEL_E_COUNTER_V(T, n) fn(#n, n##_);
#define VEL_E_COLL_V(K, V, n) fn(#n, n##_);
#define VEL_E_ECOLL_V(K, E, n) fn(#n, n##_);

// Reset.
#define VEL_E_ATTR_R(T, n, d) n##_ = d;
#define VEL_E_COUNTER_R(T, n) n##_ = 0;
#define VEL_E_COLL_R(K, V, n) n##_.clear();
#define VEL_E_ECOLL_R(K, E, n) n##_.clear();
#define VEL_E_REFCOLL_R(K, E, n, f) n##_.clear();

#define VEL_ENTITY(Class, ATTRS) VEL_ENTITY_BODY(Class, ATTRS, (void)0;, (void)0;)
// An entity that extends another: the base's attributes come first in visitation.
#define VEL_ENTITY_DERIVED(Class, Base, ATTRS) \
   VEL_ENTITY_BODY(Class, ATTRS, Base::visitAttrs(fn);, Base::resetAttrs();)

#define VEL_ENTITY_BODY(Class, ATTRS, BASE_VISIT, BASE_RESET)                                      \
public:                                                                                            \
   using Ptr = Vel::Ptr<Class>;                                                                    \
   using PtrConst = Vel::Ptr<const Class>;                                                         \
   static constexpr const char* typeName() {                                                       \
      return #Class;                                                                               \
   }                                                                                               \
   ATTRS(VEL_E_KEY_A, VEL_E_ATTR_A, VEL_E_COUNTER_A, VEL_E_COLL_A, VEL_E_MAP_A, VEL_E_ECOLL_A,     \
         VEL_E_REFCOLL_A)                                                                          \
   /* Visits every attribute and collection except reference collections. */                       \
   template <class Fn>                                                                             \
   void visitAttrs(Fn&& fn) const {                                                                \
      BASE_VISIT                                                                                   \
      ATTRS(VEL_E_KEY_V, VEL_E_ATTR_V, VEL_E_COUNTER_V, VEL_E_COLL_V, VEL_E_COLL_V, VEL_E_ECOLL_V, \
            VEL_E_NONE4)                                                                           \
   }                                                                                               \
   void resetAttrs() {                                                                             \
      BASE_RESET                                                                                   \
      ATTRS(VEL_E_NONE2, VEL_E_ATTR_R, VEL_E_COUNTER_R, VEL_E_COLL_R, VEL_E_COLL_R, VEL_E_ECOLL_R, \
            VEL_E_REFCOLL_R)                                                                       \
   }                                                                                               \
   friend std::ostream& operator<<(std::ostream& os, const Class& e) {                             \
      os << #Class << '(';                                                                         \
      bool first = true;                                                                           \
      e.visitAttrs([&](const char* name, const auto& v) {                                          \
         os << (first ? "" : ", ") << name << '=';                                                 \
         Vel::printEntityValue(os, v);                                                             \
         first = false;                                                                            \
      });                                                                                          \
      return os << ')';                                                                            \
   }                                                                                               \
                                                                                                   \
private:                                                                                           \
   ATTRS(VEL_E_KEY_M, VEL_E_ATTR_M, VEL_E_COUNTER_M, VEL_E_COLL_M, VEL_E_COLL_M, VEL_E_ECOLL_M,    \
         VEL_E_REFCOLL_M)                                                                          \
                                                                                                   \
public:

namespace Vel {

// Child entity collections print as their size only; traces stay one line.
template <class T>
void printEntityValue(std::ostream& os, const T& v) {
   if constexpr (requires { v.begin()->second.ptr(); }) {
      os << '<' << v.size() << " entries>";
   } else {
      printValue(os, v);
   }
}

}  // namespace Vel
