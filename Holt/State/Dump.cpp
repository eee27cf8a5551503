#include "Holt/State/Dump.h"

#include <algorithm>
#include <iomanip>

#include "Kiv/Printable.h"

namespace Holt {

Sarn::String tallyText(Tally const& tally) {
   return std::to_string(tally.entities) + (tally.entities == 1 ? " entity, " : " entities, ") +
          std::to_string(tally.attributes) + (tally.attributes == 1 ? " attribute" : " attributes");
}

void Dump::place(Place const& place) {
   if (Kiv::Entity const* const found = place.entity()) {
      entity(*found, place.path());
      return;
   }
   if (!place.isCollection() && place.leadsToEntity()) {
      return;
   }
   tally_ = &byType_[place.owner().kivType().name];
   if (!place.isCollection()) {
      valueLine(place.path(), place.value()->ref());
   } else if (isInState(*place.field())) {
      memberAt(place.path(), [&] { walkMember(place.owner(), *place.field(), *this); });
   }
   valuesEnd();
}

void Dump::entityLine(Sarn::String const& path, Kiv::TypeImpl const& type) {
   tally_ = &byType_[type.name];
   ++tally_->entities;
   if (out_ != nullptr) {
      *out_ << Kiv::printable(path) << " : " << type.name << '\n';
   }
}

void Dump::valueLine(Sarn::String const& path, Kiv::ValueRef value) {
   ++tally_->attributes;
   if (out_ != nullptr) {
      values_.emplace_back(Kiv::printable(path),
                           Kiv::printable(value.type->genericIfStrRep(value.address)));
   }
}

void Dump::nextLine(Sarn::String const& path, U32 next) {
   values_.emplace_back(Kiv::printable(path), "next " + std::to_string(next));
}

/// Writes the values of one entity with their equal signs aligned.
void Dump::valuesEnd() {
   if (out_ != nullptr) {
      std::size_t width = 0;
      for (auto const& [path, text] : values_) {
         width = std::max(width, path.size());
      }
      for (auto const& [path, text] : values_) {
         *out_ << path << Sarn::String(width - path.size(), ' ') << " = " << text << '\n';
      }
   }
   values_.clear();
}

Tally Dump::total() const {
   Tally sum;
   for (auto const& [type, tally] : byType_) {
      sum += tally;
   }
   return sum;
}

void printSummary(std::ostream& out, Dump const& dump) {
   auto const row = [&out](auto const& entities, auto const& attributes, std::string_view type) {
      out << std::setw(10) << entities << std::setw(12) << attributes << "  " << type << '\n';
   };
   row("entities", "attributes", "type");
   for (auto const& [type, tally] : dump.byType()) {
      row(tally.entities, tally.attributes, type);
   }
   row(dump.total().entities, dump.total().attributes, "total");
}

void dumpRoots(std::ostream& out, std::vector<Kiv::NamedEntity*> const& roots) {
   Dump dump(out);
   for (Kiv::NamedEntity const* const root : roots) {
      dump.entity(*root, root->nameString());
   }
   out << "# " << tallyText(dump.total()) << '\n';
}

}  // namespace Holt
