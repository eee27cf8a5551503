// Batches: what comes between `begin` and `commit` waits until all of it has arrived, and is then
// applied at once, or not at all.
#include "Kiv/Log/BatchCheck.h"
#include "Kiv/Log/Inbound.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

/// Takes the batch that begins with the next message, if it has arrived. False if not, or if the
/// session has been closed.
///
/// A writer's batch that is too long is refused as it comes, from its first message on.
bool Inbound::takeBatch(U8 const* bytes, std::size_t size) {
   U8 const* const begin = bytes + consumed_;
   U32 const token = batchToken(begin);
   if (closing_.closed()) {
      return false;
   }
   bool const sends = mounts_.peerWrites() || !mounts_.own().empty();
   std::size_t const longest = token != 0 ? limits_.transactionBytes : longestFromSource();
   std::size_t const bound = sends ? longest : shortMessage_;
   switch (scan_.scan(begin, size - consumed_, bound)) {
      case BatchScan::Found::nothing:
         return false;
      case BatchScan::Found::bye:
         consumed_ += scan_.size();
         return true;
      case BatchScan::Found::nested:
         failFor("a batch begins inside another");
         return false;
      case BatchScan::Found::malformed:
         failFor("the end of a batch has not 5 bytes");
         return false;
      case BatchScan::Found::tooLong:
         if (token == 0) {
            failFor("a batch exceeds the bound of " + std::to_string(bound) + " bytes");
            return false;
         }
         beginRefused(token, "it exceeds the bound of " + std::to_string(bound) + " bytes");
         return true;
      case BatchScan::Found::whole:
         break;
   }
   applyBatch(bytes, scan_.size(), token);
   return !closing_.closed();
}

/// What the peer may send in a batch that it need not have accepted: it looks at the bound each
/// time that it has filled its output.
std::size_t Inbound::longestFromSource() const noexcept {
   return 2 * (limits_.transactionBytes + limits_.longestValue) + limits_.outputBuffer;
}

/// The number of the batch that begins at `begin`.
U32 Inbound::batchToken(U8 const* begin) {
   Header const header = readHeader(begin);
   if (header.bodySize != 4) {
      failFor(describe(header) + ": the beginning of a batch has " +
              std::to_string(header.bodySize) + " bytes instead of 4");
      return 0;
   }
   return readNumber<U32>(begin + headerSize);
}

void Inbound::beginRefused(U32 token, Sarn::String reason) {
   consumed_ += headerSize + 4;
   ++messages_;
   refused_ = token;
   refusedWhy_ = std::move(reason);
}

void Inbound::applyBatch(U8 const* bytes, std::size_t size, U32 token) {
   std::size_t const end = consumed_ + size;
   if (token != 0) {
      Sarn::String reason =
            whyNot(bytes + consumed_ + headerSize + 4, bytes + consumed_ + scan_.commitAt());
      if (!reason.empty()) {
         beginRefused(token, std::move(reason));
         return;  // its messages follow, as those of one that is too long
      }
   }
   consumed_ += headerSize + 4;
   ++messages_;
   applied_ = token;
   struct Batch {
      Inbound& inbound;
      ~Batch() {
         inbound.applied_ = 0;
         inbound.control_.onBatchEnd();
      }
   } const batch{*this};
   control_.onBatchBegin();
   // An observer that throws must not leave half of the batch for the next turn.
   Impl::FirstException thrown;
   while (consumed_ < end && !closing_.closed()) {
      std::size_t const before = consumed_;
      thrown.attempt([&] { parse(bytes, end); });
      if (consumed_ == before) {
         failFor("the batch ends within a message");
      }
   }
   thrown.rethrow();
}

/// Why the messages of a writer's batch cannot be applied; empty if they can. `end`: where `commit`
/// begins.
Sarn::String Inbound::whyNot(U8 const* begin, U8 const* end) {
   if (end[headerSize + 4] != 0) {
      return "the writer could not send it at once, and has changed it meanwhile";
   }
   BatchCheck check(names_, mounts_, handles_, budget_);
   try {
      check.run(begin, end, limits_.longestValue);
      return {};
   } catch (Exception const& error) {
      return faultText(check.last(), error.what());
   }
}

/// `commit`: the end of a batch that has been applied or refused.
void Inbound::applyCommit(In& in) {
   U32 const token = in.nextU32();
   bool const torn = in.nextbool();
   in.expectEnd();
   U32 const begun = refused_ != 0 ? refused_ : applied_;
   if (token != begun) {
      in.fault("batch " + std::to_string(begun) + " ends as batch " + std::to_string(token), 5);
   }
   if (refused_ == 0) {
      control_.onCommitted(token, torn);
      return;
   }
   refused_ = 0;
   teller_.denied().answerLater(token, std::move(refusedWhy_));
   refusedWhy_.clear();
}

}  // namespace Kiv::NboAttrLog
