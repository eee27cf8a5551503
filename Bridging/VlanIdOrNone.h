#pragma once

#include <compare>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Bridging {

/// An IEEE 802.1Q VLAN id, from 1 to 4094, or none, which sorts first.
///
/// Text: the number, or `none`. In the stream: U16, none as 0.
class VlanIdOrNone {
public:
   static constexpr char const* kivTypeName = "Bridging::VlanIdOrNone";
   static constexpr std::size_t kivMaxEncodedSize = 2;
   static constexpr U16 min = 1;
   static constexpr U16 max = 4094;

   /// None.
   constexpr VlanIdOrNone() noexcept = default;
   /// `id`: from 1 to 4094, or 0 for none; anything else throws `RangeException`.
   constexpr explicit VlanIdOrNone(U16 id) : id_(id) {
      if (id > max) {
         throwRange(id);
      }
   }
   /// Parses all of `text`; blanks around the id are allowed.
   explicit VlanIdOrNone(std::string_view text);
   /// Reads an id or `none` at the cursor. Throws `RangeException` if the number is not an id (0 is
   /// not), `ParseException` if there is neither a number nor `none`.
   explicit VlanIdOrNone(Kiv::CharRange& text);
   VlanIdOrNone(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr bool isNone() const noexcept { return id_ == 0; }
   /// The id; 0 if none.
   constexpr U16 value() const noexcept { return id_; }

   constexpr bool operator==(VlanIdOrNone const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(VlanIdOrNone const&) const noexcept = default;
   constexpr bool isEq(VlanIdOrNone const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashSingleAttr(seed, id_); }
   constexpr U64 hashWord() const noexcept { return id_; }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, VlanIdOrNone const& v) {
      out.writeU16(v.id_);
      return out;
   }

private:
   [[noreturn]] static void throwRange(U64 id);

   U16 id_ = 0;
};

}  // namespace Bridging
