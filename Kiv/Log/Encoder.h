#pragma once

#include "Kiv/Log/Crossing.h"
#include "Kiv/Log/LeftOut.h"
#include "Kiv/Log/Names.h"
#include "Kiv/Log/Outbox.h"

namespace Kiv::NboAttrLog {

/// Encodes changes of entities as messages into the outbox, one change per call.
///
///     entity, field, key ----> size ---- too long even for parts ----> noted in LeftOut; a
///                                |                                     substitute is sent
///                                '----> header and value in the outbox
///
/// Each call returns false, with no effect, if there is no space now.
class Encoder {
public:
   Encoder(Limits const& limits, Handles& handles, Closing& closing, Outbox& outbox, Names& names,
           Crossing& crossing, LeftOut& leftOut) noexcept
         : limits_(limits),
           handles_(handles),
           closing_(closing),
           outbox_(outbox),
           names_(names),
           crossing_(crossing),
           leftOut_(leftOut) {}

   /// Makes sure that the peer knows the entity and has our acknowledgement, if it needs one,
   /// before a change of the entity.
   bool reach(Entity& entity) {
      return (!crossing_.owesAck() && names_.introduced(entity.streamHandle())) ||
             reachSlowly(entity);
   }
   /// Sends an acknowledgement, if one is owed.
   bool acknowledge();

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
   /// A new child: introduces it, unless it is left out. A walk sends what it contains.
   bool create(Entity& owner, FieldDescriptor const& field, Entity& child);

   void leaveOut(std::size_t bodySize, Entity const& entity, FieldDescriptor const* field,
                 void const* key) {
      leftOut_.note(bodySize, limits_.longestValue, entity, field, key);
   }

private:
   bool reachSlowly(Entity& entity);

   Limits const& limits_;
   Handles& handles_;
   Closing& closing_;
   Outbox& outbox_;
   Names& names_;
   Crossing& crossing_;
   LeftOut& leftOut_;
};

/// The size of a single value.
inline std::size_t valueSize(Entity const& entity, FieldDescriptor const& field) {
   std::size_t const fixed = field.ops->fixedSize;
   return fixed != 0 ? fixed : field.ops->encodedSize(entity);
}

}  // namespace Kiv::NboAttrLog
