#include "python/core/Values.h"

#include <cstring>
#include <memory>
#include <vector>

#include "Holt/Failure.h"
#include "Holt/State/Values.h"
#include "Kiv/Text.h"
#include "Kiv/Visit.h"
#include "python/core/Classes.h"

namespace Bindings {

using Kiv::AnyValue;
using Kiv::TypeImpl;
using Kiv::TypeKind;
using Kiv::ValueRef;

PyObject* textToPython(std::string_view text) {
   return given(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()),
                                     "surrogateescape"));
}

std::string textOf(PyObject* text) {
   Py_ssize_t size = 0;
   if (char const* const utf8 = PyUnicode_AsUTF8AndSize(text, &size)) {
      return {utf8, static_cast<std::size_t>(size)};
   }
   PyErr_Clear();
   auto const bytes = py::reinterpret_steal<py::bytes>(
         given(PyUnicode_AsEncodedString(text, "utf-8", "surrogateescape")));
   return bytes;
}

bool isWholeNumber(std::string_view text) noexcept {
   return !text.empty() && text.size() < 20 && (text.size() == 1 || text.front() != '0') &&
          text.find_first_not_of("0123456789") == std::string_view::npos;
}

namespace {

PyObject* recordToPython(Kiv::RecordRef record) {
   std::vector<py::object> parts;
   forEachPart(record, [&](Kiv::FieldDescriptor const&, ValueRef part) {
      parts.push_back(py::reinterpret_steal<py::object>(toPython(part)));
   });
   py::tuple fields(parts.size());
   for (std::size_t i = 0; i != parts.size(); ++i) {
      fields[i] = std::move(parts[i]);
   }
   // As the class's own _make does: its __new__ takes the fields one by one.
   py::tuple const arguments = py::make_tuple(std::move(fields));
   return given(PyTuple_Type.tp_new(reinterpret_cast<PyTypeObject*>(classOf(*record.value.type)),
                                    arguments.ptr(), nullptr));
}

struct ToPython {
   PyObject* operator()(bool v) const { return PyBool_FromLong(v ? 1 : 0); }
   PyObject* operator()(U64 v) const { return given(PyLong_FromUnsignedLongLong(v)); }
   PyObject* operator()(S64 v) const { return given(PyLong_FromLongLong(v)); }
   PyObject* operator()(float v) const { return given(PyFloat_FromDouble(double{v})); }
   PyObject* operator()(double v) const { return given(PyFloat_FromDouble(v)); }
   PyObject* operator()(Sarn::String const& v) const { return textToPython(v); }
   PyObject* operator()(Kiv::EnumRef v) const { return enumeratorOf(v.type, v.value); }
   PyObject* operator()(Kiv::OptionalRef v) const {
      if (v.held.address != nullptr) {
         return toPython(v.held);
      }
      Py_RETURN_NONE;
   }
   PyObject* operator()(Kiv::RecordRef v) const { return recordToPython(v); }
   PyObject* operator()(Kiv::OpaqueRef v) const {
      Sarn::String const text = v.value.type->genericIfStrRep(v.value.address);
      if (isNumeric(*v.value.type) && isWholeNumber(text)) {
         return given(PyLong_FromString(text.c_str(), nullptr, 10));
      }
      return textToPython(text);
   }
};

[[noreturn]] void wrongKind(PyObject* from, TypeImpl const& type) {
   raise(PyExc_TypeError,
         std::string("a value of ") + type.name + " cannot be made from " + Py_TYPE(from)->tp_name);
}

/// Reads the text form; a fault of the text is a fault of the value.
void fromText(std::string_view text, AnyValue& to) {
   try {
      Kiv::CharRange range(text);
      to.type().genericIfStrepToValue(to.room(), range);
      to.constructed();
      range.expectEnd();
      return;
   } catch (Kiv::RangeException const&) {
      throw;
   } catch (Kiv::ParseException const&) {
      // Names and keys may also be written as people do.
   }
   try {
      Holt::parseValue(text, to);
   } catch (Holt::Failure const& failure) {
      raise("ValueFault", failure.what());
   }
}

template <class T>
void put(AnyValue& to, T v) {
   std::memcpy(to.room(), &v, sizeof v);
   to.constructed();
}

template <class One, class Two, class Four, class Eight, class Number>
bool putInteger(AnyValue& to, Number v) {
   switch (to.type().size) {
      case 1:
         return static_cast<Number>(static_cast<One>(v)) == v &&
                (put(to, static_cast<One>(v)), true);
      case 2:
         return static_cast<Number>(static_cast<Two>(v)) == v &&
                (put(to, static_cast<Two>(v)), true);
      case 4:
         return static_cast<Number>(static_cast<Four>(v)) == v &&
                (put(to, static_cast<Four>(v)), true);
      default:
         put(to, static_cast<Eight>(v));
         return true;
   }
}

void integerFromPython(PyObject* from, AnyValue& to) {
   if (PyIndex_Check(from) == 0) {
      wrongKind(from, to.type());
   }
   auto const number = py::reinterpret_steal<py::object>(given(PyNumber_Index(from)));
   if (to.type().kind == TypeKind::signedNumber) {
      int overflow = 0;
      S64 const v = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
      if (overflow == 0 && putInteger<S8, S16, S32, S64>(to, v)) {
         return;
      }
   } else {
      U64 const v = PyLong_AsUnsignedLongLong(number.ptr());
      if (PyErr_Occurred() == nullptr) {
         if (putInteger<U8, U16, U32, U64>(to, v)) {
            return;
         }
      } else {
         PyErr_Clear();
      }
   }
   auto const digits = py::reinterpret_steal<py::object>(given(PyNumber_ToBase(number.ptr(), 10)));
   fromText(textOf(digits.ptr()), to);  // says what the type holds
}

void enumeratorFromPython(PyObject* from, AnyValue& to) {
   if (PyLong_Check(from) == 0) {
      wrongKind(from, to.type());
   }
   PyObject* const own = classOf(to.type());
   if (!PyLong_CheckExact(from) && PyObject_IsInstance(from, own) != 1) {
      PyErr_Clear();
      wrongKind(from, to.type());
   }
   long const v = PyLong_AsLong(from);
   if (v == -1 && PyErr_Occurred() != nullptr) {
      PyErr_Clear();
      raise("RangeError", std::string(to.type().name) + " has values from 0 to 255");
   }
   if (v < 0 || v > 255) {
      raise("RangeError", std::to_string(v) + ": " + to.type().name + " has values from 0 to 255");
   }
   put(to, static_cast<U8>(v));
}

void recordFromPython(PyObject* from, AnyValue& to) {
   TypeImpl const& type = to.type();
   bool const isDict = PyDict_Check(from) != 0;
   if (!isDict && (PySequence_Check(from) == 0 || PyBytes_Check(from) != 0)) {
      wrongKind(from, type);
   }
   if (PyTuple_Check(from) != 0 && !PyTuple_CheckExact(from) &&
       PyObject_HasAttrString(from, "_fields") != 0 &&
       PyObject_IsInstance(from, classOf(type)) != 1) {
      PyErr_Clear();
      wrongKind(from, type);
   }
   std::vector<std::unique_ptr<AnyValue>> parts;
   auto const size = static_cast<Py_ssize_t>(py::len(py::handle(from)));
   Py_ssize_t taken = 0;
   forEachPart(type, [&](Kiv::FieldDescriptor const& field) {
      py::object part;
      if (isDict) {
         PyObject* const found = PyDict_GetItemString(from, field.name);
         if (found == nullptr) {
            raise(PyExc_TypeError, std::string(type.name) + " needs the field " + field.name);
         }
         part = py::reinterpret_borrow<py::object>(found);
      } else {
         if (taken == size) {
            raise(PyExc_TypeError, std::string(type.name) + " has more than " +
                                         std::to_string(size) + " fields: the next is " +
                                         field.name);
         }
         part = py::reinterpret_steal<py::object>(given(PySequence_GetItem(from, taken)));
      }
      ++taken;
      parts.push_back(std::make_unique<AnyValue>(*field.type));
      fromPython(part.ptr(), *parts.back());
   });
   if (taken != size) {
      raise(PyExc_TypeError, std::string(type.name) + " has " + std::to_string(taken) +
                                   " fields, not " + std::to_string(size));
   }
   std::vector<ValueRef> arguments;
   for (auto const& part : parts) {
      arguments.push_back(part->ref());
   }
   type.genericIfConstructFromCtorArgs(to.room(), arguments);
   to.constructed();
}

void optionalFromPython(PyObject* from, AnyValue& to) {
   Kiv::OptionalSupport const& optional = *to.type().optional;
   if (from == Py_None) {
      optional.construct(to.room(), nullptr);
   } else {
      AnyValue inner(*optional.inner);
      fromPython(from, inner);
      optional.construct(to.room(), inner.get());
   }
   to.constructed();
}

}  // namespace

