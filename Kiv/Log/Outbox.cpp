#include "Kiv/Log/Outbox.h"

#include <algorithm>

namespace Kiv::NboAttrLog {

Outbox::Outbox(Limits const& limits, ByteBudget& budget, Clock const& clock,
               Closing& closing) noexcept
      : ring_(std::min(limits.outputBuffer, limits.unmounted), limits.outputBuffer, &budget),
        longestBody_(std::min(limits.longestMessage, limits.outputBuffer - headerSize - 1)),
        limits_(limits),
        budget_(budget),
        clock_(clock),
        closing_(closing) {}

bool Outbox::copy(U8 const* message, std::size_t size) noexcept {
   U8* const at = ring_.reserve(size);
   if (at == nullptr) {
      if (ring_.empty()) {
         noRoom(size);
      }
      return false;
   }
   std::memcpy(at, message, size);
   ++changes_;
   commit(size);
   return true;
}

/// As `write`, in parts. The greeting may not travel in parts: like a body too long for them, it
/// ends the session.
bool Outbox::writeLong(Header const& header, void* context, void (*body)(void* context, Out& out)) {
   if (parts_ != nullptr) {
      return false;
   }
   bool const inParts = header.opcode != Opcode::hello && longestBody_ > partHeaderSize &&
                        header.bodySize <= limits_.longestValue;
   parts_ = inParts ? PartsOut::make(header, budget_) : nullptr;
   if (parts_ == nullptr) {
      closing_.fail("a message of " + std::to_string(header.bodySize) + " bytes " +
                    (inParts ? Sarn::String("finds no memory")
                             : "exceeds the bound of " + std::to_string(longestBody_)));
      return false;
   }
   Out out(parts_->body(), header.bodySize);
   body(context, out);
   changes_ += isChange(header.opcode) ? 1 : 0;
   if (!writeParts()) {
      fallBehind();
   }
   return true;
}

bool Outbox::writeParts() noexcept {
   while (parts_ != nullptr) {
      std::size_t const most = std::min(longestBody_ - partHeaderSize, longestPart);
      std::size_t const size = std::min(parts_->left(), most);
      std::size_t const whole = headerSize + partHeaderSize + size;
      U8* const at = ring_.reserve(whole);
      if (at == nullptr) {
         if (ring_.empty()) {
            noRoom(whole);
         }
         return false;
      }
      Out out(at, whole);
      parts_->write(out, size);
      commit(whole);
      if (parts_->left() == 0) {
         parts_.reset();
      }
   }
   return true;
}

void Outbox::noRoom(std::size_t size) noexcept {
   bool const exhausted =
         ByteBudget::charge(size) > budget_.bound - std::min(budget_.bound, budget_.held);
   if (!exhausted) {
      closing_.fail(outOfMemory());
      return;
   }
   closing_.orFail([&] {
      closing_.fail("a message of " + std::to_string(size) +
                    " bytes finds no room: the connections hold " + std::to_string(budget_.held) +
                    " bytes of " + std::to_string(budget_.bound));
   });
}

}  // namespace Kiv::NboAttrLog
