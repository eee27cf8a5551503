// The Python class of each type, made from its record when it is first needed: an enum.IntEnum for
// an enumeration, a named tuple for a value with fields, a subclass of `Entity` for an entity type.
// `ptplib._classes` makes the first two and the help text of all.
#pragma once

#include "Kiv/TypeImpl.h"
#include "python/core/Errors.h"

namespace Bindings {

/// Borrowed: a class lives as long as the interpreter. REQUIRES: an enumeration, a value with
/// fields, or an entity type.
PyObject* classOf(Kiv::TypeImpl const& type);

/// A new reference to a value of an enumeration.
PyObject* enumeratorOf(Kiv::TypeImpl const& type, U8 value);

/// Whether values of an opaque type are numbers in Python: if the text of its default is a number.
bool isNumeric(Kiv::TypeImpl const& type);

/// The type of an entity class; null for a class that no type has.
Kiv::TypeImpl const* typeOfClass(PyTypeObject* cls) noexcept;

/// A function or class of `ptplib._classes`; borrowed.
PyObject* helper(char const* name);

/// Registers `Type` and `Field`: what the records say, for help, stubs and programs that walk
/// types.
void registerTypes(py::module_& module);
/// The record of a member as Python sees it; borrowed.
PyObject* fieldObject(Kiv::FieldDescriptor const& field);

}  // namespace Bindings
