#pragma once

#include "Kiv/Module.h"
#include "Kiv/Types.h"

/// What generated enumerations stand on. An enumeration is one byte; its enumerators' names are
/// those of its module's member table. Any byte is a value of it: one that has no name prints as
/// its decimal number.
namespace Kiv {

class EnumType {
public:
   /// The name of the enumerator with this value in the type's place of the module, or null.
   static char const* stringValue(KivModule const& module, U16 typeIndex, U32 value) noexcept;
   /// The value of the enumerator at this place of the declaration, from 0.
   /// Throws `RangeException` when there are fewer.
   static U8 sequenceToValue(KivModule const& module, U16 typeIndex, U32 ordinal);
   static U32 enumeratorCount(KivModule const& module, U16 typeIndex) noexcept;
};

/// What `XInstance()` of an enumeration gives: the enumeration as an object.
template <class E>
class EnumInstance {
public:
   TypeImpl const& type() const noexcept { return EnumTraits<E>::type(); }
   /// The number of enumerators that have a name.
   U32 count() const noexcept { return EnumType::enumeratorCount(*type().module(), type().index); }
   /// The enumerator at this place of the declaration, from 0. Throws `RangeException` when there
   /// are fewer.
   E sequenceToValue(U32 ordinal) const {
      return static_cast<E>(EnumType::sequenceToValue(*type().module(), type().index, ordinal));
   }
   /// The enumerator's name; the decimal number of a value that has none.
   Sarn::String stringValue(E value) const { return strRep(value); }
   E defaultValue() const noexcept { return EnumTraits<E>::defaultValue; }
};

/// The enumerator's name; a value without one gives its decimal number.
template <class E>
Sarn::String enumStringValue(E value) {
   return strRep(value);
}

/// The enumerator of `E` at this place of the declaration, from 0.
template <class E>
E sequenceToValue(U32 ordinal) {
   return EnumInstance<E>().sequenceToValue(ordinal);
}

namespace Impl {
template <class E>
constexpr TypeImpl enumType(KivModule const* const& module, U16 index) {
   TypeImpl type = plainType<E>(EnumTraits<E>::name.data(), TypeKind::enumeration);
   type.moduleAt = &module;
   type.index = index;
   return type;
}
}  // namespace Impl

}  // namespace Kiv
