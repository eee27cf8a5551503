#include "Kiv/Log/RootWatcher.h"

#include <algorithm>

#include "Kiv/Log/Tell.h"
#include "Kiv/Log/Teller.h"
#include "Sarn/Publications.h"

namespace Kiv::NboAttrLog {

RootWatcher::RootWatcher(Handles& handles, Applying const& applying, Ring& ring,
                         Sarn::Ptr<NamedEntity> root)
      : Source(ring), handles_(handles), applying_(applying), root_(std::move(root)) {
   atOnceIs(false);
   root_->observerAddFirst(*this);
}

RootWatcher::~RootWatcher() {
   root_->observerDel(*this, Scope::subtree);
}

// Who is told

void RootWatcher::reserve(Teller& teller) {
   subscribers_.reserve(subscribers_.size() + 1);
   teller.cursor().reserve();
}

void RootWatcher::subscribe(Teller& teller) {
   teller.cursor().add(*this);
   subscribers_.push_back(&teller);
   std::swap(subscribers_.back(), subscribers_[apart_]);
   apartIs(apart_ + 1);
}

void RootWatcher::unsubscribe(Teller& teller) noexcept {
   teller.cursor().remove(*this);
   auto const at = std::find(subscribers_.begin(), subscribers_.end(), &teller);
   if (at != subscribers_.end()) {
      subscribers_.erase(at);
      apartIs(apart_ - 1);
   }
}

bool RootWatcher::hasSubscriber(Teller const& teller) const noexcept {
   return std::find(subscribers_.begin(), subscribers_.end(), &teller) != subscribers_.end();
}

void RootWatcher::onFollows(Cursor& cursor) noexcept {
   auto const end = subscribers_.begin() + static_cast<std::ptrdiff_t>(apart_);
   auto const at = std::find_if(subscribers_.begin(), end,
                                [&](Teller* teller) { return &teller->cursor() == &cursor; });
   std::swap(*at, subscribers_[apart_ - 1]);
   apartIs(apart_ - 1);
}

void RootWatcher::onLeft(Cursor& cursor) noexcept {
   auto const begin = subscribers_.begin() + static_cast<std::ptrdiff_t>(apart_);
   auto const at = std::find_if(begin, subscribers_.end(),
                                [&](Teller* teller) { return &teller->cursor() == &cursor; });
   std::swap(*at, subscribers_[apart_]);
   apartIs(apart_ + 1);
}

void RootWatcher::apartIs(std::size_t apart) noexcept {
   apart_ = apart;
   atOnceIs(apart == 0 && !subscribers_.empty());
}

/// Whether those who follow have been sent the entity; all have, or none.
bool RootWatcher::followersKnow(Entity const& entity) const noexcept {
   return subscribers_.back()->names().introduced(entity.streamHandle());
}

/// What the ring cannot take is told to each session by itself.
void RootWatcher::dismissFollowers() noexcept {
   while (anyFollow()) {
      subscribers_.back()->cursor().leave();
   }
}

void RootWatcher::onChange(Change const& change) {
   Entity& entity = entityOf(change);
   if (entity.streamHandle() == 0) {
      return;
   }
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      return;
   }
   Teller* const from = applying_.teller != nullptr ? madeBy(change) : nullptr;
   // Changes of a queue build on each other, so `Inbound` itself decides what it must send back.
   bool const skips =
         from != nullptr && (field->kind == MemberKind::queue || !from->mustEcho(*this));
   Teller* const skipped = skips ? from : nullptr;
   if (field->kind == MemberKind::single) {
      onValue(entity, *field, skipped);
   } else {
      onOther(entity, *field, change, from, skipped);
   }
}

Teller* RootWatcher::madeBy(Change const& change) const noexcept {
   bool const direct = Sarn::Publications::around(change) == applying_.inside;
   return direct ? applying_.teller : nullptr;
}

// What they are told

/// Encodes the value once, and copies it for those who do not follow.
void RootWatcher::onValue(Entity& entity, FieldDescriptor const& field, Teller const* skipped) {
   std::size_t const size = valueSize(entity, field);
   U8 const* encoded =
         anyFollow() && followersKnow(entity) ? writeValue(entity, field, size) : nullptr;
   for (std::size_t i = 0; i != apart_; ++i) {
      Teller* const teller = subscribers_[i];
      if (!teller->closed() && teller != skipped) {
         teller->orFail([&] { encoded = teller->tellValue(entity, field, size, encoded); });
      }
   }
}

/// The value's message in the ring; null if the ring cannot take it.
U8 const* RootWatcher::writeValue(Entity const& entity, FieldDescriptor const& field,
                                  std::size_t size) {
   U8 const* message = nullptr;
   if (!write(Opcode::set, size, entity.streamHandle(), field.fieldId, [&](Out& out) {
          message = out.at() - headerSize;
          field.ops->encode(entity, out);
       })) {
      dismissFollowers();
   }
   return message;
}

