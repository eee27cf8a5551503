#pragma once

#include <vector>

#include "Kiv/Log/Handles.h"
#include "Kiv/Log/Ring.h"
#include "Sarn/FirstObserver.h"

namespace Kiv::NboAttrLog {

class Teller;

/// The session that is applying a message right now. What the message changes goes to all other
/// sessions, and back to that one only if it must be echoed (`Teller::mustEcho`). What observers
/// change meanwhile, in publications of their own, goes to that session as well.
struct Applying {
   Teller* teller = nullptr;
   /// The publication inside which the message is applied; usually null.
   void const* inside = nullptr;
};

/// Watches one root for a hub and passes every change below it to the sessions that mirror it: once
/// into the hub's ring for all readers that follow, and to each other session by itself.
///
///     root <---- RootWatcher ---- once ----> Ring <---- Cursor of session 3, 4, 5, ...
///       ^             '---- one by one ----> Teller of session 1, 2
///       ^ changes below propagate to it
///
///     subscribers:  | 1 | 2 | 3 | 4 | 5 |      those who follow come last
///                           ^ apart_
///
/// Invariants:
/// - it is notified before all other observers, so sessions see changes in the order in which they
///   were made;
/// - every entity below has a handle before a session is told of it;
/// - those who follow know the same entities below the root.
class RootWatcher final : public Sarn::FirstObserver, Ring::Source {
public:
   RootWatcher(Handles& handles, Applying const& applying, Ring& ring, Sarn::Ptr<NamedEntity> root);
   ~RootWatcher();
   RootWatcher(RootWatcher const&) = delete;
   RootWatcher& operator=(RootWatcher const&) = delete;

   NamedEntity& root() const noexcept { return *root_; }

   /// Passes changes to a session from now on. Does not throw after `reserve`. REQUIRES: the
   /// session does not follow the ring.
   void subscribe(Teller& teller);
   void unsubscribe(Teller& teller) noexcept;
   bool hasSubscriber(Teller const& teller) const noexcept;
   void reserve(Teller& teller);

   void onChange(Change const& change) override;
   /// If all sessions that mirror this root follow the ring, or if there is only one and it is up
   /// to date and has space: the place for the value in a message that sets the attribute, which is
   /// otherwise complete. Else null.
   U8* roomFor(AttributeId id, std::size_t size, Sarn::Publisher const& source) noexcept override;

private:
   class Followers;

   void onFollows(Cursor& cursor) noexcept override;
   void onLeft(Cursor& cursor) noexcept override;
   void apartIs(std::size_t apart) noexcept;
   bool anyFollow() const noexcept { return apart_ != subscribers_.size(); }
   bool followersKnow(Entity const& entity) const noexcept;
   void dismissFollowers() noexcept;

   void onValue(Entity& entity, FieldDescriptor const& field, Teller const* skipped);
   U8 const* writeValue(Entity const& entity, FieldDescriptor const& field, std::size_t size);
   void onOther(Entity& entity, FieldDescriptor const& field, Change const& change, Teller* from,
                Teller* skipped);
   void tellFollowers(Entity& entity, FieldDescriptor const& field, void const* key,
                      Entity* removed) noexcept;
   void tellWithin(Entity& child);
   [[gnu::noinline]] U8* roomForOne(Entity const& entity, AttributeId id,
                                    std::size_t size) noexcept;
   void registerPresent(Entity& child) noexcept;
   /// The session whose message made `change`, or null.
   Teller* madeBy(Change const& change) const noexcept;

   Handles& handles_;
   Applying const& applying_;
   Sarn::Ptr<NamedEntity> root_;
   std::vector<Teller*> subscribers_;
   /// How many of them are told one by one.
   std::size_t apart_ = 0;
};

}  // namespace Kiv::NboAttrLog
