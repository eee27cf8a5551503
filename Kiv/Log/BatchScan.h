#pragma once

#include "Kiv/Log/Wire.h"

namespace Kiv::NboAttrLog {

/// Finds the end of a batch in received bytes, which may come in any pieces. It looks at each
/// message once.
///
///     | begin | set | create | ... | commit |
///     0                      ^ scanned_
class BatchScan {
public:
   enum class Found : U8 {
      /// The end has not arrived.
      nothing,
      /// `size()` bytes from `begin` to the end of `commit`.
      whole,
      /// The peer ends the connection instead: `bye` begins at `size()`.
      bye,
      /// More than the bound, and no end.
      tooLong,
      /// Another `begin`, or a `commit` of the wrong size.
      nested,
      malformed,
   };

   /// `at`: where `begin` is. `size`: the bytes that have arrived. `bound`: the most bytes before
   /// the end. Forgets the batch when anything is found.
   Found scan(U8 const* at, std::size_t size, std::size_t bound) noexcept {
      Found found = Found::nothing;
      while (found == Found::nothing && size - scanned_ >= headerSize) {
         Header const header = readHeader(at + scanned_);
         std::size_t const next = scanned_ + headerSize + header.bodySize;
         bool const complete = next <= size;
         if (header.opcode == Opcode::bye && complete) {
            found = Found::bye;
         } else if (header.opcode == Opcode::begin && scanned_ != 0) {
            found = Found::nested;
         } else if (next > bound) {
            found = Found::tooLong;
         } else if (!complete) {
            return found;
         } else if (header.opcode == Opcode::commit && header.bodySize != 5) {
            found = Found::malformed;
         } else {
            found = header.opcode == Opcode::commit ? Found::whole : Found::nothing;
            last_ = scanned_;
            scanned_ = next;
            ++messages_;
         }
      }
      if (found != Found::nothing) {
         size_ = scanned_;
         scanned_ = 0;
      }
      return found;
   }
   std::size_t size() const noexcept { return size_; }
   /// Where `commit` begins.
   std::size_t commitAt() const noexcept { return last_; }
   /// Whether the received bytes begin with an incomplete batch.
   bool any() const noexcept { return scanned_ != 0; }
   /// All messages that it has ever looked at.
   U64 messages() const noexcept { return messages_; }
   void clear() noexcept { scanned_ = 0; }

private:
   std::size_t scanned_ = 0;
   std::size_t last_ = 0;
   std::size_t size_ = 0;
   U64 messages_ = 0;
};

}  // namespace Kiv::NboAttrLog
