#include "python/core/ObserverObject.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/Path.h"
#include "Kiv/Visit.h"
#include "python/core/Classes.h"
#include "python/core/EntityObject.h"
#include "python/core/Values.h"

namespace Bindings {

using Kiv::Entity;
using Kiv::FieldDescriptor;

namespace {

// ---- Change ----

/// What an observer is given. It may be kept: `key` and `old` are copies; `new` and `path` are
/// looked up when they are first asked for.
struct ChangeObject {
   PyObject_HEAD PyObject* entity;
   PyObject* key;
   PyObject* old;
   PyObject* fresh;
   PyObject* path;
   FieldDescriptor const* field;
   U16 id;
};

PyTypeObject* changeType = nullptr;

ChangeObject& changeOf(PyObject* self) noexcept {
   return *reinterpret_cast<ChangeObject*>(self);
}

int traverseChange(PyObject* self, visitproc visit, void* arg) {
   ChangeObject const& change = changeOf(self);
   Py_VISIT(Py_TYPE(self));
   Py_VISIT(change.entity);
   Py_VISIT(change.key);
   Py_VISIT(change.old);
   Py_VISIT(change.fresh);
   return 0;
}

int clearChange(PyObject* self) {
   ChangeObject& change = changeOf(self);
   Py_CLEAR(change.entity);
   Py_CLEAR(change.key);
   Py_CLEAR(change.old);
   Py_CLEAR(change.fresh);
   Py_CLEAR(change.path);
   return 0;
}

void deallocateChange(PyObject* self) {
   PyTypeObject* const cls = Py_TYPE(self);
   PyObject_GC_UnTrack(self);
   clearChange(self);
   cls->tp_free(self);
   Py_DECREF(cls);
}

PyObject* shared(PyObject* object) {
   PyObject* const result = object != nullptr ? object : Py_None;
   Py_INCREF(result);
   return result;
}

PyObject* entityOfChange(PyObject* self, void*) {
   return shared(changeOf(self).entity);
}
PyObject* keyOfChange(PyObject* self, void*) {
   return shared(changeOf(self).key);
}
PyObject* oldOfChange(PyObject* self, void*) {
   return shared(changeOf(self).old);
}

PyObject* attributeOfChange(PyObject* self, void*) {
   ChangeObject const& change = changeOf(self);
   return change.field != nullptr ? PyUnicode_InternFromString(change.field->name)
                                  : PyUnicode_FromFormat("%d", int{change.id});
}

/// Throws in a thread that does not own the tree.
void checkThread(EntityObject const& object) {
   if (object.state->thread != PyThread_get_thread_ident()) {
      raise(PyExc_RuntimeError, "the tree of " + object.state->root->nameString() +
                                      " belongs to the thread that made it; no other may use it");
   }
}

/// The present content of what has changed.
PyObject* present(ChangeObject const& change) {
   EntityObject const& object = entityObject(change.entity);
   if (change.field == nullptr) {
      Py_RETURN_NONE;
   }
   FieldDescriptor const& field = *change.field;
   if (change.key == nullptr) {
      if (field.keyType != nullptr) {
         Py_RETURN_NONE;
      }
      Kiv::Present const now(*object.entity, field);
      if (now.child() != nullptr) {
         return wrap(*now.child(), object.state, object.tree);
      }
      if (!now) {
         Py_RETURN_NONE;
      }
      return toPython(now.value());
   }
   Kiv::AnyValue key(*field.keyType);
   fromPython(change.key, key);
   Kiv::Present const now(*object.entity, field, key.get());
   if (now.child() != nullptr) {
      return wrap(*now.child(), object.state, object.tree);
   }
   if (!now) {
      Py_RETURN_NONE;
   }
   return toPython(now.value());
}

PyObject* newOfChange(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&] {
      ChangeObject& change = changeOf(self);
      if (change.fresh == nullptr) {
         checkThread(entityObject(change.entity));
         change.fresh = present(change);
      }
      return shared(change.fresh);
   });
}

PyObject* pathOfChange(PyObject* self, void*) {
   return guarded<PyObject*>(nullptr, [&] {
      ChangeObject& change = changeOf(self);
      if (change.path == nullptr) {
         checkThread(entityObject(change.entity));
         Sarn::String path = entityPath(*entityObject(change.entity).entity) + ".";
         path += change.field != nullptr ? change.field->name : std::to_string(change.id).c_str();
         if (change.key != nullptr) {
            Kiv::AnyValue key(*change.field->keyType);
            fromPython(change.key, key);
            path += "[" + Kiv::keyText(key.ref()) + "]";
         }
         change.path = textToPython(path);
      }
      return shared(change.path);
   });
}

