#pragma once

#include <cassert>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Kiv/Map/Array.h"
#include "Kiv/Map/Iterator.h"
#include "Kiv/Map/TableHash.h"
#include "Kiv/Map/UnsafeIterator.h"

namespace Kiv::Impl {

/// The hash table of the hash maps and the hash set; `Kiv/Map/Array.h` shows its memory. The table
/// itself is one pointer, null until the first insertion.
///
/// `Policy` says what lies in a slot:
///
///     using Slot = ...;                         what is stored, such as key and value
///     using Key = ...;
///     static constexpr U32 seedConstant;        makes this collection's hashes differ from others
///     static Key const& keyOf(Slot const&);     or Key
///     static Value const& valueOf(Slot const&);  what iterators show as the value
///
/// Invalidation: any insertion, removal or reservation may move elements, which invalidates
/// pointers to them; checked iterators follow. Replacing a value in place moves nothing.
///
/// Time: every operation on one element is amortised O(1), in whatever order elements come and go,
/// as long as the hashes of the keys differ. It may take longer only if elements are removed in the
/// table's own order and others inserted while a checked iterator exists.
///
/// Threads: a table belongs to one thread; several may read it by `find` and by unsafe iterators
/// while none changes it. Elements must move without exceptions; if a copy or an allocation
/// throws, the table is as it was. A removal never fails: without memory for a smaller array, the
/// table keeps the one it has.
template <class Policy>
class HashTable {
public:
   using Slot = typename Policy::Slot;
   using Key = typename Policy::Key;
   using Value = std::remove_cvref_t<decltype(Policy::valueOf(std::declval<Slot const&>()))>;
   using PolicyType = Policy;
   /// A reference to the key, or the key itself where it is made by the key functor.
   using KeyResult = decltype(Policy::keyOf(std::declval<Slot const&>()));
   /// What lookups take: see `Kiv::LookupKey`.
   using LookupKey = Kiv::LookupKey<Key>;
   using Iterator = HashMap2018Iterator<HashTable>;
   using UnsafeIterator = HashMap2018UnsafeIteratorConstGeneric<HashTable>;

   HashTable() noexcept = default;
   HashTable(HashTable const&) = delete;
   HashTable& operator=(HashTable const&) = delete;
   HashTable(HashTable&& other) noexcept : array_(std::exchange(other.array_, nullptr)) {}
   HashTable& operator=(HashTable&& other) noexcept {
      if (this != &other) {
         clear();
         array_ = std::exchange(other.array_, nullptr);
      }
      return *this;
   }
   ~HashTable() { clear(); }

   U32 size() const noexcept { return array_ != nullptr ? array_->count : 0; }
   bool empty() const noexcept { return size() == 0; }
   bool has(LookupKey key) const { return findSlot(key) != nullptr; }

   /// Changes with every structural change; the same version means that no element was inserted,
   /// removed or moved.
   U64 version() const noexcept { return array_ != nullptr ? array_->version : 0; }

   /// Makes room for `count` elements in all, so that no insertion up to that size allocates. A
   /// later removal may release the room.
   void reserve(std::size_t count) {
      if (count > (array_ != nullptr ? array_->limit : 0)) {
         rebuild(HashSizeStep::forCount(count));
      }
   }

   /// Removes every element, and gives the memory back. The elements are destroyed after they have
   /// left the table: what their destructors see of it is empty.
   void clear() noexcept;

   /// Bytes of the bucket array, for measurements.
   std::size_t memoryUsed() const noexcept {
      return array_ == nullptr
                   ? 0
                   : BucketArray::blockSize(array_->slotCount, sizeof(Slot), alignof(Slot));
   }

   /// The checked iterator: survives every change of the table (see there).
   Iterator iterator() const { return Iterator(array_, array_ != nullptr ? array_->front() : 0); }
   /// A checked iterator at the element of `key`, or at the end.
   Iterator iteratorAt(LookupKey key) const {
      Slot const* const slot = findSlot(key);
      return slot != nullptr ? Iterator(array_, slotIndex(slot)) : Iterator();
   }

   /// The fast iterator of range-for: the table must not change structurally meanwhile.
   UnsafeIterator begin() const noexcept { return UnsafeIterator(*this); }
   std::default_sentinel_t end() const noexcept { return {}; }

protected:
   Slot* findSlot(LookupKey key) const {
      return array_ != nullptr ? findSlot(key, hashOf(key, array_->seed)) : nullptr;
   }
   Slot* findSlot(LookupKey key, U64 hash) const;
   [[gnu::noinline]] Slot* findFurther(LookupKey key, U64 hash, std::size_t home, U32 match) const;

