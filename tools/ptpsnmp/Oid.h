// Object identifiers.
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <compare>
#include <initializer_list>
#include <span>

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Ptpsnmp {

/// Sub-identifiers, of an `Oid` or from elsewhere.
using OidView = std::span<U32 const>;

/// In the order of object identifiers: by the first sub-identifier that differs; what another
/// begins with comes before it.
inline std::strong_ordering compare(OidView a, OidView b) {
   return std::lexicographical_compare_three_way(a.begin(), a.end(), b.begin(), b.end());
}

inline bool beginsWith(OidView oid, OidView prefix) {
   return oid.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), oid.begin());
}

/// An object identifier of this MIB. Allocates nothing.
class Oid {
public:
   /// The longest one that is named has 17: a column with five indexes.
   static constexpr std::size_t longest = 24;

   constexpr Oid() noexcept = default;
   constexpr Oid(std::initializer_list<U32> parts) {
      for (U32 const part : parts) {
         add(part);
      }
   }

   constexpr void add(U32 part) {
      assert(size_ < longest);
      parts_[size_++] = part;
   }
   void add(OidView parts) {
      for (U32 const part : parts) {
         add(part);
      }
   }

   OidView view() const noexcept { return {parts_.data(), size_}; }
   std::size_t size() const noexcept { return size_; }
   /// As ".1.3.6.1".
   Sarn::String text() const {
      Sarn::String text;
      for (U32 const part : view()) {
         text += '.';
         text += std::to_string(part);
      }
      return text;
   }

   friend bool operator==(Oid const& a, Oid const& b) noexcept {
      return std::ranges::equal(a.view(), b.view());
   }
   friend std::strong_ordering operator<=>(Oid const& a, Oid const& b) noexcept {
      return compare(a.view(), b.view());
   }

private:
   std::array<U32, longest> parts_{};
   std::size_t size_ = 0;
};

}  // namespace Ptpsnmp
