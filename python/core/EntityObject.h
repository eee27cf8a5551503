// `ptplib.Entity`: an entity as Python holds it. Each entity type has a subclass whose members are
// descriptors, so that an attribute costs one look-up in the class and one call.
#pragma once

#include <memory>

#include "Kiv/Entity.h"
#include "python/core/Errors.h"

namespace Bindings {

/// What the entities of a tree have in common.
struct TreeState {
   /// Keeps the whole tree.
   Sarn::Ptr<Kiv::NamedEntity> root;
   /// Whether Python may change it: not if it is a mirror for reading.
   bool writable = true;
   /// The thread that owns the tree.
   unsigned long thread = 0;
};

/// A Python object. It takes part in garbage collection through `tree`: a callback that refers to
/// the tree which it observes is a cycle.
struct EntityObject {
   PyObject_HEAD Sarn::Ptr<Kiv::Entity> entity;
   std::shared_ptr<TreeState> state;
   /// A `ptplib._classes.Tree`: the tree's client and its observers.
   PyObject* tree;
};

/// Makes the base class and adds it to the module.
void registerEntity(py::module_& module);
PyTypeObject* entityType() noexcept;

/// A new reference to an object for `entity`, which is in the tree.
PyObject* wrap(Kiv::Entity& entity, std::shared_ptr<TreeState> const& state, PyObject* tree);
/// A new reference to a tree's root.
PyObject* wrapRoot(Sarn::Ptr<Kiv::NamedEntity> const& root, bool writable,
                   py::object const& client);

/// The object, if it is an entity; else throws TypeError.
EntityObject& entityObject(PyObject* object);
/// The entity. Throws `RemovedError` if it is no longer in its tree, `RuntimeError` in a thread
/// that does not own the tree.
Kiv::Entity& present(EntityObject const& object);
/// The same for a change; throws `ReadOnlyError` for a mirror that only reads.
Kiv::Entity& changeable(EntityObject const& object);

/// The descriptor of a member, a new reference. `help`: shown by help().
PyObject* memberDescriptor(PyTypeObject* cls, Kiv::FieldDescriptor const& field,
                           std::string const& help);

}  // namespace Bindings
