#pragma once

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// How far each end has seen the changes of the other. When both change the same thing at once,
/// their messages cross. `acked` then shows the serving end that the writer had not seen its last
/// change, and it sends the writer the value that holds.
///
///     we sent       changes 1 .. sent          the peer has acknowledged 1 .. acked
///     we received   changes 1 .. received      we have acknowledged 1 .. acknowledged
///
/// The `Outbox` counts the changes that we send.
struct Crossing {
   U32 acked = 0;
   U32 received = 0;
   U32 acknowledged = 0;
   /// Whether we write to something that the peer serves. Only then does it need our
   /// acknowledgements.
   bool writesBack = false;

   /// Whether an acknowledgement must precede our next change.
   bool owesAck() const noexcept { return writesBack && acknowledged != received; }
};

}  // namespace Kiv::NboAttrLog