PyObject* representChange(PyObject* self) {
   return guarded<PyObject*>(nullptr, [&] {
      auto const path = py::reinterpret_steal<py::object>(given(pathOfChange(self, nullptr)));
      auto const fresh = py::reinterpret_steal<py::object>(given(newOfChange(self, nullptr)));
      auto const old = py::reinterpret_steal<py::object>(oldOfChange(self, nullptr));
      return given(
            PyUnicode_FromFormat("<Change %U: %R -> %R>", path.ptr(), old.ptr(), fresh.ptr()));
   });
}

PyGetSetDef changeMembers[] = {
      {"entity", &entityOfChange, nullptr, "The entity whose attribute has changed.", nullptr},
      {"attribute", &attributeOfChange, nullptr, "The name of the attribute.", nullptr},
      {"key", &keyOfChange, nullptr,
       "The key in a collection, the number in a queue; None for a single attribute.", nullptr},
      {"old", &oldOfChange, nullptr,
       "The value before; None for what was created, for entities and for queues.", nullptr},
      {"new", &newOfChange, nullptr,
       "The value or entity, as it is when this is first read; None if it is gone.", nullptr},
      {"path", &pathOfChange, nullptr, "The path of the attribute or element.", nullptr},
      {nullptr, nullptr, nullptr, nullptr, nullptr},
};

/// A new reference to a change in the tree of `watched`.
PyObject* newChange(Kiv::Change const& change, EntityObject const& watched) {
   Entity& entity = Kiv::entityOf(change);
   auto object = py::reinterpret_steal<py::object>(given(changeType->tp_alloc(changeType, 0)));
   ChangeObject& made = changeOf(object.ptr());
   made.id = change.attributeId;
   made.field = entity.kivType().field(change.attributeId);
   made.entity = wrap(entity, watched.state, watched.tree);
   if (made.field != nullptr && made.field->type != nullptr) {
      FieldDescriptor const& field = *made.field;
      if (change.key != nullptr) {
         made.key = toPython({*field.keyType, change.key});
      }
      if (change.oldValue != nullptr && field.type->kind != Kiv::TypeKind::entity &&
          field.kind != Kiv::MemberKind::queue) {
         made.old = toPython({*field.type, change.oldValue});
      }
   }
   return object.release().ptr();
}

// ---- Observer ----

class Watch final : public Kiv::Observer {
public:
   Watch(PyObject* entity, PyObject* callback, Kiv::Scope scope,
         std::vector<std::string> attributes)
         : entity_(entity), callback_(callback), scope_(scope), attributes_(std::move(attributes)) {
      Py_INCREF(entity_);
      Py_INCREF(callback_);
      watched().entity->observerAdd(*this, scope_);
   }
   ~Watch() {
      end();
      Py_CLEAR(entity_);
      Py_CLEAR(callback_);
   }
   Watch(Watch const&) = delete;
   Watch& operator=(Watch const&) = delete;

   /// Observes no more; keeps the references, since the callback may be running.
   void end() noexcept {
      if (on_) {
         on_ = false;
         watched().entity->observerDel(*this, scope_);
      }
   }
   bool on() const noexcept { return on_; }
   int traverse(visitproc visit, void* arg) const {
      Py_VISIT(entity_);
      Py_VISIT(callback_);
      return 0;
   }

   void onChange(Kiv::Change const& change) override {
      py::gil_scoped_acquire const gil;  // waiting for a server releases it
      if (!concerns(change)) {
         return;
      }
      // The callback may end the observation, and drop what it holds.
      auto const callback = py::reinterpret_borrow<py::object>(callback_);
      auto const object = py::reinterpret_steal<py::object>(newChange(change, watched()));
      py::reinterpret_steal<py::object>(given(PyObject_CallOneArg(callback.ptr(), object.ptr())));
   }

   EntityObject const& watched() const noexcept {
      return *reinterpret_cast<EntityObject const*>(entity_);
   }

private:
   bool concerns(Kiv::Change const& change) const {
      if (attributes_.empty()) {
         return true;
      }
      FieldDescriptor const* const field =
            Kiv::entityOf(change).kivType().field(change.attributeId);
      return field != nullptr &&
             std::find(attributes_.begin(), attributes_.end(), field->name) != attributes_.end();
   }

