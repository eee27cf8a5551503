#pragma once

#include "Kiv/AttrOps.h"

/// The children that a change is about: the one before it and the one there now. An observer may
/// have changed both since.
namespace Kiv::NboAttrLog {

/// Whether the member holds child entities.
inline bool holdsEntities(FieldDescriptor const& field) noexcept {
   return field.kind == MemberKind::child || field.kind == MemberKind::children;
}

/// The child that is there now: the singleton, or the one with this key. Null if there is none.
/// REQUIRES: holdsEntities(field).
inline Entity* presentChild(Entity const& owner, FieldDescriptor const& field, void const* key) {
   return field.kind == MemberKind::child ? field.ops->child->get(owner)
                                          : field.ops->collection->findChild(owner, key);
}

/// The child that the change removed; null if it removed none, or is not about children.
inline Entity* removedChild(FieldDescriptor const& field, Change const& change) noexcept {
   return holdsEntities(field) && change.oldValue != nullptr
                ? static_cast<Sarn::Ptr<Entity> const*>(change.oldValue)->get()
                : nullptr;
}

/// The root of the entity's tree; the entity itself if it has no parent.
inline Entity const* rootOf(Entity const& entity) noexcept {
   Entity const* at = &entity;
   while (at->parent() != nullptr) {
      at = at->parent();
   }
   return at;
}

}  // namespace Kiv::NboAttrLog
