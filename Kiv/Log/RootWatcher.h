#pragma once

#include <vector>

#include "Kiv/Log/Handles.h"
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

/// Watches one root for a hub and passes every change below it to each session that mirrors it, one
/// session after the other. This one observer serves all of them.
///
///     root <---- RootWatcher ----> Teller of session 1, session 2, ...
///       ^ changes below propagate to it
///
/// Invariants:
/// - it is notified before all other observers, so sessions see changes in the order in which they
///   were made;
/// - every entity below has a handle before a session is told of it.
class RootWatcher final : public Sarn::FirstObserver {
public:
   RootWatcher(Handles& handles, Applying const& applying, Sarn::Ptr<NamedEntity> root);
   ~RootWatcher();
   RootWatcher(RootWatcher const&) = delete;
   RootWatcher& operator=(RootWatcher const&) = delete;

   NamedEntity& root() const noexcept { return *root_; }

   /// Passes changes to a session from now on. Does not throw after `reserve`.
   void subscribe(Teller& teller) { subscribers_.push_back(&teller); }
   void unsubscribe(Teller const& teller) noexcept;
   bool hasSubscriber(Teller const& teller) const noexcept;
   void reserve() { subscribers_.reserve(subscribers_.size() + 1); }

   void onChange(Change const& change) override;
   /// If exactly one session mirrors this root, is up to date and has space: the place for the
   /// value in a message that sets the attribute, which is otherwise complete. Else null.
   U8* roomFor(Sarn::Publisher const& source, AttributeId id, std::size_t size) noexcept override;

private:
   void onValue(Entity& entity, FieldDescriptor const& field, Teller const* skipped);
   void onOther(Entity& entity, FieldDescriptor const& field, Change const& change, Teller* from,
                Teller* skipped);
   void registerPresent(Entity& child) noexcept;
   /// The session whose message made `change`, or null.
   Teller* madeBy(Change const& change) const noexcept;

   Handles& handles_;
   Applying const& applying_;
   Sarn::Ptr<NamedEntity> root_;
   std::vector<Teller*> subscribers_;
};

}  // namespace Kiv::NboAttrLog
