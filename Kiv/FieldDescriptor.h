#pragma once

#include "Kiv/Exception.h"
#include "Kiv/ValueRef.h"
#include "Sarn/Types.h"

/// One member of a type as data.
namespace Kiv {

class TypeImpl;
struct AttrOps;

/// What a member of an entity or value type is.
enum class MemberKind : U8 {
   /// An unused id: reserved, or the first of a queue's two.
   none,
   /// A value: attribute, field, key, constant, derived member.
   single,
   /// A singleton child entity.
   child,
   /// An instantiating collection of child entities.
   children,
   /// A hash map of values.
   map,
   /// An ordered map of values.
   ordered,
   /// A sequence-numbered queue.
   queue,
   /// A hand-written operation.
   operation,
};

/// One member, as the generic interface and the stream see it: a row of its type's table, at index
/// `id - firstId`. Rows are constant data.
struct FieldDescriptor {
   enum Flag : U16 {
      /// It travels in the attribute log.
      streamed = 1,
      /// The entity's key in its parent's collection.
      key = 2,
      /// It is set only at construction, or is a constant of the type.
      constant = 4,
      /// A singleton child that has a name.
      named = 8,
      /// The map's key is the first field of its value.
      keyInside = 16,
      instantiation1 = 32,
      instantiation2 = 64,
      instantiation3 = 128,
      /// Its numbers are declared as `Kiv::Seconds`, which is a double in C++.
      seconds = 256,
   };

   AttributeId fieldId = 0;
   U16 kindWord = 0;
   U16 flags = 0;
   MemberKind kind = MemberKind::none;
   char const* name = nullptr;
   /// The type of the value, element or child entity; for an optional member, its `Kiv::Optional`.
   TypeImpl const* type = nullptr;
   TypeImpl const* keyType = nullptr;
   AttrOps const* ops = nullptr;
   /// The least and the greatest value that the setter accepts, adjacent in memory. Null if it
   /// accepts every value of the type.
   void const* bounds = nullptr;

   bool has(Flag flag) const noexcept { return (flags & flag) != 0; }
   /// The least value that the setter accepts; none if only the type bounds it.
   ValueRef least() const noexcept;
   /// The greatest value that the setter accepts; none if only the type bounds it.
   ValueRef greatest() const noexcept;
   /// For a map whose values contain their keys: the field of the value that is the key. Else null.
   FieldDescriptor const* keyField() const noexcept;
};

}  // namespace Kiv
