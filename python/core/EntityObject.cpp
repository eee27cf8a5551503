#include "python/core/EntityObject.h"

#include <nlohmann/json.hpp>

#include "Holt/Client.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Values.h"
#include "Kiv/Path.h"
#include "Kiv/Printable.h"
#include "Kiv/Visit.h"
#include "python/core/Classes.h"
#include "python/core/Values.h"

namespace Bindings {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

PyTypeObject* baseType = nullptr;

EntityObject& of(PyObject* self) noexcept {
   return *reinterpret_cast<EntityObject*>(self);
}

PyObject* allocated(PyTypeObject* cls, Sarn::Ptr<Entity> entity, std::shared_ptr<TreeState> state,
                    PyObject* tree) {
   PyObject* const self = given(cls->tp_alloc(cls, 0));
   EntityObject& object = of(self);
   new (&object.entity) Sarn::Ptr<Entity>(std::move(entity));
   new (&object.state) std::shared_ptr<TreeState>(std::move(state));
   Py_INCREF(tree);
   object.tree = tree;
   return self;
}

void deallocate(PyObject* self) {
   PyTypeObject* const cls = Py_TYPE(self);
   PyObject_GC_UnTrack(self);
   EntityObject& object = of(self);
   Py_CLEAR(object.tree);
   std::destroy_at(&object.entity);
   std::destroy_at(&object.state);
   cls->tp_free(self);
   Py_DECREF(cls);
}

int traverse(PyObject* self, visitproc visit, void* arg) {
   Py_VISIT(Py_TYPE(self));
   Py_VISIT(of(self).tree);
   return 0;
}

int clear(PyObject* self) {
   Py_CLEAR(of(self).tree);
   return 0;
}

/// `Ptp.Config("ptp/config")`: a new root of this process's own.
PyObject* construct(PyTypeObject* cls, PyObject* args, PyObject* names) {
   return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
      Kiv::TypeImpl const* const type = typeOfClass(cls);
      PyObject* name = nullptr;
      if (type == nullptr) {
         raise(PyExc_TypeError, "an entity is made by the class of its type, or by its parent");
      }
      if ((names != nullptr && PyDict_GET_SIZE(names) != 0) ||
          PyArg_ParseTuple(args, "U", &name) == 0) {
         PyErr_Clear();
         raise(PyExc_TypeError, std::string(type->name) + " takes a name, a str");
      }
      return wrapRoot(Holt::newRoot(type->name, textOf(name)), true, py::none());
   });
}

PyObject* represent(PyObject* self) {
   return guarded<PyObject*>(nullptr, [&] {
      Entity const& entity = *of(self).entity;
      return textToPython(Kiv::printable(std::string("<") + entity.kivType().name + " " +
                                         entityPath(entity) + ">"));
   });
}

PyObject* compare(PyObject* self, PyObject* other, int op) {
   if ((op != Py_EQ && op != Py_NE) || PyObject_TypeCheck(other, baseType) == 0) {
      Py_RETURN_NOTIMPLEMENTED;
   }
   return PyBool_FromLong((of(self).entity == of(other).entity) == (op == Py_EQ) ? 1 : 0);
}

Py_hash_t hash(PyObject* self) {
   auto const value =
         static_cast<Py_hash_t>(reinterpret_cast<std::uintptr_t>(of(self).entity.get()) >> 4);
   return value == -1 ? -2 : value;
}

// ---- What every entity has ----

PyObject* parentOf(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
      EntityObject const& object = of(self);
      Entity& entity = present(object);
      if (entity.parent() == nullptr || &entity == object.state->root.get()) {
         Py_RETURN_NONE;
      }
      return wrap(*entity.parent(), object.state, object.tree);
   });
}

PyObject* pathOf(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&] { return textToPython(entityPath(present(of(self)))); });
}

PyObject* nameOf(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
      Sarn::String const* const name = entityName(*of(self).entity);
      if (name == nullptr) {
         Py_RETURN_NONE;
      }
      return textToPython(*name);
   });
}

PyObject* rootOf(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&] {
      EntityObject const& object = of(self);
      return wrap(*object.state->root, object.state, object.tree);
   });
}

