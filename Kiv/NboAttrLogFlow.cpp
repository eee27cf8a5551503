#include "Kiv/NboAttrLogFlow.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "Sarn/Util.h"

namespace Kiv::NboAttrLog {

bool FlowOut::Bits::any() const noexcept {
   if (more_.empty()) {
      return (few_[0] | few_[1]) != 0;
   }
   return std::any_of(more_.begin(), more_.end(), [](U64 word) { return word != 0; });
}

std::size_t FlowOut::Bits::count() const noexcept {
   int count = std::popcount(few_[0]) + std::popcount(few_[1]);
   for (U64 const word : more_) {
      count += std::popcount(word);
   }
   return static_cast<std::size_t>(count);
}

FlowOut::~FlowOut() {
   freeResyncState();
}

void FlowOut::typeIs(TypeImpl const& type) {
   type_ = &type;
   firstId_ = type.firstId;
   plain_ = type.base == nullptr;
   count_ = 0;
   for (TypeImpl const* at = &type; at != nullptr; at = at->base) {
      count_ += at->rowCount;
   }
   streamed_.reset(count_);
   forEachField(type, [&](FieldDescriptor const& field) {
      if (field.has(FieldDescriptor::streamed)) {
         streamed_.set(place(field.fieldId), true);
      }
   });
}

void FlowOut::reset(Entity& entity, bool replayAll) {
   freeResyncState();
   entity_ = &entity;
   handle = entity.streamHandle();
   if (type_ != &entity.kivType()) {
      typeIs(entity.kivType());
   }
   synced_.reset(count_);
   erased_.reset(count_);
   again_.reset(count_);
   if (replayAll) {
      dirty_ = streamed_;
      whole_ = streamed_;
   } else {
      dirty_.reset(count_);
      whole_.reset(count_);
   }
   collections_.clear();
   queues_.clear();
   bookmark_ = 0;
}

U32 FlowOut::placeInDerived(AttributeId id) const noexcept {
   // Own members last: a derived type's flags follow those of its base.
   TypeImpl const* type = type_;
   while (id < type->firstId && type->base != nullptr) {
      type = type->base;
   }
   U32 place = static_cast<U32>(id - type->firstId);
   for (TypeImpl const* base = type->base; base != nullptr; base = base->base) {
      place += base->rowCount;
   }
   return place;
}

bool FlowOut::hasDirtyCollKeys(AttributeId id) const noexcept {
   return std::any_of(collections_.begin(), collections_.end(),
                      [id](Collection const& c) { return c.id == id && c.keys->size() != 0; });
}

DirtyKeys* FlowOut::dirtyKeys(FieldDescriptor const& field, bool create) {
   for (Collection const& collection : collections_) {
      if (collection.id == field.fieldId) {
         return collection.keys.get();
      }
   }
   if (!create) {
      return nullptr;
   }
   collections_.push_back(
         {field.fieldId, std::unique_ptr<DirtyKeys>(field.ops->collection->newDirtyKeys())});
   return collections_.back().keys.get();
}

void FlowOut::replayWhole(AttributeId id) {
   std::erase_if(collections_, [id](Collection const& c) { return c.id == id; });
   again_.set(place(id), isReplaying(id));
   whole_.set(place(id), true);
   dirty_.set(place(id), true);
}

void FlowOut::wholeIsTold(AttributeId id) {
   bool const again = again_.get(place(id));
   again_.set(place(id), false);
   whole_.set(place(id), again);
   dirty_.set(place(id), again || hasDirtyCollKeys(id));
   synced_.set(place(id), true);
}

std::size_t FlowOut::dirtyCollKeys() const noexcept {
   std::size_t count = 0;
   for (Collection const& collection : collections_) {
      count += collection.keys->size();
   }
   return count;
}

bool FlowOut::queueIsKnown(AttributeId id) const noexcept {
   return std::any_of(queues_.begin(), queues_.end(), [id](Queue const& q) { return q.id == id; });
}

U32& FlowOut::toldSequence(AttributeId id, U32 next_) {
   for (Queue& queue : queues_) {
      if (queue.id == id) {
         return queue.told;
      }
   }
   queues_.push_back({id, next_});
   return queues_.back().told;
}

void FlowOut::kivFlowOutBookmarkEnq(AttributeId id) {
   FlowOut const* const rsc = this;
   SARN_CHECK(!rsc->bookmark());
   bookmark_ = id;
}

AttributeId FlowOut::kivFlowOutBookmarkDeq() noexcept {
   return std::exchange(bookmark_, AttributeId(0));
}

CollectionIterator* FlowOut::resyncIteratorIs(FieldDescriptor const& field) {
   freeResyncState();
   iterator_ = field.ops->collection->iterator(*entity_, storage_);
   iterating_ = field.fieldId;
   return iterator_;
}

void FlowOut::freeResyncState() noexcept {
   if (iterator_ != nullptr) {
      iterator_->~CollectionIterator();
      iterator_ = nullptr;
   }
}

}  // namespace Kiv::NboAttrLog
