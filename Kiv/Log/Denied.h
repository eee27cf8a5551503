#pragma once

#include <memory>
#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/Log/Wire.h"

namespace Kiv::NboAttrLog {

class Handles;
class Mounts;
class Teller;

/// Changes of a writer that are not applied: of a batch that is refused, or of a peer that does not
/// lead. The writer's mirror has them already, so it is sent what the source has instead.
///
///     change ---- note ----> | entity, attribute, erased keys | ---- settle ----> Backlog
///
/// Invariants:
/// - what a noted change has introduced is known as an entity that is gone, so later changes of it
///   are ignored;
/// - `settle` marks each noted attribute once, however often it was changed.
class Denied {
public:
   Denied(Teller& teller, Handles const& handles, Mounts const& mounts) noexcept
         : teller_(teller), handles_(handles), mounts_(mounts) {}

   /// Takes a change instead of applying it. False if the entity is not ours: then the peer is its
   /// source, and the change holds. Throws `FaultException` if it introduces an invalid handle.
   bool note(Header const& header, In& in);
   /// Answers the batch with this number when the writer's mirror is right again.
   void answerLater(U32 token, Sarn::String reason);
   /// Whether there is something to settle.
   bool any() const noexcept { return !noted_.empty() || !answers_.empty(); }
   /// Marks what was noted in the backlog and enqueues the answers behind it. Returns the
   /// `Backlog::sequence` up to which it is to be sent. REQUIRES: no walk is in progress.
   U64 settle();
   void clear() noexcept;

private:
   struct Noted {
      U32 handle;
      FieldDescriptor const* field;
      /// All children may be gone.
      bool all = false;
      /// The keys of children that are not gone at the peer; null if none was erased there.
      std::shared_ptr<DirtyKeys> kept;
   };
   struct Answer {
      U32 token;
      Sarn::String reason;
   };

   Noted& notedOf(U32 handle, FieldDescriptor const& field);
   static void noteErased(Noted& noted, Entity& owner, In& in);
   void settle(Noted const& noted);

   Teller& teller_;
   Handles const& handles_;
   Mounts const& mounts_;
   std::vector<Noted> noted_;
   std::vector<Answer> answers_;
};

}  // namespace Kiv::NboAttrLog
