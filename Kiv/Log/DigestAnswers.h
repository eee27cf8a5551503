#pragma once

#include <vector>

#include "Kiv/Digest.h"
#include "Kiv/Log/EntityRef.h"
#include "Kiv/Log/Handles.h"
#include "Kiv/Log/Mounts.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/NboAttrLogLimits.h"

namespace Kiv::NboAttrLog {

class Teller;

/// The serving end of comparisons: tells the digests of the entities that the peer mirrors, and
/// sends those again that the peer finds different.
///
///     digestAsk ----> asked_ ----> up to date? ----> digests       repair ----> markAll
///                                  (behind all changes)                       (likewise)
///
/// An answer is written when everything else has been, so that the peer compares exactly what it
/// has been sent. One question is answered at a time, and an answer covers no more entities than
/// `Limits::digestWork` allows; the peer asks again for the rest. So a peer cannot have the digests
/// of more entities computed than that for each message that it sends and receives.
///
/// Invariant: a repair names no more entities than the last answer.
class DigestAnswers {
public:
   DigestAnswers(Teller& teller, Limits const& limits, Handles const& handles,
                 Mounts const& mounts) noexcept
         : teller_(teller), limits_(limits), handles_(handles), mounts_(mounts) {}

   /// Takes a `digestAsk`, or a `repair`. Throws `FaultException` if it is invalid, or out of turn.
   void ask(In& in);
   void repair(In& in);

   /// Whether there is something to write once the peer is up to date.
   bool due() const noexcept { return !asked_.empty() || !toRepair_.empty(); }
   /// Writes an answer, or marks for the backlog what is to be sent again. False if there is no
   /// space now. REQUIRES: due(), and the peer is up to date.
   bool write();
   void clear() noexcept;

private:
   struct Answer {
      U8 state;
      Digest digest;
   };

   Entity* find(EntityRef const& ref) const noexcept;
   Answer answer(EntityRef const& ref);
   void sendAgain(Entity& entity);

   Teller& teller_;
   Limits const& limits_;
   Handles const& handles_;
   Mounts const& mounts_;
   std::vector<EntityRef> asked_;
   std::vector<EntityRef> toRepair_;
   std::vector<Answer> answers_;
   DigestDepth depth_ = DigestDepth::nodes;
   std::size_t mayRepair_ = 0;
   Digester digester_;
};

/// Reads entities up to the end of the message. Throws `FaultException` unless there are 1 to
/// `most`.
std::vector<EntityRef> readRefs(In& in, std::size_t most);
void writeRefs(Out& out, std::vector<EntityRef> const& refs);

}  // namespace Kiv::NboAttrLog
