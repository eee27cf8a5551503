#include "Kiv/Entity.h"

#include "Kiv/AttrOps.h"

namespace Kiv {

Entity::~Entity() = default;

void Entity::parentIs(Entity* parent) noexcept {
   parentPublisherIs(parent);
   bool const watched = (parent != nullptr && parent->subtreeWatched()) || hasSubtreeObserver();
   watchedFromAboveIs(watched);
}

void Entity::watchedFromAboveIs(bool watched) noexcept {
   if (subtreeWatched() == watched) {
      return;
   }
   subtreeWatchedIs(watched);
   forEachChild(*this, [watched](Entity& child, FieldDescriptor const&, void const*) {
      child.watchedFromAboveIs(watched || child.hasSubtreeObserver());
   });
}

void Entity::observerAdd(Observer& observer, Scope scope) {
   add(observer, scope);
   if (scope == Scope::subtree) {
      watchedFromAboveIs(true);
   }
}

void Entity::observerAddFirst(Sarn::FirstObserver& observer) {
   addFirst(observer);
   watchedFromAboveIs(true);
}

bool Entity::observerDel(Observer& observer, Scope scope) noexcept {
   if (!remove(observer, scope)) {
      return false;
   }
   if (scope == Scope::subtree) {
      Entity const* const above = parent();
      watchedFromAboveIs(hasSubtreeObserver() || (above != nullptr && above->subtreeWatched()));
   }
   return true;
}

Sarn::String const* entityName(Entity const& entity) noexcept {
   return entity.kivType().named ? &static_cast<NamedEntity const&>(entity).nameString() : nullptr;
}

void forEachChild(Entity const& entity, void* context,
                  void (*visit)(void* context, Entity& child, FieldDescriptor const& field,
                                void const* key)) {
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (field.kind == MemberKind::child) {
         if (Entity* const child = field.ops->child->get(entity)) {
            visit(context, *child, field, nullptr);
         }
      } else if (field.kind == MemberKind::children && field.ops->collection->size(entity) != 0) {
         IteratorStorage storage;
         struct Walk {
            CollectionIterator* at;
            ~Walk() { at->~CollectionIterator(); }
         } const walk{field.ops->collection->iterator(const_cast<Entity&>(entity), storage)};
         for (; walk.at->valid(); walk.at->next()) {
            visit(context, *walk.at->child(), field, walk.at->key());
         }
      }
   });
}

}  // namespace Kiv
