#pragma once

#include <cassert>
#include <memory>
#include <new>
#include <utility>

#include "Kiv/Map/IteratorBase.h"
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
      advance();
      if (erased_) [[unlikely]] {
         forgetKey();
      }
      arrived();
      return *this;
   }

private:
   friend Table;

   HashMap2018Iterator(Impl::BucketArray* array, U32 slot) noexcept {
      if (array != nullptr) {
         attach(array);
         settle(slot);
         arrived();
      }
   }

   Slot const& currNode() const noexcept {
      assert(array_ != nullptr && !erased_);
      return Table::slots(array_)[slot_];
   }

   void arrived() noexcept {
      if (slot_ == array_->slotCount) {
         drop();
      } else {
         prefetchAhead();
      }
   }

   /// Prefetches the object behind the same slot's pointer of the next block, so that a walk over
   /// scattered objects does not wait for each.
   void prefetchAhead() const noexcept {
      if constexpr (Impl::PointsToObject<std::remove_cvref_t<decltype(value())>>) {
         U32 const ahead = slot_ + Impl::TagWindow::width;
         if (ahead < array_->slotCount && array_->tags()[ahead] != 0) {
            Impl::prefetchObject(Table::PolicyType::valueOf(Table::slots(array_)[ahead]));
         }
      }
   }

   void keepKey(Key&& key) noexcept {
      std::construct_at(&key_, std::move(key));
      markErased();
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
         std::construct_at(&key_, other.key_);
         erased_ = true;
      }
      if (other.array_ != nullptr) {
         attach(other.array_);
      }
      slot_ = other.slot_;
      place_ = other.place_;
      version_ = other.version_;
      rest_ = other.rest_;
      restCount_ = other.restCount_;
      restKnown_ = other.restKnown_;
      restOutlivesRemoval_ = other.restOutlivesRemoval_;
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

   /// The key of the current element, once that has been erased.
   union {
      Key key_;
   };
};

}  // namespace Kiv
