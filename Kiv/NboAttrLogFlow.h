#pragma once

#include <memory>
#include <vector>

#include "Kiv/AttrOps.h"

namespace Kiv::NboAttrLog {

/// What one connection has still to be told of one entity: a flag for each attribute, the dirty
/// keys of each collection, how far each queue was told, and where a replay stopped.
///
/// Made when a change meets a connection that cannot take it, or to replay an entity whole; gone
/// when everything has been told. Its size does not depend on the number of changes.
///
///     dirty  | 258 259 260 ...      one bit an attribute
///     synced | 258 259 260 ...      written at least once by this object
///     collections: id -> set of dirty keys        queues: id -> first sequence not told
///
/// Of a collection whose keys are too many to remember, only `whole` is set: it is replayed from
/// its first element to its last, and what the replay does not name is removed from the mirror.
///
///     keys ---- too many ----> whole ---- begun ----> under way ---- end ----> told
///                                ^                     |  keys changed from here on are collected
///                                '---- end ---- again <'  and told after it, unless too many
class FlowOut {
public:
   /// `replayAll`: every streamed attribute is dirty, collections with all their keys.
   FlowOut(Entity& entity, bool replayAll) { reset(entity, replayAll); }
   ~FlowOut();
   FlowOut(FlowOut const&) = delete;
   FlowOut& operator=(FlowOut const&) = delete;

   /// Starts anew, for another entity; keeps the room.
   void reset(Entity& entity, bool replayAll);

   Entity& entity() const noexcept { return *entity_; }

   void kivIsDirtyIs(AttributeId id, bool dirty) { dirty_.set(place(id), dirty); }
   bool kivIsDirty(AttributeId id) const { return dirty_.get(place(id)); }
   void kivHasSyncedIs(AttributeId id, bool synced) { synced_.set(place(id), synced); }
   bool kivHasSynced(AttributeId id) const { return synced_.get(place(id)); }
   /// The reader has been told of the attribute.
   void told(AttributeId id) {
      U32 const at = place(id);
      dirty_.set(at, false);
      synced_.set(at, true);
   }
   /// Whether single keys of the collection are dirty.
   bool hasDirtyCollKeys(AttributeId id) const noexcept;
   /// Whether the collection is to be replayed whole.
   bool wholeCollection(AttributeId id) const { return whole_.get(place(id)); }
   void wholeCollectionIs(AttributeId id, bool whole) { whole_.set(place(id), whole); }
   /// Forgets the collection's dirty keys and has it replayed whole, once more if that is under
   /// way.
   void replayWhole(AttributeId id);
   /// Whether a whole replay is still to begin, so that no key of the collection need be
   /// remembered.
   bool wholeWillBegin(AttributeId id) const {
      return again_.get(place(id)) || (wholeCollection(id) && !isReplaying(id));
   }
   /// The collection has been replayed whole. What has changed meanwhile stays dirty.
   void wholeIsTold(AttributeId id);
   /// The dirty keys of a collection; made when `create`, else null if there are none.
   DirtyKeys* dirtyKeys(FieldDescriptor const& field, bool create);
   /// The first sequence of a queue that the reader was not told; made with `next` if there is
   /// none.
   U32& toldSequence(AttributeId id, U32 next);
   bool queueIsKnown(AttributeId id) const noexcept;
   /// Whether a singleton child was removed since the reader was last told.
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
   /// Where a replay stopped: the attribute to go on with. A second one must not be set.
   void kivFlowOutBookmarkEnq(AttributeId id);
   /// Takes the bookmark back; 0 if there is none.
   AttributeId kivFlowOutBookmarkDeq() noexcept;
   AttributeId bookmark() const noexcept { return bookmark_; }
   /// The iterator of the collection at the bookmark, and room for it.
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
   /// A flag for each attribute; two words reach for most types.
   class Bits {
   public:
      void reset(std::size_t count);
      bool get(U32 place) const { return (words()[place / 64] >> place % 64 & 1) != 0; }
      void set(U32 place, bool value) {
         U64 const bit = U64(1) << place % 64;
         U64& word = words()[place / 64];
         word = value ? word | bit : word & ~bit;
      }
      bool any() const noexcept;
      std::size_t count() const noexcept;

   private:
      U64* words() noexcept { return more_.empty() ? few_ : more_.data(); }
      U64 const* words() const noexcept { return more_.empty() ? few_ : more_.data(); }

      U64 few_[2] = {0, 0};
      std::vector<U64> more_;
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
   /// Of a type that is not derived from another, whose flags lie in the order of its ids.
   AttributeId firstId_ = 0;
   bool plain_ = false;
   U32 count_ = 0;
   /// What a whole replay has to tell.
   Bits streamed_;
   Bits dirty_;
   Bits synced_;
   Bits whole_;
   /// To be replayed once more when the replay that is under way has ended.
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
