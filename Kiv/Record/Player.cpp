#include "Kiv/NboAttrLogPlayer.h"

#include <algorithm>
#include <utility>

#include "Kiv/FirstException.h"
#include "Kiv/Log/Closing.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

Player::Player(RootMaker maker, Limits const& limits) : maker_(std::move(maker)), hub_(limits) {}

Player::~Player() = default;

bool Player::fail(Sarn::String reason) {
   reason_ = printable(std::move(reason));
   session_.reset();
   return false;
}

NamedEntity* Player::find(OfferedRoot const& root) const noexcept {
   for (Sarn::Ptr<NamedEntity> const& at : roots_) {
      if (at->kivType().name == root.type && at->nameString() == root.name) {
         return at.get();
      }
   }
   return nullptr;
}

/// A snapshot begins a new stream. It is played into the existing entities, so that what has not
/// changed is not touched.
bool Player::begin(std::vector<OfferedRoot> const& roots) {
   if (roots.size() > hub_.limits().nesting) {
      return fail(std::to_string(roots.size()) + " roots exceed the bound of " +
                  std::to_string(hub_.limits().nesting));
   }
   session_.reset();
   auto session = std::make_unique<Session>(hub_);
   for (OfferedRoot const& root : roots) {
      NamedEntity* entity = find(root);
      if (entity == nullptr) {
         Sarn::Ptr<NamedEntity> const made = maker_(root);
         if (!made) {
            return fail("the type " + root.type + " of the root " + root.name +
                        " is not known here");
         }
         roots_.push_back(made);
         entity = made.get();
      }
      session->mountIs(Sarn::Ptr<NamedEntity>(entity));
   }
   session_ = std::move(session);
   return true;
}

bool Player::apply(RecordingReader::Frame const& frame) {
   if (failed()) {
      return false;
   }
   switch (frame.kind) {
      case FrameKind::snapshot:
         try {
            return begin(snapshotRoots(frame));
         } catch (FaultException const& error) {
            return fail(Sarn::String("the beginning of a snapshot: ") + error.what());
         }
      case FrameKind::log: {
         if (session_ == nullptr) {
            return fail("changes come before a snapshot");
         }
         U64 const before = session_->stats().messagesIn;
         // Apply the whole frame: no later call would bring the rest of it.
         Impl::FirstException thrown;
         thrown.attempt([&] { session_->received(frame.body, frame.size); });
         while (session_->interrupted()) {
            thrown.attempt([this] { session_->received(nullptr, 0); });
         }
         messages_ += session_->stats().messagesIn - before;
         while (session_->output().size != 0) {  // there is no peer to send it to
            session_->sent(session_->output().size);
         }
         if (session_->closed()) {
            return fail(copyOrOutOfMemory(session_->closeReason()));
         }
         std::deque<Mount> const& mounts = session_->mounts();
         complete_ = complete_ || std::all_of(mounts.begin(), mounts.end(), [](Mount const& mount) {
                        return mount.complete() || mount.state() == Mount::State::gone;
                     });
         thrown.rethrow();
         return true;
      }
      case FrameKind::lost:
      case FrameKind::back:
         lost_ = frame.kind == FrameKind::lost;
         return true;
      case FrameKind::padding:
      case FrameKind::end:
         break;
   }
   return true;
}

}  // namespace Kiv::NboAttrLog
