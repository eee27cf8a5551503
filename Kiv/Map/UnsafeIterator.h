#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

#include "Kiv/Map/Array.h"
#include "Sarn/Util.h"

namespace Kiv {

/// The fast iterator, for walking a map that does not change meanwhile; each use checks that it has
/// not. Replacing values in place does not count as a change. Several threads may walk one map.
template <class Table>
class HashMap2018UnsafeIteratorConstGeneric {
public:
   using iterator_category = std::input_iterator_tag;
   using value_type = typename Table::Slot;
   using difference_type = std::ptrdiff_t;
   using reference = value_type const&;
   using pointer = value_type const*;

   HashMap2018UnsafeIteratorConstGeneric() noexcept = default;
   explicit HashMap2018UnsafeIteratorConstGeneric(Table const& map) noexcept
         : hashMap_(&map), version_(map.version()) {
      if (map.array_ != nullptr) {
         base_ = map.array_->first;
         findWindow();
      }
   }

   reference operator*() const noexcept {
      SARN_CHECK(version_ == hashMap_->version());
      return window_[Impl::lowestBit(occupied_)];
   }
   pointer operator->() const noexcept { return &**this; }

   HashMap2018UnsafeIteratorConstGeneric& operator++() noexcept {
      SARN_CHECK(version_ == hashMap_->version());
      occupied_ &= occupied_ - 1;
      if (occupied_ == 0) [[unlikely]] {
         base_ += width;
         findWindow();
      }
      return *this;
   }
   void operator++(int) noexcept { ++*this; }

   bool operator==(std::default_sentinel_t) const noexcept { return occupied_ == 0; }

private:
   using Value = std::remove_cvref_t<decltype(Table::PolicyType::valueOf(
         std::declval<value_type const&>()))>;
   static constexpr bool prefetches = Impl::PointsToObject<Value>;
   /// How many slots are looked at together: the fewer times that happens, the fewer times the
   /// processor guesses wrongly how many elements are left. So many objects are not prefetched.
   static constexpr U32 width = prefetches ? Impl::TagWindow::width : 64;

   /// The occupied slots from `base` on, as many as the width.
   U64 occupiedAt(U32 base) const noexcept {
      Impl::BucketArray const& array = *hashMap_->array_;
      U64 bits = 0;
      for (U32 i = 0; i < width && base + i < array.slotCount; i += Impl::TagWindow::width) {
         bits |= U64{Impl::TagWindow(array.tags() + base + i).occupied()} << i;
      }
      return bits;
   }
   /// Goes on to the next window with elements, from `base_`, or to the end. Prefetches the objects
   /// behind the pointers of the window after it.
   void findWindow() noexcept {
      Impl::BucketArray* const array = hashMap_->array_;
      for (; base_ < array->slotCount; base_ += width) {
         occupied_ = occupiedAt(base_);
         if (occupied_ != 0) {
            window_ = Table::slots(array) + base_;
            if constexpr (prefetches) {
               for (U64 bits = occupiedAt(base_ + width); bits != 0; bits &= bits - 1) {
                  Impl::prefetchObject(
                        Table::PolicyType::valueOf(window_[width + Impl::lowestBit(bits)]));
               }
            }
            return;
         }
      }
   }

   Table const* hashMap_ = nullptr;
   U64 version_ = 0;
   typename Table::Slot const* window_ = nullptr;
   /// The elements of the window that are still to come, the current one first; none at the end.
   U64 occupied_ = 0;
   /// The window's first slot.
   U32 base_ = 0;
};

}  // namespace Kiv
