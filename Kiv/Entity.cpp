#include "Kiv/Entity.h"

#include "Kiv/AttrOps.h"

namespace Kiv {

Entity::~Entity() = default;

void Entity::parentIs(Entity* parent) noexcept {
   if (!watched() && (parent == nullptr || !parent->watched())) [[likely]] {
      parentPublisherIs(parent);  // there is nothing to inherit
   } else {
      changeWatch([&] { parentPublisherIs(parent); });
   }
}

/// Makes a change of the parent or of the subtree observers, and passes on what follows from it.
template <class Make>
void Entity::changeWatch(Make const& make) {
   Heritage const before = heritage();
   make();
   inherit();
   if (heritage() != before) {
      passOn();
   }
}

void Entity::passOn() noexcept {
   forEachChild(*this, [](Entity& child, FieldDescriptor const&, void const*) {
      if (child.inherit()) {
         child.passOn();
      }
   });
}

void Entity::observerAdd(Observer& observer, Scope scope) {
   if (scope == Scope::subtree) {
      changeWatch([&] { add(observer, scope); });
   } else {
      add(observer, scope);
   }
}

void Entity::observerAddFirst(Sarn::FirstObserver& observer) {
   changeWatch([&] { addFirst(observer); });
}

bool Entity::observerDel(Observer& observer, Scope scope) noexcept {
   if (scope == Scope::entity) {
      return remove(observer, scope);
   }
   bool removed = false;
   changeWatch([&] { removed = remove(observer, scope); });
   return removed;
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
