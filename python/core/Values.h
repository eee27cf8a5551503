// Values between C++ and Python, by what their types say of themselves.
//
// | kind            | in Python                                                               |
// |-----------------|-------------------------------------------------------------------------|
// | boolean         | bool                                                                    |
// | number, Seconds | int, float                                                              |
// | string          | str; bytes that are not UTF-8 are surrogates (`surrogateescape`)        |
// | enumeration     | a member of an enum.IntEnum; an int for a value without a name          |
// | optional        | None, or what it holds                                                  |
// | value           | a named tuple                                                           |
// | opaque          | str: the text form; int if the text of the type's default is a number   |
#pragma once

#include "Kiv/AnyValue.h"
#include "python/core/Errors.h"

namespace Bindings {

/// A new reference. Throws if Python raises.
PyObject* toPython(Kiv::ValueRef value);

/// Makes `to` hold `from`. Besides what `toPython` makes, it takes the text form of every value, a
/// dict or any sequence for a value with fields. Throws a Python error, TypeError for an object of
/// the wrong kind, or what the type says of a value that it cannot hold.
void fromPython(PyObject* from, Kiv::AnyValue& to);

/// Text and bytes: bytes that are not UTF-8 survive.
PyObject* textToPython(std::string_view text);
std::string textOf(PyObject* text);

/// Whether a text is an integer without sign that an U64 holds.
bool isWholeNumber(std::string_view text) noexcept;

/// A reference that is given up to the interpreter.
inline PyObject* given(PyObject* object) {
   if (object == nullptr) {
      raiseSet();
   }
   return object;
}

}  // namespace Bindings
