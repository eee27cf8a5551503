#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/NboAttrLogLimits.h"

namespace Kiv::NboAttrLog {

class Session;

/// Where roots and connections meet: holds the roots that are offered to peers or mirrored from
/// them, and the sessions with those peers.
///
///     Kiv::NboAttrLog::Hub hub;
///     hub.rootIs(Ptp::configFactory("ptp/config"));
///     Kiv::NboAttrLog::FdConnection connection(hub, acceptedSocket);
///
/// Every change below a root reaches the hub's watcher there. It is encoded once for all readers
/// that are up to date, however many there are, and once for each other session that mirrors the
/// root. The hub has no thread and no loop, and never blocks.
///
/// Ownership: the hub holds its roots. REQUIRES: its sessions are destroyed before it; an entity is
/// below a root of at most one hub.
/// Threads: a hub, its sessions and everything below its roots belong to one thread.
class Hub {
public:
   explicit Hub(Limits const& limits = {});
   ~Hub();
   Hub(Hub const&) = delete;
   Hub& operator=(Hub const&) = delete;

   Limits const& limits() const noexcept;

   /// Offers a root to peers under its type and name. Throws `Exception` if another root of that
   /// type and name exists, or if the hub's limit of entities is exceeded.
   void rootIs(Sarn::Ptr<NamedEntity> const& root);
   /// Sets that a root which has been claimed before has no writer now, and since when, in
   /// nanoseconds since 1970 (0: unknown); with false, that it is not stale. For who has restored a
   /// root after a restart. A claim ends it. No effect if there is no such root.
   void staleIs(NamedEntity const& root, bool stale, U64 since);
   /// Whether a root is stale, see `Mount::stale`; `since`, if not null, gets since when.
   bool stale(NamedEntity const& root, U64* since = nullptr) const noexcept;
   /// Withdraws a root and tells the peers that mirror it. Null if there is no such root.
   Sarn::Ptr<NamedEntity> rootDel(std::string_view type, std::string_view name);
   NamedEntity* root(std::string_view type, std::string_view name) const noexcept;
   /// The offered roots, in the order in which they were offered.
   std::vector<NamedEntity*> roots() const;
   /// Oldest first.
   std::vector<Session*> const& sessions() const noexcept;

   /// From here to the matching `batchEnd`, changes of the offered roots wait for each other: a
   /// mirror gets all of them at once. May be nested. See `Transaction`.
   void batchBegin() noexcept;
   void batchEnd() noexcept;

   /// Sets a monotonic clock in nanoseconds. It measures how long peers have been connected and
   /// behind, and what has waited too long. Null, the default: no clock. `wall`: nanoseconds since
   /// 1970, to say since when a root is stale; null if that need not be known.
   void clockIs(U64 (*clock)() noexcept, U64 (*wall)() noexcept = nullptr) noexcept;
   /// 0 without a clock.
   U64 now() const noexcept;

   /// When `expire` has something to do next, by the clock. 0 if nothing is due, or if there is no
   /// clock. O(sessions).
   U64 deadline() const noexcept;
   /// Ends sessions whose peer has left a message incomplete for too long, drops what closed ones
   /// could not send, and frees the buffers of idle ones and of an idle hub. Call it when
   /// `deadline()` has come; more often does no harm. Without a clock it ends nothing, and a
   /// session is idle if it has neither sent nor received since the last call. O(sessions).
   /// REQUIRES: not called from inside a session.
   void expire();
   /// Bytes that the buffers of all sessions and the changes that they share hold, as
   /// `Limits::sessionBytes` counts them.
   std::size_t heldBytes() const noexcept;

   /// The implementation, for the log itself: see `Kiv/Log/HubImpl.h`.
   class Impl;
   Impl& impl() noexcept { return *impl_; }
   Impl const& impl() const noexcept { return *impl_; }

private:
   std::unique_ptr<Impl> impl_;
};

}  // namespace Kiv::NboAttrLog
