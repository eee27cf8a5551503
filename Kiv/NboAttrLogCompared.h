#pragma once

#include <vector>

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// What a comparison of a mirror with its source has found: see `Session::compareAsk`. An entity
/// counts as different if its own values are, or if it has other children; not if only something
/// in its children is.
struct Compared {
   /// The most entities of which `paths` has the names.
   static constexpr std::size_t mostPaths = 64;

   /// Whether the comparison came to its end. It does not if the source withdraws the root.
   bool finished = false;
   /// Entities that were compared.
   U64 entities = 0;
   /// Those that were different when they were first compared, and how many of these are equal now.
   U64 differing = 0;
   U64 repaired = 0;
   /// Entities of which the source or the mirror holds a value or a child that is not sent to the
   /// other end, because it is longer than `Limits::longestValue`.
   U64 leftOut = 0;
   /// Entities of a mirror that writes which were different each time, but only while changes of
   /// the mirror were on their way.
   U64 unsettled = 0;
   /// The first of those that were different.
   std::vector<Sarn::String> paths;

   /// Whether the mirror is equal to its source now.
   bool equal() const noexcept {
      return finished && differing == repaired && leftOut == 0 && unsettled == 0;
   }
};

}  // namespace Kiv::NboAttrLog
