// Describes the types of the loaded modules.
#pragma once

#include <memory>
#include <optional>

#include "Kiv/AnyValue.h"
#include "Kiv/Module.h"

namespace Ptpstate {

struct MemberInfo {
   Kiv::FieldDescriptor const* field = nullptr;
   /// "attribute", "key", "constant", "computed", "field", "child", "children", "map", "ordered",
   /// "queue" or "operation".
   char const* kind = "";
   /// Type of the value, the element or the child, as declared; empty for an operation.
   Sarn::String valueType;
   /// "U8", "Ptp::IntfConfig by Dorn::IntfId"; empty for an operation.
   Sarn::String type;
   /// Its value in a new object; null if it has none, or if it is a constructor argument.
   std::unique_ptr<Kiv::AnyValue> initial;
};

/// The members of an entity or value type, inherited ones first.
std::vector<MemberInfo> membersOf(Kiv::TypeImpl const& type);

struct Enumerator {
   U8 value;
   Sarn::String name;
};
/// The enumerators of an enumeration, in the order of their declaration.
std::vector<Enumerator> enumeratorsOf(Kiv::TypeImpl const& type);

/// "entity", "value", "enumeration".
char const* kindText(Kiv::TypeImpl const& type);

/// The types of a module, or the type with this name, with or without its namespace; all types for
/// an empty name. Throws `Failure` if there is no such type, or more than one.
std::vector<Kiv::TypeImpl const*> typesByName(std::string_view name);

}  // namespace Ptpstate
