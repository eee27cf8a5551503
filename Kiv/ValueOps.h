#pragma once

#include <limits>
#include <optional>
#include <type_traits>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

/// The operations of the framework on a value of any type: one set of functions, `ValueOps<T>`, for
/// scalars, strings, enumerations, optionals and value types. Everything that handles values
/// without a case for each type (attributes, collections, streams, text) uses it.
namespace Kiv {

/// Seconds as a double; positive infinity means no limit.
using Seconds = double;
/// A value or nothing. `value()` of an empty one throws "bad optional access".
template <class T>
using Optional = std::optional<T>;

class TypeImpl;

/// What kivc generates about an enumeration; specialised beside each. `static TypeImpl const&
/// type()`, `static constexpr T defaultValue`.
template <class E>
struct EnumTraits;

/// An enumeration's name for a number, or null: the run-time half of `stringValue`.
char const* enumName(TypeImpl const& type, U32 value) noexcept;
/// Parses an enumerator's name, or a decimal number from 0 to 255.
U8 parseEnum(TypeImpl const& type, CharRange& text);
void printEnum(TypeImpl const& type, U8 value, Sarn::String& out);

/// The maximum size of a type whose values have no fixed bound.
inline constexpr std::size_t unboundedSize = std::numeric_limits<std::size_t>::max();

/// The primary template: a value type, generated or hand-written, of the common shape.
template <class T>
struct ValueOps {
   static constexpr std::size_t maxSize = T::kivMaxEncodedSize;
   static std::size_t size(T const& v) { return v.kivEncodedSize(); }
   static void encode(NboAttrLog::Out& out, T const& v) { out << v; }
   static T decode(NboAttrLog::In& in) { return T(&in, StreamBogon{}); }
   static void print(Sarn::String& out, T const& v) { v.print(out); }
   static T parse(CharRange& text) { return T(text); }
   static constexpr std::string_view name() { return T::kivTypeName; }
};

template <class T>
requires std::is_integral_v<T>
struct ValueOps<T> {
   static constexpr std::size_t maxSize = sizeof(T);
   static constexpr std::size_t size(T) { return sizeof(T); }
   static void encode(NboAttrLog::Out& out, T v) {
      if constexpr (sizeof(T) == 1) {
         out.writeU8(static_cast<U8>(v));
      } else if constexpr (sizeof(T) == 2) {
         out.writeU16(static_cast<U16>(v));
      } else if constexpr (sizeof(T) == 4) {
         out.writeU32(static_cast<U32>(v));
      } else {
         out.writeU64(static_cast<U64>(v));
      }
   }
   static T decode(NboAttrLog::In& in) {
      if constexpr (std::is_same_v<T, bool>) {
         return in.nextbool();
      } else if constexpr (sizeof(T) == 1) {
         return static_cast<T>(in.nextU8());
      } else if constexpr (sizeof(T) == 2) {
         return static_cast<T>(in.nextU16());
      } else if constexpr (sizeof(T) == 4) {
         return static_cast<T>(in.nextU32());
      } else {
         return static_cast<T>(in.nextU64());
      }
   }
   static void print(Sarn::String& out, T v) {
      if constexpr (std::is_same_v<T, bool>) {
         printBool(out, v);
      } else if constexpr (std::is_signed_v<T>) {
         printSigned(out, v);
      } else {
         printUnsigned(out, v);
      }
   }
   static T parse(CharRange& text) {
      if constexpr (std::is_same_v<T, bool>) {
         return parseBool(text);
      } else if constexpr (std::is_signed_v<T>) {
         return static_cast<T>(parseSigned(text, std::numeric_limits<T>::min(),
                                           std::numeric_limits<T>::max(), name()));
      } else {
         return static_cast<T>(parseUnsigned(text, std::numeric_limits<T>::max(), name()));
      }
   }
   static constexpr std::string_view name() {
      constexpr std::string_view signedNames[] = {"S8", "S16", "S32", "S64"};
      constexpr std::string_view unsignedNames[] = {"U8", "U16", "U32", "U64"};
      constexpr int width = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
      if constexpr (std::is_same_v<T, bool>) {
         return "bool";
      } else {
         return std::is_signed_v<T> ? signedNames[width] : unsignedNames[width];
      }
   }
};

template <>
struct ValueOps<float> {
   static constexpr std::size_t maxSize = 4;
   static constexpr std::size_t size(float) { return 4; }
   static void encode(NboAttrLog::Out& out, float v) { out.writefloat(v); }
   static float decode(NboAttrLog::In& in) { return in.nextfloat(); }
   static void print(Sarn::String& out, float v) { printFloat(out, v); }
   static float parse(CharRange& text) { return parseFloat(text); }
   static constexpr std::string_view name() { return "float"; }
};

template <>
struct ValueOps<double> {
   static constexpr std::size_t maxSize = 8;
   static constexpr std::size_t size(double) { return 8; }
   static void encode(NboAttrLog::Out& out, double v) { out.writedouble(v); }
   static double decode(NboAttrLog::In& in) { return in.nextdouble(); }
   static void print(Sarn::String& out, double v) { printDouble(out, v); }
   static double parse(CharRange& text) { return parseDouble(text); }
   static constexpr std::string_view name() { return "double"; }
};

template <>
struct ValueOps<Sarn::String> {
   static constexpr std::size_t maxSize = unboundedSize;
   static std::size_t size(std::string_view v) { return 4 + v.size(); }
   static void encode(NboAttrLog::Out& out, std::string_view v) { out.writeString(v); }
   static Sarn::String decode(NboAttrLog::In& in) { return Sarn::String(in.nextString()); }
   static void print(Sarn::String& out, std::string_view v) { printString(out, v); }
   static Sarn::String parse(CharRange& text) { return parseString(text); }
   static constexpr std::string_view name() { return "Kiv::String"; }
};

/// Enumerations are one byte in memory and four in the log.
template <class T>
requires std::is_enum_v<T>
struct ValueOps<T> {
   static constexpr std::size_t maxSize = 4;
   static constexpr std::size_t size(T) { return 4; }
   static void encode(NboAttrLog::Out& out, T v) { out.writeU32(static_cast<U32>(v)); }
   static T decode(NboAttrLog::In& in) {
      U32 const v = in.nextU32();
      if (v > 255) [[unlikely]] {
         in.fault("an enumeration's value is not below 256", 4);
      }
      return static_cast<T>(v);
   }
   static void print(Sarn::String& out, T v) {
      printEnum(EnumTraits<T>::type(), static_cast<U8>(v), out);
   }
   static T parse(CharRange& text) {
      return static_cast<T>(parseEnum(EnumTraits<T>::type(), text));
   }
};

template <class T>
struct ValueOps<std::optional<T>> {
   static constexpr std::size_t maxSize =
         ValueOps<T>::maxSize == unboundedSize ? unboundedSize : 1 + ValueOps<T>::maxSize;
   static std::size_t size(std::optional<T> const& v) { return v ? 1 + ValueOps<T>::size(*v) : 1; }
   static void encode(NboAttrLog::Out& out, std::optional<T> const& v) {
      out.writebool(v.has_value());
      if (v) {
         ValueOps<T>::encode(out, *v);
      }
   }
   static std::optional<T> decode(NboAttrLog::In& in) {
      return in.nextbool() ? std::optional<T>(ValueOps<T>::decode(in)) : std::nullopt;
   }
   static void print(Sarn::String& out, std::optional<T> const& v) {
      if (v) {
         ValueOps<T>::print(out, *v);
      } else {
         out += "none";
      }
   }
   static std::optional<T> parse(CharRange& text) {
      CharRange ahead = text;
      if (ahead.word() == "none") {
         text = ahead;
         return std::nullopt;
      }
      return ValueOps<T>::parse(text);
   }
};

/// The encoded size if it is the same for every value, else 0; non-zero for scalars and
/// enumerations.
template <class T>
inline constexpr std::size_t fixedEncodedSize = [] {
   if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      return ValueOps<T>::maxSize;
   } else {
      return std::size_t(0);
   }
}();

/// A type's default value: the declared one for an enumeration, otherwise a value-initialised one.
template <class T>
constexpr T defaultValue() {
   if constexpr (std::is_enum_v<T>) {
      return EnumTraits<T>::defaultValue;
   } else {
      return T();
   }
}

/// The text form of a value.
template <class T>
Sarn::String strRep(T const& v) {
   Sarn::String out;
   ValueOps<T>::print(out, v);
   return out;
}

/// Parses all of `text` as the text form of a value.
template <class T>
T fromText(std::string_view text) {
   CharRange range(text);
   T v = ValueOps<T>::parse(range);
   range.expectEnd();
   return v;
}

/// Reads a field's "`name`=value". A `RangeException` gets the field's name before its message.
template <class T>
T deserializeAttr(CharRange& text, std::string_view name) {
   text.expect(name);
   text.expect("=");
   try {
      return ValueOps<T>::parse(text);
   } catch (RangeException const& error) {
      rethrowFromDeserializeAttr(error, name);
   }
}

}  // namespace Kiv
