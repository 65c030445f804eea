// Entities declared once. An entity lists its attributes in an X-macro that takes one
// macro per kind of attribute:
//    KEY(Type, name)                fixed at construction, getter only
//    ATTR(Type, name, default)      getter `name()`, setter `nameIs(v)`
//    COUNTER(Type, name)            getter, setter, incrementer `nameInc(amount)`
//    COLL(Key, Value, name)         values that carry their own key(), stored alone
//                                   (FlatKeyedMap): `nameIs(v)`, `name(key)`,
//                                   `nameDel(key)`, `nameDelAll()`, `name()`
//    MAP(Key, Value, name)          as COLL but `nameIs(key, value)`
//    ECOLL(Key, Entity, name)       owned child entities, ordered by key:
//                                   `nameIs(key, ctorArgs...)` creates if absent;
//                                   `nameIs(key, ptr)` adds an entity built and filled
//                                   beforehand, so its reactors see it complete
//    REFCOLL(Key, Entity, name, f)  hashed references to entities kept elsewhere,
//                                   keyed by their key attribute `entity->f()`:
//                                   `nameIs(ptr)`
// VEL_ENTITY(Class, ATTRS) generates the members, the accessors above, attribute
// visitation (JSON export and printing), resetAttrs(), which returns every attribute
// to its default and empties every collection while keeping its capacity (silently: it
// is for records nobody watches yet), and the entity's reactive interface:
//
// Reactors. `Class::Notifiee` has one virtual per attribute, `nameChanged()`, and one per
// collection, `nameChanged(key)`, all empty by default. A state machine derives from it,
// attaches with `notifierIs(entity)` and overrides what it watches. A writer notifies
// only when the value really changed (a collection: member added, changed or deleted,
// with its key); key attributes never change. Notification is synchronous, depth first
// and in attachment order: a reactor that writes another watched attribute runs that
// attribute's reactors before it continues. Reactors may attach and detach notifiees
// (themselves included) while a notification is delivered; a notifiee attached during
// a notification does not receive it, one detached does not receive it any more.
#pragma once

#include <map>
#include <ostream>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "Framework/Vel/Ptr.h"
#include "Framework/Vel/RefIndex.h"
#include "Framework/Vel/Types.h"
#include "Framework/Vel/Value.h"

namespace Vel {

class NotifieeBase;

// The notifiees attached to an entity, in attachment order: one word, which holds the
// only notifiee itself (most watched records have one reactor) and points to a block
// only from the second on. Slots may be emptied (null) while a notification walks them;
// compact() drops the empty ones afterwards.
class NotifieeList {
public:
   NotifieeList() = default;
   NotifieeList(const NotifieeList&) = delete;
   NotifieeList& operator=(const NotifieeList&) = delete;
   ~NotifieeList();

