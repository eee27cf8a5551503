#pragma once

#include <deque>
#include <memory>
#include <span>

#include "Kiv/NboAttrLogCircularBuffer.h"
#include "Kiv/NboAttrLogHub.h"
#include "Kiv/NboAttrLogListener.h"

namespace Kiv::NboAttrLog {

/// One peer: the attribute log in both directions, as bytes. It knows nothing of sockets: whoever
/// carries the bytes passes received ones to `received`, sends what `output` returns, and then
/// calls `sent`.
///
/// A change goes into the output at once if the peer is up to date and there is space; readers that
/// are up to date share one copy of it. Otherwise the session remembers it as a flag or a key in
/// the entity's `FlowOut`, and writes the latest value when there is space again. The memory for a
/// peer that reads nothing is bounded: its buffer and what it has not read of the shared copy, one
/// value that travels in parts, one flag per attribute, and one entry per changed key up to
/// `Limits::dirtyKeys`.
///
/// It has little memory until something is mounted at either end. Then its buffers grow on demand
/// up to a limit; they are freed when it is idle (`Hub::expire`) and when it ends.
///
/// Everything received is checked. The first message that breaks a rule closes the session with a
/// reason, and nothing of that message is applied.
///
/// If there is no memory to send, remember or apply a change, the session closes with the reason
/// "out of memory". Calls that ask the peer for something, such as `mountIs`, throw std::bad_alloc
/// instead and have no effect.
class Session {
public:
   explicit Session(Hub& hub, SessionListener* listener = nullptr);
   ~Session();
   Session(Session const&) = delete;
   Session& operator=(Session const&) = delete;

   /// Asks the peer for the root of the same type and name as `root`, and mirrors it in `root`. In
   /// a mode that writes, local changes go to the peer as well. `priority`: of a candidate.
   Mount& mountIs(Sarn::Ptr<NamedEntity> const& root, MountMode mode = MountMode::reader,
                  U32 priority = usualPriority);
   /// All mounts in the order of the requests, whatever their state.
   std::deque<Mount> const& mounts() const noexcept;
   /// The peer answers with `onSynced(token)` when it has applied everything written so far.
   /// Changes that it had to send by then arrive before its answer.
   void syncIs(U32 token);
   /// Lets the confirmations go out for which `SessionListener::onSyncAsked` has returned `upTo` or
   /// less. Not called with less than before.
   void confirmedIs(U64 upTo);
   /// Begins a transaction, see `Transaction`: local changes wait here until its commit. Returns
   /// its number. Throws `Exception` if another one has begun, or has not been sent yet, or if the
   /// peer is of a release without transactions.
   U32 transactionBegin();
   /// Sends all changes since `transactionBegin` as one. The peer checks all of them before it
   /// applies any, and answers with `onDecided`. REQUIRES: a transaction has begun.
   void transactionCommit();
   /// False if the peer is of a release without transactions.
   bool knowsTransactions() const noexcept;
   /// Whether a transaction has begun here.
   bool inTransaction() const noexcept;
   /// Asks which roots the peer offers; `onRoots` gets the answer.
   void rootsAsk();
   /// Asks which sessions the peer has; `onSessions` gets the answer.
   void sessionsAsk();
   /// Compares the mirror of a mount with its source, entity by entity, by digests that the source
   /// computes at a definite place among its changes; so it may change meanwhile. With `repair`,
   /// entities that differ are sent again, each once, and are compared again. `onCompared` gets the
   /// result. False, with no effect, if the mount is not complete, a comparison is in progress, or
   /// the peer has another version of a module, so that its digests are of other members.
   /// It waits while this end is behind with the source's changes: then there is nothing to
   /// compare.
   bool compareAsk(Mount const& mount, bool repair = true);
   /// Sets who the peer is, as far as the carrier knows. Other peers see it in `onSessions`, and in
   /// the reason if this peer's mount rules theirs out.
   void peerIs(PeerIdentity peer);
   PeerIdentity const& peer() const noexcept;
   /// Closes the session if the peer's user has more than `Limits::sessionsOfUid` of them. The
   /// carrier calls it after `peerIs`. The listener is notified with the next `received` or `sent`.
   void boundSessionsOfUid();

   // Bytes.

   /// Applies bytes from the peer, which may be split anywhere. If an observer or the listener
   /// throws, `received` throws the same after the message that caused it; the next call, which may
   /// bring no bytes, applies the rest. REQUIRES: not called from inside itself, by an observer of
   /// what it applies or by its listener.
   void received(U8 const* bytes, std::size_t size);
   /// Whether the last `received` threw: received bytes may still have to be applied.
   bool interrupted() const noexcept;
   /// The next bytes to send, as far as they are contiguous; empty if there are none.
   /// `outputBehind` returns those after them, and after these there may be more. Valid until the
   /// next change of what is mirrored here, and until the next call.
   CircularBuffer::Piece output() const noexcept;
   CircularBuffer::Piece outputBehind() const noexcept;
   /// `size` bytes of the output have been sent. Writes pending changes into the freed space.
   void sent(std::size_t size);
   /// The carrier accepts no more for now: the peer counts as behind from here on.
   void blocked() noexcept;
   /// Whether both ends have greeted each other.
   bool handshakeDone() const noexcept;

   /// Ends the session, with a `bye` to the peer if `tell`. No effect if it is closed already.
   void close(Sarn::String const& reason, bool tell = true);
   bool closed() const noexcept;
   /// Printable, even if it came from the peer; see `Kiv::printable`.
   Sarn::String const& closeReason() const noexcept;
   /// Who ended the session.
   Ending ending() const noexcept;

   /// What the peer's version of our modules lacks, if it has another: "Ptp::Config.driftLimit", or
   /// "Ptp::Config" for a whole type, in the order of modules, types and ids. Empty if it has the
   /// same, and until it has said what it has. Valid as long as the session.
   std::span<Sarn::String const> lacking() const noexcept;

   // Progress.

   /// Whether every change so far has been written into the output.
   bool upToDate() const noexcept;
   SessionStats stats() const noexcept;
   /// What `sessionsAsk()` reports about this session. O(`dirtyEntities()`).
   SessionStatus status() const;
   /// Bytes of memory that its own buffers hold. Changes that readers share count for the hub.
   std::size_t heldBytes() const noexcept;
   /// Entities with something still to be sent.
   std::size_t dirtyEntities() const noexcept;

   /// The implementation, for the log itself: see `Kiv/Log/SessionImpl.h`.
   class Impl;
   Impl& impl() noexcept { return *impl_; }
   Impl const& impl() const noexcept { return *impl_; }

private:
   std::unique_ptr<Impl> impl_;
};

}  // namespace Kiv::NboAttrLog
