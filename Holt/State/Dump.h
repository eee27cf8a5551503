// A state as text, in an order that two processes share.
#pragma once

#include <map>
#include <ostream>

#include "Holt/State/Place.h"
#include "Holt/State/Walk.h"
#include "Kiv/Entity.h"

namespace Holt {

/// How much of a type there is.
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

/// Writes entities: a line for the entity with its type, a line for each value, its children
/// behind its values.
///
///     ptp/config : Ptp::Config
///     ptp/config.enabled   = true
///     ptp/config.priority1 = 128
///     ptp/config.intfConfig[Ethernet1] : Ptp::IntfConfig
///     ...
///
/// Attributes come in the order of their ids, elements of ordered maps and queues in theirs,
/// elements of hashed collections in the natural order of their keys' text; what a process keeps
/// to itself (attributes that are not streamed) is left out. So the dumps of a source and of its
/// complete mirror are the same text. What a terminal would not show as it is comes escaped, so
/// that each line is one. The counter of a queue that has been used is told with it.
class Dump final : private StateLines<Kiv::Entity> {
public:
   explicit Dump(std::ostream& out) : out_(&out) {}
   /// Only counts.
   Dump() = default;

   /// An entity and all below it.
   using StateLines::entity;
   /// What a path leads to; nothing is not an error where there may be nothing.
   void place(Place const& place);

   Tally total() const;
   /// By type name; the attributes are those of the type's own entities.
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

/// Writes roots whole, one after the other, and how much it was.
void dumpRoots(std::ostream& out, std::vector<Kiv::NamedEntity*> const& roots);

/// The table of `dump --summary`.
void printSummary(std::ostream& out, Dump const& dump);

}  // namespace Holt
