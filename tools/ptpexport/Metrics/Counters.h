// Counters that never go backwards.
#pragma once

#include <unordered_map>
#include <vector>

#include "Kiv/Entity.h"

namespace Ptpexport {

/// Makes 64-bit counters that only grow from those of the source, which have 8 to 64 bits, wrap
/// around, and are set back to zero now and then. One for all scrapes of a program.
///
/// A counter is looked at when it is scraped. Compared with the last time, it has
///
/// - grown: the difference is added;
/// - shrunk, both numbers being within an eighth of the range of the turn from the greatest to
/// zero:
///   it has wrapped around, and the difference is what it counts modulo its range;
/// - shrunk otherwise, or the source says that it has cleared it: what it shows is what has
/// happened
///   since, and is added.
///
/// A restart of the source, and an entity that is created anew, begin with what the source shows
/// then, as new series: `created` says when.
///
/// Memory: some 16 bytes a counter, and an entity that has been removed until the next scrape
/// begins. Threads: one.
class Counters {
public:
   Counters() = default;
   Counters(Counters const&) = delete;
   Counters& operator=(Counters const&) = delete;

   /// A scrape begins. `start`: when the source has started, 0 if that is not known. A new one
   /// begins all series anew. Returns when counters that are met first in this scrape were created:
   /// with the source if it is new here, otherwise at `now`. All in seconds since 1970.
   double begin(double start, double now);

   struct Value {
      U64 total;
      /// In seconds since 1970.
      double created;
   };
   /// The value of a counter that shows `raw`.
   ///
   /// `slot`: which of the `slots` counters of the entity. `bits`: its width. `cleared`: when the
   /// source has cleared it last; any number that changes with each time. `created`: what `begin`
   /// has returned.
   Value take(Kiv::Entity const& entity, std::size_t slot, std::size_t slots, U64 raw,
              unsigned bits, double cleared, double created);

   /// Entities with counters.
   std::size_t entities() const noexcept { return entities_.size(); }

private:
   struct Counter {
      U64 total = 0;
      U64 last = 0;
      double cleared = 0;
      bool met = false;
   };
   struct Counted {
      /// Holds the entity, so that no other gets its address.
      Sarn::Ptr<Kiv::Entity> entity;
      double created;
      std::vector<Counter> counters;
   };

   std::unordered_map<Kiv::Entity const*, Counted> entities_;
   double start_ = 0;
   bool begun_ = false;
};

}  // namespace Ptpexport