PyObject* toPython(ValueRef value) {
   return Kiv::visitValue(value, ToPython());
}

void fromPython(PyObject* from, AnyValue& to) {
   TypeImpl const& type = to.type();
   if (type.kind == TypeKind::optional) {
      return optionalFromPython(from, to);
   }
   if (PyUnicode_Check(from) != 0) {
      std::string text = textOf(from);
      if (type.kind != TypeKind::string) {
         return fromText(text, to);
      }
      new (to.room()) Sarn::String(std::move(text));
      return to.constructed();
   }
   switch (type.kind) {
      case TypeKind::boolean:
         if (PyBool_Check(from) == 0) {
            wrongKind(from, type);
         }
         return put(to, from == Py_True);
      case TypeKind::unsignedNumber:
      case TypeKind::signedNumber:
         return integerFromPython(from, to);
      case TypeKind::floating: {
         if (PyFloat_Check(from) == 0 && PyIndex_Check(from) == 0) {
            wrongKind(from, type);
         }
         double const v = PyFloat_AsDouble(from);
         if (v == -1 && PyErr_Occurred() != nullptr) {
            raiseSet();
         }
         return type.size == sizeof(float) ? put(to, static_cast<float>(v)) : put(to, v);
      }
      case TypeKind::string:
         if (PyBytes_Check(from) == 0) {
            wrongKind(from, type);
         }
         new (to.room()) Sarn::String(PyBytes_AS_STRING(from),
                                      static_cast<std::size_t>(PyBytes_GET_SIZE(from)));
         return to.constructed();
      case TypeKind::enumeration:
         return enumeratorFromPython(from, to);
      case TypeKind::value:
         return recordFromPython(from, to);
      case TypeKind::opaque:
         if (PyLong_Check(from) == 0) {
            wrongKind(from, type);
         }
         return fromText(textOf(py::str(py::handle(from)).ptr()), to);
      case TypeKind::optional:
      case TypeKind::entity:
         break;
   }
   wrongKind(from, type);
}

}  // namespace Bindings
