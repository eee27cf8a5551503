#include "python/core/Classes.h"

#include <array>
#include <memory>
#include <unordered_map>

#include "Kiv/Specimen.h"
#include "Kiv/Visit.h"
#include "python/core/EntityObject.h"
#include "python/core/Values.h"

namespace Bindings {

using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;
using Kiv::TypeKind;

namespace {

struct ClassInfo {
   py::object cls;
   /// Of an enumeration, by value.
   std::array<PyObject*, 256> enumerators = {};
};

// Classes are never destroyed: objects of them may be, after static data.
using Infos = std::unordered_map<TypeImpl const*, std::unique_ptr<ClassInfo>>;
Infos& infos() {
   static Infos& all = *new Infos;
   return all;
}
std::unordered_map<PyTypeObject*, TypeImpl const*>& entityTypes() {
   static auto& all = *new std::unordered_map<PyTypeObject*, TypeImpl const*>;
   return all;
}

py::object enumClass(TypeImpl const& type) {
   py::list members;
   forEachEnumerator(type, [&](U8 value, char const* name) {
      members.append(py::make_tuple(py::str(name), py::int_(value)));
   });
   return py::reinterpret_borrow<py::object>(helper("enumClass"))(py::str(type.name), members);
}

py::object recordClass(TypeImpl const& type) {
   py::list names;
   forEachPart(type, [&](FieldDescriptor const& field) { names.append(py::str(field.name)); });
   return py::reinterpret_borrow<py::object>(helper("recordClass"))(py::str(type.name), names);
}

py::object entityClass(TypeImpl const& type) {
   PyObject* const base =
         type.base != nullptr ? classOf(*type.base) : reinterpret_cast<PyObject*>(entityType());
   py::object cls = py::reinterpret_borrow<py::object>(helper("entityClass"))(
         py::str(type.name), py::reinterpret_borrow<py::object>(base));
   auto* const made = reinterpret_cast<PyTypeObject*>(cls.ptr());
   py::object const help = py::reinterpret_borrow<py::object>(helper("memberHelp"));
   for (U16 i = 0; i != type.rowCount; ++i) {
      FieldDescriptor const& field = type.rows[i];
      if (field.kind == MemberKind::none || field.kind == MemberKind::operation) {
         continue;
      }
      auto const text =
            help(py::str(type.name), py::handle(fieldObject(field))).cast<std::string>();
      auto const descriptor =
            py::reinterpret_steal<py::object>(memberDescriptor(made, field, text));
      cls.attr(field.name) = descriptor;
   }
   entityTypes()[made] = &type;
   return cls;
}

ClassInfo& infoOf(TypeImpl const& type) {
   auto const found = infos().find(&type);
   if (found != infos().end()) {
      return *found->second;
   }
   auto info = std::make_unique<ClassInfo>();
   info->cls = type.kind == TypeKind::enumeration ? enumClass(type)
               : type.kind == TypeKind::value     ? recordClass(type)
                                                  : entityClass(type);
   if (type.kind == TypeKind::enumeration) {
      forEachEnumerator(type, [&](U8 value, char const*) {
         info->enumerators[value] = info->cls(py::int_(value)).release().ptr();
      });
   }
   // Making an entity class may have made others.
   return *infos().insert_or_assign(&type, std::move(info)).first->second;
}

char const* kindName(MemberKind kind) {
   switch (kind) {
      case MemberKind::single:
         return "single";
      case MemberKind::child:
         return "child";
      case MemberKind::children:
         return "children";
      case MemberKind::map:
         return "map";
      case MemberKind::ordered:
         return "ordered";
      case MemberKind::queue:
         return "queue";
      case MemberKind::operation:
         return "operation";
      case MemberKind::none:
         break;
   }
   return "none";
}

char const* kindName(TypeKind kind) {
   static constexpr char const* names[] = {"boolean", "unsigned",    "signed",   "floating",
                                           "string",  "enumeration", "optional", "value",
                                           "opaque",  "entity"};
   return names[static_cast<std::size_t>(kind)];
}

py::object boundOf(Kiv::ValueRef bound) {
   return bound.address != nullptr ? py::reinterpret_steal<py::object>(toPython(bound))
                                   : py::none();
}

/// The value that a new object has; None where it is given, or no single value.
py::object defaultOf(TypeImpl const& type, FieldDescriptor const& field) {
   if (type.kind != TypeKind::entity || field.kind != MemberKind::single ||
       type.isCtorArg(field.fieldId)) {
      return py::none();
   }
   Kiv::AnyValue value(*field.type);
   Sarn::Ptr<Kiv::Entity> const specimen = Kiv::specimenOf(type);
   value.read(specimen.get(), field);
   return py::reinterpret_steal<py::object>(toPython(value.ref()));
}

py::list fieldsOf(TypeImpl const& type) {
   py::list fields;
   forEachField(type, [&](FieldDescriptor const& field) {
      fields.append(py::handle(fieldObject(field)));
   });
   return fields;
}

py::list givenOf(TypeImpl const& type) {
   py::list given;
   forEachGivenMember(type, [&](FieldDescriptor const& field) { given.append(field.name); });
   return given;
}

py::list enumeratorsOf(TypeImpl const& type) {
   py::list all;
   forEachEnumerator(type, [&](U8 value, char const* name) {
      all.append(py::make_tuple(py::str(name), py::int_(value)));
   });
   return all;
}

}  // namespace

PyObject* helper(char const* name) {
   return py::module_::import("ptplib._classes").attr(name).ptr();
}

PyObject* classOf(TypeImpl const& type) {
   return infoOf(type).cls.ptr();
}

PyObject* enumeratorOf(TypeImpl const& type, U8 value) {
   PyObject* const named = infoOf(type).enumerators[value];
   if (named == nullptr) {
      return given(PyLong_FromLong(value));
   }
   Py_INCREF(named);
   return named;
}

bool isNumeric(TypeImpl const& type) {
   static auto& all = *new std::unordered_map<TypeImpl const*, bool>;
   auto const found = all.find(&type);
   if (found != all.end()) {
      return found->second;
   }
   Kiv::AnyValue value(type);
   value.makeDefault();
   std::string const text = type.genericIfStrRep(value.get());
   return all[&type] = type.kind == TypeKind::opaque && isWholeNumber(text);
}

TypeImpl const* typeOfClass(PyTypeObject* cls) noexcept {
   for (; cls != nullptr; cls = cls->tp_base) {  // a user may derive from a class
      auto const found = entityTypes().find(cls);
      if (found != entityTypes().end()) {
         return found->second;
      }
   }
   return nullptr;
}

PyObject* fieldObject(FieldDescriptor const& field) {
   static auto& all = *new std::unordered_map<FieldDescriptor const*, PyObject*>;
   PyObject*& object = all[&field];
   if (object == nullptr) {
      object = py::cast(&field, py::return_value_policy::reference).release().ptr();
   }
   return object;
}

void registerTypes(py::module_& module) {
   using py::return_value_policy;
   // Both are constant data of the libraries.
   py::class_<TypeImpl, std::unique_ptr<TypeImpl, py::nodelete>>(module, "Type",
                                                                 "What a type says of itself.")
         .def_readonly("name", &TypeImpl::name)
         .def_property_readonly("kind", [](TypeImpl const& type) { return kindName(type.kind); })
         .def_readonly("size", &TypeImpl::size)
         .def_readonly("named", &TypeImpl::named, "Whether its entities have a name.")
         .def_readonly("base", &TypeImpl::base, return_value_policy::reference)
         .def_property_readonly(
               "isRoot",
               [](TypeImpl const& type) {
                  return type.kind == TypeKind::entity && type.named && type.ctorArgs.size() == 1;
               },
               "Whether an entity of this type can be a root.")
         .def_property_readonly(
               "inner",
               [](TypeImpl const& type) {
                  return type.optional != nullptr ? type.optional->inner : nullptr;
               },
               return_value_policy::reference, "What an optional holds; else None.")
         .def_property_readonly("numeric", &isNumeric,
                                "Whether values that are known by their text are numbers.")
         .def_property_readonly("fields", &fieldsOf, "The members, those of the base first.")
         .def_property_readonly(
               "given", &givenOf,
               "The members that must be given to make a child, besides its key or name.")
         .def_property_readonly("enumerators", &enumeratorsOf, "Pairs of name and number.")
         .def_property_readonly("cls",
                                [](TypeImpl const& type) {
                                   return py::reinterpret_borrow<py::object>(classOf(type));
                                })
         .def("default", &defaultOf, "The value of a member in a new entity; None if it is given.")
         .def("__repr__",
              [](TypeImpl const& type) { return std::string("<type ") + type.name + ">"; });
   py::class_<FieldDescriptor, std::unique_ptr<FieldDescriptor, py::nodelete>>(
         module, "Field", "What a type says of one of its members.")
         .def_readonly("name", &FieldDescriptor::name)
         .def_readonly("id", &FieldDescriptor::fieldId)
         .def_property_readonly("kind",
                                [](FieldDescriptor const& field) { return kindName(field.kind); })
         .def_readonly("type", &FieldDescriptor::type, return_value_policy::reference)
         .def_readonly("keyType", &FieldDescriptor::keyType, return_value_policy::reference)
         .def_property_readonly("settable",
                                [](FieldDescriptor const& field) {
                                   return field.kind == MemberKind::single &&
                                          field.ops != nullptr && field.ops->write != nullptr &&
                                          !field.has(FieldDescriptor::constant) &&
                                          !field.has(FieldDescriptor::key);
                                })
         .def_property_readonly(
               "seconds",
               [](FieldDescriptor const& field) { return field.has(FieldDescriptor::seconds); })
         .def_property_readonly("least",
                                [](FieldDescriptor const& field) { return boundOf(field.least()); })
         .def_property_readonly(
               "greatest", [](FieldDescriptor const& field) { return boundOf(field.greatest()); })
         .def("__repr__", [](FieldDescriptor const& field) {
            return std::string("<member ") + field.name + ">";
         });
   module.def(
         "typeByName", [](std::string const& name) { return Kiv::typeByName(name); },
         return_value_policy::reference);
   module.def("typeNames", [] {
      py::list names;
      for (Kiv::KivModule const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
         for (U32 i = 0; i != at->typeCount; ++i) {
            names.append(py::str(at->data->types[i]->name));
         }
      }
      return names;
   });
}

}  // namespace Bindings
