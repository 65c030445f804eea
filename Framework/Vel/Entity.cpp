#include "Framework/Vel/Entity.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace Vel {

NotifieeList::~NotifieeList() {
   if (many()) ::operator delete(block());
}

NotifieeList::Block* NotifieeList::allocate(uint32_t cap) {
   auto* b =
       static_cast<Block*>(::operator new(offsetof(Block, items) + cap * sizeof(NotifieeBase*)));
   b->size = 0;
   b->cap = cap;
   return b;
}

void NotifieeList::push_back(NotifieeBase* n) {
   if (w_ == 0) {
      w_ = reinterpret_cast<uintptr_t>(n);
      return;
   }
   Block* b = many() ? block() : nullptr;
   if (!b || b->size == b->cap) {
      Block* grown = allocate(b ? b->cap * 2 : 2);
      if (b) {
         std::copy(b->items, b->items + b->size, grown->items);
         grown->size = b->size;
         ::operator delete(b);
      } else {
         grown->items[grown->size++] = reinterpret_cast<NotifieeBase*>(w_);
      }
      b = grown;
      w_ = reinterpret_cast<uintptr_t>(b) | 1;
   }
   b->items[b->size++] = n;
}

bool NotifieeList::remove(NotifieeBase* n, bool keepShape) {
   if (!many()) {
      if (w_ != reinterpret_cast<uintptr_t>(n) || w_ == 0) return false;
      w_ = 0;  // a single slot emptied is the empty list, whatever the shape
      return true;
   }
   Block* b = block();
   NotifieeBase** it = std::find(b->items, b->items + b->size, n);
   if (it == b->items + b->size) return false;
   if (keepShape) {
      *it = nullptr;
   } else {
      std::copy(it + 1, b->items + b->size, it);
      --b->size;
      compact();
   }
   return true;
}

void NotifieeList::compact() {
   if (!many()) return;
   Block* b = block();
   b->size = uint32_t(std::remove(b->items, b->items + b->size, nullptr) - b->items);
   if (b->size > 1) return;
   w_ = b->size ? reinterpret_cast<uintptr_t>(b->items[0]) : 0;
   ::operator delete(b);
}

size_t Entity::notifieeCount() const {
   size_t n = 0;
   for (size_t i = 0; i < notifiees_.size(); ++i) n += notifiees_[i] != nullptr;
   return n;
}

Entity::NotifyScope::NotifyScope(const Entity& e) : entity(e) {
   // A reactor may drop the last reference to the entity it is told about; it lives on
   // until the notification is delivered. (Entities not held by a Ptr are left alone.)
   if (e.refCount() > 0) keep = Ptr<const Entity>(&e);
   ++e.notifyDepth_;
}

Entity::NotifyScope::~NotifyScope() {
   if (--entity.notifyDepth_ == 0 && entity.detachedDuringNotify_) {
      // Slots emptied during delivery are compacted once nothing iterates the list.
      entity.notifiees_.compact();
      entity.detachedDuringNotify_ = false;
   }
}

void Entity::attach(NotifieeBase* n) const {
   notifiees_.push_back(n);
}

void Entity::detach(NotifieeBase* n) const {
   // While the list is being walked its shape is left alone.
   if (notifiees_.remove(n, notifyDepth_ > 0) && notifyDepth_ > 0) detachedDuringNotify_ = true;
}

NotifieeBase::~NotifieeBase() {
   if (notifier_) notifier_->detach(this);
}

void NotifieeBase::attachTo(Ptr<const Entity> e) {
   if (e == notifier_) return;
   if (notifier_) notifier_->detach(this);
   notifier_ = std::move(e);
   if (notifier_) notifier_->attach(this);
}

}  // namespace Vel