PyObject* removedOf(PyObject* self, void*) {
   EntityObject const& object = of(self);
   Entity const* at = object.entity.get();
   while (at != nullptr && at != object.state->root.get()) {
      at = at->parent();
   }
   return PyBool_FromLong(at == nullptr ? 1 : 0);
}

PyObject* typeOf(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&] {
      return py::cast(&of(self).entity->kivType(), py::return_value_policy::reference)
            .release()
            .ptr();
   });
}

PyObject* treeOf(PyObject* self, void*) {
   PyObject* const tree = of(self).tree;
   if (tree == nullptr) {
      Py_RETURN_NONE;
   }
   Py_INCREF(tree);
   return tree;
}

PyObject* json(PyObject* self, PyObject* args) {
   return guarded<PyObject*>(nullptr, [&] {
      PyObject* indent = Py_None;
      if (PyArg_ParseTuple(args, "|O", &indent) == 0) {
         raiseSet();
      }
      int const blanks = indent == Py_None ? -1 : py::cast<int>(py::handle(indent));
      return textToPython(Holt::jsonLine(Holt::jsonOf(*Holt::docOf(present(of(self)))), blanks));
   });
}

PyGetSetDef getSets[] = {
      {"parent", &parentOf, nullptr, "The entity that holds this one; None for a root.", nullptr},
      {"path", &pathOf, nullptr, "The path from the root, as ptpstate writes it.", nullptr},
      {"name", &nameOf, nullptr, "The name of a root or a named child; else None.", nullptr},
      {"root", &rootOf, nullptr, "The root of its tree.", nullptr},
      {"removed", &removedOf, nullptr, "Whether it has been removed from its tree.", nullptr},
      {"type", &typeOf, nullptr, "Its type, a `ptplib.Type`.", nullptr},
      {"_tree", &treeOf, nullptr, nullptr, nullptr},
      {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {
      {"json", &json, METH_VARARGS,
       "json(indent=None) -> str\n\nThe entity and everything below it, as `ptpstate dump --json` "
       "writes it, without\nloss; in one line, or indented by so many blanks."},
      {nullptr, nullptr, 0, nullptr},
};

template <class Function>
void* slot(Function* function) {
   return reinterpret_cast<void*>(function);
}

// ---- Members ----

/// What the descriptor of a member refers to; lives as long as the class, which is for ever.
struct Member {
   FieldDescriptor const* field;
   /// The class of the object for a collection; null for other members.
   PyObject* collection = nullptr;
   std::string name;
   std::string help;
   PyGetSetDef def{};
};

PyObject* get(PyObject* self, void* closure) {
   return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
      Member const& member = *static_cast<Member const*>(closure);
      FieldDescriptor const& field = *member.field;
      EntityObject const& object = of(self);
      Entity& entity = present(object);
      if (field.kind == MemberKind::single) {
         Kiv::AnyValue value(*field.type);
         value.read(&entity, field);
         return toPython(value.ref());
      }
      if (field.kind == MemberKind::child) {
         if (Entity* const child = field.ops->child->get(entity)) {
            return wrap(*child, object.state, object.tree);
         }
         Py_RETURN_NONE;
      }
      PyObject* const arguments[] = {self, fieldObject(field)};
      return given(PyObject_Vectorcall(member.collection, arguments, 2, nullptr));
   });
}

[[noreturn]] void refuse(Entity const& entity, FieldDescriptor const& field, char const* why) {
   raise(PyExc_AttributeError, std::string(entity.kivType().name) + "." + field.name + " " + why);
}

void write(Entity& entity, FieldDescriptor const& field, PyObject* from) {
   Kiv::AnyValue value(*field.type);
   fromPython(from, value);
   U8 status = 0;
   try {
      status = entity.kivType().genericIfAttributeOp(nullptr, &entity, &field,
                                                     static_cast<U8>(Kiv::AttributeOp::write),
                                                     nullptr, value.ref());
   } catch (Kiv::RangeException const&) {
      std::string const why = Holt::outOfBoundsText(field, value.ref());
      if (why.empty()) {
         throw;
      }
      raise("RangeError", entityPath(entity) + "." + field.name + ": " + why);
   }
   if (status != Kiv::statusOk) {
      refuse(entity, field, "is fixed or derived: it cannot be set");
   }
}

