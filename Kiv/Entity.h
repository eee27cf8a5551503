#pragma once

#include "Kiv/TypeImpl.h"
#include "Sarn/Node.h"
#include "Sarn/Publisher.h"

namespace Kiv {

using Sarn::Change;
using Sarn::Observer;
using Sarn::Scope;

/// Base of every generated entity type: a reference-counted node with observers, a position in a
/// tree of entities, and a type that describes its attributes.
///
/// Ownership: an attribute of the parent holds the child; a child never holds its parent. A child
/// that was removed, or whose parent died, has a null parent and lives as long as something holds
/// it.
/// Threads: one thread owns a whole tree; others may only touch reference counts.
class Entity : public Sarn::Node, public Sarn::Publisher {
public:
   /// The stream adapter: see `Kiv/NboAttrLogSa.h`.
   using KivNboAttrLogSa = NboAttrLog::Sa;

   virtual TypeImpl const& kivType() const noexcept = 0;

   /// The entity whose attribute holds this one; null for a root.
   Entity* parent() const noexcept { return static_cast<Entity*>(parentPublisher()); }
   /// Links this entity below `parent`; null unlinks it. The framework calls it when an attribute
   /// takes or releases the child.
   void parentIs(Entity* parent) noexcept;

   /// Notifies `observer` of every later change here (`Scope::entity`) or here and below
   /// (`Scope::subtree`: O(entities below) for the first and the last such observer, and for one
   /// between them and a root that is watched).
   /// REQUIRES: not registered here with this scope.
   void observerAdd(Observer& observer, Scope scope = Scope::entity);
   /// Notifies `observer` of every later change here and below, before all other observers: for
   /// those that must see changes in the order in which they are made, like the attribute log.
   /// REQUIRES: not registered here with `Scope::subtree`.
   void observerAddFirst(Sarn::FirstObserver& observer);
   /// Returns false if it was not registered here with this scope. Legal from inside `onChange`.
   bool observerDel(Observer& observer, Scope scope = Scope::entity) noexcept;

   Sarn::Publisher& publisher() noexcept { return *this; }

   /// The handle of this entity in the attribute log; 0 if it is not streamed.
   U32 streamHandle() const noexcept { return tag_; }

protected:
   Entity() noexcept = default;
   ~Entity() override;

private:
   friend class EntityStreamAccess;

   template <class Make>
   void changeWatch(Make const& make);
   void passOn() noexcept;
};

/// The entity that changed.
inline Entity& entityOf(Change const& change) noexcept {
   return static_cast<Entity&>(change.source);
}

/// An entity with a name: a root, or a named child.
class NamedEntity : public Entity {
public:
   /// Fixed at construction; field id 154 in the generic interface.
   Sarn::String const& nameString() const noexcept { return name_; }
   Sarn::String const& name() const noexcept { return name_; }

protected:
   explicit NamedEntity(std::string_view name) : name_(name) {}

private:
   Sarn::String name_;
};

/// The name of a named entity, or null.
Sarn::String const* entityName(Entity const& entity) noexcept;

/// Calls `visit(child, field, key)` for every child entity; `key` is null for a singleton child.
/// The visit must not change the tree.
void forEachChild(Entity const& entity, void* context,
                  void (*visit)(void* context, Entity& child, FieldDescriptor const& field,
                                void const* key));

template <class Visit>
void forEachChild(Entity const& entity, Visit&& visit) {
   forEachChild(entity, &visit,
                [](void* context, Entity& child, FieldDescriptor const& field, void const* key) {
                   (*static_cast<std::remove_reference_t<Visit>*>(context))(child, field, key);
                });
}

}  // namespace Kiv
