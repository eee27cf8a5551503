// A state as text, in an order that is the same in all processes.
#pragma once

#include <map>
#include <ostream>

#include "Holt/State/Place.h"
#include "Holt/State/Walk.h"
#include "Kiv/Entity.h"

namespace Holt {

/// How many entities and values there are of a type.
struct Tally {
   U64 entities = 0;
   /// Values: attributes, elements of maps and of queues.
   U64 attributes = 0;

   Tally& operator+=(Tally const& other) noexcept {
      entities += other.entities;
      attributes += other.attributes;
      return *this;
   }
};

/// "3 entities, 120 attributes".
Sarn::String tallyText(Tally const& tally);

/// Writes entities: a line for the entity with its type, a line for each value, then its children.
///
///     ptp/config : Ptp::Config
///     ptp/config.enabled   = true
///     ptp/config.priority1 = 128
///     ptp/config.intfConfig[Ethernet1] : Ptp::IntfConfig
///     ...
///
/// Attributes come in the order of their ids, elements of ordered maps and queues in theirs, and
/// elements of hashed collections in the natural order of their keys' text. Attributes that are not
/// streamed are left out, so that the dumps of a source and of its complete mirror are the same
/// text. A queue that has been used has a line with the number of its next element. Text that is
/// not printable is escaped: see `Kiv::printable`.
class Dump final : private StateLines<Kiv::Entity> {
public:
   explicit Dump(std::ostream& out) : out_(&out) {}
   /// Counts only.
   Dump() = default;

   /// Writes an entity and everything below it.
   using StateLines::entity;
   /// Writes what is at a place; nothing for an absent child.
   void place(Place const& place);

   Tally total() const;
   /// By type name. Attributes are counted for the entity that has them.
   std::map<Sarn::String, Tally> const& byType() const noexcept { return byType_; }

private:
   void entityLine(Sarn::String const& path, Kiv::TypeImpl const& type) override;
   void valueLine(Sarn::String const& path, Kiv::ValueRef value) override;
   void nextLine(Sarn::String const& path, U32 next) override;
   void valuesEnd() override;

   std::ostream* out_ = nullptr;
   /// The values of one entity, with their paths.
   std::vector<std::pair<Sarn::String, Sarn::String>> values_;
   Tally* tally_ = nullptr;
   std::map<Sarn::String, Tally> byType_;
};

/// Writes whole roots, one after the other, and a line with their size.
void dumpRoots(std::ostream& out, std::vector<Kiv::NamedEntity*> const& roots);

/// The table of `dump --summary`.
void printSummary(std::ostream& out, Dump const& dump);

}  // namespace Holt
