// What the loaded modules say of their types.
#pragma once

#include <optional>

#include "Kiv/AnyValue.h"
#include "Kiv/Module.h"

namespace Ptpstate {

struct MemberInfo {
   Kiv::FieldDescriptor const* field = nullptr;
   /// "attribute", "key", "constant", "computed", "field", "child", "children", "map", "ordered",
   /// "queue" or "operation".
   char const* kind = "";
   /// Of the value, the element or the child, as it was declared; empty for an operation.
   Sarn::String valueType;
   /// "U8", "Ptp::IntfConfig by Dorn::IntfId"; empty for an operation.
   Sarn::String type;
   /// What it has in a new object; null for what has no value, or is given when it is made.
   std::unique_ptr<Kiv::AnyValue> initial;
};

/// The members of an entity or value type, inherited ones first.
std::vector<MemberInfo> membersOf(Kiv::TypeImpl const& type);

struct Enumerator {
   U8 value;
   Sarn::String name;
};
/// Of an enumeration, in the order of the declaration.
std::vector<Enumerator> enumeratorsOf(Kiv::TypeImpl const& type);

/// "entity", "value", "enumeration".
char const* kindText(Kiv::TypeImpl const& type);

/// The types of a module or the one type that a name says, whole or without its namespace; all
/// types for an empty name. Throws `Failure` if there is none, or more than one.
std::vector<Kiv::TypeImpl const*> typesByName(std::string_view name);

}  // namespace Ptpstate
