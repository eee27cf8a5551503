#pragma once

#include <vector>

#include "Kiv/FirstException.h"
#include "Kiv/Log/Parts.h"
#include "Kiv/Log/RootWatcher.h"
#include "Kiv/Log/Teller.h"

namespace Kiv::NboAttrLog {

/// What a session takes from its peer: cuts bytes into messages, checks each, and applies those
/// that are changes through the entities' setters. What is no change is for the session.
///
///     bytes ----> header ---- greeted? short enough? ----> whole? ----> part? ----> apply
///       ^                        | no: a fault               | no                     |
///       '---- kept for the next call <-----------------------'          setter, or Control
///
/// The first message that breaks a rule closes the session, and nothing of it is applied. What an
/// observer throws comes out of `take`, which goes on behind that message with the next call.
///
/// Invariants:
/// - `kept_` holds what came and was not looked at, which is less than one message unless an
///   observer has thrown;
/// - `take` is not called from inside itself: where to go on would be lost.
class Inbound {
public:
   /// Messages that are no changes, and what the session expects.
   class Control {
   public:
      /// Applies the message. Throws `FaultException`, or what the listener throws.
      virtual void onControl(Header const& header, In& in) = 0;
      /// The session was closed for a fault: tells who is to hear of that.
      virtual void onFailed() = 0;
      /// The longest body of a message that the peer has a reason to send, in one piece and in
      /// parts.
      virtual std::size_t longestMessage() const noexcept = 0;
      virtual std::size_t longestInParts(Opcode opcode) const noexcept = 0;

   protected:
      ~Control() = default;
   };

   Inbound(Limits const& limits, ByteBudget& budget, Clock const& clock, Handles const& handles,
           Applying& applying, Closing& closing, Mounts const& mounts, OpenCollections& open,
           Teller& teller, Control& control) noexcept;
   ~Inbound() { freeKept(); }

   /// Applies the messages in these bytes; keeps what is not whole.
   void take(U8 const* bytes, std::size_t size);
   /// Applies one change as if a message with this header had come. Throws what is wrong with it.
   void applyAlone(Header const& header, In& in);
   /// Whether the last `take` was left by an exception: bytes may wait for the next.
   bool interrupted() const noexcept { return interrupted_; }
   /// Remembers that what is thrown now is the listener's and no fault of the peer.
   void listenerThrows() noexcept { listenerThrew_ = true; }
   bool greeted() const noexcept { return greeted_; }
   void hasGreeted() noexcept { greeted_ = true; }

   // Memory and time.

   /// Drops what came; what is being looked at is dropped when that is done.
   void drop() noexcept;
   /// Gives memory back that is not in use.
   void freeIdle() noexcept;
   bool holdsIdleBytes() const noexcept { return kept_.empty() && kept_.capacity() != 0; }
   std::size_t heldBytes() const noexcept { return kept_.capacity() + parts_.heldBytes(); }
   /// When the message of which a part is here began to come; 0 if there is none, or no clock.
   U64 halfSince() const noexcept { return halfSince_; }
   std::size_t keptBytes() const noexcept { return kept_.size(); }

   U64 messages() const noexcept { return messages_; }
   U64 bytes() const noexcept { return bytes_; }

private:
   void parse(U8 const* bytes, std::size_t size);
   void parseOne(Header const& header, In& in);
   void keep(U8 const* bytes, std::size_t size) noexcept;
   void boundKept(U64 before);
   void freeKept() noexcept;
   void apply(Header const& header, In& in);
   void applyChange(Header const& header, In& in);
   bool applyAtOnce(Header const& header, In& in);
   void applyPart(Header const& header, In& in);
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
   void failFor(Sarn::String reason);
   Sarn::String describe(Header const& header) const;
   Sarn::String faultText(Header const& header, char const* fault) const noexcept;

   Limits const& limits_;
   /// A body that is not longer need not be looked at more closely.
   std::size_t const shortMessage_;
   ByteBudget& budget_;
   Clock const& clock_;
   Handles const& handles_;
   Applying& applying_;
   Closing& closing_;
   Mounts const& mounts_;
   OpenCollections& open_;
   Teller& teller_;
   Names& names_;
   Control& control_;
   std::vector<U8> kept_;
   /// The capacity of `kept_` that the budget has been told of.
   std::size_t charged_ = 0;
   PartsIn parts_;
   /// Bytes of those that are being looked at that have been applied.
   std::size_t consumed_ = 0;
   U64 halfSince_ = 0;
   U64 messages_ = 0;
   U64 bytes_ = 0;
   /// The publication inside which bytes are taken.
   void const* inside_ = nullptr;
   bool taking_ = false;
   bool greeted_ = false;
   bool interrupted_ = false;
   bool listenerThrew_ = false;
};

}  // namespace Kiv::NboAttrLog
