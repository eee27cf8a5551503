// A tree that is kept equal to another tree in the same process.
#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Holt {

/// Makes `to` equal to `from` in everything that is streamed, through the setters: what is equal
/// already is not touched, so observers see only what differs. What a collection or queue of `to`
/// has beyond that of `from` is removed. The numbers of a queue's elements are not copied: their
/// source numbers them. So the digests are equal. O(size of both), for queues in the usual case.
///
/// Throws what observers of `to` throw; the rest is then not copied. REQUIRES: the same type.
void copyTree(Kiv::Entity const& from, Kiv::Entity& to);

/// Copies every change of one tree into another, as soon as it is made. A process keeps its own
/// state in one tree, which nobody else can change, and gives the other to a connection that
/// writes: so what a server held before never gets into the process's own state.
///
///     Holt::Twin twin(agentStatus, mirror);  // mirrors agentStatus at a server, for writing
///
/// A change costs a search for the entity's place in each of its parents.
/// Threads: that of both trees. REQUIRES: the same type; only the twin changes `to`.
class Twin final : Kiv::Observer {
public:
   /// Makes both equal, as `copyTree` does.
   Twin(Sarn::Ptr<Kiv::Entity> from, Sarn::Ptr<Kiv::Entity> to);
   ~Twin();
   Twin(Twin const&) = delete;
   Twin& operator=(Twin const&) = delete;

private:
   void onChange(Kiv::Change const& change) override;

   Sarn::Ptr<Kiv::Entity> from_;
   Sarn::Ptr<Kiv::Entity> to_;
};

}  // namespace Holt