   bool empty() const { return w_ == 0; }
   size_t size() const { return many() ? block()->size : (w_ != 0); }
   NotifieeBase* operator[](size_t i) const {
      return many() ? block()->items[i] : reinterpret_cast<NotifieeBase*>(w_);
   }
   void push_back(NotifieeBase* n);
   // Removes n: its slot is emptied where `keepShape`, taken out otherwise. False if n
   // was not there.
   bool remove(NotifieeBase* n, bool keepShape);
   void compact();

private:
   struct Block {
      uint32_t size;
      uint32_t cap;
      NotifieeBase* items[1];
   };
   bool many() const { return w_ & 1; }
   Block* block() const { return reinterpret_cast<Block*>(w_ & ~uintptr_t(1)); }
   static Block* allocate(uint32_t cap);
   uintptr_t w_ = 0;
};

class Entity : public RefCounted {
public:
   size_t notifieeCount() const;

protected:
   // Unwatched records skip the change test too: writers then cost what a plain
   // assignment costs (the receive path fills a scratch record this way).
   bool watched() const { return !notifiees_.empty(); }
   // Calls `call(static_cast<N*>(notifiee))` for every attached notifiee. The empty case
   // is one inline test: a record nobody watches pays nothing else per write.
   template <class N, class Call>
   void notify(Call&& call) const {
      if (notifiees_.empty()) return;
      NotifyScope scope(*this);
      const size_t n = notifiees_.size();  // later attachments miss this notification
      for (size_t i = 0; i < n; ++i) {
         if (NotifieeBase* x = notifiees_[i]) call(static_cast<N*>(x));
      }
   }

private:
   friend class NotifieeBase;
   // Keeps the entity alive and the list stable while a notification is delivered.
   struct NotifyScope {
      explicit NotifyScope(const Entity& e);
      ~NotifyScope();
      const Entity& entity;
      Ptr<const Entity> keep;
   };
   void attach(NotifieeBase* n) const;
   void detach(NotifieeBase* n) const;
   // Declared first, so they share a word with the reference count: a record's header is
   // three words.
   mutable uint32_t notifyDepth_ : 31 = 0;
   mutable uint32_t detachedDuringNotify_ : 1 = 0;
   // One word, with no block of its own unless two or more watch.
   mutable NotifieeList notifiees_;
};

// The container of an entity collection (ECOLL): an ordered map. A record type whose
// collections hold a member per neighbour specialises this for a B-tree (see
// Framework/Vel/CompactMap.h); iterators over such a collection do not survive a change
// to it, so readers that resume later keep a key, never an iterator.
template <class K, class E>
struct EntityMap {
   using type = std::map<K, Ptr<E>>;
};
template <class K, class E>
using EntityMapOf = typename EntityMap<K, E>::type;

// Adds the member make() returns under key k unless k is taken: the member held, and
// whether it was added. Collections of our own making (EntitySet, NestedEntityMap) say
// so themselves, without an iterator.
template <class Map, class K, class Make>
std::pair<typename Map::mapped_type, bool> entityAdd(Map& m, const K& k, Make&& make) {
   if constexpr (requires { m.add(k, make); }) {
      return m.add(k, std::forward<Make>(make));
   } else {
      auto [it, added] = m.try_emplace(k);
      if (added) it->second = make();
      return {it->second, added};
   }
}
// The member of key k, or null.
template <class Map, class K>
typename Map::mapped_type entityFind(const Map& m, const K& k) {
   if constexpr (requires { m.member(k); }) {
      return m.member(k);
   } else {
      auto it = m.find(k);
      return it == m.end() ? nullptr : it->second;
   }
}

// A ready-made member for an entity collection's `nameIs(key, ptr)`.
template <class P, class E>
concept MemberPtr = std::is_same_v<std::remove_cvref_t<P>, Ptr<E>>;

// The base of every entity's Notifiee. It keeps its entity alive while attached.
class NotifieeBase {
public:
   NotifieeBase() = default;
   NotifieeBase(const NotifieeBase&) = delete;
   NotifieeBase& operator=(const NotifieeBase&) = delete;
   virtual ~NotifieeBase();

protected:
   void attachTo(Ptr<const Entity> e);
   const Entity* notifierEntity() const { return notifier_.ptr(); }

private:
   Ptr<const Entity> notifier_;
};

}  // namespace Vel

// Notification helpers for the accessors below.
#define VEL_E_NOTIFY(n) notify<Notifiee>([](Notifiee* x) { x->n##Changed(); })
#define VEL_E_NOTIFY_KEY(n, k) notify<Notifiee>([&](Notifiee* x) { x->n##Changed(k); })

#define VEL_E_NONE4(a, b, c, d)
#define VEL_E_NONE3(a, b, c)
#define VEL_E_NONE2(a, b)

// Members.
#define VEL_E_KEY_M(T, n) T n##_;
#define VEL_E_ATTR_M(T, n, d) T n##_ = d;
#define VEL_E_COUNTER_M(T, n) T n##_ = 0;
#define VEL_E_COLL_M(K, V, n) Vel::FlatKeyedMap<K, V> n##_;
#define VEL_E_MAP_M(K, V, n) Vel::FlatMap<K, V> n##_;
#define VEL_E_ECOLL_M(K, E, n) Vel::EntityMapOf<K, E> n##_;
#define VEL_E_REFCOLL_M(K, E, n, f) Vel::RefIndex<K, E> n##_;

// Accessors.
#define VEL_E_KEY_A(T, n) \
   const T& n() const {   \
      return n##_;        \
   }
#define VEL_E_ATTR_A(T, n, d)             \
   const T& n() const {                   \
      return n##_;                        \
   }                                      \
   void n##Is(const T& v) {               \
      if (watched() && n##_ == v) return; \
      n##_ = v;                           \
      VEL_E_NOTIFY(n);                    \
   }
