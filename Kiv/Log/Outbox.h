#pragma once

#include <cstring>

#include "Kiv/Log/Clock.h"
#include "Kiv/Log/Closing.h"
#include "Kiv/Log/Cursor.h"
#include "Kiv/Log/Parts.h"
#include "Kiv/NboAttrLogLimits.h"

namespace Kiv::NboAttrLog {

/// The longest body of a message: a message fits into an empty output.
inline std::size_t longestBody(Limits const& limits) noexcept {
   return std::min(limits.longestMessage, limits.outputBuffer - headerSize - 1);
}

/// The pending output of one session: what was written for it alone, then what it has not read of
/// the hub's `Ring`; and at most one message that is longer than a message may be and travels in
/// parts.
///
///     write ---- fits ----> own bytes ----> first(), second() ---- sent ---->
///        |                      ^      ^
///        |                      |      '---- then, straight from there: the unread rest of the
///        ring |                      '---- before the next own byte, a copy of that rest
///        '---- too long ----> parts: body in separate memory
///                                '---- one part at a time, nothing in between ----> own bytes
///
/// Invariants:
/// - all own bytes precede all bytes that are unread in the ring;
/// - if `write` or `reserve` finds no space, it has no effect; it may be retried when something has
///   been sent;
/// - while a message travels in parts, nothing else gets space;
/// - `changes()` counts the changes that were written; both ends arrive at the same count;
/// - a message that finds no space in an empty outbox never will: the session fails.
class Outbox {
public:
   /// The space is small until `hasMount`.
   Outbox(Limits const& limits, ByteBudget& budget, Clock const& clock, Ring& ring,
          Closing& closing) noexcept;

   // Writing.

