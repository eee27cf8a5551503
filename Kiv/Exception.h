#pragma once

#include <stdexcept>

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Kiv {

/// The 16-bit id of an attribute (from 258 in an entity) or of a value type's field (from 2).
using AttributeId = U16;

/// Base of everything that the framework throws for bad input. `what()` is one line for a person.
class Exception : public std::runtime_error {
public:
   using std::runtime_error::runtime_error;
};

/// A value is outside the range of its attribute or type; nothing was stored.
class RangeException : public Exception {
public:
   using Exception::Exception;
};

/// Text that is not a text form of the requested type.
class ParseException : public Exception {
public:
   ParseException(Sarn::String const& message, std::size_t position);
   /// Offset of the fault from the beginning of the text, in bytes.
   std::size_t position() const noexcept { return position_; }

private:
   std::size_t position_;
};

/// An entity was requested with generic arguments of the wrong kind or number.
class NewEntityArgsException : public Exception {
public:
   using Exception::Exception;
};

/// A generic operation got a value of the wrong type.
class TypeException : public Exception {
public:
   using Exception::Exception;
};

/// A hash was requested of a type that has none.
class UnhashableException : public Exception {
public:
   using Exception::Exception;
};

/// `xIs(key, args)` found a child that was made with another value of a constant argument.
class MutatorReinstValException : public Exception {
public:
   MutatorReinstValException(Sarn::String const& message, AttributeId argument,
                             AttributeId collection)
         : Exception(message), argument_(argument), collection_(collection) {}
   /// The child's attribute that cannot change.
   AttributeId argument() const noexcept { return argument_; }
   /// The owner's attribute that holds the child.
   AttributeId collection() const noexcept { return collection_; }

private:
   AttributeId argument_;
   AttributeId collection_;
};

/// A change came from an end that only mirrors the entity.
class ReadOnlyProxyException : public Exception {
public:
   using Exception::Exception;
};

[[noreturn]] void throwRangeException(std::string_view message);
[[noreturn]] void throwParseException(std::string_view message, std::size_t position);
/// `fault`: what is wrong with the arguments, if known.
[[noreturn]] void throwNewEntityArgsException(std::string_view type, std::string_view fault = {});

/// Rethrows `error` with the field's name before its message: "state: clockClass: ...".
[[noreturn]] void rethrowFromDeserializeAttr(RangeException const& error, std::string_view name);

namespace GenericIfImpl {
[[noreturn]] void throwTypeException(std::string_view type);
[[noreturn]] void throwUnhashableException(std::string_view type);
}  // namespace GenericIfImpl

}  // namespace Kiv