   /// Finds the slot of `key`, or makes one from `make(void*)`, which constructs a `Slot` of that
   /// key. The key may be a reference into this table, and so may what `make` reads.
   template <class Make>
   std::pair<Slot*, bool> insertSlot(LookupKey key, Make&& make);

   /// Removes the element from the table, after `take(Slot&)` has moved its contents out.
   template <class Take>
   void eraseSlot(Slot* slot, Take&& take);

   Slot* slotOf(Iterator const& it) const noexcept {
      assert(it.array_ == array_ && !it.erased_);
      return slots(array_) + it.slot_;
   }

private:
   friend Iterator;
   friend UnsafeIterator;

   static Slot* slots(BucketArray* array) noexcept {
      return reinterpret_cast<Slot*>(array->slotBase);
   }
   U32 slotIndex(Slot const* slot) const noexcept { return static_cast<U32>(slot - slots(array_)); }
   static AllocTrackTypeInfo& tracker() noexcept {
      return allocTrackerOf<typename Policy::Collection>;
   }
   static U32 newSeed() noexcept { return HashHelper::hashSeed32() ^ Policy::seedConstant; }
   static U64 hashOf(LookupKey key, U32 seed) {
      return tableHash<std::remove_cvref_t<LookupKey>>(seed, key);
   }
   static void releaseArray(BucketArray* array) noexcept {
      array->release(tracker(), sizeof(Slot), alignof(Slot));
   }
   static void eachIterator(BucketArray* array, auto&& visit) {
      for (HashIteratorBase* it = array->iterators; it != nullptr; it = it->nextOnArray_) {
         visit(static_cast<Iterator&>(*it));
      }
   }

   BucketArray* makeNext(HashSizeStep step, U32 slots) const {
      return array_->createNext(tracker(), step, slots, sizeof(Slot), alignof(Slot));
   }
   struct SlotMover;
   void rebuild(HashSizeStep step, U32 slotsWanted = 0);
   void keepKeyOf(U32 slot, HashIteratorBase* at);
   [[gnu::noinline]] void reorder(HashSizeStep step);
   [[gnu::noinline]] void shrink() noexcept;
   [[gnu::noinline]] void moveIterators(BucketArray* from, U32 fromSlot, BucketArray* to,
                                        U32 toSlot) noexcept;
   void becomeNext(BucketArray* made) noexcept;
   U32 openSlot(U64 hash);
   U32 closeSlot(U32 slot) noexcept;
   template <class Make>
   [[gnu::noinline]] std::pair<Slot*, bool> insertFurther(U64 hash, Make& make);
   [[gnu::always_inline]] void occupy(U32 index, U64 hash, U32 place) noexcept;
   static U32 slotFor(BucketArray* array, U32 place, U32 free) noexcept;
   [[gnu::noinline]] U32 fillBlock(U32 vacant) noexcept;
   static void moveByOne(BucketArray* array, U32 to, U32 from) noexcept;
   static void moveInBlock(BucketArray* array, U32 to, U32 from) noexcept;
   static void finishMove(BucketArray* array, U32 to, U32 from) noexcept;

   BucketArray* array_ = nullptr;
};

/// Nearly every lookup ends in the first window: at the first slot with an equal tag, or because no
/// tag is equal. Only that part is inlined.
template <class Policy>
inline auto HashTable<Policy>::findSlot(LookupKey key, U64 hash) const -> Slot* {
   BucketArray* const array = array_;
   std::size_t const home = array->home(array->placeOf(hash));
   TagWindow const window(array->tags() + home);
   U32 const match = window.matchTagOf(hash);
   if (match != 0) {
      Slot* const candidate = slots(array) + (home + lowestBit(match));
      if (Policy::keyOf(*candidate) == key) [[likely]] {
         return candidate;
      }
   } else if (window.free() != 0) [[likely]] {
      return nullptr;
   }
   return findFurther(key, hash, home, match & (match - 1));
}

}  // namespace Kiv::Impl

#include "Kiv/Map/Displace.h"
#include "Kiv/Map/Rebuild.h"
#include "Kiv/Map/TableImpl.h"