   PyObject* entity_;
   PyObject* callback_;
   Kiv::Scope scope_;
   std::vector<std::string> attributes_;
   bool on_ = true;
};

struct ObserverObject {
   PyObject_HEAD Watch* watch;
};

ObserverObject& observerOf(PyObject* self) noexcept {
   return *reinterpret_cast<ObserverObject*>(self);
}

PyObject* constructObserver(PyTypeObject* cls, PyObject* args, PyObject*) {
   return guarded<PyObject*>(nullptr, [&] {
      PyObject* entity = nullptr;
      PyObject* callback = nullptr;
      int below = 1;
      PyObject* attributes = nullptr;
      if (PyArg_ParseTuple(args, "OOpO", &entity, &callback, &below, &attributes) == 0) {
         raiseSet();
      }
      Bindings::present(entityObject(entity));
      if (PyCallable_Check(callback) == 0) {
         raise(PyExc_TypeError, "the callback cannot be called");
      }
      std::vector<std::string> names;
      for (py::handle const name : py::reinterpret_borrow<py::iterable>(attributes)) {
         names.push_back(py::cast<std::string>(name));
      }
      auto self = py::reinterpret_steal<py::object>(given(cls->tp_alloc(cls, 0)));
      observerOf(self.ptr()).watch =
            new Watch(entity, callback, below != 0 ? Kiv::Scope::subtree : Kiv::Scope::entity,
                      std::move(names));
      return self.release().ptr();
   });
}

int traverseObserver(PyObject* self, visitproc visit, void* arg) {
   Py_VISIT(Py_TYPE(self));
   Watch const* const watch = observerOf(self).watch;
   return watch != nullptr ? watch->traverse(visit, arg) : 0;
}

int clearObserver(PyObject* self) {
   delete std::exchange(observerOf(self).watch, nullptr);
   return 0;
}

void deallocateObserver(PyObject* self) {
   PyTypeObject* const cls = Py_TYPE(self);
   PyObject_GC_UnTrack(self);
   clearObserver(self);
   cls->tp_free(self);
   Py_DECREF(cls);
}

PyObject* endObserver(PyObject* self, PyObject*) {
   return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
      if (Watch* const watch = observerOf(self).watch) {
         checkThread(watch->watched());
         watch->end();
      }
      Py_RETURN_NONE;
   });
}

PyMethodDef observerMethods[] = {
      {"close", &endObserver, METH_NOARGS, "Ends the observation."},
      {nullptr, nullptr, 0, nullptr},
};

template <class Function>
void* slot(Function* function) {
   return reinterpret_cast<void*>(function);
}

PyTypeObject* makeType(char const* name, std::size_t size, PyType_Slot* slots) {
   PyType_Spec spec{name, static_cast<int>(size), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC,
                    slots};
   return reinterpret_cast<PyTypeObject*>(given(PyType_FromSpec(&spec)));
}

}  // namespace

void registerObservers(py::module_& module) {
   PyType_Slot changeSlots[] = {
         {Py_tp_dealloc, slot(&deallocateChange)},
         {Py_tp_traverse, slot(&traverseChange)},
         {Py_tp_clear, slot(&clearChange)},
         {Py_tp_repr, slot(&representChange)},
         {Py_tp_getset, static_cast<void*>(changeMembers)},
         {Py_tp_doc, const_cast<char*>("A change of an attribute, as an observer is given it.")},
         {0, nullptr},
   };
   changeType = makeType("ptplib._ptplib.Change", sizeof(ChangeObject), changeSlots);
   changeType->tp_new = nullptr;
   module.attr("Change") =
         py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(changeType));
   PyType_Slot observerSlots[] = {
         {Py_tp_dealloc, slot(&deallocateObserver)},
         {Py_tp_traverse, slot(&traverseObserver)},
         {Py_tp_clear, slot(&clearObserver)},
         {Py_tp_new, slot(&constructObserver)},
         {Py_tp_methods, static_cast<void*>(observerMethods)},
         {0, nullptr},
   };
   module.attr("Observer") = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(
         makeType("ptplib._ptplib.Observer", sizeof(ObserverObject), observerSlots)));
}

}  // namespace Bindings
