#pragma once

#include <compare>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Brim {

/// A count that identifies each restart of an activity, with a flag that requests the next one.
///
/// The order (by count, then flag) is only for use as a key: counts wrap around, so it does not say
/// which of two generations is later.
///
/// Text: `Brim::Generation(count=1, flag=false)`. In the stream: U32 count, bool flag.
class Generation {
public:
   static constexpr char const* kivTypeName = "Brim::Generation";
   static constexpr std::size_t kivMaxEncodedSize = 5;

   /// Count 0, flag false.
   constexpr Generation() noexcept = default;
   constexpr Generation(U32 count, bool flag) noexcept : count_(count), flag_(flag) {}
   /// Parses all of `text`.
   explicit Generation(std::string_view text);
   /// Reads a value at the cursor. Throws `RangeException`, which names the field, if a field does
   /// not fit, and `ParseException` if the structure is wrong.
   explicit Generation(Kiv::CharRange& text);
   Generation(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr U32 count() const noexcept { return count_; }
   constexpr bool flag() const noexcept { return flag_; }
   constexpr void countIs(U32 count) noexcept { count_ = count; }
   constexpr void flagIs(bool flag) noexcept { flag_ = flag; }

   constexpr bool operator==(Generation const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(Generation const&) const noexcept = default;
   constexpr bool isEq(Generation const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept {
      return Kiv::hashSingleAttr(seed, U64{count_} << 1 | (flag_ ? 1u : 0u));
   }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, Generation const& v) {
      out.writeU32(v.count_);
      out.writebool(v.flag_);
      return out;
   }

private:
   U32 count_ = 0;
   bool flag_ = false;
};

}  // namespace Brim
