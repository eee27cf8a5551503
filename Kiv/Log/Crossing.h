#pragma once

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// How far each end has seen the changes of the other. Where both change the same thing at once,
/// their messages cross: who serves the root learns from `acked` that the writer had not seen its
/// last change when it wrote, and tells the writer the value that holds.
///
///     we:    changes 1 .. sent             the peer has said that it had seen 1 .. acked
///     peer:  changes 1 .. received         we have said that we have seen 1 .. acknowledged
///
/// Changes that we send are counted by the `Outbox`.
struct Crossing {
   U32 acked = 0;
   U32 received = 0;
   U32 acknowledged = 0;
   /// Whether we write to something that the peer serves. Only then it asks what we had seen.
   bool writesBack = false;

   /// Whether the peer must hear first what we have seen, before our next change.
   bool owesAck() const noexcept { return writesBack && acknowledged != received; }
};

}  // namespace Kiv::NboAttrLog
