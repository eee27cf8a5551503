#include "Kiv/Log/Outbox.h"

#include <algorithm>

namespace Kiv::NboAttrLog {

Outbox::Outbox(Limits const& limits, ByteBudget& budget, Clock const& clock, Ring& ring,
               Closing& closing) noexcept
      : own_(std::min(limits.outputBuffer, limits.unmounted), limits.outputBuffer, &budget),
        cursor_(ring, own_.limit()),
        longestBody_(Kiv::NboAttrLog::longestBody(limits)),
        limits_(limits),
        budget_(budget),
        clock_(clock),
        closing_(closing) {}

bool Outbox::copy(U8 const* message, std::size_t size) noexcept {
   U8* const at = parts_ == nullptr ? space(size) : nullptr;
   if (at == nullptr) {
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
   cursor_.leave();
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
      U8* const at = space(whole);
      if (at == nullptr) {
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

bool Outbox::copyRest() noexcept {
   for (CircularBuffer::Piece rest = cursor_.first(); rest.size != 0; rest = cursor_.first()) {
      U8* const at = own_.reserve(rest.size);
      if (at == nullptr) {
         return false;
      }
      std::memcpy(at, rest.begin, rest.size);
      own_.commit(rest.size);
      cursor_.consume(rest.size);
   }
   cursor_.skip();
   return true;
}

CircularBuffer::Piece Outbox::second() const noexcept {
   if (own_.empty()) {
      return cursor_.second();
   }
   CircularBuffer::Piece const wrapped = own_.second();
   return wrapped.size != 0 ? wrapped : cursor_.first();
}

void Outbox::consume(std::size_t size) noexcept {
   std::size_t const own = std::min(size, own_.size());
   if (own != 0) {
      own_.consume(own);
      if (own_.empty() && own_.capacity() > limits_.outputBuffer) [[unlikely]] {
         own_.shrink(0);  // it has held a transaction
      }
      boundCursor();
   }
   cursor_.consume(size - own);
}

void Outbox::clear() noexcept {
   own_.clear();
   cursor_.clear();
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
