#pragma once

#include <array>
#include <memory>

#include "Kiv/TypeImpl.h"
#include "Kiv/ValueOps.h"

/// `Kiv::typeOf<T>()`: the type data of any type that a member can have. Generated types bring
/// their own; those of scalars, strings, optionals and hand-written value types are made here.
namespace Kiv {

namespace Impl {

template <class T>
concept HasOwnType = requires {
   { T::kivTypeImpl } -> std::convertible_to<TypeImpl const&>;
};

/// Whether hashing is offered: scalars, and types that have `hash(seed)`.
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

/// A type without fields is made from one argument: a value of its own.
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
constexpr TypeImpl plainType(char const* name, TypeKind kind) {
   return {name,
           kind,
           alignof(T),
           sizeof(T),
           &valueFunctions<T>,
           &valueSupport<T>,
           nullptr,
           nullptr,
           nullptr,
           0,
           0,
           nullptr,
           0,
           false,
           nullptr,
           {}};
}

template <class T>
inline constexpr TypeImpl builtinType = plainType<T>(
      typeName<T>().data(),
      std::is_class_v<T> && !std::is_same_v<T, Sarn::String> ? TypeKind::value : TypeKind::scalar);
template <class T>
inline constexpr TypeImpl builtinType<std::optional<T>> =
      plainType<std::optional<T>>(optionalName<T>.data(), TypeKind::scalar);

}  // namespace Impl

/// The type data of `T`.
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

/// Storage for one value of a type known at run time. Empty until `construct...` was called.
class AnyValue {
public:
   explicit AnyValue(TypeImpl const& type) : type_(type) {
      room_ =
            type.size <= sizeof(inline_) ? static_cast<void*>(inline_) : ::operator new(type.size);
   }
   AnyValue(AnyValue const&) = delete;
   AnyValue& operator=(AnyValue const&) = delete;
   ~AnyValue() {
      clear();
      if (room_ != inline_) {
         ::operator delete(room_);
      }
   }

   TypeImpl const& type() const noexcept { return type_; }
   /// Raw storage for a value that is about to be constructed; say so with `constructed()`.
   void* room() {
      clear();
      return room_;
   }
   void constructed() noexcept { full_ = true; }
   bool full() const noexcept { return full_; }
   void const* get() const noexcept { return room_; }
   /// REQUIRES: full().
   ValueRef ref() const noexcept { return {type_, room_}; }
   void clear() {
      if (full_) {
         type_.values->genericIfDestruct(room_);
         full_ = false;
      }
   }

private:
   TypeImpl const& type_;
   void* room_;
   bool full_ = false;
   alignas(std::max_align_t) unsigned char inline_[64];
};

}  // namespace Kiv
