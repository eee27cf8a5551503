#pragma once

#include <deque>
#include <optional>

#include "Kiv/FirstException.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/NboAttrLogCircularBuffer.h"
#include "Kiv/NboAttrLogFlow.h"
#include "Kiv/NboAttrLogHub.h"
#include "Kiv/NboAttrLogListener.h"
#include "Kiv/NboAttrLogParts.h"

namespace Kiv::NboAttrLog {

/// One peer: the attribute log in both directions, as bytes. It knows nothing of sockets: whoever
/// carries the bytes calls `received` with what came, sends what `output` gives, and says `sent`.
///
/// A change goes into the output at once when the peer is up to date and there is room; else it is
/// remembered as a flag or a key in the entity's `FlowOut`, and its latest value is written when
/// there is room again. The memory of a peer that reads nothing is bounded by its buffer, one value
/// that travels in parts, a flag an attribute, and an entry for each changed key up to a bound
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
   /// The peer answers with `onSynced(token)` when it has applied everything written so far. What
   /// it had to tell by then arrives before its answer.
   void syncIs(U32 token);
   /// The peer answers with `onRoots` what roots it offers.
   void rootsAsk();
   /// The peer answers with `onSessions` what connections it has.
   void sessionsAsk();
   /// Who the peer is, as its carrier knows; others are told when it has what they want.
   void peerIs(PeerIdentity peer) { peer_ = std::move(peer); }
   PeerIdentity const& peer() const noexcept { return peer_; }
   /// Closes the session if the peer's user has more of them than `Limits::sessionsOfUid`; for the
   /// carrier, when it has told who the peer is. The listener is told when bytes are carried next.
   void boundSessionsOfUid();

   // Bytes.

   /// Takes and applies bytes from the peer; any split is fine. What an observer or the listener
   /// throws comes out here, after the message that caused it; the rest is applied by the next
   /// call, which may bring no bytes.
   void received(U8 const* bytes, std::size_t size);
   /// Whether the last `received` threw: bytes that came may wait for the next call.
   bool interrupted() const noexcept { return interrupted_; }
   /// The bytes to be sent next; empty when there are none. Valid until the next change of what is
   /// mirrored here, and the next call.
   CircularBuffer::Piece output() const noexcept { return out_.first(); }
   CircularBuffer::Piece outputBehind() const noexcept { return out_.second(); }
   /// `size` bytes of the output have been sent. Fills the freed room.
   void sent(std::size_t size);
   /// The carrier takes no more for now: from here on the peer counts as behind.
   void blocked() noexcept { fallBehind(); }

   /// Ends the session; the peer is told if `tell`. Harmless when it is closed.
   void close(Sarn::String const& reason, bool tell = true);
   bool closed() const noexcept { return closed_; }
   /// Printable, also where the peer has said it; see `Kiv::printable`.
   Sarn::String const& closeReason() const noexcept { return closeReason_; }
   /// Who ended the session.
   Ending ending() const noexcept { return ending_; }

   /// Whether every change so far has been written into the output.
   bool upToDate() const noexcept {
      return walkDepth_ == 0 && firstDirty_ == nullptr && partsOut_ == nullptr;
   }
   SessionStats const& stats() const noexcept { return stats_; }
   /// What `sessionsAsk()` tells of this one. O(entities with something still to be told).
   SessionStatus status() const;
   /// Bytes of memory that its buffers hold.
   std::size_t heldBytes() const noexcept;
   /// Entities with something still to be told.
   std::size_t dirtyEntities() const noexcept { return dirtyCount_; }
   bool handshakeDone() const noexcept { return greeted_; }
   std::deque<Mount> const& mounts() const noexcept { return mounts_; }

private:
   friend class Hub;
   friend class Hub::Root;
   friend class Sa;

   enum class Write : U8 { done, full, descend };

