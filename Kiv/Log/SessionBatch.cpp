// Transactions of a session: its own, which the peer decides about, and batches of the peer's.
#include "Kiv/Log/SessionImpl.h"
#include "Kiv/NboAttrLogTransaction.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

U32 Session::Impl::transactionBegin() {
   if (!teller_.walk().bracket().understood()) {
      throw Exception("the peer is of a release without transactions");
   }
   if (inTransaction_ || teller_.walk().bracket().any()) {
      throw Exception("transaction " + std::to_string(transaction_) +
                      (inTransaction_ ? " has not been committed" : " has not been sent yet"));
   }
   transaction_ += transaction_ == ~U32(0) ? 2 : 1;  // 0 is no number of a transaction
   inTransaction_ = true;
   teller_.walk().hold();
   return transaction_;
}

void Session::Impl::transactionCommit() {
   if (inTransaction_) {
      inTransaction_ = false;
      teller_.walk().release(closing_.closed() ? 0 : transaction_);
   }
}

/// The peer has ended a batch, which has been applied.
void Session::Impl::onCommitted(U32 token, bool torn) {
   if (token != 0) {
      if (teller_.denied().any()) {  // answers come in the order of the batches
         teller_.denied().answerLater(token, {});
         return;
      }
      teller_.replies().enqueue(Opcode::decided, token, {}, teller_.backlog().sequence());
      return;
   }
   bool changed = false;
   for (U32 id = 1; Mount* const mount = mounts_.mount(id); ++id) {
      bool const follows =
            mount->state() == Mount::State::replaying || mount->state() == Mount::State::complete;
      if (follows && mount->torn() != torn) {
         Mounts::tornIs(*mount, torn);
         changed = true;
      }
   }
   if (changed) {
      tornIs(torn);
      callListener([&](SessionListener& listener) { listener.onTorn(self_, torn); });
   }
}

/// While a mirror is torn, whoever mirrors it in turn gets nothing of it.
void Session::Impl::tornIs(bool torn) noexcept {
   if (torn != torn_) {
      torn_ = torn;
      torn ? hub_.batchBegin() : hub_.batchEnd();
   }
}

void Session::Impl::applyDecided(In& in) {
   U32 const token = in.nextU32();
   Sarn::String const reason = printable(Sarn::String(in.nextString()));
   in.expectEnd();
   if (token == 0 || token > transaction_ || (inTransaction_ && token == transaction_)) {
      in.fault("there is no transaction " + std::to_string(token));
   }
   callListener([&](SessionListener& listener) { listener.onDecided(self_, token, reason); });
}

// The public interface

Transaction::Transaction(Hub& hub) noexcept : hub_(&hub) {
   hub.batchBegin();
}

Transaction::Transaction(Session& session)
      : session_(&session), number_(session.transactionBegin()) {}

void Transaction::commit() noexcept {
   if (hub_ != nullptr) {
      std::exchange(hub_, nullptr)->batchEnd();
   }
   if (session_ != nullptr) {
      std::exchange(session_, nullptr)->transactionCommit();
   }
}

}  // namespace Kiv::NboAttrLog
