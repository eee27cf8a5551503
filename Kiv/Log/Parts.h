#pragma once

#include <memory>
#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogCircularBuffer.h"

/// Messages that are longer than one may be: their bodies travel in parts, one behind the other and
/// with nothing between them. See `docs/attribute-log.md`.
namespace Kiv::NboAttrLog {

/// What stands before the bytes of a part: the message's opcode, its size, where the bytes belong.
inline constexpr std::size_t partHeaderSize = 1 + 4 + 4;
/// The most bytes of a message that one part takes, so that others get their turn on the wire.
inline constexpr std::size_t longestPart = std::size_t(1) << 16;

/// A message on its way out. Holds its body until the last part is written.
class PartsOut {
public:
   /// Null if there is no memory for the body. The caller encodes it at `body()`.
   static std::unique_ptr<PartsOut> make(Header const& header, ByteBudget& budget) noexcept;
   ~PartsOut();
   PartsOut(PartsOut const&) = delete;
   PartsOut& operator=(PartsOut const&) = delete;

   U8* body() noexcept { return body_.get(); }
   Header const& header() const noexcept { return header_; }
   /// Bytes that are in no part yet.
   std::size_t left() const noexcept { return header_.bodySize - written_; }
   /// Writes the next part, with its header, of `size` bytes of the message.
   /// REQUIRES: 0 < size <= left(), and room in `out` for `headerSize + partHeaderSize + size`.
   void write(Out& out, std::size_t size) noexcept;

private:
   PartsOut() noexcept = default;

   Header header_{};
   ByteBudget* budget_ = nullptr;
   std::unique_ptr<U8[]> body_;
   std::size_t written_ = 0;
};

/// A message on its way in. Holds what has come of it.
class PartsIn {
public:
   explicit PartsIn(ByteBudget& budget) noexcept : budget_(budget) {}
   ~PartsIn() { clear(); }
   PartsIn(PartsIn const&) = delete;
   PartsIn& operator=(PartsIn const&) = delete;

   /// Whether parts of a message have come and others are still to come.
   bool any() const noexcept { return !bytes_.empty(); }
   /// Takes a part. True if it was the last one. Throws `FaultException` if it is not the one that
   /// is to come next. `bound`: the most bytes that a message of this kind may have.
   bool add(Header const& header, In& in, std::size_t (*bound)(void* context, Opcode opcode),
            void* context);
   /// Of the whole message.
   Header const& header() const noexcept { return header_; }
   /// The body of the whole message; nothing is held any more.
   std::vector<U8> take() noexcept;
   void clear() noexcept { take(); }
   /// Bytes of memory that it holds.
   std::size_t heldBytes() const noexcept { return bytes_.capacity(); }

private:
   ByteBudget& budget_;
   Header header_{};
   std::vector<U8> bytes_;
};

}  // namespace Kiv::NboAttrLog
