// What a session may hold, and how long: its buffers, half messages, and the sessions of one user.
#include <algorithm>

#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

U64 Hub::deadline() const noexcept {
   U64 first = 0;
   for (Session const* const session : sessions_) {
      U64 const next = clock_ != nullptr ? session->deadline() : 0;
      first = next != 0 && (first == 0 || next < first) ? next : first;
   }
   return first;
}

void Hub::expire() {
   U64 const time = now();
   for (std::size_t i = 0; i < sessions_.size(); ++i) {  // a listener may end others
      sessions_[i]->expire(time);
   }
}

void Session::boundSessionsOfUid() {
   auto const isOfUser = [this](Session const* other) {
      return other->peer_.pid != 0 && other->peer_.uid == peer_.uid && !other->closed_;
   };
   auto const count = std::count_if(hub_.sessions_.begin(), hub_.sessions_.end(), isOfUser);
   if (peer_.pid != 0 && count > static_cast<std::ptrdiff_t>(hub_.limits_.sessionsOfUid)) {
      fail("uid " + std::to_string(peer_.uid) + " has more than " +
           std::to_string(hub_.limits_.sessionsOfUid) + " connections");
   }
}

void Session::noRoom(std::size_t size) noexcept {
   ByteBudget const& budget = hub_.budget_;
   bool const exhausted =
         ByteBudget::charge(size) > budget.bound - std::min(budget.bound, budget.held);
   if (!exhausted) {
      fail(outOfMemory());
      return;
   }
   orFail([&] {
      fail("a message of " + std::to_string(size) + " bytes finds no room: the connections hold " +
           std::to_string(budget.held) + " bytes of " + std::to_string(budget.bound));
   });
}

std::size_t Session::heldBytes() const noexcept {
   std::size_t const leaving = partsOut_ != nullptr ? partsOut_->header().bodySize : 0;
   return out_.capacity() + in_.capacity() + leaving + partsIn_.heldBytes();
}

std::size_t Session::longestIncoming() const noexcept {
   bool const answers = rootsAsked_ != 0 || sessionsAsked_ != 0;
   bool const writes = std::any_of(served_.begin(), served_.end(),
                                   [](Served const& s) { return writesBack(s.mode); });
   bool const tells = answers || writes || !mounts_.empty();
   return tells ? hub_.limits_.longestMessage : hub_.shortMessage_;
}

void Session::freeIn() noexcept {
   std::vector<U8>().swap(in_);  // `clear` would keep the memory
   hub_.budget_.change(inHeld_, 0);
   inHeld_ = 0;
   halfSince_ = 0;
}

void Session::boundHalfMessage(U64 before) {
   if (closed_) {
      freeIn();
      return;
   }
   if (in_.empty() && !partsIn_.any()) {
      halfSince_ = 0;
   } else if (halfSince_ == 0 || stats_.messagesIn != before) {
      halfSince_ = hub_.now();
   }
   if (in_.capacity() == inHeld_) {
      return;
   }
   if (!hub_.budget_.change(inHeld_, in_.capacity())) {
      Sarn::String const size = std::to_string(in_.size());
      freeIn();
      orFail([&] {
         fail("a half message of " + size + " bytes finds no room: the connections hold " +
              std::to_string(hub_.budget_.held) + " bytes of " +
              std::to_string(hub_.budget_.bound));
      });
      close(closeReason_);
      return;
   }
   inHeld_ = in_.capacity();
}

/// Whether it has memory that it does not need now, beyond what one that mirrors something keeps.
bool Session::holdsIdleBytes() const noexcept {
   bool const mounted = !served_.empty() || !mounts_.empty();
   std::size_t const kept = mounted && !closed_ ? ByteBudget::freeOfCharge : 0;
   return (out_.empty() && out_.capacity() > kept) || (in_.empty() && in_.capacity() != 0);
}

U64 Session::deadline() const noexcept {
   U64 first = 0;
   auto const consider = [&first](bool waits, U64 at) {
      first = waits && (first == 0 || at < first) ? at : first;
   };
   consider(halfSince_ != 0, halfSince_ + hub_.limits_.halfMessage);
   consider(told_ && !out_.empty(), closedAt_ + hub_.limits_.halfMessage);
   consider(holdsIdleBytes(), idleSince_ + hub_.limits_.idle);
   return first;
}

void Session::expire(U64 now) {
   Limits const& limits = hub_.limits_;
   if (halfSince_ != 0 && now - halfSince_ >= limits.halfMessage) {
      closeFor("the peer has left a message unfinished for " +
               std::to_string((now - halfSince_) / 1'000'000) + " ms, after " +
               std::to_string(in_.size()) + " bytes");
   }
   if (told_ && closedAt_ != 0 && now - closedAt_ >= limits.halfMessage) {
      out_.clear();
      out_.shrink(0);
   }
   bool const idle = hub_.clock_ == nullptr || now - idleSince_ >= limits.idle;
   if (used_) {
      used_ = false;
      idleSince_ = now;
   } else if (idle && holdsIdleBytes()) {
      bool const mounted = !served_.empty() || !mounts_.empty();
      out_.shrink(mounted && !closed_ ? ByteBudget::freeOfCharge : 0);
      if (in_.empty()) {
         freeIn();
      }
   }
}

}  // namespace Kiv::NboAttrLog