#define VEL_E_COUNTER_A(T, n)               \
   T n() const {                            \
      return n##_;                          \
   }                                        \
   void n##Is(T v) {                        \
      if (watched() && n##_ == v) return;   \
      n##_ = v;                             \
      VEL_E_NOTIFY(n);                      \
   }                                        \
   void n##Inc(unsigned amount = 1) {       \
      n##_ = static_cast<T>(n##_ + amount); \
      VEL_E_NOTIFY(n);                      \
   }
#define VEL_E_COLLCOMMON_A(K, V, n)                                   \
   const auto& n() const {                                            \
      return n##_;                                                    \
   }                                                                  \
   const V* n(const K& k) const {                                     \
      return n##_.find(k);                                            \
   }                                                                  \
   bool n##Del(const K& k) {                                          \
      const K key = k; /* k may live in the map */                    \
      if (!n##_.erase(key)) return false;                             \
      VEL_E_NOTIFY_KEY(n, key);                                       \
      return true;                                                    \
   }                                                                  \
   void n##DelAll() {                                                 \
      if (!watched()) {                                               \
         n##_.clear();                                                \
         return;                                                      \
      }                                                               \
      while (!n##_.empty()) {                                         \
         const K k = n##_.begin()->first;                             \
         n##Del(k);                                                   \
      }                                                               \
   }                                                                  \
   const V& n##Is(const K& k, const V& v) {                           \
      if (!watched()) return n##_.set(k, v);                          \
      if (const V* cur = n##_.find(k); cur && *cur == v) return *cur; \
      const V& stored = n##_.set(k, v);                               \
      VEL_E_NOTIFY_KEY(n, k);                                         \
      return stored;                                                  \
   }
#define VEL_E_COLL_A(K, V, n)      \
   VEL_E_COLLCOMMON_A(K, V, n)     \
   const V& n##Is(const V& v) {    \
      return n##Is(K(v.key()), v); \
   }
#define VEL_E_MAP_A(K, V, n) VEL_E_COLLCOMMON_A(K, V, n)
// Deletion for the entity collections.
#define VEL_E_NODE_DEL_A(K, n)                                        \
   bool n##Del(const K& k) {                                          \
      auto it = n##_.find(k);                                         \
      if (it == n##_.end()) return false;                             \
      const K key = it->first;                                        \
      const auto gone = it->second; /* dies after the reactors ran */ \
      n##_.erase(it);                                                 \
      VEL_E_NOTIFY_KEY(n, key);                                       \
      return true;                                                    \
   }                                                                  \
   void n##DelAll() {                                                 \
      if (!watched()) {                                               \
         n##_.clear();                                                \
         return;                                                      \
      }                                                               \
      while (!n##_.empty()) n##Del(K(n##_.begin()->first));           \
   }
