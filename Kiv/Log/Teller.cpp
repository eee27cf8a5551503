#include "Kiv/Log/Teller.h"

#include "Kiv/Log/Tell.h"
#include "Sarn/Publications.h"

namespace Kiv::NboAttrLog {

Teller::Teller(Session& session, Hub& hub, Limits const& limits, ByteBudget& budget,
               Clock const& clock, Ring& ring, Handles& handles, Closing& closing, Mounts& mounts,
               OpenCollections& open)
      : closing_(closing),
        mounts_(mounts),
        open_(open),
        outbox_(limits, budget, clock, ring, closing),
        names_(limits.entities, mounts, open),
        encoder_(limits, handles, closing, outbox_, names_, crossing_, leftOut_),
        backlog_(limits, handles, closing, outbox_, names_, mounts),
        replies_(session, hub, outbox_, backlog_, mounts),
        walk_(session, *this, limits, handles, closing, outbox_, names_, encoder_, backlog_,
              replies_, mounts),
        digestAnswers_(*this, limits, handles, mounts),
        comparison_(*this, limits, handles),
        denied_(*this, handles, mounts) {}

void Teller::tell(Entity& entity, FieldDescriptor const& field, Change const& change) {
   if (field.kind == MemberKind::single) {
      tellValue(entity, field, valueSize(entity, field), nullptr);
   } else {
      tellOther(entity, field, change.key, removedChild(field, change));
   }
}

/// This session, as those who are told of a change.
class Teller::Alone {
public:
   explicit Alone(Teller& teller) noexcept : teller_(teller) {}
   Encoder& encoder() noexcept { return teller_.encoder_; }
   bool has(Entity const& child) const noexcept { return teller_.names_.peerHas(child); }
   bool introduce(Entity& entity, FieldDescriptor const& field, Entity& child) {
      if (!teller_.encoder_.introduce(entity, field, child)) {
         return false;
      }
      teller_.tellWithin(child);
      return true;
   }
   bool restart(Entity& entity, FieldDescriptor const& field) {
      teller_.backlog_.markWhole(entity, field);
      teller_.walk_.fill();
      return true;
   }

private:
   Teller& teller_;
};

void Teller::tellOther(Entity& entity, FieldDescriptor const& field, void const* key,
                       Entity* removed) {
   open_.changed(entity, field, key);
   if (isLacking(entity, field)) {
      return;
   }
   bool erased =
         removed != nullptr && names_.known(*removed) && !isReplaced(entity, field, *removed);
   if (!live() || !reach(entity) ||
       !NboAttrLog::tellOther(Alone(*this), entity, field, key, erased)) {
      backlog_.mark(entity, field, key, erased);
   }
}

// A peer with other types.

PeerTypes& Teller::peerTypesIs() {
   if (peerTypes_ == nullptr) {
      peerTypes_ = std::make_unique<PeerTypes>();
      encoder_.peerTypesAre(*peerTypes_);
      cursor().leave();
   }
   return *peerTypes_;
}

bool Teller::notesLacking(Entity const& entity, FieldDescriptor const& field) {
   // Whoever writes to the peer must know. A reader knows what its source lacks.
   if (peerTypes_->lacks(field)) {
      if (mounts_.writes(entity)) {
         leftOut_.note(entity, field, "the peer has no such attribute");
      }
      return true;
   }
   if (!names_.known(entity) && mounts_.writes(entity) && peerTypes_->lacksEntity(entity)) {
      leftOut_.note(entity, field, "the peer has no attribute for this entity");
      return true;
   }
   return false;
}

/// As `tellValue`, unless the peer does not have the attribute or refuses its value.
void Teller::tellPartly(Entity& entity, FieldDescriptor const& field) {
   if (isLacking(entity, field)) {
      return;
   }
   if (!live() || !reach(entity) || !encoder_.set(entity, field, entity.streamHandle())) {
      backlog_.mark(entity, field, nullptr, false);
   }
}

void Teller::markAll(Entity& entity) {
   backlog_.markAll(entity);
   if (peerTypes_ != nullptr) {
      peerTypes_->strip(*backlog_.find(entity));
   }
}

void Teller::tellWithin(Entity& child) {
   if (walk_.descendInto(child, true)) {
      walk_.fill();
   }
}

void Teller::follow() noexcept {
   // Those who follow know the same entities, so one that lacks a child cannot. Inside a
   // publication, this peer may know an entity whose creation the others have not been told of. A
   // writer needs acknowledgements and echoes of its own between the changes. A peer with other
   // types gets only what it has.
   if (!cursor().following() && live() && !walk_.bracket().any() && !leftOut_.anyChild() &&
       mounts_.own().empty() && !mounts_.peerWrites() && peerTypes_ == nullptr &&
       Sarn::Publications::innermost() == nullptr) {
      outbox_.follow();
   }
}

void Teller::tellVanished(Entity& entity, FieldDescriptor const& field, void const* key) {
   if (isLacking(entity, field)) {
      return;
   }
   if (!live() || !reach(entity) || !encoder_.erase(entity, field, key)) {
      backlog_.mark(entity, field, key, true);
   }
}

void Teller::forget(Entity& entity, U32 handle) {
   backlog_.remove(handle);
   names_.forget(entity, handle);
}

void Teller::forgetTree(Entity& root) {
   walk_.leave(root);
   forgetBelow(root);
}

void Teller::forgetBelow(Entity& entity) {
   if (U32 const handle = entity.streamHandle()) {
      forget(entity, handle);
   }
   names_.unmapTree(entity);
   forEachChild(entity,
                [this](Entity& child, FieldDescriptor const&, void const*) { forgetBelow(child); });
}

void Teller::clear() noexcept {
   walk_.clear();
   backlog_.clear();
   names_.clear();
   replies_.clear();
   digestAnswers_.clear();
   comparison_.clear();
   denied_.clear();
}

}  // namespace Kiv::NboAttrLog
