#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/NboAttrLogLimits.h"

namespace Kiv::NboAttrLog {

class Session;

/// The place where roots and connections meet: roots that are offered to peers or mirrored from
/// them, and the sessions with those peers.
///
///     Kiv::NboAttrLog::Hub hub;
///     hub.rootIs(Ptp::configFactory("ptp/config"));
///     Kiv::NboAttrLog::FdConnection connection(hub, acceptedSocket);
///
/// Every change below a root reaches the hub's watcher there, which writes it once and hands the
/// bytes to all sessions that mirror the root. Has no thread and no loop, and never blocks.
///
/// Ownership: holds its roots. REQUIRES: its sessions are destroyed before it. An entity is below
/// at most one hub's root.
/// Threads: everything below a hub belongs to one thread.
class Hub {
public:
   explicit Hub(Limits const& limits = {});
   ~Hub();
   Hub(Hub const&) = delete;
   Hub& operator=(Hub const&) = delete;

   Limits const& limits() const noexcept;

   /// Offers a root to peers under its type and name. Throws `Exception` if another root of that
   /// type and name is there, or if there are more entities than the hub may number.
   void rootIs(Sarn::Ptr<NamedEntity> const& root);
   /// Gives a root up: peers that mirror it are told. Null if there is none.
   Sarn::Ptr<NamedEntity> rootDel(std::string_view type, std::string_view name);
   NamedEntity* root(std::string_view type, std::string_view name) const noexcept;
   /// The offered roots, in the order they came.
   std::vector<NamedEntity*> roots() const;
   /// Oldest first.
   std::vector<Session*> const& sessions() const noexcept;

   /// A clock in nanoseconds that never goes back, for telling how long peers are there and behind,
   /// and what has waited too long. Null, as at first: none.
   void clockIs(U64 (*clock)() noexcept) noexcept;
   /// 0 without a clock.
   U64 now() const noexcept;

   /// When `expire` has something to do next, by the clock. 0: nothing waits, or there is no clock.
   /// O(sessions).
   U64 deadline() const noexcept;
   /// Ends sessions whose peer has left half a message unfinished for too long, drops what closed
   /// ones could not send, and gives back the buffers of those that are idle: to be called when
   /// `deadline()` has come; more often does no harm. Without a clock nothing is ended, and idle is
   /// who has neither sent nor received since the last call. O(sessions). REQUIRES: not called from
   /// inside a session.
   void expire();
   /// Bytes of memory that the buffers of all sessions hold, as `Limits::sessionBytes` counts them.
   std::size_t heldBytes() const noexcept;

   /// The inside, for the log itself: see `Kiv/Log/HubImpl.h`.
   class Impl;
   Impl& impl() noexcept { return *impl_; }
   Impl const& impl() const noexcept { return *impl_; }

private:
   std::unique_ptr<Impl> impl_;
};

}  // namespace Kiv::NboAttrLog