void RootWatcher::onOther(Entity& entity, FieldDescriptor const& field, Change const& change,
                          Teller* from, Teller* skipped) {
   Entity* const removed = removedChild(field, change);
   Entity* const present = holdsEntities(field) ? presentChild(entity, field, change.key) : nullptr;
   if (present != nullptr) {
      registerPresent(*present);
      if (skipped != nullptr) {
         skipped->orFail([&] { skipped->childIsMade(*present); });
      }
   } else if (holdsEntities(field) && from != nullptr && change.oldValue == nullptr) {
      from->orFail([&] { from->tellVanished(entity, field, change.key); });
   }
   bool const isNew = present != nullptr && anyFollow() && !followersKnow(*present);
   if (anyFollow() && followersKnow(entity)) {
      tellFollowers(entity, field, change.key, removed);
   }
   for (std::size_t i = 0; i != apart_; ++i) {
      Teller* const teller = subscribers_[i];
      if (!teller->closed() && teller != skipped) {
         teller->orFail([&] { teller->tellOther(entity, field, change.key, removed); });
      }
   }
   if (isNew) {
      tellWithin(*present);
   }
   if (removed != nullptr) {
      handles_.unregisterTree(*removed);
      handles_.unregisterUntold();
   }
}

/// Those who follow the ring, as those who are told of a change.
class RootWatcher::Followers {
public:
   explicit Followers(RootWatcher& watcher) noexcept
         : watcher_(watcher), encoder_(watcher, 0, nullptr) {}
   ChangeEncoder<Ring::Source>& encoder() noexcept { return encoder_; }
   bool has(Entity const& child) const noexcept {
      return watcher_.anyFollow() && watcher_.followersKnow(child);
   }
   bool introduce(Entity& entity, FieldDescriptor const& field, Entity& child) {
      if (child.streamHandle() == 0 || !encoder_.create(entity, field, child)) {
         return false;
      }
      for (std::size_t i = watcher_.apart_; i != watcher_.subscribers_.size(); ++i) {
         Teller& teller = *watcher_.subscribers_[i];
         teller.orFail([&] { teller.names().introducedIs(child.streamHandle(), true); });
      }
      return true;
   }
   static bool restart(Entity&, FieldDescriptor const&) noexcept { return false; }

private:
   RootWatcher& watcher_;
   ChangeEncoder<Ring::Source> encoder_;
};

void RootWatcher::tellFollowers(Entity& entity, FieldDescriptor const& field, void const* key,
                                Entity* removed) noexcept {
   bool erased = removed != nullptr && removed->streamHandle() != 0 && followersKnow(*removed) &&
                 !isReplaced(entity, field, *removed);
   bool told = false;
   try {
      told = NboAttrLog::tellOther(Followers(*this), entity, field, key, erased);
   } catch (std::bad_alloc const&) {  // then each of them finds out by itself
   }
   if (!told) {
      dismissFollowers();
   }
}

/// Sends those who follow what a new child contains: by a walk, for which each of them leaves.
void RootWatcher::tellWithin(Entity& child) {
   bool any = false;
   forEachChild(child, [&any](Entity&, FieldDescriptor const&, void const*) { any = true; });
   for (std::size_t i = apart_; any && i < subscribers_.size(); i = std::max(i + 1, apart_)) {
      Teller& teller = *subscribers_[i];
      teller.orFail([&] { teller.tellWithin(child); });
   }
}

/// Gives a new child a handle. The setter has done its work, and a mirror without the child would
/// stay wrong: if there is no handle left, the sessions end.
void RootWatcher::registerPresent(Entity& child) noexcept {
   Sarn::String reason = outOfMemory();
   try {
      if (handles_.registerTree(child)) {
         return;
      }
      reason = handles_.tooMany();
   } catch (std::bad_alloc const&) {  // `reason` says so already
   }
   dismissFollowers();
   for (Teller* const teller : subscribers_) {
      teller->fail(copyOrOutOfMemory(reason));
   }
}

U8* RootWatcher::roomFor(AttributeId id, std::size_t size, Sarn::Publisher const& source) noexcept {
   auto const& entity = static_cast<Entity const&>(source);
   // No publication is running, so those who follow know every entity that has a handle.
   if (U32 const handle = entity.streamHandle()) [[likely]] {
      if (U8* const room = writeAtOnce(Opcode::set, size, handle, id)) [[likely]] {
         return room;
      }
   }
   return roomForOne(entity, id, size);
}

U8* RootWatcher::roomForOne(Entity const& entity, AttributeId id, std::size_t size) noexcept {
   return apart_ == 1 && subscribers_.size() == 1 && applying_.teller == nullptr
                ? subscribers_.front()->roomFor(entity, id, size)
                : nullptr;
}

}  // namespace Kiv::NboAttrLog
