#include "python/core/Collections.h"

#include <vector>

#include "Holt/Failure.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Key.h"
#include "Holt/State/Place.h"
#include "Kiv/Printable.h"
#include "Kiv/Visit.h"
#include "python/core/Classes.h"
#include "python/core/EntityObject.h"
#include "python/core/Values.h"

namespace Bindings {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

py::object taken(PyObject* reference) {
   return py::reinterpret_steal<py::object>(reference);
}

/// A key: a value of its type, or text as in the brackets of a path.
void keyFromPython(py::handle from, AnyValue& key) {
   bool const isText = PyUnicode_Check(from.ptr()) != 0;
   bool const isNumber = PyLong_CheckExact(from.ptr()) != 0;
   if (key.type().kind == Kiv::TypeKind::string ||
       (!isText && !(isNumber && key.type().kind == Kiv::TypeKind::value))) {
      return fromPython(from.ptr(), key);
   }
   try {
      Holt::parseKey(textOf(py::str(from).ptr()), key);
   } catch (Holt::Failure const& failure) {
      raise("ValueFault", failure.what());
   }
}

py::object elementOf(EntityObject const& owner, FieldDescriptor const& field, void const* element) {
   if (field.kind == MemberKind::children) {
      auto const* const child = static_cast<Entity const*>(element);
      return taken(wrap(const_cast<Entity&>(*child), owner.state, owner.tree));
   }
   return taken(toPython({*field.type, element}));
}

std::size_t size(py::handle object, FieldDescriptor const& field) {
   Entity const& entity = present(entityObject(object.ptr()));
   return field.kind == MemberKind::queue ? field.ops->queue->size(entity)
                                          : field.ops->collection->size(entity);
}

/// The element of a key, or `missing`.
py::object find(py::handle object, FieldDescriptor const& field, py::handle keyObject,
                py::object missing) {
   EntityObject const& owner = entityObject(object.ptr());
   Entity const& entity = present(owner);
   AnyValue key(*field.keyType);
   keyFromPython(keyObject, key);
   void const* const found = field.kind == MemberKind::children
                                   ? field.ops->collection->findChild(entity, key.get())
                                   : field.ops->collection->find(entity, key.get());
   return found != nullptr ? elementOf(owner, field, found) : missing;
}

/// A list of what `make(key, element)` returns for each element, in the collection's order.
template <class Make>
py::list listOf(py::handle object, FieldDescriptor const& field, Make&& make) {
   Entity& entity = present(entityObject(object.ptr()));
   py::list all;
   for (Kiv::CollectionCursor at(entity, field); at->valid(); at->next()) {
      void const* const element = field.kind == MemberKind::children ? at->child() : at->value();
      all.append(make(at->key(), element));
   }
   return all;
}

py::list keys(py::handle object, FieldDescriptor const& field) {
   return listOf(object, field, [&](void const* key, void const*) {
      return taken(toPython({*field.keyType, key}));
   });
}

py::list values(py::handle object, FieldDescriptor const& field) {
   EntityObject const& owner = entityObject(object.ptr());
   return listOf(object, field, [&](void const*, void const* element) {
      return elementOf(owner, field, element);
   });
}

py::list items(py::handle object, FieldDescriptor const& field) {
   EntityObject const& owner = entityObject(object.ptr());
   return listOf(object, field, [&](void const* key, void const* element) {
      return py::make_tuple(taken(toPython({*field.keyType, key})),
                            elementOf(owner, field, element));
   });
}

void put(py::handle object, FieldDescriptor const& field, py::handle keyObject,
         py::handle valueObject) {
   Entity& entity = changeable(entityObject(object.ptr()));
   AnyValue key(*field.keyType);
   AnyValue value(*field.type);
   keyFromPython(keyObject, key);
   fromPython(valueObject.ptr(), value);
   if (!Holt::hasOwnKey(field, key.ref(), value.ref())) {
      raise("ValueFault",
            std::string("the value contains another key than ") + Kiv::keyText(key.ref()));
   }
   field.ops->collection->is(entity, key.get(), value.get());
}

/// Creates a child, or finds it. `arguments`: the given members, by position or by name.
py::object create(py::handle object, FieldDescriptor const& field, py::handle keyObject,
                  py::args const& positional, py::kwargs const& named) {
   EntityObject const& owner = entityObject(object.ptr());
   Entity& entity = changeable(owner);
   std::vector<std::unique_ptr<AnyValue>> values;
   values.push_back(std::make_unique<AnyValue>(*field.keyType));
   keyFromPython(keyObject, *values.back());
   std::size_t at = 0;
   std::size_t byName = 0;
   forEachGivenMember(*field.type, [&](FieldDescriptor const& member) {
      values.push_back(std::make_unique<AnyValue>(*member.type));
      if (at < positional.size()) {
         fromPython(py::object(positional[at]).ptr(), *values.back());
      } else if (named.contains(member.name)) {
         fromPython(py::object(named[member.name]).ptr(), *values.back());
         ++byName;
      } else {
         raise(PyExc_TypeError,
               std::string(field.type->name) + " needs " + Holt::childArgsText(field));
      }
      ++at;
   });
   if (positional.size() > at || byName != named.size()) {
      std::string const given = Holt::childArgsText(field);
      raise(PyExc_TypeError, std::string(field.type->name) + " takes a key and " +
                                   (given.empty() ? "nothing else" : "only " + given));
   }
   std::vector<Kiv::ValueRef> arguments;
   for (auto const& value : values) {
      arguments.push_back(value->ref());
   }
   Sarn::Ptr<Entity> const child = field.ops->collection->childIs(entity, arguments);
   return taken(wrap(*child, owner.state, owner.tree));
}

bool remove(py::handle object, FieldDescriptor const& field, py::handle keyObject) {
   Entity& entity = changeable(entityObject(object.ptr()));
   AnyValue key(*field.keyType);
   keyFromPython(keyObject, key);
   return field.ops->collection->del(entity, key.get());
}

void clear(py::handle object, FieldDescriptor const& field) {
   Entity& entity = changeable(entityObject(object.ptr()));
   (field.kind == MemberKind::queue ? field.ops->queue->delAll
                                    : field.ops->collection->delAll)(entity);
}

/// The element at an index from the front. REQUIRES: 0 <= index.
py::object queueAt(py::handle object, FieldDescriptor const& field, std::size_t index) {
   EntityObject const& owner = entityObject(object.ptr());
   Entity const& entity = present(owner);
   Kiv::QueueOps const& queue = *field.ops->queue;
   if (index >= queue.size(entity)) {
      raise(PyExc_IndexError,
            std::string(field.name) + " has " + std::to_string(queue.size(entity)) + " elements");
   }
   return elementOf(owner, field,
                    queue.at(entity, queue.frontSequence(entity) + static_cast<U32>(index)));
}

/// The numbers of the first element and of the next one to be appended.
py::tuple sequences(py::handle object, FieldDescriptor const& field) {
   Entity const& entity = present(entityObject(object.ptr()));
   return py::make_tuple(field.ops->queue->frontSequence(entity),
                         field.ops->queue->nextSequence(entity));
}

void append(py::handle object, FieldDescriptor const& field, py::handle valueObject) {
   Entity& entity = changeable(entityObject(object.ptr()));
   AnyValue value(*field.type);
   fromPython(valueObject.ptr(), value);
   field.ops->queue->enq(entity, value.get());
}

bool popFront(py::handle object, FieldDescriptor const& field) {
   return field.ops->queue->deq(changeable(entityObject(object.ptr())));
}

/// Creates a singleton child, or finds it.
py::object createChild(py::handle object, std::string const& name, std::string const& childName) {
   EntityObject const& owner = entityObject(object.ptr());
   Entity& entity = changeable(owner);
   FieldDescriptor const* const field = entity.kivType().field(name);
   if (field == nullptr || field->kind != MemberKind::child) {
      raise(PyExc_AttributeError,
            std::string(entity.kivType().name) + " has no child '" + name + "'");
   }
   Sarn::Ptr<Entity> const child = field->ops->child->is(entity, childName);
   return taken(wrap(*child, owner.state, owner.tree));
}

/// What is at a path below an entity: an entity or a value.
py::object at(py::handle object, std::string const& text) {
   EntityObject const& owner = entityObject(object.ptr());
   Entity& entity = present(owner);
   bool const hasDot = text.empty() || text.front() == '.' || text.front() == '[';
   Holt::Place const place(Sarn::Ptr<Entity>(&entity), entityPath(entity),
                           Holt::parseSteps(hasDot ? text : "." + text));
   if (place.leadsToEntity()) {
      Entity* const found = place.entity();
      return found != nullptr ? taken(wrap(*found, owner.state, owner.tree)) : py::none();
   }
   if (place.isCollection()) {
      py::object const parent = taken(wrap(place.owner(), owner.state, owner.tree));
      return parent.attr(place.field()->name);
   }
   return taken(toPython(place.value()->ref()));
}

/// Where two roots differ: (path, text in the first, text in the second), None where one lacks it.
py::list diff(py::handle first, py::handle second) {
   auto const doc = [](py::handle object) {
      EntityObject const& root = entityObject(object.ptr());
      present(root);
      return Holt::docOf(std::vector<Kiv::NamedEntity*>{root.state->root.get()});
   };
   Holt::StateDoc const a = doc(first);
   Holt::StateDoc const b = doc(second);
   py::list all;
   auto const text = [](Holt::StateLine const* line) {
      return line != nullptr ? taken(textToPython(line->text)) : py::none();
   };
   Holt::compareLines(
         Holt::linesOf(a), Holt::linesOf(b),
         [&](Holt::StateLine const* one, Holt::StateLine const* other) {
            all.append(py::make_tuple(taken(textToPython((one != nullptr ? one : other)->path)),
                                      text(one), text(other)));
         });
   return all;
}

}  // namespace

void registerCollections(py::module_& module) {
   module.def("size", &size);
   module.def("find", &find);
   module.def("keys", &keys);
   module.def("values", &values);
   module.def("items", &items);
   module.def("put", &put);
   module.def("create", &create);
   module.def("remove", &remove);
   module.def("clear", &clear);
   module.def("queueAt", &queueAt);
   module.def("sequences", &sequences);
   module.def("append", &append);
   module.def("popFront", &popFront);
   module.def("createChild", &createChild);
   module.def("at", &at);
   module.def("diff", &diff);
}

}  // namespace Bindings
