#pragma once

#include <vector>

#include "Kiv/Log/Handles.h"
#include "Sarn/FirstObserver.h"

namespace Kiv::NboAttrLog {

class Teller;

/// The session that is applying a message right now. What the message changes is told to everybody
/// but that session; what observers change meanwhile, inside a publication of their own, is told to
/// it as well.
struct Applying {
   Teller* teller = nullptr;
   /// The publication inside which the message is applied; null as a rule.
   void const* inside = nullptr;
};

/// Watches one root for a hub and tells each session that mirrors it of every change below, one
/// session after the other. Its one observer stands for all of them.
///
///     root <---- RootWatcher ----> Teller of session 1, session 2, ...
///       ^ all below climb to it
///
/// Invariants:
/// - it is told before all other observers, so that sessions hear of changes in the order in which
///   they were made;
/// - every entity below has a number before a session is told of it.
class RootWatcher final : public Sarn::FirstObserver {
public:
   RootWatcher(Handles& handles, Applying const& applying, Sarn::Ptr<NamedEntity> root);
   ~RootWatcher();
   RootWatcher(RootWatcher const&) = delete;
   RootWatcher& operator=(RootWatcher const&) = delete;

   NamedEntity& root() const noexcept { return *root_; }

   /// Tells a session of changes from now on. `reserve` takes what may throw ahead.
   void subscribe(Teller& teller) { subscribers_.push_back(&teller); }
   void unsubscribe(Teller const& teller) noexcept;
   bool hasSubscriber(Teller const& teller) const noexcept;
   void reserve() { subscribers_.reserve(subscribers_.size() + 1); }

   void onChange(Change const& change) override;
   /// Where one session mirrors this root, which is up to date and has room: a message that sets
   /// the attribute, complete but for its value.
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
