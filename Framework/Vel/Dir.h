// A named directory of entities: how the state database hands over a group of entities
// whose names are only known at run time (one per configured item, say). Its reactors
// hear of every entry added, replaced or removed, by name.
#pragma once

#include <string>

#include "Framework/Vel/Entity.h"
#include "Framework/Vel/Json.h"

namespace Vel {

// clang-format off
#define VEL_DIR_ATTRS(KEY, ATTR, COUNTER, COLL, MAP, ECOLL, REFCOLL) \
   KEY(std::string, name)                                            \
   MAP(std::string, Vel::Ptr<Vel::Entity>, entry)
// clang-format on

class Dir : public Entity {
   VEL_ENTITY(Dir, VEL_DIR_ATTRS)
   explicit Dir(std::string name = {}) : name_(std::move(name)) {}

   // The entry under `name` as an E, or null when there is none or it is another type.
   template <class E>
   Vel::Ptr<E> entryAs(const std::string& n) const {
      const Vel::Ptr<Entity>* e = entry(n);
      return e ? Vel::Ptr<E>(dynamic_cast<E*>(e->ptr())) : nullptr;
   }
   // The entries are of any type: the export names them.
   Json toJson() const {
      Json names = Json::array();
      for (const auto& [n, e] : entry()) names.push_back(n);
      return Json{{"name", name_}, {"entry", names}};
   }
};

}  // namespace Vel
