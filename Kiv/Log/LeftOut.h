#pragma once

#include <vector>

#include "Kiv/TypeImpl.h"

namespace Kiv::NboAttrLog {

/// The values that one peer is not sent because they are longer than `Limits::longestValue`, or
/// because its version of the type does not have them: how many there were, and the names of the
/// last ones.
///
///     names   | oldest ... | listener not notified yet |
///
/// Invariant: no name is listed twice, and there are no more names than a status reports.
class LeftOut {
public:
   /// Notes a value whose message would have a body of `bodySize` bytes: a child if `field` is
   /// null, else a member's value or the one under `key`. Calls nobody, so it is safe while a
   /// change is being written. May throw std::bad_alloc.
   void note(std::size_t bodySize, std::size_t bound, Entity const& entity,
             FieldDescriptor const* field, void const* key);

   /// The same for a value that is not sent for another reason, `why`.
   void note(Entity const& entity, FieldDescriptor const& field, Sarn::String const& why);

   /// Whether the listener has not been notified of all names.
   bool untold() const noexcept { return untold_ != 0; }
   /// Takes the oldest of those; it counts as notified. REQUIRES: untold().
   Sarn::String takeUntold() { return names_[names_.size() - untold_--]; }

   U64 count() const noexcept { return count_; }
   /// Whether a child was among them, so that the peer lacks an entity.
   bool anyChild() const noexcept { return anyChild_; }
   std::vector<Sarn::String> const& names() const noexcept { return names_; }

private:
   void add(Sarn::String what);

   std::vector<Sarn::String> names_;
   std::size_t untold_ = 0;
   U64 count_ = 0;
   bool anyChild_ = false;
};

}  // namespace Kiv::NboAttrLog