#define VEL_E_ECOLL_A(K, E, n)                                                                   \
   const Vel::EntityMapOf<K, E>& n() const {                                                     \
      return n##_;                                                                               \
   }                                                                                             \
   Vel::Ptr<E> n(const K& k) {                                                                   \
      return Vel::entityFind(n##_, k);                                                           \
   }                                                                                             \
   Vel::Ptr<const E> n(const K& k) const {                                                       \
      return Vel::entityFind(n##_, k);                                                           \
   }                                                                                             \
   /* Tells the collection's reactors that member k changed inside. */                           \
   void n##Touched(const K& k) {                                                                 \
      if (n##_.count(k)) VEL_E_NOTIFY_KEY(n, k);                                                 \
   }                                                                                             \
   template <class... A>                                                                         \
   Vel::Ptr<E> n##Is(const K& k, A&&... a) {                                                     \
      auto [e, added] =                                                                          \
          Vel::entityAdd(n##_, k, [&] { return Vel::Ptr<E>(new E(k, std::forward<A>(a)...)); }); \
      if (added) VEL_E_NOTIFY_KEY(n, k);                                                         \
      return e;                                                                                  \
   }                                                                                             \
   /* Adds e, whose key is k, unless k is taken; returns the member. */                          \
   template <Vel::MemberPtr<E> P>                                                                \
   Vel::Ptr<E> n##Is(const K& k, P&& e) {                                                        \
      auto [member, added] = Vel::entityAdd(n##_, k, [&] { return Vel::Ptr<E>(e); });            \
      if (added) VEL_E_NOTIFY_KEY(n, k);                                                         \
      return member;                                                                             \
   }                                                                                             \
   VEL_E_NODE_DEL_A(K, n)
#define VEL_E_REFCOLL_A(K, E, n, f)                                 \
   const Vel::RefIndex<K, E>& n() const {                           \
      return n##_;                                                  \
   }                                                                \
   Vel::Ptr<E> n(const K& k) const {                                \
      return n##_.find(k);                                          \
   }                                                                \
   void n##Is(const Vel::Ptr<E>& p) {                               \
      if (n##_.find(p->f()) == p) return;                           \
      n##_.insert(p->f(), p);                                       \
      VEL_E_NOTIFY_KEY(n, p->f());                                  \
   }                                                                \
   bool n##Del(const K& k) {                                        \
      const Vel::Ptr<E> gone = n##_.find(k);                        \
      if (!gone) return false;                                      \
      n##_.erase(k);                                                \
      VEL_E_NOTIFY_KEY(n, gone->f());                               \
      return true;                                                  \
   }                                                                \
   /* Silent: an index is emptied together with what it indexes. */ \
   void n##DelAll() {                                               \
      n##_.clear();                                                 \
   }

// Notifiee virtuals.
#define VEL_E_ATTR_N(T, n, d) \
   virtual void n##Changed() {}
#define VEL_E_COUNTER_N(T, n) \
   virtual void n##Changed() {}
#define VEL_E_COLL_N(K, V, n) \
   virtual void n##Changed(const K&) {}
#define VEL_E_REFCOLL_N(K, E, n, f) \
   virtual void n##Changed(const K&) {}

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

#define VEL_ENTITY(Class, ATTRS) \
   VEL_ENTITY_BODY(Class, ATTRS, (void)0;, (void)0;, Vel::NotifieeBase)
// An entity that extends another: the base's attributes come first in visitation, and
// its Notifiee extends the base's.
#define VEL_ENTITY_DERIVED(Class, Base, ATTRS) \
   VEL_ENTITY_BODY(Class, ATTRS, Base::visitAttrs(fn);, Base::resetAttrs();, Base::Notifiee)

#define VEL_ENTITY_BODY(Class, ATTRS, BASE_VISIT, BASE_RESET, NOTIFIEE_BASE)                       \
public:                                                                                            \
   using Ptr = Vel::Ptr<Class>;                                                                    \
   using PtrConst = Vel::Ptr<const Class>;                                                         \
   static constexpr const char* typeName() {                                                       \
      return #Class;                                                                               \
   }                                                                                               \
   class Notifiee : public NOTIFIEE_BASE {                                                         \
   public:                                                                                         \
      ATTRS(VEL_E_NONE2, VEL_E_ATTR_N, VEL_E_COUNTER_N, VEL_E_COLL_N, VEL_E_COLL_N, VEL_E_COLL_N,  \
            VEL_E_REFCOLL_N)                                                                       \
      Vel::Ptr<const Class> notifier() const { return Vel::Ptr<const Class>(notifierPtr()); }      \
      /* Without taking a reference: for a key read many times over. */                            \
      const Class* notifierPtr() const {                                                           \
         return static_cast<const Class*>(this->notifierEntity());                                 \
      }                                                                                            \
      void notifierIs(const Vel::Ptr<const Class>& c) { this->attachTo(c); }                       \
   };                                                                                              \
   ATTRS(VEL_E_KEY_A, VEL_E_ATTR_A, VEL_E_COUNTER_A, VEL_E_COLL_A, VEL_E_MAP_A, VEL_E_ECOLL_A,     \
         VEL_E_REFCOLL_A)                                                                          \
   /* Visits every attribute and collection except reference collections. */                       \
   template <class Fn>                                                                             \
   void visitAttrs([[maybe_unused]] Fn&& fn) const {                                               \
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
   ATTRS(VEL_E_KEY_M, VEL_E_ATTR_M, VEL_E_COUNTER_M, VEL_E_COLL_M, VEL_E_MAP_M, VEL_E_ECOLL_M,     \
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
