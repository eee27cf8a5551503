#pragma once

#include <deque>
#include <memory>

#include "Kiv/NboAttrLogCircularBuffer.h"
#include "Kiv/NboAttrLogHub.h"
#include "Kiv/NboAttrLogListener.h"

namespace Kiv::NboAttrLog {

/// One peer: the attribute log in both directions, as bytes. It knows nothing of sockets: whoever
/// carries the bytes calls `received` with what came, sends what `output` gives, and says `sent`.
///
/// A change goes into the output at once when the peer is up to date and there is room; else it is
/// remembered as a flag or a key in the entity's `FlowOut`, and its latest value is written when
/// there is room again. The memory of a peer that reads nothing is bounded by its buffer, one value
/// that travels in parts, one flag per attribute, and an entry for each changed key up to a bound
/// (`Limits::dirtyKeys`).
///
/// It has little memory until something is mounted on either side; then its buffers grow by use, up
/// to a limit, and are given back when it is idle (`Hub::expire`) and when it ends.
///
/// What comes in is checked; the first message that breaks a rule closes the session with a
/// reason, and nothing of that message is applied.
///
/// Without memory to tell of a change, to remember it, or to apply what the peer says, the session
/// closes with the reason "out of memory". What asks the peer for something, such as `mountIs`,
/// throws std::bad_alloc instead, and nothing has happened.
class Session {
public:
   explicit Session(Hub& hub, SessionListener* listener = nullptr);
   ~Session();
   Session(Session const&) = delete;
   Session& operator=(Session const&) = delete;

   /// Asks the peer for a root and mirrors it in `root`, whose type and name say which. In
   /// `MountMode::writer` local changes go to the peer as well.
   Mount& mountIs(Sarn::Ptr<NamedEntity> const& root, MountMode mode = MountMode::reader);
   /// What was asked for, in that order, whatever became of it.
   std::deque<Mount> const& mounts() const noexcept;
   /// The peer answers with `onSynced(token)` when it has applied everything written so far. What
   /// it had to tell by then arrives before its answer.
   void syncIs(U32 token);
   /// The peer answers with `onRoots` what roots it offers.
   void rootsAsk();
   /// The peer answers with `onSessions` what connections it has.
   void sessionsAsk();
   /// Who the peer is, as its carrier knows; others are told when it has what they want.
   void peerIs(PeerIdentity peer);
   PeerIdentity const& peer() const noexcept;
   /// Closes the session if the peer's user has more of them than `Limits::sessionsOfUid`; for the
   /// carrier, when it has told who the peer is. The listener is told when bytes are carried next.
   void boundSessionsOfUid();

   // Bytes.

   /// Takes and applies bytes from the peer; any split is fine. What an observer or the listener
   /// throws comes out here, after the message that caused it; the rest is applied by the next
   /// call, which may bring no bytes. REQUIRES: not called from inside itself, by an observer of
   /// what it applies or by its listener.
   void received(U8 const* bytes, std::size_t size);
   /// Whether the last `received` threw: bytes that came may wait for the next call.
   bool interrupted() const noexcept;
   /// The bytes to be sent next; empty when there are none. Valid until the next change of what is
   /// mirrored here, and the next call.
   CircularBuffer::Piece output() const noexcept;
   CircularBuffer::Piece outputBehind() const noexcept;
   /// `size` bytes of the output have been sent. Fills the freed room.
   void sent(std::size_t size);
   /// The carrier takes no more for now: from here on the peer counts as behind.
   void blocked() noexcept;
   /// Whether both ends have greeted each other.
   bool handshakeDone() const noexcept;

   /// Ends the session; the peer is told if `tell`. Harmless when it is closed.
   void close(Sarn::String const& reason, bool tell = true);
   bool closed() const noexcept;
   /// Printable, also where the peer has said it; see `Kiv::printable`.
   Sarn::String const& closeReason() const noexcept;
   /// Who ended the session.
   Ending ending() const noexcept;

   // How far it is.

   /// Whether every change so far has been written into the output.
   bool upToDate() const noexcept;
   SessionStats stats() const noexcept;
   /// What `sessionsAsk()` tells of this one. O(entities with something still to be told).
   SessionStatus status() const;
   /// Bytes of memory that its buffers hold.
   std::size_t heldBytes() const noexcept;
   /// Entities with something still to be told.
   std::size_t dirtyEntities() const noexcept;

   /// The inside, for the log itself: see `Kiv/Log/SessionImpl.h`.
   class Impl;
   Impl& impl() noexcept { return *impl_; }
   Impl const& impl() const noexcept { return *impl_; }

private:
   std::unique_ptr<Impl> impl_;
};

}  // namespace Kiv::NboAttrLog
