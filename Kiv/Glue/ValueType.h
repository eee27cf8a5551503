#pragma once

#include <compare>
#include <ostream>
#include <tuple>

#include "Kiv/Glue/TextConstant.h"
#include "Kiv/Types.h"

/// What generated value types are made of. Such a type lists its fields once
///
///     static constexpr auto kivFields() {
///        return std::tuple(Kiv::valueField("logInterval", &UcastNegMsgProfile::logInterval_),
///        ...);
///     }
///
/// and everything that goes field by field is a template over that list.
namespace Kiv {

template <class T, class F>
struct ValueField {
   using Type = F;
   char const* name;
   F T::*member;
};

template <class T, class F>
constexpr ValueField<T, F> valueField(char const* name, F T::*member) {
   return {name, member};
}

/// The largest encoded size of a record of such fields.
template <class... F>
inline constexpr std::size_t maxEncodedSize = ((ValueOps<F>::maxSize == unboundedSize) || ...)
                                                    ? unboundedSize
                                                    : (std::size_t(0) + ... + ValueOps<F>::maxSize);

/// Field by field in declaration order, up to the first difference.
template <class T>
bool valueIsEq(T const& a, T const& b) {
   return std::apply([&](auto const&... f) { return ((a.*f.member == b.*f.member) && ...); },
                     T::kivFields());
}

namespace Impl {
/// By `<=>` where the type has it, else by less-than both ways.
template <class F>
std::weak_ordering order(F const& a, F const& b) noexcept {
   if constexpr (requires {
                    { a <=> b } -> std::convertible_to<std::weak_ordering>;
                 }) {
      return a <=> b;
   } else {
      return a < b   ? std::weak_ordering::less
             : b < a ? std::weak_ordering::greater
                     : std::weak_ordering::equivalent;
   }
}
}  // namespace Impl

/// Lexicographic in declaration order. A comparison that throws ends the process.
template <class T>
std::weak_ordering valueOrder(T const& a, T const& b) noexcept {
   std::weak_ordering result = std::weak_ordering::equivalent;
   if (&a != &b) {
      std::apply(
            [&](auto const&... f) {
               (void)(((result = Impl::order(a.*f.member, b.*f.member)) == 0) && ...);
            },
            T::kivFields());
   }
   return result;
}

/// A value type whose hash and text are those of its only field.
template <class T>
concept Transparent = T::kivTransparent && std::tuple_size_v<decltype(T::kivFields())>
== 1;

template <class T>
U32 valueHash(U32 seed, T const& v) {
   if constexpr (Transparent<T>) {
      return hashSingleAttr(seed, v.*std::get<0>(T::kivFields()).member);
   } else {
      return std::apply([&](auto const&... f) { return hashFields(seed, v.*f.member...); },
                        T::kivFields());
   }
}

template <class T>
std::size_t valueEncodedSize(T const& v) {
   return std::apply(
         [&](auto const&... f) {
            return (std::size_t(0) + ... +
                    ValueOps<typename std::remove_cvref_t<decltype(f)>::Type>::size(v.*f.member));
         },
         T::kivFields());
}

template <class T>
void valueEncode(NboAttrLog::Out& out, T const& v) {
   std::apply(
         [&](auto const&... f) {
            (ValueOps<typename std::remove_cvref_t<decltype(f)>::Type>::encode(out, v.*f.member),
             ...);
         },
         T::kivFields());
}

template <class T>
void valueDecode(NboAttrLog::In& in, T& v) {
   std::apply(
         [&](auto const&... f) {
            ((v.*f.member = ValueOps<typename std::remove_cvref_t<decltype(f)>::Type>::decode(in)),
             ...);
         },
         T::kivFields());
}

/// "Ptp::UcastNegMsgProfile(logInterval=-3, duration=60)".
template <class T>
void valuePrint(Sarn::String& out, T const& v) {
   if constexpr (Transparent<T>) {
      auto const field = std::get<0>(T::kivFields());
      ValueOps<typename decltype(field)::Type>::print(out, v.*field.member);
      return;
   }
   out += T::kivTypeName;
   char before = '(';
   std::apply(
         [&](auto const&... f) {
            ((out += before, out += before == '(' ? "" : " ", before = ',', out += f.name,
              out += '=',
              ValueOps<typename std::remove_cvref_t<decltype(f)>::Type>::print(out, v.*f.member)),
             ...);
         },
         T::kivFields());
   out += ')';
}

/// Reads the form that `valuePrint` writes; blanks may stand around every token. Of a transparent
/// type, reads the form with its own name and the field's as well. `v` is left as far as it got
/// when this throws.
template <class T>
void valueParse(CharRange& text, T& v) {
   if constexpr (Transparent<T>) {
      CharRange ahead = text;
      if (!ahead.accept(T::kivTypeName) || !ahead.accept("(")) {
         auto const field = std::get<0>(T::kivFields());
         try {
            v.*field.member = ValueOps<typename decltype(field)::Type>::parse(text);
         } catch (RangeException const& error) {
            rethrowFromDeserializeAttr(error, field.name);
         }
         return;
      }
   }
   text.expect(T::kivTypeName);
   char const* before = "(";
   std::apply(
         [&](auto const&... f) {
            ((text.expect(before), before = ",",
              v.*f.member =
                    deserializeAttr<typename std::remove_cvref_t<decltype(f)>::Type>(text, f.name)),
             ...);
         },
         T::kivFields());
   text.expect(")");
}

namespace Impl {
/// Builds a value in raw storage from its fields' values.
template <class T, class... F>
void constructFromFields(void* dst, CtorArgs args) {
   checkCtorArgs(T::kivTypeName, args, typesOf<F...>);
   [&]<std::size_t... i>(std::index_sequence<i...>) {
      std::construct_at(static_cast<T*>(dst), T(*static_cast<F const*>(args[i].address)...));
   }
   (std::make_index_sequence<sizeof...(F)>());
}
}  // namespace Impl

}  // namespace Kiv
