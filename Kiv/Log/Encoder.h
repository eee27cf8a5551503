#pragma once

#include "Kiv/Log/Crossing.h"
#include "Kiv/Log/LeftOut.h"
#include "Kiv/Log/Names.h"
#include "Kiv/Log/Outbox.h"
#include "Kiv/Log/PeerTypes.h"

namespace Kiv::NboAttrLog {

/// Encodes changes of entities as messages, one change per call: for one session into its `Outbox`,
/// or for all readers that follow into the hub's ring, as its `Ring::Source`.
///
///     entity, field, key ----> size ---- too long even for parts ----> noted in LeftOut; a
///                                |                                     substitute is sent
///                                '----> header and value in the output
///
/// Each call returns false, with no effect, if there is no space now.
template <class Output>
class ChangeEncoder {
public:
   /// `leftOut`: null for an output that leaves nothing out.
   ChangeEncoder(Output& output, std::size_t longestValue, LeftOut* leftOut) noexcept
         : output_(output), longestValue_(longestValue), leftOut_(leftOut) {}

   /// The single value of a member.
   bool set(Entity const& entity, FieldDescriptor const& field, U32 handle);
   /// An inserted or updated element of a map.
   bool element(Entity& entity, FieldDescriptor const& field, void const* key, void const* value);
   /// An element or a child was removed; `key` is null for a singleton child.
   bool erase(Entity& entity, FieldDescriptor const& field, void const* key);
   /// An element of a queue. If it is left out, the peer gets a default element in its place.
   bool enqueue(Entity& entity, FieldDescriptor const& field, U32 sequence, void const* value);
   /// The elements of a queue before `sequence` were removed; with `anew`, all of them.
   bool front(Entity const& entity, FieldDescriptor const& field, U32 sequence, bool anew);
   /// A new child. A walk sends what it contains. REQUIRES: it has a handle.
   bool create(Entity& owner, FieldDescriptor const& field, Entity& child);

   void leaveOut(std::size_t bodySize, Entity const& entity, FieldDescriptor const* field,
                 void const* key) {
      leftOut_->note(bodySize, longestValue_, entity, field, key);
   }

protected:
   Output& output_;

private:
   std::size_t longestValue_;
   LeftOut* leftOut_;
};

extern template class ChangeEncoder<Outbox>;
extern template class ChangeEncoder<Ring::Source>;

/// Encodes changes for one session, and introduces entities to its peer.
class Encoder : public ChangeEncoder<Outbox> {
public:
   Encoder(Limits const& limits, Handles& handles, Closing& closing, Outbox& outbox, Names& names,
           Crossing& crossing, LeftOut& leftOut) noexcept
         : ChangeEncoder(outbox, limits.longestValue, &leftOut),
           handles_(handles),
           closing_(closing),
           names_(names),
           crossing_(crossing),
           leftOut_(leftOut) {}

   /// As in the base class, unless the peer refuses the value.
   bool set(Entity const& entity, FieldDescriptor const& field, U32 handle) {
      if (peerTypes_ != nullptr && peerTypes_->refuses(entity, field, leftOut_)) [[unlikely]] {
         return true;
      }
      return ChangeEncoder::set(entity, field, handle);
   }
   /// The peer has other types: what it refuses is left out from now on.
   void peerTypesAre(PeerTypes const& peerTypes) noexcept { peerTypes_ = &peerTypes; }

   /// Makes sure that the peer knows the entity and has our acknowledgement, if it needs one,
   /// before a change of the entity.
   bool reach(Entity& entity) {
      return (!crossing_.owesAck() && names_.introduced(entity.streamHandle())) ||
             reachSlowly(entity);
   }
   /// Sends an acknowledgement, if one is owed.
   bool acknowledge();
   /// A new child: gives it a handle if it has none, and introduces it unless it is left out.
   bool introduce(Entity& owner, FieldDescriptor const& field, Entity& child);

private:
   bool reachSlowly(Entity& entity);

   Handles& handles_;
   Closing& closing_;
   Names& names_;
   Crossing& crossing_;
   LeftOut& leftOut_;
   PeerTypes const* peerTypes_ = nullptr;
};

/// The size of a single value.
inline std::size_t valueSize(Entity const& entity, FieldDescriptor const& field) {
   std::size_t const fixed = field.ops->fixedSize;
   return fixed != 0 ? fixed : field.ops->encodedSize(entity);
}

}  // namespace Kiv::NboAttrLog
