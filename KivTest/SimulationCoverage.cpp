#include "KivTest/SimulationCoverage.h"

#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/Path.h"

namespace KivTest {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

void SimulationCoverage::noteMade(FieldDescriptor const& field, std::string const& path) {
   note(field, made);
   if (gone_.contains(path)) {
      note(field, madeAgain);
   }
}

void SimulationCoverage::noteDeleted(FieldDescriptor const& field, std::string const& path) {
   note(field, deleted);
   gone_.insert(path);
}

void SimulationCoverage::onChange(Kiv::Change const& change) {
   Entity& entity = Kiv::entityOf(change);
   FieldDescriptor const& field = *entity.kivType().field(change.attributeId);
   std::string const path = Kiv::entityPath(entity) + "." + field.name;
   switch (field.kind) {
      case MemberKind::single:
         note(field, changed);
         break;
      case MemberKind::child:
         if (field.ops->child->get(entity) != nullptr) {
            noteMade(field, path);
         } else {
            noteDeleted(field, path);
         }
         break;
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered: {
         std::string const element = path + "[" + Kiv::keyText({*field.keyType, change.key}) + "]";
         if (field.ops->collection->find(entity, change.key) == nullptr) {
            noteDeleted(field, element);
         } else if (field.kind != MemberKind::children && change.oldValue != nullptr) {
            note(field, changed);
         } else {
            noteMade(field, element);
         }
         break;
      }
      case MemberKind::queue: {
         // The element at the back is the one that was appended, unless the queue is now empty.
         Kiv::QueueOps const& queue = *field.ops->queue;
         U32 const sequence = *static_cast<U32 const*>(change.key);
         if (queue.size(entity) != 0 && sequence + 1 == queue.nextSequence(entity)) {
            noteMade(field, path);
         } else {
            noteDeleted(field, path);
         }
         break;
      }
      case MemberKind::none:
      case MemberKind::operation:
         break;
   }
}

std::string SimulationCoverage::missing(Kiv::TypeImpl const& root) const {
   std::string all;
   std::set<Kiv::TypeImpl const*> visited;
   missingOf(root, visited, all);
   return all;
}

void SimulationCoverage::missingOf(Kiv::TypeImpl const& type,
                                   std::set<Kiv::TypeImpl const*>& visited,
                                   std::string& all) const {
   static constexpr char const* words[] = {"changed", "made", "deleted", "made again"};
   if (!visited.insert(&type).second) {
      return;
   }
   Kiv::forEachField(type, [&](FieldDescriptor const& field) {
      if (!field.has(FieldDescriptor::streamed) || field.has(FieldDescriptor::constant)) {
         return;
      }
      bool const isChild = field.kind == MemberKind::child || field.kind == MemberKind::children;
      std::vector<Event> wanted = {made, deleted, madeAgain};
      if (field.kind == MemberKind::single) {
         wanted = {changed};
      } else if (field.kind == MemberKind::map || field.kind == MemberKind::ordered) {
         wanted.push_back(changed);
      }
      auto const found = seen_.find(&field);
      for (Event const event : wanted) {
         if (found == seen_.end() || !found->second.contains(event)) {
            all += std::string(type.name) + "." + field.name + ": never " + words[event] + "\n";
         }
      }
      if (isChild) {
         missingOf(*field.type, visited, all);
      }
   });
}

}  // namespace KivTest
