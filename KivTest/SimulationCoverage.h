// What has happened to the members of a tree's types, so that a random test can show that it covers
// everything it should.
#pragma once

#include <map>
#include <set>
#include <string>

#include "Kiv/Entity.h"

namespace KivTest {

/// Notes the changes that it is notified of: values that change; elements, children and queue
/// elements that are created, changed, deleted and recreated. It observes subtrees, one after
/// another or several at a time.
class SimulationCoverage final : public Kiv::Observer {
public:
   void onChange(Kiv::Change const& change) override;

   /// What has not happened yet to the streamed members of `root` and of all types below it, one
   /// per line: "Ptp::PortDS.peerPathDelay: never made again". Empty if everything has.
   std::string missing(Kiv::TypeImpl const& root) const;

private:
   enum Event { changed, made, deleted, madeAgain };

   void note(Kiv::FieldDescriptor const& field, Event event) { seen_[&field].insert(event); }
   void noteMade(Kiv::FieldDescriptor const& field, std::string const& path);
   void noteDeleted(Kiv::FieldDescriptor const& field, std::string const& path);
   void missingOf(Kiv::TypeImpl const& type, std::set<Kiv::TypeImpl const*>& visited,
                  std::string& all) const;

   std::map<Kiv::FieldDescriptor const*, std::set<Event>> seen_;
   /// Paths of deleted elements and children, and of queues from which something was deleted.
   std::set<std::string> gone_;
};

}  // namespace KivTest