int set(PyObject* self, PyObject* from, void* closure) {
   return guarded<int>(-1, [&] {
      FieldDescriptor const& field = *static_cast<Member const*>(closure)->field;
      Entity& entity = changeable(of(self));
      if (field.kind == MemberKind::child) {
         if (from != nullptr && from != Py_None) {
            refuse(entity, field, "is a child: create() makes it, `del` removes it");
         }
         field.ops->child->del(entity);
      } else if (field.kind != MemberKind::single) {
         refuse(entity, field, "is a collection: change its elements");
      } else if (from == nullptr) {
         refuse(entity, field, "is a value: it cannot be removed");
      } else {
         write(entity, field, from);
      }
      return 0;
   });
}

}  // namespace

PyTypeObject* entityType() noexcept {
   return baseType;
}

void registerEntity(py::module_& module) {
   PyType_Slot slots[] = {
         {Py_tp_dealloc, slot(&deallocate)},
         {Py_tp_traverse, slot(&traverse)},
         {Py_tp_clear, slot(&clear)},
         {Py_tp_new, slot(&construct)},
         {Py_tp_repr, slot(&represent)},
         {Py_tp_richcompare, slot(&compare)},
         {Py_tp_hash, slot(&hash)},
         {Py_tp_getset, static_cast<void*>(getSets)},
         {Py_tp_methods, static_cast<void*>(methods)},
         {Py_tp_doc, const_cast<char*>("An entity of a state. Its members are attributes.")},
         {0, nullptr},
   };
   PyType_Spec spec{"ptplib._ptplib.Entity", sizeof(EntityObject), 0,
                    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, slots};
   baseType = reinterpret_cast<PyTypeObject*>(given(PyType_FromSpec(&spec)));
   module.attr("Entity") =
         py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(baseType));
}

PyObject* wrap(Entity& entity, std::shared_ptr<TreeState> const& state, PyObject* tree) {
   auto* const cls = reinterpret_cast<PyTypeObject*>(classOf(entity.kivType()));
   return allocated(cls, Sarn::Ptr<Entity>(&entity), state, tree);
}

PyObject* wrapRoot(Sarn::Ptr<Kiv::NamedEntity> const& root, bool writable,
                   py::object const& client) {
   auto state = std::make_shared<TreeState>();
   state->root = root;
   state->writable = writable;
   state->thread = PyThread_get_thread_ident();
   py::object const tree = py::reinterpret_borrow<py::object>(helper("Tree"))(client);
   return wrap(*root, state, tree.ptr());
}

EntityObject& entityObject(PyObject* object) {
   if (PyObject_TypeCheck(object, baseType) == 0) {
      raise(PyExc_TypeError, std::string("an entity is needed, not ") + Py_TYPE(object)->tp_name);
   }
   return of(object);
}

Entity& present(EntityObject const& object) {
   TreeState const& state = *object.state;
   if (state.thread != PyThread_get_thread_ident()) {
      raise(PyExc_RuntimeError, "the tree of " + state.root->nameString() +
                                      " belongs to the thread that made it; no other may use it");
   }
   for (Entity const* at = object.entity.get(); at != state.root.get(); at = at->parent()) {
      if (at->parent() == nullptr) {
         raise("RemovedError", std::string("this ") + object.entity->kivType().name +
                                     " has been removed from " + state.root->nameString());
      }
   }
   return *object.entity;
}

Entity& changeable(EntityObject const& object) {
   Entity& entity = present(object);
   if (!object.state->writable) {
      raise("ReadOnlyError", object.state->root->nameString() +
                                   " is mirrored for reading; mirror it with mode=\"write\" to "
                                   "change it");
   }
   return entity;
}

PyObject* memberDescriptor(PyTypeObject* cls, FieldDescriptor const& field,
                           std::string const& help) {
   auto* const member = new Member{&field, nullptr, field.name, help, {}};
   if (field.kind == MemberKind::children) {
      member->collection = helper("Children");
   } else if (field.kind == MemberKind::map || field.kind == MemberKind::ordered) {
      member->collection = helper("Map");
   } else if (field.kind == MemberKind::queue) {
      member->collection = helper("Queue");
   }
   member->def = {member->name.c_str(), &get, &set, member->help.c_str(), member};
   return given(PyDescr_NewGetSet(cls, &member->def));
}

}  // namespace Bindings