   /// A root of ours that the peer mirrors.
   struct Served {
      Hub::Root* root;
      U32 id;
      MountMode mode;
      bool begun = false;
      bool walked = false;
      bool ended = false;
      U64 endAfter = 0;
   };
   /// An entity that the peer has introduced.
   struct Incoming {
      U32 handle = 0;
      bool writable = false;
      Sarn::Ptr<Entity> entity;
   };
   /// A reply or marker that waits for room, or for all dirty entities up to `after`.
   struct Pending {
      Opcode opcode;
      U32 token;
      Sarn::String text;
      U64 after;
   };
   /// A collection of ours that the peer is replaying.
   struct OpenCollection {
      Entity* entity;
      FieldDescriptor const* field;
      /// The keys that were named and are there, so that it is never larger than the collection;
      /// null if that was empty when the replay began.
      std::shared_ptr<DirtyKeys> seen;
   };

   // What it may hold, and how long: NboAttrLogBounds.cpp
   /// Something is mounted: the peer is worth its whole buffer.
   void hasMount() noexcept { out_.limitIs(hub_.limits_.outputBuffer); }
   /// A message found no room although nothing waits.
   void noRoom(std::size_t size) noexcept;
   /// The longest body that the peer has a reason to send.
   std::size_t longestIncoming() const noexcept;
   /// Takes account of what `received` has left; `before`: messages that had come by then.
   void boundHalfMessage(U64 before);
   void freeIn() noexcept;
   U64 deadline() const noexcept;
   void expire(U64 now);
   bool holdsIdleBytes() const noexcept;

   // Writing: NboAttrLogSession.cpp
   /// A change of a child, a collection or a queue. `removed`: the child that was there before.
   void onChange(Entity& entity, FieldDescriptor const& field, void const* key, Entity* removed);
   void rootGone(Hub::Root& root) noexcept;
   void commit(std::size_t size, U32 messages = 1) noexcept {
      out_.commit(size);
      stats_.messagesOut += messages;
      stats_.bytesOut += size;
   }
   U8* reserve(Opcode opcode, std::size_t bodySize, U32 handle, AttributeId attribute);
   template <class Body>
   bool write(Opcode opcode, std::size_t bodySize, U32 handle, AttributeId attribute,
              Body const& body);
   void hello();
   void pendingEnq(Opcode opcode, U32 token, Sarn::String text, U64 after);
   bool writePending();
   bool writeMount(Mount const& mount);
   bool writeRoots();
   bool writeSessions();
   /// Marks the session closed from inside the writing of a change, where nobody may be called.
   void fail(Sarn::String reason, Ending ending = Ending::fault) noexcept;
   /// Fails for the exception that is being handled.
   void failForException() noexcept;
   /// Does what must not be left half done: if it throws, for want of memory, the session fails.
   template <class Work>
   void orFail(Work&& work) noexcept {
      try {
         work();
      } catch (...) {
         failForException();
      }
   }
   void unsubscribe();
   bool introduced(U32 handle) const noexcept {
      U32 const at = HandleTable::place(handle);
      return at / 64 < introduced_.size() && (introduced_[at / 64] >> at % 64 & 1) != 0;
   }
   void introducedIs(U32 handle, bool introduced);
   /// Whether the peer knows the entity, by our handle or by its own.
   bool known(Entity const& entity) const noexcept {
      return (entity.streamHandle() != 0 && introduced(entity.streamHandle())) ||
             incomingHandles_.find(reinterpret_cast<U64>(&entity)) != nullptr;
   }
   /// Whether the peer knows the entity, after a `bind` if it introduced it itself.
   bool reach(Entity& entity) {
      bool const said = !writesBack_ || acknowledged_ == changesReceived_;
      return (said && introduced(entity.streamHandle())) || reachAfterBind(entity);
   }
   bool reachAfterBind(Entity& entity);
   // Long messages and values that are left out: NboAttrLogLongValues.cpp
   bool writeLong(Header const& header, void* context, void (*body)(void* context, Out& out));
   bool writeParts();
   bool isLeftOut(std::size_t bodySize) const noexcept {
      return bodySize > longestBody_ && bodySize > hub_.limits_.longestValue;
   }
   void leaveOut(std::size_t bodySize, Entity const& entity, FieldDescriptor const* field,
                 void const* key);
   void tellLeftOut();
   void applyPart(Header const& header, In& in);
   std::size_t longestInParts(Opcode opcode) const noexcept;
   bool acknowledge();
   bool live() const noexcept { return upToDate() && !closed_; }
   bool copy(U8 const* message, std::size_t size);
   /// Whether this session serves the root above the entity.
   bool serves(Entity const& entity) const noexcept;
   /// Whether changes of the entity go to the peer that serves it.
   bool writes(Entity const& entity) const noexcept;
   /// The mount through which the peer tells of the entity; null if there is none.
   Mount const* followed(Entity const& entity) const noexcept;
   /// Whether the peer need not be told of a child. What it made itself it is told of again by who
   /// serves the root, if at all, since others may have changed it meanwhile.
   bool peerHas(Entity const& child) const noexcept {
      return child.streamHandle() != 0 &&
             (introduced(child.streamHandle()) || (known(child) && !serves(child)));
   }
   /// Whether the peer may not know yet what it overwrites: then it is told of its own change as
   /// well, so that both ends have seen the same one last. Only who serves the root does so.
   bool mustEcho(Hub::Root const& root) const noexcept;
   /// A message's child is in place, and nobody has been told yet.
   void created(Entity& child);
   /// A message's child was removed again before the log was told of it.
   void vanished(Entity& entity, FieldDescriptor const& field, void const* key);

