#pragma once

#include <bit>
#include <cassert>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "Kiv/Map/Array.h"
#include "Sarn/Util.h"

namespace Kiv {

/// The checked iterator of a hash map or set. It stays valid across any change of the map, and can
/// be continued later. It visits every element that is there throughout exactly once, and no erased
/// element. Elements inserted meanwhile may or may not be visited.
///
///     for (auto it = map.iterator(); it; ++it) { use(it.key(), it.value()); }
///
/// - When the current element is erased, the iterator keeps a copy of its key (`key()`), reports it
///   (`markedForDeletion()`), and continues with the next element.
/// - When the map is cleared or destroyed, the iterator ends after the current element. Only then,
///   if there is no memory for a copy of the key, it keeps `Key()` instead. It holds the map's
///   empty bucket array until it is advanced, assigned or destroyed.
/// - It keeps no element alive.
///
/// The bucket array has a list of its iterators, so that the map can update them: making, copying
/// and destroying one is cheap but not free, and each one slows down structural changes of the map
/// a little. Belongs to the map's thread.
template <class Table>
class HashMap2018Iterator : private Impl::HashIteratorBase {
public:
   using Slot = typename Table::Slot;
   using Key = typename Table::Key;

   /// At the end of no map.
   // Defaulted, it would be deleted wherever a key has a constructor of its own.
   // NOLINTNEXTLINE(modernize-use-equals-default)
   HashMap2018Iterator() noexcept {}
   HashMap2018Iterator(HashMap2018Iterator const& other) { take(other); }
   HashMap2018Iterator& operator=(HashMap2018Iterator const& other) {
      if (this != &other) {
         drop();
         take(other);
      }
      return *this;
   }
   ~HashMap2018Iterator() { drop(); }

   /// Whether there is a current element, possibly one that has been erased since.
   explicit operator bool() const noexcept { return array_ != nullptr; }

   /// Whether the current element has been erased: its key is left, its value is not.
   bool markedForDeletion() const noexcept { return erased_; }

   /// Whether the map has changed structurally since the iterator was made or advanced: references
   /// taken from `key()`, `value()` and `operator*` before may be stale. Asking again renews them.
   bool currNodeMaybeStale() const noexcept {
      return array_ != nullptr && version_ != array_->version;
   }

   /// REQUIRES: not at the end.
   typename Table::KeyResult key() const noexcept {
      assert(array_ != nullptr);
      if (erased_) {
         return key_;
      }
      return Table::PolicyType::keyOf(currNode());
   }
   /// What the map stores: for `HashMap2018` key and value, else the value or the key.
   /// REQUIRES: not at the end, not `markedForDeletion()`.
   Slot const& operator*() const noexcept { return currNode(); }
   Slot const* operator->() const noexcept { return &currNode(); }
   /// The mapped value; it is replaced in place through `find`.
   /// REQUIRES: not at the end, not `markedForDeletion()`.
   auto const& value() const noexcept { return Table::PolicyType::valueOf(currNode()); }

   /// Advances to the next element. REQUIRES: not at the end.
   HashMap2018Iterator& operator++() noexcept {
      assert(array_ != nullptr);
      U32 from = slot_ + 1;
      if (erased_) {
         from = slot_;
         forgetKey();
      }
      settle(from);
      return *this;
   }

private:
   friend Table;

   HashMap2018Iterator(Impl::BucketArray* array, U32 slot) noexcept {
      if (array != nullptr) {
         attach(array);
         settle(slot);
      }
   }

   Slot const& currNode() const noexcept {
      assert(array_ != nullptr && !erased_);
      return Table::slots(array_)[slot_];
   }

   void settle(U32 from) noexcept {
      slot_ = array_->occupiedFrom(from);
      version_ = array_->version;
      if (slot_ == array_->slotCount) {
         drop();
      } else {
         prefetchAhead();
      }
   }

