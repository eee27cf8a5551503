#pragma once

#include <functional>
#include <memory>

#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Record/Recording.h"

namespace Kiv::NboAttrLog {

/// Applies a recording to entities: their observers see what those of the source saw. The entities
/// may be roots of a hub, so that a recording is played into what others mirror.
class Player {
public:
   /// Makes or finds the entity for a root of the recording; null for a type that is not known.
   using RootMaker = std::function<Sarn::Ptr<NamedEntity>(OfferedRoot const& root)>;

   explicit Player(RootMaker maker, Limits const& limits = {});
   ~Player();
   Player(Player const&) = delete;
   Player& operator=(Player const&) = delete;

   /// Applies what a frame says. False if it cannot be, for `reason()`; what was applied before
   /// stays, and the player takes no more. What observers throw comes out here, when all of the
   /// frame has been applied. Without memory for a snapshot's roots it throws std::bad_alloc, and
   /// the frame may be applied again.
   bool apply(RecordingReader::Frame const& frame);
   bool failed() const noexcept { return !reason_.empty(); }
   Sarn::String const& reason() const noexcept { return reason_; }

   /// Whether all that a snapshot had is there.
   bool complete() const noexcept { return complete_; }
   /// Whether the recorded process had lost what it recorded.
   bool sourceIsLost() const noexcept { return lost_; }
   /// Every root that has been played, in the order in which they came.
   std::vector<Sarn::Ptr<NamedEntity>> const& roots() const noexcept { return roots_; }
   /// Messages that were applied.
   U64 messages() const noexcept { return messages_; }

private:
   bool fail(Sarn::String reason);
   bool begin(std::vector<OfferedRoot> const& roots);
   NamedEntity* find(OfferedRoot const& root) const noexcept;

   RootMaker maker_;
   Hub hub_;
   std::unique_ptr<Session> session_;
   std::vector<Sarn::Ptr<NamedEntity>> roots_;
   Sarn::String reason_;
   U64 messages_ = 0;
   bool complete_ = false;
   bool lost_ = false;
};

}  // namespace Kiv::NboAttrLog