   // What waits: NboAttrLogDirty.cpp
   FlowOut& flowOut(Entity& entity);
   FlowOut* flowOutOf(Entity const& entity) const noexcept;
   bool isDirtyKey(Entity const& entity, FieldDescriptor const& field, void const* key);
   void flowOutDel(U32 place) noexcept;
   void markDirty(Entity& entity, FieldDescriptor const& field, void const* key, bool erased);
   /// Tells of a single value of `body` bytes, at once or by its flag. `encoded` is the message
   /// that another session was told, or null. Returns the message, if there is one now.
   U8 const* tellValue(Entity& entity, FieldDescriptor const& field, std::size_t body,
                       U8 const* encoded);
   void boundKeys(FlowOut& flow, FieldDescriptor const& field, std::size_t count);
   /// All of an entity is to be told.
   void markAll(Entity& entity);
   /// The queue is to be told from the beginning, or asked for where the peer serves it.
   void markWhole(Entity& entity, FieldDescriptor const& field);
   void queueDirty(FlowOut& flow) noexcept;
   void fallBehind() noexcept {
      if (behindSince_ == 0) {
         behindSince_ = hub_.now();
      }
   }

   // Catching up: NboAttrLogReplay.cpp
   void pump();
   void fill();
   void fillUp();
   bool runReplay(FlowOut& flowOut);
   Write flowOutOnAttributeForConnection(FlowOut& flowOut, FieldDescriptor const& field);
   U16 replayFixedSizes(FlowOut& flowOut, TypeImpl const& type, U16 row);
   Write replaySingle(FlowOut& flowOut, FieldDescriptor const& field);
   Write replayChild(FlowOut& flowOut, FieldDescriptor const& field);
   Write replayCollection(FlowOut& flowOut, FieldDescriptor const& field);
   Write replayDirtyKeys(FlowOut& flowOut, FieldDescriptor const& field);
   Write reserveMarker(Opcode opcode, FlowOut const& flowOut, FieldDescriptor const& field);
   DirtyKeyResult writeDirtyKey(FlowOut& flowOut, FieldDescriptor const& field, void const* key,
                                bool erased);
   Write replayQueue(FlowOut& flowOut, FieldDescriptor const& field);
   Write writeElement(Entity& entity, FieldDescriptor const& field, void const* key,
                      void const* value);
   Write writeErase(Entity& entity, FieldDescriptor const& field, void const* key);
   Write writeEnqueue(Entity& entity, FieldDescriptor const& field, U32 sequence,
                      void const* value);
   Write writeCreate(Entity& owner, FieldDescriptor const& field, Entity& child);
   bool writeReplayEnds();
   Served* nextReplay() noexcept;
   bool beginReplay(Served& served);
   bool descendInto(Entity& entity, bool fresh);
   void forget(Entity& entity, U32 handle);

