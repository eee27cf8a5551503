#include "Holt/State/Dump.h"

#include <algorithm>
#include <iomanip>

#include "Kiv/Printable.h"

namespace Holt {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

/// What only the process itself knows: it can be set, but does not travel.
bool isLocal(FieldDescriptor const& field) {
   return !field.has(FieldDescriptor::streamed) && field.ops != nullptr &&
          (field.kind != MemberKind::single || field.ops->write != nullptr);
}

Sarn::String memberPath(Sarn::String const& path, FieldDescriptor const& field) {
   return path + "." + field.name;
}

bool leadsToEntities(FieldDescriptor const& field) {
   return field.kind == MemberKind::child || field.kind == MemberKind::children;
}

}  // namespace

Sarn::String tallyText(Tally const& tally) {
   return std::to_string(tally.entities) + (tally.entities == 1 ? " entity, " : " entities, ") +
          std::to_string(tally.attributes) + (tally.attributes == 1 ? " attribute" : " attributes");
}

void Dump::entity(Entity const& entity, Sarn::String const& path) {
   below(entity, Kiv::printable(path));
}

void Dump::below(Entity const& entity, Sarn::String const& path) {
   tally_ = &byType_[entity.kivType().name];
   ++tally_->entities;
   if (out_ != nullptr) {
      *out_ << path << " : " << entity.kivType().name << '\n';
   }
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (!leadsToEntities(field)) {
         member(entity, field, memberPath(path, field));
      }
   });
   writeValues();
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (leadsToEntities(field)) {
         member(entity, field, memberPath(path, field));
      }
   });
}

void Dump::place(Place const& place) {
   FieldDescriptor const* const field = place.field();
   Sarn::String const path = Kiv::printable(place.path());
   if (field == nullptr || (leadsToEntities(*field) && !place.isCollection())) {
      if (Entity const* const found = place.entity()) {
         below(*found, path);
      }
      return;
   }
   tally_ = &byType_[place.owner().kivType().name];
   if (place.isCollection()) {
      member(place.owner(), *field, path);
   } else {
      value(path, place.text());
   }
   writeValues();
}

void Dump::member(Entity const& entity, FieldDescriptor const& field, Sarn::String const& path) {
   if (isLocal(field)) {
      return;
   }
   switch (field.kind) {
      case MemberKind::single:
         value(path, attributeText(entity, field));
         break;
      case MemberKind::child:
         if (Entity const* const child = field.ops->child->get(entity)) {
            below(*child, path);
         }
         break;
      case MemberKind::children:
         children(entity, field, path);
         break;
      case MemberKind::map:
      case MemberKind::ordered:
         elements(entity, field, path);
         break;
      case MemberKind::queue:
         queue(entity, field, path);
         break;
      case MemberKind::none:
      case MemberKind::operation:
         break;
   }
}

void Dump::elements(Entity const& entity, FieldDescriptor const& field, Sarn::String const& path) {
   std::vector<std::pair<Sarn::String, Sarn::String>> all;
   for (Kiv::CollectionCursor at(const_cast<Entity&>(entity), field); at->valid(); at->next()) {
      all.emplace_back(field.keyType->genericIfStrRep(at->key()),
                       field.type->genericIfStrRep(at->value()));
   }
   if (field.kind == MemberKind::map) {
      std::sort(all.begin(), all.end(),
                [](auto const& a, auto const& b) { return naturallyLess(a.first, b.first); });
   }
   for (auto& [key, text] : all) {
      value(path + "[" + Kiv::printable(key) + "]", std::move(text));
   }
}

void Dump::queue(Entity const& entity, FieldDescriptor const& field, Sarn::String const& path) {
   Kiv::QueueOps const& ops = *field.ops->queue;
   U32 const next = ops.nextSequence(entity);
   auto const size = static_cast<U32>(ops.size(entity));
   for (U32 sequence = next - size; sequence != next; ++sequence) {
      value(path + "[" + std::to_string(sequence) + "]",
            field.type->genericIfStrRep(ops.at(entity, sequence)));
   }
   if (next != 1) {  // the number of a queue's first element
      values_.emplace_back(path, "next " + std::to_string(next));
   }
}

void Dump::children(Entity const& entity, FieldDescriptor const& field, Sarn::String const& path) {
   std::vector<std::pair<Sarn::String, Entity const*>> all;
   for (Kiv::CollectionCursor at(const_cast<Entity&>(entity), field); at->valid(); at->next()) {
      all.emplace_back(field.keyType->genericIfStrRep(at->key()), at->child());
   }
   std::sort(all.begin(), all.end(),
             [](auto const& a, auto const& b) { return naturallyLess(a.first, b.first); });
   for (auto const& [key, child] : all) {
      below(*child, path + "[" + Kiv::printable(key) + "]");
   }
}

void Dump::value(Sarn::String path, Sarn::String text) {
   ++tally_->attributes;
   if (out_ != nullptr) {
      values_.emplace_back(std::move(path), Kiv::printable(std::move(text)));
   }
}

/// Writes the values of one entity, their equal signs below each other.
void Dump::writeValues() {
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
