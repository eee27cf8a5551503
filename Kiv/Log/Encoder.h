#pragma once

#include "Kiv/Log/Crossing.h"
#include "Kiv/Log/LeftOut.h"
#include "Kiv/Log/Names.h"
#include "Kiv/Log/Outbox.h"

namespace Kiv::NboAttrLog {

/// Writes what is to be said of entities as messages into the outbox: one call, one change.
///
///     entity, field, key ----> size ---- too long even for parts ----> noted in LeftOut, and
///                                |                                     said otherwise
///                                '----> header and value in the outbox
///
/// Each call returns false when there is no room now, and has then left no trace.
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

   /// Makes sure that the peer knows the entity, and what we had seen when we changed it.
   bool reach(Entity& entity) {
      return (!crossing_.owesAck() && names_.introduced(entity.streamHandle())) ||
             reachSlowly(entity);
   }
   /// Says what we have seen, if that is owed.
   bool acknowledge();

   /// The single value of a member.
   bool set(Entity const& entity, FieldDescriptor const& field, U32 handle);
   /// An element of a map: insertion or new value.
   bool element(Entity& entity, FieldDescriptor const& field, void const* key, void const* value);
   /// An element or a child is gone; `key` is null for a singleton child.
   bool erase(Entity& entity, FieldDescriptor const& field, void const* key);
   /// An element of a queue. One that is left out keeps its place: the peer gets a default one.
   bool enqueue(Entity& entity, FieldDescriptor const& field, U32 sequence, void const* value);
   /// The elements of a queue before `sequence` are gone; `anew`: all are.
   bool front(Entity const& entity, FieldDescriptor const& field, U32 sequence, bool anew);
   /// A child: introduces it, unless it is left out. What it has below is told by a walk.
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
