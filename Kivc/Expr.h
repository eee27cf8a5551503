// The small parts of a declaration: names, mentions of types, values as they are written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Kivc/Source.h"

namespace Kivc {

struct Member;
struct Type;

/// Wide enough for every value of S64 and U64.
__extension__ using WideInteger = __int128;

/// A name with its place.
struct Name {
   std::string text;
   Span span;
};

/// A mention of a type.
struct TypeRef {
   Name name;
   /// Checked; stays null after an error.
   Type const* type = nullptr;

   explicit operator bool() const { return !name.text.empty(); }
};

/// A default, an argument or a bound as written.
struct Expr {
   enum class Kind : std::uint8_t {
      /// `-7`, `0xff`, `1.5`.
      number,
      /// `"..."`, quotes included.
      text,
      /// `true`, `initializing`, `Constants::maxDscp`, `::Ptp::Constants::min()`.
      name,
      /// `ClockQuality(248, 254, 65535)`, `ordinal(1)`.
      call,
   };
   Kind kind = Kind::number;
   Span span;
   /// As written, without blanks; of a call its name.
   std::string text;
   /// Of a call.
   std::vector<Expr> args;
   /// A name with `()` behind it.
   bool isFunction = false;

   /// Checked: value, where it is known and whole.
   std::optional<WideInteger> integer;
   /// Checked, of a name: the class that holds the constant.
   Type const* scope = nullptr;
   /// Checked, of a name: constant or enumerator, where known.
   Member const* target = nullptr;
};

/// A parameter of an operation or, checked, of a constructor.
struct Parameter {
   Name name;
   TypeRef type;
};

}  // namespace Kivc
