#pragma once

#include "Kiv/Log/HubImpl.h"
#include "Kiv/Log/Inbound.h"
#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

/// The implementation of a session: connects its parts, and handles what concerns the session
/// itself: greeting, mounts, requests and answers, its end, and its listener.
///
///     changes ----> Teller ( Encoder, Backlog, Walk, Replies ----> Outbox ) ----> bytes
///                      Names, Mounts                                      Closing
///     setters <---- Inbound ( parts, checks ) <---- bytes
///                      OpenCollections
///
/// Invariants:
/// - once `Closing` is closed, only `bye` is written, and the next `pump` notifies the listener;
/// - the listener is called only from here, never while a change is being written.
class Session::Impl final : Inbound::Control {
public:
   Impl(Session& self, Hub& hub, SessionListener* listener);
   ~Impl() = default;
   Impl(Impl const&) = delete;
   Impl& operator=(Impl const&) = delete;
   /// Ends the session without telling the peer or the listener; the hub forgets it.
   void end() noexcept;

   Teller& teller() noexcept { return teller_; }
   Teller const& teller() const noexcept { return teller_; }
   Inbound& inbound() noexcept { return inbound_; }
   Inbound const& inbound() const noexcept { return inbound_; }
   Closing& closing() noexcept { return closing_; }
   Closing const& closing() const noexcept { return closing_; }
   Mounts const& mounted() const noexcept { return mounts_; }

   // See `Session`.
   Mount& mountIs(Sarn::Ptr<NamedEntity> const& root, MountMode mode, U32 priority);
   void syncIs(U32 token);
   void confirmedIs(U64 upTo);
   U32 transactionBegin();
   void transactionCommit();
   bool inTransaction() const noexcept { return inTransaction_; }
   void rootsAsk();
   void sessionsAsk();
   bool compareAsk(Mount const& mount, bool repair);
   void peerIs(PeerIdentity peer) { peer_ = std::move(peer); }
   PeerIdentity const& peer() const noexcept { return peer_; }
   void boundSessionsOfUid();
   void received(U8 const* bytes, std::size_t size);
   void sent(std::size_t size);
   void close(Sarn::String const& reason, bool tell);
   SessionStats stats() const noexcept;
   SessionStatus status() const;
   std::size_t heldBytes() const noexcept {
      return teller_.outbox().heldBytes() + inbound_.heldBytes();
   }

   std::span<Sarn::String const> lacking() const noexcept;
   // For the hub: who writes its roots, in SessionWriters.cpp.
   Served* served(RootWatcher const& watcher) noexcept;
   void leadsIs(Served& served, bool leads) noexcept { mounts_.leadsIs(served, leads); }
   /// Tells the peer who writes the root, if it mirrors it.
   void tellWriters(RootWatcher const& watcher) noexcept;
   /// Whether it has lost the lead because it did not answer, and has not been heard since.
   bool silent() const noexcept { return silent_; }
   /// When `askForLife` has something to do.
   U64 lifeDeadline() const noexcept;
   /// Asks the peer for a sign of life, if it has not been heard for a while. True once it has not
   /// answered in time.
   bool askForLife(U64 time);

   // For the hub.
   /// A root of ours is no longer offered.
   void rootGone(RootWatcher& watcher) noexcept;
   U64 deadline() const noexcept;
   void expire(U64 now);

private:
   void hello();
   /// Writes what there is space for, and notifies the listener of what has happened meanwhile.
   void pump();
   void tellCompared();
   void unsubscribe();
   bool holdsIdleBytes() const noexcept;
   /// The bytes of output buffer that it keeps when idle.
   std::size_t keptWhenIdle() const noexcept;

   // Messages that are not changes: SessionControl.cpp
   void onControl(Header const& header, In& in) override;
   void onFailed() override;
   std::size_t longestMessage() const noexcept override;
   std::size_t longestInParts(Opcode opcode) const noexcept override;
   void onBatchBegin() noexcept override { hub_.batchBegin(); }
   void onBatchEnd() noexcept override { hub_.batchEnd(); }
   void onCommitted(U32 token, bool torn) override;
   void tornIs(bool torn) noexcept;
   void applyDecided(In& in);
   void applyWriters(In& in);
   /// The peer has been heard, while it claims a root.
   void heard();
   /// Whether `synced` with this token is the sign of life that it was asked for.
   bool isSignOfLife(U32 token) noexcept;
   void applyHello(In& in);
   void applyTypes(In& in);
   void expectTypesKnown(In const& in) const;
   void applyBye(In& in);
   void applyMount(In& in);
   void applyMountState(Header const& header, In& in);
   Sarn::String refusal(RootWatcher const* watcher, OfferedRoot const& asked, MountMode mode);
   void applyBind(Header const& header, In& in);
   void applySync(In& in);
   /// Answers a request of the peer; `token` goes back with the answer.
   void answer(Opcode opcode, U32 token, U64 after, In const& in, U64 confirmed = 0);
   void applyRoots(In& in);
   void applySessions(In& in);
   void mountStateIs(Mount& mount, Mount::State state);
   /// Calls the listener, if there is one, and notes that an exception is the listener's.
   template <class Call>
   void callListener(Call&& call) {
      if (listener_ != nullptr) {
         try {
            call(*listener_);
         } catch (...) {
            inbound_.listenerThrows();
            throw;
         }
      }
   }

   Session& self_;
   Hub::Impl& hub_;
   SessionListener* listener_;
   Closing closing_;
   Mounts mounts_;
   OpenCollections open_;
   Teller teller_;
   Inbound inbound_;
   PeerIdentity peer_;
   /// How many modules were loaded when it greeted the peer.
   U32 greetedWith_ = 0;
   U64 const openedAt_;
   /// When `expire` last found that it had sent or received something.
   U64 idleSince_;
   bool used_ = true;
   /// Whether peer and listener have been told of the end, and when.
   bool told_ = false;
   U64 closedAt_ = 0;
   /// Requests that the peer has not answered.
   U32 rootsAsked_ = 0;
   U32 sessionsAsked_ = 0;
   U64 number_ = 0;
   /// The last transaction here, and whether it is still to be committed.
   U32 transaction_ = 0;
   bool inTransaction_ = false;
   /// When the peer was last heard, and asked for a sign of life that has not come; 0 if it was not
   /// asked.
   U64 heardAt_ = 0;
   U64 askedAt_ = 0;
   bool claimsAny_ = false;
   bool silent_ = false;
   /// Whether mirrors here show a part of a batch.
   bool torn_ = false;
};

}  // namespace Kiv::NboAttrLog
