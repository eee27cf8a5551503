#pragma once

#include "Kiv/NboAttrLogHub.h"

namespace Kiv::NboAttrLog {

class Session;

/// Changes that belong together: no mirror ever shows a part of them.
///
/// The process that holds the roots brackets the changes with a transaction of its hub. They take
/// effect here at once, as ever; mirrors get them together, at the commit:
///
///     Kiv::NboAttrLog::Transaction together(hub);
///     port->portStateIs(Ptp::PortState::slave);
///     port->offsetIs(12);
///
/// A writer, which mirrors the roots of another process, uses a transaction of its session. At the
/// commit, the source checks all changes before it applies any: the handles, types, values, ranges
/// and the right to write. It applies all of them, or none if one cannot be applied or if they
/// exceed `Limits::transactionBytes`; then the writer's mirror returns to what the source has.
/// `SessionListener::onDecided` gets the number of the transaction, and the reason if it is
/// refused:
///
///     Kiv::NboAttrLog::Transaction together(session);
///     config->domainNumberIs(24);
///     config->priority1Is(10);
///     together.commit();
///
/// It ends at the latest when it is destroyed, with a commit, also if an exception leaves its
/// scope: a setter that has thrown has changed nothing, those before it have. A transaction should
/// be short: until it ends, the session, or all sessions of the hub, send nothing else.
///
/// A mirror that cannot take the changes for now gets them together later. If what has piled up for
/// it by then exceeds `Limits::transactionBytes`, it gets pieces, and knows: `Mount::torn`.
/// Threads: as the hub's.
class Transaction {
public:
   /// REQUIRES: the hub outlives it.
   explicit Transaction(Hub& hub) noexcept;
   /// Throws `Exception` if another transaction of the session has begun, or has not been sent yet.
   /// REQUIRES: the session outlives it.
   explicit Transaction(Session& session);
   ~Transaction() { commit(); }
   Transaction(Transaction const&) = delete;
   Transaction& operator=(Transaction const&) = delete;

   /// Ends it; no effect if it has ended.
   void commit() noexcept;
   /// Its number in `onDecided`; 0 for one of a hub.
   U32 number() const noexcept { return number_; }

private:
   Hub* hub_ = nullptr;
   Session* session_ = nullptr;
   U32 number_ = 0;
};

}  // namespace Kiv::NboAttrLog
