#pragma once

#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/NboAttrLogCircularBuffer.h"
#include "Kiv/NboAttrLogWire.h"
#include "Sarn/FirstObserver.h"

namespace Kiv::NboAttrLog {

class Session;
enum class MountMode : U8;

/// Why a session or a recording ends without memory; short enough to need none itself.
inline Sarn::String outOfMemory() noexcept {
   return "out of memory";
}
/// A copy of a reason, or that there was no memory for one.
inline Sarn::String copyOrOutOfMemory(std::string_view reason) noexcept {
   try {
      return Sarn::String(reason);
   } catch (std::bad_alloc const&) {
      return outOfMemory();
   }
}

/// The numbers by which entities are known in the log. A handle is a place in the table and, in
/// its upper byte, how often the place was taken before, so that a late message for an entity that
/// is gone is told from one for the entity that has its place now.
///
///     31 .. 24    23 .. 0
///     | turn 1..255 | place |
///
/// Freed places are taken again in the order in which they were freed.
class HandleTable {
public:
   static constexpr U32 placeMask = 0xffffff;

   explicit HandleTable(U32 limit) : limit_(limit) {}

   static U32 place(U32 handle) noexcept { return handle & placeMask; }
   /// 0 when the table is full.
   U32 add(Entity& entity);
   void remove(U32 handle) noexcept;
   /// The entity with exactly this handle, or null.
   Entity* find(U32 handle) const noexcept {
      U32 const at = place(handle);
      return at < entries_.size() && entries_[at].handle == handle ? entries_[at].entity : nullptr;
   }
   /// Whether this handle was ever given out.
   bool known(U32 handle) const noexcept { return place(handle) < entries_.size(); }
   std::size_t places() const noexcept { return entries_.size(); }

private:
   struct Entry {
      U32 handle;
      U32 nextFree;
      Entity* entity;
   };
   static constexpr U32 none = ~U32(0);
   /// A freed place rests until so many others were freed after it.
   static constexpr U32 resting = 1024;

   std::vector<Entry> entries_;
   U32 limit_;
   U32 firstFree_ = none;
   U32 lastFree_ = none;
   U32 freeCount_ = 0;
};

/// The place where roots and connections meet: roots that are offered to peers or mirrored from
/// them, and the sessions with those peers.
///
///     Kiv::NboAttrLog::Hub hub;
///     hub.rootIs(Ptp::configFactory("ptp/config"));
///     Kiv::NboAttrLog::FdConnection connection(hub, acceptedSocket);
///
/// Every change below a root reaches the hub's adapter there, which writes it once and hands the
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

   Limits const& limits() const noexcept { return limits_; }

   /// Offers a root to peers under its type and name. Throws `Exception` if another root of that
   /// type and name is there, or if there are more entities than the hub may number.
   void rootIs(Sarn::Ptr<NamedEntity> const& root);
   /// Gives a root up: peers that mirror it are told. Null if there is none.
   Sarn::Ptr<NamedEntity> rootDel(std::string_view type, std::string_view name);
   NamedEntity* root(std::string_view type, std::string_view name) const noexcept;
   /// The offered roots, in the order they came.
   std::vector<NamedEntity*> roots() const;
   std::vector<Session*> const& sessions() const noexcept { return sessions_; }

   /// A clock in nanoseconds that never goes back, for telling how long peers are there and behind,
   /// and what has waited too long. Null, as at first: none.
   void clockIs(U64 (*clock)() noexcept) noexcept { clock_ = clock; }
   /// 0 without a clock.
   U64 now() const noexcept { return clock_ != nullptr ? clock_() : 0; }

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
   std::size_t heldBytes() const noexcept { return budget_.held; }

private:
   friend class Session;
   class Root;

   /// Holds a root for one more user; `subscriber`, if not null, is told of changes there.
   Root& adopt(Sarn::Ptr<NamedEntity> const& root, bool offered, Session* subscriber = nullptr);
   Root* find(std::string_view type, std::string_view name) const noexcept;
   Root* findOffered(std::string_view type, std::string_view name) const noexcept;
   void release(Root& root);
   /// Who mounts the root in a way that does not go with such a mount of another; null if nobody.
   Session const* inTheWay(Root const& root, MountMode mode) const noexcept;
   /// Numbers an entity and all below it; false, and none has a number, when the table is full. The
   /// same if there is no memory: std::bad_alloc.
   bool registerTree(Entity& entity);
   bool numberTree(Entity& entity);
   Sarn::String tooManyEntities() const;
   void unregisterTree(Entity& entity);
   /// The same for children that were taken out of what has been unregistered meanwhile: nobody
   /// was told of that, since the change had no way up any more.
   void unregisterUntold();
   static void tagIs(Entity& entity, U32 handle) noexcept;

   /// The session that is applying a message right now. What the message changes is told to
   /// everybody but that session; what observers change meanwhile, inside a publication of their
   /// own, is told to it as well.
   struct Applying {
      Session* session = nullptr;
      /// The publication inside which the message is applied; null as a rule.
      void const* inside = nullptr;
   };

   Limits limits_;
   /// A body that is not longer need not be looked at more closely.
   std::size_t shortMessage_;
   HandleTable handles_;
   std::vector<std::unique_ptr<Root>> roots_;
   std::vector<Session*> sessions_;
   ByteBudget budget_;
   U64 sessionsMade_ = 0;
   U64 (*clock_)() noexcept = nullptr;
   Applying applying_;
};

/// A root with the adapter that watches it.
class Hub::Root final : public Sarn::FirstObserver {
public:
   Root(Hub& hub, Sarn::Ptr<NamedEntity> entity, bool offered);
   ~Root();

   void onChange(Change const& change) override;

   /// Where one connection reads this root, which is up to date and has room: a message that sets
   /// the attribute, complete but for its value.
   U8* roomFor(Sarn::Publisher const& source, AttributeId id, std::size_t size) noexcept override;

   NamedEntity& entity() const noexcept { return *entity_; }

   /// Sessions that are told of changes here.
   std::vector<Session*> subscribers;
   bool offered;
   /// Mounts and the hub's offer hold the root.
   U32 users = 0;

private:
   void onSingle(Entity& entity, FieldDescriptor const& field, Session const* skipped);
   void onOther(Entity& entity, FieldDescriptor const& field, Change const& change, Session* from,
                Session* skipped);
   void registerPresent(Entity& child) noexcept;
   /// The session whose message made `change`, or null.
   Session* madeBy(Change const& change) const noexcept;

   Hub& hub_;
   Sarn::Ptr<NamedEntity> entity_;
};

}  // namespace Kiv::NboAttrLog
