#include "Holt/State/Walk.h"

#include <algorithm>

#include "Holt/State/Doc.h"
#include "Holt/State/Key.h"
#include "Kiv/Visit.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

/// Passes on the members of a live entity, elements of hashed collections in natural order.
class LiveMembers {
public:
   explicit LiveMembers(StateVisitor<Entity>& visitor) : visitor_(visitor) {}

   void value(FieldDescriptor const& field, Kiv::ValueRef value) { visitor_.value(field, value); }
   void child(FieldDescriptor const& field, Entity const* child) { visitor_.child(field, child); }
   void collection(FieldDescriptor const& field, Kiv::CollectionCursor& at) {
      std::vector<std::unique_ptr<AnyValue>> keys;
      std::vector<StateElement<Entity>> elements;
      for (; at->valid(); at->next()) {
         keys.push_back(std::make_unique<AnyValue>(*field.keyType));
         keys.back()->copy(at->key());
         elements.push_back({keyText(keys.back()->ref()), keys.back()->ref(), {}, at->child()});
         if (at->child() == nullptr) {
            elements.back().value = {*field.type, at->value()};
         }
      }
      if (field.kind != MemberKind::ordered) {
         std::sort(elements.begin(), elements.end(), [](auto const& a, auto const& b) {
            return naturallyLess(a.keyText, b.keyText);
         });
      }
      visitor_.collection(field, elements);
   }
   void queue(FieldDescriptor const& field, Kiv::CollectionCursor& at, U32 next) {
      std::vector<StateElement<Entity>> elements;
      for (; at->valid(); at->next()) {
         elements.push_back({std::to_string(*static_cast<U32 const*>(at->key())),
                             {},
                             {*field.type, at->value()},
                             nullptr});
      }
      visitor_.queue(field, elements, next);
   }

private:
   StateVisitor<Entity>& visitor_;
};

bool isIn(FieldDescriptor const& field, StatePart part) {
   bool const entities = field.kind == MemberKind::child || field.kind == MemberKind::children;
   return part == StatePart::all || entities == (part == StatePart::entities);
}

}  // namespace

bool isInState(FieldDescriptor const& field) {
   return field.ops != nullptr &&
          (field.has(FieldDescriptor::streamed) ||
           (field.kind == MemberKind::single && field.ops->write == nullptr));
}

void walkMembers(Entity const& entity, StatePart part, StateVisitor<Entity>& visitor) {
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (isInState(field) && isIn(field, part)) {
         walkMember(entity, field, visitor);
      }
   });
}

void walkMembers(DocEntity const& entity, StatePart part, StateVisitor<DocEntity>& visitor) {
   for (DocMember const& member : entity.members) {
      if (isIn(*member.field, part)) {
         walkMember(member, visitor);
      }
   }
}

void walkMember(Entity const& entity, FieldDescriptor const& field, StateVisitor<Entity>& visitor) {
   visitMember(entity, field, LiveMembers(visitor));
}

void walkMember(DocMember const& member, StateVisitor<DocEntity>& visitor) {
   FieldDescriptor const& field = *member.field;
   if (member.value != nullptr) {
      visitor.value(field, member.value->ref());
      return;
   }
   if (field.kind == MemberKind::child) {
      visitor.child(field, member.elements.empty() ? nullptr : member.elements[0].child.get());
      return;
   }
   std::vector<StateElement<DocEntity>> elements;
   U32 number = member.next - static_cast<U32>(member.elements.size());
   for (DocElement const& from : member.elements) {
      StateElement<DocEntity>& element = elements.emplace_back();
      if (from.key != nullptr) {
         element.keyText = keyText(from.key->ref());
         element.key = from.key->ref();
      } else {
         element.keyText = std::to_string(number++);
      }
      if (from.value != nullptr) {
         element.value = from.value->ref();
      }
      element.child = from.child.get();
   }
   if (field.kind == MemberKind::queue) {
      visitor.queue(field, elements, member.next);
   } else {
      visitor.collection(field, elements);
   }
}

Kiv::TypeImpl const& typeOfNode(Entity const& entity) {
   return entity.kivType();
}

Kiv::TypeImpl const& typeOfNode(DocEntity const& entity) {
   return *entity.type;
}

}  // namespace Holt
