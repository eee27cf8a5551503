#pragma once

#include <vector>

#include "Kiv/FirstException.h"
#include "Kiv/Log/BatchScan.h"
#include "Kiv/Log/Parts.h"
#include "Kiv/Log/RootWatcher.h"
#include "Kiv/Log/Teller.h"

namespace Kiv::NboAttrLog {

/// The receiving half of a session: cuts bytes into messages, checks each, and applies changes
/// through the entities' setters. It passes all other messages to the session.
///
///     bytes ----> header ---- greeted? short enough? ----> complete? ----> part? ----> apply
///       ^                        | no: a fault               | no                        |
///       '---- kept for the next call <-----------------------'          setter, or Control
///
/// The first message that breaks a rule closes the session, and nothing of it is applied. If an
/// observer throws, `take` throws the same; the next call resumes after that message.
///
/// Invariants:
/// - `kept_` holds received bytes that have not been parsed: less than one message, unless an
///   observer threw;
/// - `take` is not called from inside itself: it would lose its place.
class Inbound {
public:
   /// Handles messages that are not changes, and bounds what the peer may send: the session, in
   /// `SessionControl.cpp`.
   class Control {
   public:
      /// Applies the message. Throws `FaultException`, or whatever the listener throws.
      virtual void onControl(Header const& header, In& in) = 0;
      /// The session was closed for a fault: notifies whoever must know.
      virtual void onFailed() = 0;
      /// The longest body that the peer has a reason to send, in one message and in parts.
      virtual std::size_t longestMessage() const noexcept = 0;
      virtual std::size_t longestInParts(Opcode opcode) const noexcept = 0;
      /// Everything applied from the one call to the other belongs together.
      virtual void onBatchBegin() noexcept = 0;
      virtual void onBatchEnd() noexcept = 0;
      /// A batch has been applied. `torn`: the peer had to send it in pieces.
      virtual void onCommitted(U32 token, bool torn) = 0;

   protected:
      ~Control() = default;
   };

   Inbound(Limits const& limits, ByteBudget& budget, Clock const& clock, Applying& applying,
           Handles const& handles, Closing& closing, Mounts const& mounts, OpenCollections& open,
           Teller& teller, Control& control) noexcept;
   ~Inbound() { freeKept(); }

   /// Applies the messages in these bytes; keeps an incomplete one for the next call.
   void take(U8 const* bytes, std::size_t size);
   /// Applies one change as if a message with this header had been received. Throws if it is
   /// invalid.
   void applyAlone(Header const& header, In& in);
   /// Whether the last `take` threw: received bytes may still be unparsed.
   bool interrupted() const noexcept { return interrupted_; }
   /// Notes that the exception now in flight is the listener's, not a fault of the peer.
   void listenerThrows() noexcept { listenerThrew_ = true; }
   bool greeted() const noexcept { return greeted_; }
   void hasGreeted() noexcept { greeted_ = true; }

   // Memory and time.

   /// Drops the received bytes; those being parsed are dropped when `take` is done with them.
   void drop() noexcept;
   /// Frees memory that is not in use.
   void freeIdle() noexcept;
   bool holdsIdleBytes() const noexcept { return kept_.empty() && kept_.capacity() != 0; }
   std::size_t heldBytes() const noexcept { return kept_.capacity() + parts_.heldBytes(); }
   /// Since when a message has been incomplete; 0 if none is, or if there is no clock.
   U64 halfSince() const noexcept { return parts_.any() ? partsSince_ : halfSince_; }
   /// The bytes of it that have arrived.
   std::size_t halfBytes() const noexcept { return kept_.size() + parts_.size(); }

   U64 messages() const noexcept { return messages_; }
   U64 bytes() const noexcept { return bytes_; }

private:
   void completeKept(U8 const*& begin, U8 const* end);
   void parse(U8 const* bytes, std::size_t size);
   void parseOne(Header const& header, In& in);
   template <class HeaderOf, class Work>
   void attempt(HeaderOf const& headerOf, Work const& work);
   void keep(U8 const* bytes, std::size_t size) noexcept;
   void boundKept(U64 before);
   void freeKept() noexcept;
   void apply(Header const& header, In& in);
   class Run;
   class Scout;
   bool applyRun(U8 const* bytes, U8 const* end);
   bool applyRunTo(Entity& entity, Run& run);
   static U8 const* applySimple(Entity& entity, TypeImpl const& type, U32 handle, Run& run,
                                U8 const* at);
   bool isOfAnother(Header const& header) const noexcept;
   void applyPart(Header const& header, In& in);
   // Batches: InboundBatch.cpp
   bool takeBatch(U8 const* bytes, std::size_t size);
   std::size_t longestFromSource() const noexcept;
   U32 batchToken(U8 const* begin);
   void beginRefused(U32 token, Sarn::String reason);
   void applyBatch(U8 const* bytes, std::size_t size, U32 token);
   Sarn::String whyNot(U8 const* begin, U8 const* end);
   void applyCommit(In& in);
   // Changes, also those of a replay: InboundChanges.cpp
   void applyChange(Header const& header, In& in);
   void applyToNobody(Header const& header, In& in);
   void applyErase(Entity& entity, FieldDescriptor const& field, In& in);
   void applyCreate(Names::Theirs& target, FieldDescriptor const& field, In& in);
   class Creation;
   Sarn::Ptr<Entity> applyCreateSingleton(Entity& owner, FieldDescriptor const& field, In& in,
                                          Creation& creation);
   void applyCollectionMarker(Entity& entity, FieldDescriptor const& field, Header const& header,
                              In& in);
   void applyToQueue(Entity& entity, FieldDescriptor const& field, Header const& header, In& in);
   static bool applyToServedQueue(Entity& entity, QueueOps const& queue, Header const& header,
                                  In& in, Impl::FirstException& thrown);
   static bool applyToMirroredQueue(Entity& entity, QueueOps const& queue, Header const& header,
                                    In& in, Impl::FirstException& thrown);
   static void applyEnqueue(Entity& entity, QueueOps const& queue, U32 sequence, In& in,
                            Impl::FirstException& thrown);
   // Faults.
   void failFor(Sarn::String reason);
   Sarn::String describe(Header const& header) const;
   Sarn::String faultText(Header const& header, char const* fault) const noexcept;

   /// A body up to this size is always allowed.
   std::size_t const shortMessage_;
   Limits const& limits_;
   ByteBudget& budget_;
   Clock const& clock_;
   Applying& applying_;
   Handles const& handles_;
   Closing& closing_;
   Mounts const& mounts_;
   OpenCollections& open_;
   Teller& teller_;
   Names& names_;
   Control& control_;
   std::vector<U8> kept_;
   /// The capacity of `kept_` that is charged to the budget.
   std::size_t charged_ = 0;
   PartsIn parts_;
   BatchScan scan_;
   /// The token of the batch that is being applied; 0 if none is, or if it asks for no answer.
   U32 applied_ = 0;
   /// The token of the batch that is being refused, and why; 0 if none is.
   U32 refused_ = 0;
   Sarn::String refusedWhy_;
   /// How many of the bytes being parsed have been applied.
   std::size_t consumed_ = 0;
   /// Since when the message in `kept_` has been incomplete, and the one in `parts_`.
   U64 halfSince_ = 0;
   U64 partsSince_ = 0;
   U64 messages_ = 0;
   U64 bytes_ = 0;
   /// The publication inside which `take` was called.
   void const* inside_ = nullptr;
   bool taking_ = false;
   bool greeted_ = false;
   bool interrupted_ = false;
   bool listenerThrew_ = false;
};

}  // namespace Kiv::NboAttrLog
