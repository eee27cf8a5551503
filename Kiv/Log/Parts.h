#pragma once

#include <memory>
#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogCircularBuffer.h"

/// Messages that exceed the message limit: their bodies travel in consecutive parts, with nothing
/// in between. See `docs/attribute-log.md`.
namespace Kiv::NboAttrLog {

/// Precedes the bytes of a part: opcode and size of the message, offset of the bytes in its body.
inline constexpr std::size_t partHeaderSize = 1 + 4 + 4;
/// The most bytes of a message in one part, so that other connections get their turn.
inline constexpr std::size_t longestPart = std::size_t(1) << 16;

/// An outgoing message. Holds its body until the last part is written.
class PartsOut {
public:
   /// Null if there is no memory for the body, which the caller encodes at `body()`.
   static std::unique_ptr<PartsOut> make(Header const& header, ByteBudget& budget) noexcept;
   ~PartsOut();
   PartsOut(PartsOut const&) = delete;
   PartsOut& operator=(PartsOut const&) = delete;

   U8* body() noexcept { return body_.get(); }
   Header const& header() const noexcept { return header_; }
   /// Bytes of the body not written yet.
   std::size_t left() const noexcept { return header_.bodySize - written_; }
   /// Writes the next part: its header and `size` bytes of the body.
   /// REQUIRES: 0 < size <= left(), and room in `out` for `headerSize + partHeaderSize + size`.
   void write(Out& out, std::size_t size) noexcept;

private:
   PartsOut() noexcept = default;

   Header header_{};
   ByteBudget* budget_ = nullptr;
   std::unique_ptr<U8[]> body_;
   std::size_t written_ = 0;
};

/// An incoming message. Holds what has arrived of it.
class PartsIn {
public:
   explicit PartsIn(ByteBudget& budget) noexcept : budget_(budget) {}
   ~PartsIn() { clear(); }
   PartsIn(PartsIn const&) = delete;
   PartsIn& operator=(PartsIn const&) = delete;

   /// Whether a message has begun and is incomplete.
   bool any() const noexcept { return !bytes_.empty(); }
   /// Adds a part; true if it was the last one. Throws `FaultException` if it is not the part that
   /// must come next. `bound`: the most bytes that a message of this kind may have.
   bool add(Header const& header, In& in, std::size_t (*bound)(void* context, Opcode opcode),
            void* context);
   /// The header of the complete message.
   Header const& header() const noexcept { return header_; }
   /// Takes the body of the complete message out.
   std::vector<U8> take() noexcept;
   void clear() noexcept { take(); }
   /// The bytes of its body that have arrived.
   std::size_t size() const noexcept { return bytes_.size(); }
   /// Bytes of memory that it holds.
   std::size_t heldBytes() const noexcept { return bytes_.capacity(); }

private:
   ByteBudget& budget_;
   Header header_{};
   std::vector<U8> bytes_;
};

}  // namespace Kiv::NboAttrLog
