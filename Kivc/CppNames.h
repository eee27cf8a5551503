// How declared things are spelt in C++.
#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// Spells types and values as code inside one namespace sees them.
class CppNames {
public:
   explicit CppNames(std::string nameSpace) : nameSpace_(std::move(nameSpace)) {}

   /// "Colour", "Dorn::IntfId", "Sarn::String", "U32".
   std::string type(Type const& type) const;
   /// The member's value as it is stored: its type, or `Kiv::Optional` of it.
   std::string stored(Member const& member) const;
   /// How a value is passed: scalars and enumerations by value, texts as views, the rest by
   /// reference; an entity by reference to its pointer.
   std::string param(Type const& type) const;
   /// The same of a member's stored value.
   std::string param(Member const& member) const;
   /// How an accessor gives a stored value: a scalar by value, the rest by reference.
   std::string result(Member const& member) const;
   /// How a computed value is returned.
   std::string returned(Type const& type) const;
   /// A value as an expression of the type; REQUIRES: a checked one.
   std::string literal(Expr const& expr, Type const& type) const;
   /// The text behind the stored member: " = 5", "{1, 2}", or empty.
   std::string initializer(Member const& member) const;
   /// A bound as an expression.
   std::string bound(Expr const& bound) const;
   /// "U32 key, bool enabled": constructor parameters; optional fields of values included.
   std::string params(Type const& type) const;

private:
   std::string nameSpace_;
};

/// Whether values of the type are passed and returned by value.
bool isScalar(Type const& type);

/// "configFactory" of `Config`.
std::string factoryName(Type const& type);

/// The accessor that reads a constructor parameter of `type`: "nameString" of a root's name, else
/// the parameter's own name.
std::string accessorOf(Type const& type, Parameter const& param);

/// "name, key": a list of names.
std::string joinNames(std::vector<Parameter> const& params);

/// "`a`, `b`" and so on: joins what is not empty.
std::string join(std::vector<std::string> const& parts, std::string_view separator);

/// "IntfConfig" of `intfConfig`.
std::string capitalized(std::string text);

}  // namespace Kivc
