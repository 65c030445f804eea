#include "Framework/Vel/Entity.h"

#include <algorithm>

namespace Vel {

size_t Entity::notifieeCount() const {
   return size_t(std::count_if(notifiees_.begin(), notifiees_.end(),
                               [](const NotifieeBase* n) { return n != nullptr; }));
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
      auto& list = entity.notifiees_;
      list.erase(std::remove(list.begin(), list.end(), nullptr), list.end());
      entity.detachedDuringNotify_ = false;
   }
}

void Entity::attach(NotifieeBase* n) const {
   notifiees_.push_back(n);
}

void Entity::detach(NotifieeBase* n) const {
   auto it = std::find(notifiees_.begin(), notifiees_.end(), n);
   if (it == notifiees_.end()) return;
   if (notifyDepth_ > 0) {
      *it = nullptr;  // the list is being walked: leave its shape alone
      detachedDuringNotify_ = true;
   } else {
      notifiees_.erase(it);
   }
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
