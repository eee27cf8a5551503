#pragma once

#include <vector>

#include "Kiv/TypeImpl.h"

namespace Kiv::NboAttrLog {

/// The values that one peer is not told, since they are longer than `Limits::longestValue`: how
/// many there were, and the names of the last ones.
///
///     names   | oldest ... | not told to the listener yet |
///
/// Invariant: no name is there twice, and no more are than a status tells.
class LeftOut {
public:
   /// Notes a value whose message has `bodySize` bytes, of an entity or of one of its members.
   /// Calls nobody, so that the writing of a change may do so. May throw std::bad_alloc.
   void note(std::size_t bodySize, std::size_t bound, Entity const& entity,
             FieldDescriptor const* field, void const* key);

   /// Whether there are names that the listener has not been told.
   bool untold() const noexcept { return untold_ != 0; }
   /// The oldest of those; it counts as told. REQUIRES: untold().
   Sarn::String takeUntold() { return names_[names_.size() - untold_--]; }

   U64 count() const noexcept { return count_; }
   std::vector<Sarn::String> const& names() const noexcept { return names_; }

private:
   std::vector<Sarn::String> names_;
   std::size_t untold_ = 0;
   U64 count_ = 0;
};

}  // namespace Kiv::NboAttrLog
