#pragma once

#include <map>
#include <optional>
#include <vector>

#include "Kiv/Log/DigestAnswers.h"
#include "Kiv/NboAttrLogCompared.h"

namespace Kiv::NboAttrLog {

/// The mirroring end of a comparison: asks for digests, compares, has repaired what differs, and
/// looks at that again.
///
///     tree ---- equal ----> done
///       |
///       '----> all entities, some at a time ----> those sent again, and their children ---.
///                     |   ^                          |       ^                             |
///                     v   |                          |       '---- anything different? ----'
///                    repair what differs             '---- nothing new: done
///
/// Entities are taken in the order of the peer's handles, not of the tree, so that the tree may
/// change meanwhile. A level of the tree needs no question of its own: the digest of an entity says
/// which children it has, so that nothing can be missing or too much unnoticed.
///
/// Invariants:
/// - an answer is compared when it is applied: it describes the source at that place in the stream;
/// - an entity is sent again at most once, so a comparison ends.
class Comparison {
public:
   Comparison(Teller& teller, Limits const& limits, Handles const& handles) noexcept
         : teller_(teller), limits_(limits), handles_(handles) {}

   /// Starts to compare the mirror of a mount. REQUIRES: none is in progress, and the mount is
   /// complete.
   void start(Mount& mount, bool repair);
   bool inProgress() const noexcept { return mount_ != nullptr; }
   Mount& mount() const noexcept { return *mount_; }

   /// Takes the answer to the last question. Throws `FaultException` if it is invalid, or if nobody
   /// has asked.
   void take(In& in);
   /// Whether there is something to ask.
   bool due() const noexcept { return inProgress() && asked_.empty() && !ended_; }
   /// Asks the next question, or ends the comparison. False if there is no space now.
   /// REQUIRES: due(), and the peer has been sent all changes that were made here.
   bool write();
   /// The result, once: then the comparison is over. No value if it is still in progress.
   std::optional<Compared> takeResult();
   void clear() noexcept;

private:
   using Entities = std::map<Entity const*, Sarn::Ptr<Entity>>;

   bool writeQuestion();
   void gather();
   bool gatherTheirs();
   bool gatherOurs();
   bool isWanted(Entity const& entity) const noexcept;
   bool nextPass();
   Entity* find(EntityRef const& ref) const noexcept;
   bool isBelowRoot(Entity const& entity) const noexcept;
   bool writes() const noexcept { return writesBack(mount_->mode()); }
   bool followsAll() const noexcept;
   bool compareTree(U8 state, Digest const& theirs);
   void compareNode(EntityRef const& ref, U8 state, Digest const& theirs, bool settled);
   void differs(Entity& entity);
   void end(bool finished);

   Teller& teller_;
   Limits const& limits_;
   Handles const& handles_;
   Mount* mount_ = nullptr;
   bool repairs_ = false;
   bool ended_ = false;
   Compared result_;
   DigestDepth depth_ = DigestDepth::tree;
   /// The next question, the one that waits for its answer, and what the last answer has shown to
   /// be different.
   std::vector<EntityRef> next_;
   std::vector<EntityRef> asked_;
   std::vector<EntityRef> toRepair_;
   /// What was sent again since the pass began.
   std::vector<EntityRef> sentAgain_;
   /// Entities that were different while changes were on their way, and how often they were asked
   /// for again.
   std::vector<EntityRef> again_;
   U32 rounds_ = 0;
   /// How far the pass has come in the peer's handles, then in ours.
   std::size_t theirs_ = 0;
   std::size_t ours_ = 0;
   U32 passes_ = 0;
   /// What was sent again: in all, of these the ones that still differ, since the pass began, and
   /// before it.
   Entities repaired_;
   Entities stillDiffer_;
   Entities fresh_;
   Entities scope_;
   Digester digester_;
};

}  // namespace Kiv::NboAttrLog