   // Applying: NboAttrLogApply.cpp
   void parse(U8 const* bytes, std::size_t size);
   void parseOne(Header const& header, In& in);
   void keep(U8 const* bytes, std::size_t size) noexcept;
   void apply(Header const& header, In& in);
   bool applyAtOnce(Header const& header, In& in);
   void applyToEntity(Header const& header, In& in);
   void applyToQueue(Entity& entity, FieldDescriptor const& field, Header const& header, In& in);
   bool applyToServedQueue(Entity& entity, QueueOps const& queue, Header const& header, In& in,
                           Impl::FirstException& thrown);
   bool applyToMirroredQueue(Entity& entity, QueueOps const& queue, Header const& header, In& in,
                             Impl::FirstException& thrown);
   static void applyEnqueue(Entity& entity, QueueOps const& queue, U32 sequence, In& in,
                            Impl::FirstException& thrown);
   void applyErase(Entity& entity, FieldDescriptor const& field, In& in);
   void applyCreate(Incoming& target, FieldDescriptor const& field, In& in);
   Sarn::Ptr<Entity> applyCreateSingleton(Entity& owner, FieldDescriptor const& field, In& in,
                                          void* context,
                                          void (*found)(void* context, Entity& child));
   void applyToNobody(Header const& header, In& in);
   void applyCollectionMarker(Entity& entity, FieldDescriptor const& field, Header const& header,
                              In& in);
   std::size_t findOpen(Entity const& entity, FieldDescriptor const& field) const noexcept;
   void openCollection(Entity& entity, FieldDescriptor const& field, In const& in);
   void closeCollection(Entity& entity, FieldDescriptor const& field, In const& in);
   DirtyKeys* seenKeys(Entity const& entity, FieldDescriptor const& field) noexcept;
   /// A key that was changed here while the peer replays the collection stays.
   void saw(Entity const& entity, FieldDescriptor const& field, void const* key) {
      if (!open_.empty()) [[unlikely]] {
         sawInReplay(entity, field, key);
      }
   }
   void sawInReplay(Entity const& entity, FieldDescriptor const& field, void const* key);
   Sarn::String describe(Header const& header) const;
   Sarn::String faultText(Header const& header, char const* fault) const noexcept;
   /// Ends the session since the peer broke a rule.
   void closeFor(Sarn::String const& fault);

   // Greeting, mounts and handles: NboAttrLogMounts.cpp; answers to questions: NboAttrLogRoots.cpp
   // and NboAttrLogStatus.cpp
   void applyHello(In& in);
   void applyMount(In& in);
   void applyBind(Header const& header, In& in);
   void applyMountState(Header const& header, In& in);
   Sarn::String refusal(Hub::Root const* root, OfferedRoot const& asked, MountMode mode);
   void applyRoots(In& in);
   void applySessions(In& in);
   void checkRoomForAnswer(In const& in) const;
   void checkHandle(U32 handle, In const& in) const;
   /// Whether the peer has introduced an entity by exactly this handle.
   bool maps(U32 handle) const noexcept {
      U32 const place = HandleTable::place(handle);
      return place < incoming_.size() && incoming_[place].handle == handle;
   }
   /// The peer calls `entity` by this handle from now on; null if it is gone already.
   void map(U32 handle, Entity* entity, bool writable);
   void unmapTree(Entity& entity);
   /// Neither end tells the other of the root any more: what either calls its entities is void.
   void forgetTree(Entity& root);
   void forgetBelow(Entity& entity);
   void closeCollections(Entity const& entity) noexcept;
   void mountStateIs(Mount& mount, Mount::State state);
   /// Calls the listener, if there is one, and remembers that an exception is the listener's.
   template <class Call>
   void callListener(Call&& call) {
      if (listener_ != nullptr) {
         try {
            call(*listener_);
         } catch (...) {
            listenerThrew_ = true;
            throw;
         }
      }
   }