   /// Reserves space for a message and writes its header; null if there is no space now. A change
   /// is counted here, so `commit` must follow. REQUIRES: bodySize <= longestBody().
   U8* reserve(Opcode opcode, std::size_t bodySize, U32 handle, AttributeId attribute) noexcept {
      U8* const at = parts_ == nullptr ? space(headerSize + bodySize) : nullptr;
      if (at != nullptr) [[likely]] {
         Out out(at, headerSize);
         writeHeader(out, {opcode, static_cast<U32>(bodySize), handle, attribute});
         changes_ += isChange(opcode) ? 1 : 0;
      }
      return at;
   }
   /// The reserved message of `size` bytes, header included, has been written.
   void commit(std::size_t size) noexcept { commit(size, 1); }
   /// Writes a message; `body(out)` writes exactly `bodySize` bytes. False if there is no space
   /// now.
   template <class Body>
   bool write(Opcode opcode, std::size_t bodySize, U32 handle, AttributeId attribute,
              Body const& body) {
      if (bodySize > longestBody_) [[unlikely]] {
         return writeLong(
               {opcode, static_cast<U32>(bodySize), handle, attribute}, const_cast<Body*>(&body),
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
   /// The same for a message without a body.
   bool writeEmpty(Opcode opcode, U32 handle, AttributeId attribute) noexcept {
      if (reserve(opcode, 0, handle, attribute) == nullptr) {
         return false;
      }
      commit(headerSize);
      return true;
   }
   /// Writes a copy of another session's message of one change.
   bool copy(U8 const* message, std::size_t size) noexcept;
   /// Reserves space for several changes, which the caller writes with their headers; null if there
   /// is none.
   U8* reserveRun(std::size_t size) noexcept {
      return parts_ == nullptr && takeRest() ? own_.reserve(size) : nullptr;
   }
   void commitRun(std::size_t size, U32 count) noexcept {
      commit(size, count);
      changes_ += count;
   }
   /// Continues the message that travels in parts. False if there is no space now.
   bool writeParts() noexcept;
   /// Drops the message that travels in parts.
   void dropParts() noexcept { parts_.reset(); }

   // Limits.

   /// Something is mounted: the output may take its full size.
   void hasMount() noexcept {
      own_.limitIs(limits_.outputBuffer);
      boundCursor();
   }
   /// Whether the output may take a whole transaction in addition.
   void roomForBatchIs(bool room) noexcept {
      own_.limitBeyondIs(limits_.outputBuffer + (room ? limits_.transactionBytes : 0));
   }
   /// The longest body that fits into one message.
   std::size_t longestBody() const noexcept { return longestBody_; }
   /// Whether a body of this size is too long even for parts.
   bool isLeftOut(std::size_t bodySize) const noexcept {
      return bodySize > longestBody_ && bodySize > limits_.longestValue;
   }

   // Sending.

   CircularBuffer::Piece first() const noexcept {
      return own_.empty() ? cursor_.first() : own_.first();
   }
   CircularBuffer::Piece second() const noexcept;
   /// REQUIRES: size <= first().size + second().size.
   void consume(std::size_t size) noexcept;
   bool empty() const noexcept { return own_.empty() && cursor_.first().size == 0; }
   /// Whether a message travels in parts.
   bool inParts() const noexcept { return parts_ != nullptr; }
   /// Drops the pending bytes.
   void clear() noexcept;
   /// Frees all memory but `kept` bytes, if nothing is pending.
   void shrink(std::size_t kept) noexcept { own_.shrink(kept); }
   std::size_t capacity() const noexcept { return own_.capacity(); }

   // The hub's ring.

   /// Reads the ring from now on, if nothing is unread there.
   void follow() noexcept {
      boundCursor();
      cursor_.follow();
   }
   Cursor& cursor() noexcept { return cursor_; }
   Cursor const& cursor() const noexcept { return cursor_; }

   /// The peer counts as behind from now on, if it does not already.
   void fallBehind() noexcept {
      if (behindSince_ == 0) {
         behindSince_ = clock_.now();
      }
   }
   /// The peer has taken everything.
   void caughtUp() noexcept { behindSince_ = 0; }

   // Counters.

   U32 changes() const noexcept { return changes_ + static_cast<U32>(cursor_.messages()); }
   U64 messages() const noexcept { return messages_ + cursor_.messages(); }
   U64 bytes() const noexcept { return bytes_ + cursor_.bytes(); }
   /// Pending bytes, and the most that may be pending.
   std::size_t waiting() const noexcept { return own_.size() + cursor_.unread() + left(); }
   std::size_t room() const noexcept { return own_.limit() + left(); }
   std::size_t heldBytes() const noexcept {
      return own_.capacity() + (parts_ != nullptr ? parts_->header().bodySize : 0);
   }
   /// Nanoseconds that the peer has been behind; 0 if it is not.
   U64 behind() const noexcept { return behindSince_ != 0 ? clock_.now() - behindSince_ : 0; }

private:
   void commit(std::size_t size, U32 messages) noexcept {
      own_.commit(size);
      messages_ += messages;
      bytes_ += size;
      if (cursor_.following()) {
         boundCursor();
      }
   }
   /// Contiguous space for own bytes; null if there is none now.
   U8* space(std::size_t size) noexcept {
      if (!takeRest()) [[unlikely]] {
         return nullptr;
      }
      U8* const at = own_.reserve(size);
      if (at == nullptr && own_.empty()) [[unlikely]] {
         noRoom(size);
      }
      return at;
   }
   /// Copies the unread rest of the ring behind the own bytes. False if there is no space for all
   /// of it now.
   bool takeRest() noexcept { return cursor_.atEnd() || copyRest(); }
   bool copyRest() noexcept;
   void boundCursor() noexcept {
      cursor_.spaceIs(own_.limit() - std::min(own_.limit(), own_.size()));
   }
   std::size_t left() const noexcept { return parts_ != nullptr ? parts_->left() : 0; }
   bool writeLong(Header const& header, void* context, void (*body)(void* context, Out& out));
   void noRoom(std::size_t size) noexcept;

   CircularBuffer own_;
   Cursor cursor_;
   std::unique_ptr<PartsOut> parts_;
   std::size_t longestBody_;
   U32 changes_ = 0;
   U64 messages_ = 0;
   U64 bytes_ = 0;
   /// 0 if the peer has taken everything.
   U64 behindSince_ = 0;
   Limits const& limits_;
   ByteBudget& budget_;
   Clock const& clock_;
   Closing& closing_;
};

}  // namespace Kiv::NboAttrLog
