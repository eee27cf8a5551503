// Changes of a batch wait for its end.
#include "Kiv/Log/Walk.h"

namespace Kiv::NboAttrLog {

void Walk::hold() noexcept {
   if (progress_.held++ == 0) {
      marksBefore_ = backlog_.marks();
      outbox_.cursor().leave();
   }
}

void Walk::release(U32 token) noexcept {
   bool const ends = --progress_.held == 0;
   if (token != 0 || (ends && backlog_.marks() != marksBefore_)) {
      bracket_.want(backlog_.sequence(), token);
   }
   if (!ends) {
      return;
   }
   // A writer's mirror goes on changing with what comes from the source. So its transaction must be
   // encoded now, all of it.
   bool const atOnce = bracket_.isTransaction();
   if (atOnce) {
      outbox_.roomForBatchIs(true);
   }
   fill();
   if (atOnce) {
      outbox_.roomForBatchIs(false);
      bracket_.spoil();
   }
}

}  // namespace Kiv::NboAttrLog
