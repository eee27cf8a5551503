#pragma once

#include <array>
#include <memory>

#include "Kiv/AnyValue.h"
#include "Kiv/ValueOps.h"

/// `Kiv::typeOf<T>()`: the type data of any type that a member can have. Generated types have their
/// own; those of scalars, strings, optionals and hand-written value types are made here.
namespace Kiv {

namespace Impl {

template <class T>
concept HasOwnType = requires {
   { T::kivTypeImpl } -> std::convertible_to<TypeImpl const&>;
};

/// Whether the type can be hashed: scalars, and types that have `hash(seed)`.
template <class T>
concept Hashable = requires(T const& v) {
   hashSingleAttr(U32(0), v);
};

template <class T>
constexpr std::string_view typeName() {
   return ValueOps<T>::name();
}
template <class T>
requires std::is_enum_v<T>
constexpr std::string_view typeName() {
   return EnumTraits<T>::name;
}

/// "Kiv::Optional<T>" as a constant.
template <class T>
inline constexpr auto optionalName = [] {
   constexpr std::string_view before = "Kiv::Optional<";
   constexpr std::string_view inner = typeName<T>();
   std::array<char, before.size() + inner.size() + 2> name{};
   std::size_t at = 0;
   for (char const c : before) {
      name[at++] = c;
   }
   for (char const c : inner) {
      name[at++] = c;
   }
   name[at] = '>';
   return name;
}();

template <class T>
struct OptionalInner;
template <class T>
struct OptionalInner<std::optional<T>> {
   using Type = T;
};
template <class T>
requires requires {
   typename OptionalInner<T>::Type;
}
constexpr std::string_view typeName() {
   auto const& name = optionalName<typename OptionalInner<T>::Type>;
   return {name.data(), name.size() - 1};
}

template <class T>
void construct(void* dst, void const* src) {
   std::construct_at(static_cast<T*>(dst), *static_cast<T const*>(src));
}
template <class T>
void destruct(void* v) {
   std::destroy_at(static_cast<T*>(v));
}
template <class T>
void strepToValue(void* dst, CharRange& text) {
   std::construct_at(static_cast<T*>(dst), ValueOps<T>::parse(text));
}
template <class T>
void strRepOf(Sarn::String& out, void const* v) {
   ValueOps<T>::print(out, *static_cast<T const*>(v));
}
template <class T>
U32 hashOf(void const* v, U32 seed) {
   if constexpr (Hashable<T>) {
      return hashSingleAttr(seed, *static_cast<T const*>(v));
   } else {
      (void)v;
      (void)seed;
      GenericIfImpl::throwUnhashableException(typeName<T>());
   }
}
template <class T>
void assign(void* dst, void const* src) {
   *static_cast<T*>(dst) = *static_cast<T const*>(src);
}
template <class T>
bool isEqOf(void const* a, void const* b) {
   return *static_cast<T const*>(a) == *static_cast<T const*>(b);
}
template <class T>
bool differsFromDefault(void const* v) {
   return !(*static_cast<T const*>(v) == defaultValue<T>());
}
template <class T>
void constructDefault(void* dst) {
   std::construct_at(static_cast<T*>(dst), defaultValue<T>());
}
template <class T>
std::size_t encodedSizeOf(void const* v) {
   return ValueOps<T>::size(*static_cast<T const*>(v));
}
template <class T>
void encodeOf(NboAttrLog::Out& out, void const* v) {
   ValueOps<T>::encode(out, *static_cast<T const*>(v));
}
template <class T>
void decodeOf(void* dst, NboAttrLog::In& in) {
   std::construct_at(static_cast<T*>(dst), ValueOps<T>::decode(in));
}
/// The types of constructor arguments.
template <class... T>
[[gnu::visibility("hidden")]] inline constexpr std::array<TypeImpl const*, sizeof...(T)> typesOf{
      &typeOf<T>()...};

/// A type without fields is constructed from one argument: another value of the type.
template <class T>
void constructFromOne(void* dst, CtorArgs args) {
   TypeImpl const* const wanted[] = {&typeOf<T>()};
   checkCtorArgs(typeName<T>(), args, wanted);
   construct<T>(dst, args[0].address);
}

template <class T>
[[gnu::visibility("hidden")]] inline constexpr ValueFunctions valueFunctions{
      &construct<T>, &destruct<T>, &strepToValue<T>, &strRepOf<T>,
      nullptr,       nullptr,      &hashOf<T>,       &assign<T>};

template <class T, auto ConstructFromCtorArgs = &constructFromOne<T>>
[[gnu::visibility("hidden")]] inline constexpr ValueSupport valueSupport{
      &constructDefault<T>, &isEqOf<T>,   &differsFromDefault<T>, &encodedSizeOf<T>,
      &encodeOf<T>,         &decodeOf<T>, ConstructFromCtorArgs};

template <class T>
void const* heldBy(void const* optional) {
   auto const& v = *static_cast<std::optional<T> const*>(optional);
   return v ? &*v : nullptr;
}
template <class T>
void constructOptional(void* dst, void const* inner) {
   auto* const made = std::construct_at(static_cast<std::optional<T>*>(dst));
   if (inner != nullptr) {
      made->emplace(*static_cast<T const*>(inner));
   }
}
template <class T>
[[gnu::visibility("hidden")]] inline constexpr OptionalSupport optionalSupport{
      &typeOf<T>(), &heldBy<T>, &constructOptional<T>};

/// The kind of a type that has no type data of its own.
template <class T>
constexpr TypeKind kindOf() {
   if constexpr (std::is_same_v<T, bool>) {
      return TypeKind::boolean;
   } else if constexpr (std::is_integral_v<T>) {
      return std::is_signed_v<T> ? TypeKind::signedNumber : TypeKind::unsignedNumber;
   } else if constexpr (std::is_floating_point_v<T>) {
      return TypeKind::floating;
   } else if constexpr (std::is_same_v<T, Sarn::String>) {
      return TypeKind::string;
   } else {
      return TypeKind::opaque;
   }
}

template <class T>
constexpr TypeImpl plainType(char const* name, TypeKind kind) {
   TypeImpl type{name, kind, alignof(T), sizeof(T)};
   type.values = &valueFunctions<T>;
   type.support = &valueSupport<T>;
   return type;
}

// Each library has its own of these, found without a name; `ValueRef::isA` compares names.
template <class T>
[[gnu::visibility("hidden")]] inline constexpr TypeImpl builtinType =
      plainType<T>(typeName<T>().data(), kindOf<T>());
template <class T>
[[gnu::visibility("hidden")]] inline constexpr TypeImpl builtinType<std::optional<T>> = [] {
   TypeImpl type = plainType<std::optional<T>>(optionalName<T>.data(), TypeKind::optional);
   type.optional = &optionalSupport<T>;
   return type;
}();

}  // namespace Impl

/// The type data of `T`. Each library has its own of a built-in type: compare with `isA`.
template <class T>
constexpr TypeImpl const& typeOf() noexcept {
   if constexpr (std::is_enum_v<T>) {
      return EnumTraits<T>::typeImpl;
   } else if constexpr (Impl::HasOwnType<T>) {
      return T::kivTypeImpl;
   } else {
      return Impl::builtinType<T>;
   }
}

}  // namespace Kiv