   /// Prefetches the object behind the pointer a few slots ahead, so that a walk over scattered
   /// objects does not wait for each.
   void prefetchAhead() const noexcept {
      if constexpr (Impl::PointsToObject<std::remove_cvref_t<decltype(value())>>) {
         U32 const ahead = slot_ + 8;
         if (ahead < array_->slotCount && array_->tags()[ahead] != 0) {
            Impl::prefetchObject(Table::PolicyType::valueOf(Table::slots(array_)[ahead]));
         }
      }
   }

   void keepKey(Key&& key) noexcept {
      std::construct_at(&key_, std::move(key));
      erased_ = true;
   }
   /// Without memory for a copy, the key is `Key()`.
   void keepKeyOrNone(Key const& key) noexcept {
      try {
         keepKey(Key(key));
      } catch (std::bad_alloc const&) {
         keepKey(Key());
      }
   }
   void forgetKey() noexcept {
      std::destroy_at(&key_);
      erased_ = false;
   }

   void take(HashMap2018Iterator const& other) {
      if (other.erased_) {
         keepKey(Key(other.key_));
      }
      if (other.array_ != nullptr) {
         attach(other.array_);
      }
      slot_ = other.slot_;
      version_ = other.version_;
   }
   void drop() noexcept {
      if (erased_) {
         forgetKey();
      }
      if (Impl::BucketArray* const array = array_; array != nullptr) {
         detach();
         Table::releaseArray(array);
      }
   }

   U64 version_ = 0;
   /// The key of the current element, once that has been erased.
   union {
      Key key_;
   };
};

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
         : hashMap_(&map), version_(map.version()), left_(map.size()) {
      if (left_ != 0) {
         tags_ = map.array_->tags() + map.array_->first;
         window_ = Table::slots(map.array_) + map.array_->first;
         occupied_ = Impl::TagWindow(tags_).occupied();
         prefetchNextWindow();
         findWindow();
      }
   }

   reference operator*() const noexcept {
      SARN_CHECK(version_ == hashMap_->version());
      return window_[std::countr_zero(occupied_)];
   }
   pointer operator->() const noexcept { return &**this; }

   HashMap2018UnsafeIteratorConstGeneric& operator++() noexcept {
      SARN_CHECK(version_ == hashMap_->version());
      occupied_ &= occupied_ - 1;
      if (--left_ != 0) {
         findWindow();
      }
      return *this;
   }
   void operator++(int) noexcept { ++*this; }

   bool operator==(std::default_sentinel_t) const noexcept { return left_ == 0; }

private:
   void findWindow() noexcept {
      if (occupied_ == 0) {
         do {
            tags_ += Impl::TagWindow::width;
            window_ += Impl::TagWindow::width;
            occupied_ = Impl::TagWindow(tags_).occupied();
         } while (occupied_ == 0);
         prefetchNextWindow();
      }
   }

   /// At the start of a window, prefetches the objects behind the pointers of the next one.
   void prefetchNextWindow() const noexcept {
      using Value = std::remove_cvref_t<decltype(Table::PolicyType::valueOf(*window_))>;
      if constexpr (Impl::PointsToObject<Value>) {
         if (left_ > static_cast<U32>(std::popcount(occupied_))) {
            U32 bits = Impl::TagWindow(tags_ + Impl::TagWindow::width).occupied();
            for (; bits != 0; bits &= bits - 1) {
               Impl::prefetchObject(Table::PolicyType::valueOf(
                     window_[Impl::TagWindow::width + static_cast<U32>(std::countr_zero(bits))]));
            }
         }
      }
   }

   Table const* hashMap_ = nullptr;
   U64 version_ = 0;
   U8 const* tags_ = nullptr;
   typename Table::Slot const* window_ = nullptr;
   /// The elements of the window that are still to come, the current one first.
   U32 occupied_ = 0;
   /// Elements to come in all, the current one included.
   U32 left_ = 0;
};

}  // namespace Kiv