   Hub& hub_;
   SessionListener* listener_;
   CircularBuffer out_;
   std::size_t longestBody_;
   std::vector<U8> in_;
   /// The capacity of `in_` that the hub has been told of.
   std::size_t inHeld_ = 0;
   /// When the message of which a part is here began to come; 0: no part is here, or no clock is.
   U64 halfSince_ = 0;
   /// Since when it has neither sent nor received, as far as `expire` knows.
   U64 idleSince_;
   bool used_ = true;
   SessionStats stats_;
   std::unique_ptr<PartsOut> partsOut_;
   PartsIn partsIn_;
   /// The last values that were left out, and how many of them, from the end, nobody was told yet.
   std::vector<Sarn::String> leftOut_;
   std::size_t leftOutUntold_ = 0;

   std::vector<U64> introduced_;
   std::vector<std::unique_ptr<FlowOut>> flowOuts_;
   FlowOut* firstDirty_ = nullptr;
   FlowOut* lastDirty_ = nullptr;
   std::size_t dirtyCount_ = 0;
   U64 dirtySequence_ = 0;
   std::vector<std::unique_ptr<FlowOut>> walk_;
   std::size_t walkDepth_ = 0;
   bool filling_ = false;

   std::deque<Served> served_;
   std::deque<Mount> mounts_;
   std::vector<Incoming> incoming_;
   HashMap2018<U64, U32, 1> incomingHandles_;
   std::vector<OpenCollection> open_;
   std::deque<Pending> pending_;
   std::size_t consumed_ = 0;
   bool interrupted_ = false;
   bool listenerThrew_ = false;
   bool told_ = false;
   /// The publication inside which bytes are received, and the handle of the child that is being
   /// created.
   void const* inside_ = nullptr;
   U32 createHandle_ = 0;

   U64 const number_;
   PeerIdentity peer_;
   U64 const openedAt_;
   /// 0: the peer has taken everything.
   U64 behindSince_ = 0;
   U64 closedAt_ = 0;
   U32 rootsAsked_ = 0;
   U32 sessionsAsked_ = 0;
   U32 changesSent_ = 0;
   U32 changesAcked_ = 0;
   U32 changesReceived_ = 0;
   U32 acknowledged_ = 0;
   bool writesBack_ = false;
   bool greeted_ = false;
   bool closed_ = false;
   Ending ending_ = Ending::open;
   Sarn::String closeReason_;
};

/// The uppermost entity above this one; itself if it has no parent.
inline Entity const* rootOf(Entity const& entity) noexcept {
   Entity const* at = &entity;
   while (at->parent() != nullptr) {
      at = at->parent();
   }
   return at;
}

/// Messages that both ends count, so that a writer can say what it had seen when it wrote.
inline bool isChange(Opcode opcode) noexcept {
   return opcode >= Opcode::set && opcode <= Opcode::collectionEnd;
}

/// Room for a message, with its header written, or null when there is none now. A change is
/// counted here. REQUIRES: bodySize <= longestBody_.
inline U8* Session::reserve(Opcode opcode, std::size_t bodySize, U32 handle,
                            AttributeId attribute) {
   if (partsOut_ != nullptr) [[unlikely]] {
      return nullptr;  // nothing comes between the parts of a message
   }
   U8* const at = out_.reserve(headerSize + bodySize);
   if (at != nullptr) [[likely]] {
      Out out(at, headerSize);
      writeHeader(out, {opcode, static_cast<U32>(bodySize), handle, attribute});
      changesSent_ += isChange(opcode) ? 1 : 0;
   } else if (out_.empty()) [[unlikely]] {
      noRoom(headerSize + bodySize);
   }
   return at;
}

template <class Body>
bool Session::write(Opcode opcode, std::size_t bodySize, U32 handle, AttributeId attribute,
                    Body const& body) {
   if (bodySize > longestBody_) [[unlikely]] {
      return writeLong({opcode, static_cast<U32>(bodySize), handle, attribute},
                       const_cast<Body*>(&body),
                       [](void* context, Out& out) { (*static_cast<Body const*>(context))(out); });
   }
   U8* const at = reserve(opcode, bodySize, handle, attribute);
   if (at == nullptr) {
      return false;
   }
   Out out(at + headerSize, bodySize);
   body(out);
   commit(headerSize + bodySize);
   return true;
}

}  // namespace Kiv::NboAttrLog
