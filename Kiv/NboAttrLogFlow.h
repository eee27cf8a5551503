#pragma once

#include <array>
#include <memory>
#include <vector>

#include "Kiv/AttrOps.h"

namespace Kiv::NboAttrLog {

/// What one connection has still to be sent for one entity: a flag for each attribute, the dirty
/// keys of each collection, how far each queue was sent, and where a replay stopped.
///
/// It is made when a connection cannot take a change, or to replay an entity in full, and freed
/// when everything has been sent. Its size depends on the numbers of attributes and dirty keys, not
/// on that of changes.
///
///     dirty  | 258 259 260 ...      one bit per attribute
///     synced | 258 259 260 ...      written at least once by this object
///     collections: id -> set of dirty keys        queues: id -> first sequence not sent
///
/// For a collection with too many dirty keys to remember, only `whole` is set: it is replayed from
/// its first element to its last, and what the replay does not name is removed from the mirror.
///
///     keys ---- too many ----> whole ---- begun ----> in progress ---- end ----> sent
///                                ^                     |  keys changed from here on are collected
///                                '---- end ---- again <'  and sent after it, unless too many
class FlowOut {
public:
   /// `replayAll`: every streamed attribute is dirty; collections are replayed in full.
   FlowOut(Entity& entity, bool replayAll) { reset(entity, replayAll); }
   ~FlowOut();
   FlowOut(FlowOut const&) = delete;
   FlowOut& operator=(FlowOut const&) = delete;

   /// Starts again for another entity; keeps the memory.
   void reset(Entity& entity, bool replayAll);

   Entity& entity() const noexcept { return *entity_; }

   void kivIsDirtyIs(AttributeId id, bool dirty) { dirty_.set(place(id), dirty); }
   bool kivIsDirty(AttributeId id) const { return dirty_.get(place(id)); }
   void kivHasSyncedIs(AttributeId id, bool synced) { synced_.set(place(id), synced); }
   bool kivHasSynced(AttributeId id) const { return synced_.get(place(id)); }
   /// The attribute has been sent.
   void told(AttributeId id) {
      U32 const at = place(id);
      dirty_.set(at, false);
      synced_.set(at, true);
   }

   // Many attributes at once: flags in words of 64, in the order of their places. The members of a
   // type, or of one of its bases, have successive places.

   /// The place of the first own member of the entity's type, or of one of its bases.
   U32 placeOf(TypeImpl const& type) const noexcept { return place(type.firstId); }
   U64 dirtyWord(U32 word) const { return dirty_.word(word); }
   /// The attributes in `word` whose bits are set have been sent, collections in full.
   void wordIsTold(U32 word, U64 bits) {
      dirty_.word(word) &= ~bits;
      whole_.word(word) &= ~bits;
      erased_.word(word) &= ~bits;
      synced_.word(word) |= bits;
   }
   /// Whether a collection without elements is replayed in full by emptying it: its replay has not
   /// begun, and nothing remains to be sent of it afterwards.
   bool emptiesAtOnce(U32 place) const {
      return whole_.get(place) && !again_.get(place) && iterator_ == nullptr &&
             collections_.empty();
   }

   /// Whether individual keys of the collection are dirty.
   bool hasDirtyCollKeys(AttributeId id) const noexcept;
   /// Whether the collection is to be replayed in full.
   bool wholeCollection(AttributeId id) const { return whole_.get(place(id)); }
   void wholeCollectionIs(AttributeId id, bool whole) { whole_.set(place(id), whole); }
   /// Forgets the collection's dirty keys and has it replayed in full; once more if a replay is in
   /// progress.
   void replayWhole(AttributeId id);
   /// Whether a full replay is still to begin, so that no key of the collection need be remembered.
   bool wholeWillBegin(AttributeId id) const {
      return again_.get(place(id)) || (wholeCollection(id) && !isReplaying(id));
   }
   /// The collection has been replayed in full. What has changed meanwhile stays dirty.
   void wholeIsTold(AttributeId id);
   /// The dirty keys of a collection. If there is no set yet, makes one if `create`, else returns
   /// null.
   DirtyKeys* dirtyKeys(FieldDescriptor const& field, bool create);
   /// The sequence of a queue's first element that was not sent; set to `next` if there is none
   /// yet.
   U32& toldSequence(AttributeId id, U32 next);
   bool queueIsKnown(AttributeId id) const noexcept;
   /// Whether a singleton child was removed since the attribute was last sent.
   bool erased(AttributeId id) const { return erased_.get(place(id)); }
   void erasedIs(AttributeId id, bool erased) { erased_.set(place(id), erased); }

