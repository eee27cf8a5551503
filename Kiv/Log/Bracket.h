#pragma once

#include "Kiv/Log/Backlog.h"

namespace Kiv::NboAttrLog {

/// The bracket around what one peer is sent of a batch, so that it applies all of it at once:
///
///     begin | what the batch has changed, as the backlog sends it | commit
///
/// A peer that is behind gets its bracket later, around the same: it opens before the next change
/// that is sent after the batch, and closes when all of the batch has been sent. Batches that come
/// meanwhile join it.
///
///     none ---- want ----> wanted ---- begin ----> open ---- all sent: commit ----> none
///                                                   | longer than the bound: commit, torn
///                                                   '----> torn ---- all sent: commit ----> none
///
/// Invariant: while it is `open` or `torn`, it is wanted.
class Bracket {
public:
   Bracket(std::size_t longest, Outbox& outbox, Backlog const& backlog) noexcept
         : longest_(longest), outbox_(outbox), backlog_(backlog) {}

   bool any() const noexcept { return state_ != State::none; }
   bool open() const noexcept { return state_ == State::open; }
   /// A batch has ended with this `Backlog::sequence`. `token`: of a transaction, which the peer
   /// answers and which is never torn; 0 for any other batch. REQUIRES: if `token`, `!any()`.
   void want(U64 until, U32 token) noexcept;
   /// Whether it is that of a transaction.
   bool isTransaction() const noexcept { return any() && token_ != 0; }
   /// A transaction could not be written at once, and what is still to be written of it may change:
   /// the peer must refuse it. No effect if all of it has been written.
   void spoil() noexcept { spoilt_ = isTransaction(); }
   /// Opens or closes it where that is due. `idle`: no child is being walked. False, with no
   /// effect, if there is no space now.
   bool tend(bool idle);
   void clear() noexcept { state_ = State::none; }
   /// Whether the peer knows brackets. If not, it gets the changes without.
   bool understood() const noexcept { return understood_; }
   void understoodIs(bool understood) noexcept { understood_ = understood; }

private:
   enum class State : U8 { none, wanted, open, torn };

   bool begin();
   bool commit(bool torn);

   std::size_t longest_;
   Outbox& outbox_;
   Backlog const& backlog_;
   U64 until_ = 0;
   /// `Outbox::bytes` when it was opened.
   U64 from_ = 0;
   U32 token_ = 0;
   State state_ = State::none;
   bool spoilt_ = false;
   bool understood_ = true;
};

}  // namespace Kiv::NboAttrLog
