#pragma once

#include <functional>
#include <memory>

#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Record/Recording.h"

namespace Kiv::NboAttrLog {

/// Applies a recording to entities: their observers see what those of the source saw. The entities
/// may be roots of a hub, so that other processes mirror the playback.
class Player {
public:
   /// Makes or finds the entity for a root of the recording; null for an unknown type.
   using RootMaker = std::function<Sarn::Ptr<NamedEntity>(OfferedRoot const& root)>;

   explicit Player(RootMaker maker, Limits const& limits = {});
   ~Player();
   Player(Player const&) = delete;
   Player& operator=(Player const&) = delete;

   /// Applies a frame. False if it cannot be applied, for `reason()`; what was applied before
   /// stays, and the player accepts no more frames. If observers throw, so does this, after the
   /// whole frame has been applied. If there is no memory for a snapshot's roots, it throws
   /// std::bad_alloc, and the frame may be applied again.
   bool apply(RecordingReader::Frame const& frame);
   bool failed() const noexcept { return !reason_.empty(); }
   Sarn::String const& reason() const noexcept { return reason_; }

   /// Whether a snapshot has been applied completely.
   bool complete() const noexcept { return complete_; }
   /// Whether the recorder had lost its source.
   bool sourceIsLost() const noexcept { return lost_; }
   /// Every root that has been played, in the order of its first appearance.
   std::vector<Sarn::Ptr<NamedEntity>> const& roots() const noexcept { return roots_; }
   /// The number of messages applied.
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
