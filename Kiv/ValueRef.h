#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <type_traits>

namespace Kiv {

class TypeImpl;

/// The type data of `T`; in `Kiv/Types.h`.
template <class T>
constexpr TypeImpl const& typeOf() noexcept;

/// A value that it does not own, with its type: an argument of the generic interface. The address
/// of a value whose type the compiler knows converts to one; that needs `Kiv/Types.h`.
struct ValueRef {
   TypeImpl const* type = nullptr;
   void const* address = nullptr;

   constexpr ValueRef() noexcept = default;
   constexpr ValueRef(std::nullptr_t) noexcept {}
   constexpr ValueRef(TypeImpl const& itsType, void const* value) noexcept
         : type(&itsType), address(value) {}
   template <class T>
   requires(!std::is_void_v<T>) constexpr ValueRef(T const* value) noexcept
         : type(&typeOf<T>()), address(value) {}

   /// Whether there is a value, and it is of this type.
   bool isA(TypeImpl const& wanted) const noexcept;
};

/// Constructor arguments in declaration order.
using CtorArgs = std::span<ValueRef const>;

/// Throws a `NewEntityArgsException` that names `made` and what is wrong, unless the arguments have
/// the wanted types.
void checkCtorArgs(std::string_view made, CtorArgs args, std::span<TypeImpl const* const> wanted);

}  // namespace Kiv