   /// Whether anything is dirty.
   bool dirty() const noexcept { return dirty_.any(); }
   /// How many attributes are dirty, and how many keys of collections.
   std::size_t dirtyAttributes() const noexcept { return dirty_.count(); }
   std::size_t dirtyCollKeys() const noexcept;

   /// Whether the replay of the collection has begun, and has not ended.
   bool isReplaying(AttributeId id) const noexcept {
      return iterator_ != nullptr && iterating_ == id;
   }
   /// Sets where a replay stopped: the attribute to resume at. REQUIRES: there is no bookmark.
   void kivFlowOutBookmarkEnq(AttributeId id);
   /// Takes the bookmark out; 0 if there is none.
   AttributeId kivFlowOutBookmarkDeq() noexcept;
   AttributeId bookmark() const noexcept { return bookmark_; }
   /// The iterator of the collection at the bookmark, and its storage.
   CollectionIterator* resyncIterator() const noexcept { return iterator_; }
   CollectionIterator* resyncIteratorIs(FieldDescriptor const& field);
   /// Ends the replay of a collection.
   void freeResyncState() noexcept;

   // The connection's list of these, oldest first.
   FlowOut* next = nullptr;
   FlowOut* previous = nullptr;
   U64 sequence = 0;
   U32 handle = 0;
   bool queued = false;

private:
   /// A flag for each attribute; two words suffice for most types.
   class Bits {
   public:
      Bits() = default;
      Bits(Bits const&) = delete;
      Bits& operator=(Bits const& other) {
         if (this == &other) {
            return *this;
         }
         if (!other.more_.empty() || !more_.empty()) [[unlikely]] {
            more_ = other.more_;
            words_ = more_.empty() ? few_.data() : more_.data();
         }
         few_ = other.few_;
         return *this;
      }
      void reset(std::size_t count) {
         few_ = {};
         if (count > 64 * few_.size() || !more_.empty()) [[unlikely]] {
            more_.assign(count > 64 * few_.size() ? (count + 63) / 64 : 0, 0);
            words_ = more_.empty() ? few_.data() : more_.data();
         }
      }
      U64& word(U32 at) { return words_[at]; }
      U64 word(U32 at) const { return words_[at]; }
      bool get(U32 place) const { return (word(place / 64) >> place % 64 & 1) != 0; }
      void set(U32 place, bool value) {
         U64 const bit = U64(1) << place % 64;
         U64& flags = word(place / 64);
         flags = value ? flags | bit : flags & ~bit;
      }
      bool any() const noexcept;
      std::size_t count() const noexcept;

   private:
      std::array<U64, 2> few_{};
      std::vector<U64> more_;
      /// Those of `few_` or of `more_`.
      U64* words_ = few_.data();
   };
   struct Collection {
      AttributeId id;
      std::unique_ptr<DirtyKeys> keys;
   };
   struct Queue {
      AttributeId id;
      U32 told;
   };

   U32 place(AttributeId id) const noexcept {
      return plain_ ? static_cast<U32>(id - firstId_) : placeInDerived(id);
   }
   U32 placeInDerived(AttributeId id) const noexcept;
   void typeIs(TypeImpl const& type);

   Entity* entity_ = nullptr;
   TypeImpl const* type_ = nullptr;
   /// For a type without a base (`plain_`), whose flags are in the order of its ids.
   AttributeId firstId_ = 0;
   bool plain_ = false;
   U32 count_ = 0;
   /// The attributes that a full replay sends.
   Bits streamed_;
   Bits dirty_;
   Bits synced_;
   Bits whole_;
   /// To be replayed once more when the replay in progress has ended.
   Bits again_;
   Bits erased_;
   std::vector<Collection> collections_;
   std::vector<Queue> queues_;
   CollectionIterator* iterator_ = nullptr;
   AttributeId iterating_ = 0;
   IteratorStorage storage_;
   AttributeId bookmark_ = 0;
};

}  // namespace Kiv::NboAttrLog
