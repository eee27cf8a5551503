#include "Holt/State/Load.h"

#include <set>

#include "Holt/Client.h"
#include "Holt/Failure.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

class Loader {
public:
   explicit Loader(DocErrors& errors) : errors_(errors) {}

   void entity(Entity& entity, DocEntity const& doc, Sarn::String const& path);
   void member(Entity& entity, DocMember const& doc, Sarn::String const& path);
   /// Finds or creates a child with its constructor arguments; null if it cannot be.
   Entity* child(Entity& owner, FieldDescriptor const& field, void const* key, DocEntity const& doc,
                 Sarn::String const& path);

private:
   void single(Entity& entity, DocMember const& doc, Sarn::String const& path);
   void singleton(Entity& entity, DocMember const& doc, Sarn::String const& path);
   void queue(Entity& entity, DocMember const& doc, Sarn::String const& path);
   void collection(Entity& entity, DocMember const& doc, Sarn::String const& path);
   void element(Entity& entity, FieldDescriptor const& field, DocElement const& doc,
                Sarn::String const& path);
   void removeOthers(Entity& entity, DocMember const& doc, Sarn::String const& path);
   void error(Sarn::String const& path, Sarn::String const& what) {
      errors_.push_back(path + ": " + what);
   }
   /// Whether it was not refused.
   template <class Do>
   bool refusing(Sarn::String const& path, Do&& doIt) {
      try {
         doIt();
         return true;
      } catch (Kiv::Exception const& refused) {
         error(path, refused.what());
      }
      return false;
   }

   DocErrors& errors_;
};

DocMember const* memberOf(DocEntity const& doc, FieldDescriptor const& field) {
   for (DocMember const& member : doc.members) {
      if (member.field == &field) {
         return &member;
      }
   }
   return nullptr;
}

/// A nan is no other value than a nan.
bool isEq(AnyValue const& a, void const* b) {
   return a.type().support->isEq(a.get(), b) || valueText(a) == a.type().genericIfStrRep(b);
}

bool has(Entity const& entity, DocMember const& doc) {
   AnyValue now(*doc.field->type);
   readMember(&entity, *doc.field, now);
   return isEq(*doc.value, now.get());
}

/// Whether a child that is there was made with other arguments than those that the document has.
bool wasMadeOtherwise(Entity const& child, DocEntity const& doc) {
   bool otherwise = false;
   for (DocMember const& member : doc.members) {
      if (member.value != nullptr && child.kivType().isCtorArg(member.field->fieldId) &&
          member.field->has(FieldDescriptor::constant)) {
         otherwise = otherwise || !has(child, member);
      }
   }
   return otherwise;
}

void Loader::entity(Entity& entity, DocEntity const& doc, Sarn::String const& path) {
   for (DocMember const& each : doc.members) {
      member(entity, each, path + "." + each.field->name);
   }
}

void Loader::member(Entity& entity, DocMember const& doc, Sarn::String const& path) {
   switch (doc.field->kind) {
      case MemberKind::single:
         single(entity, doc, path);
         break;
      case MemberKind::child:
         singleton(entity, doc, path);
         break;
      case MemberKind::queue:
         queue(entity, doc, path);
         break;
      default:
         collection(entity, doc, path);
         break;
   }
}

void Loader::single(Entity& entity, DocMember const& doc, Sarn::String const& path) {
   if (has(entity, doc)) {
      return;
   }
   if (doc.field->ops->write != nullptr) {
      refusing(path, [&] { doc.field->ops->write(&entity, doc.value->get()); });
   } else if (doc.field->has(FieldDescriptor::constant)) {
      AnyValue now(*doc.field->type);
      readMember(&entity, *doc.field, now);
      error(path, "is " + valueText(now) + " for good, and cannot be " + valueText(*doc.value));
   }
}

void Loader::singleton(Entity& entity, DocMember const& doc, Sarn::String const& path) {
   Kiv::ChildOps const& ops = *doc.field->ops->child;
   if (doc.elements.empty()) {
      refusing(path, [&] { ops.del(entity); });
      return;
   }
   DocEntity const& wanted = *doc.elements[0].child;
   if (Entity* const there = child(entity, *doc.field, nullptr, wanted, path)) {
      this->entity(*there, wanted, path);
   }
}

Entity* Loader::child(Entity& owner, FieldDescriptor const& field, void const* key,
                      DocEntity const& doc, Sarn::String const& path) {
   if (field.kind == MemberKind::child) {
      Kiv::ChildOps const& ops = *field.ops->child;
      Entity const* const there = ops.get(owner);
      if (there != nullptr && field.has(FieldDescriptor::named) && !doc.name.empty() &&
          *entityName(*there) != doc.name) {
         ops.del(owner);
      }
      if (ops.get(owner) == nullptr) {
         refusing(path, [&] { ops.is(owner, doc.name); });
      }
      return ops.get(owner);
   }
   Kiv::CollectionOps const& ops = *field.ops->collection;
   if (Entity* const there = ops.findChild(owner, key)) {
      if (!wasMadeOtherwise(*there, doc)) {
         return there;
      }
      ops.del(owner, key);
   }
   std::vector<Kiv::ValueRef> args;
   FieldDescriptor const* missing = nullptr;
   forEachCtorArg(*field.type, [&](FieldDescriptor const& member) {
      if (args.empty()) {
         args.emplace_back(*field.keyType, key);
      } else if (DocMember const* const given = memberOf(doc, member)) {
         args.push_back(given->value->ref());
      } else if (missing == nullptr) {
         missing = &member;
      }
   });
   if (missing != nullptr) {
      error(path, Sarn::String("is to be created, and '") + missing->name + "' is missing");
      return nullptr;
   }
   refusing(path, [&] { ops.childIs(owner, args); });
   return ops.findChild(owner, key);
}

/// A queue counts its elements itself, so only their values can be brought over: an element that
/// has its number already stays, and a queue that does not go on like the document's is filled
/// anew.
void Loader::queue(Entity& entity, DocMember const& doc, Sarn::String const& path) {
   Kiv::QueueOps const& ops = *doc.field->ops->queue;
   U32 const front = ops.frontSequence(entity);
   U32 const next = ops.nextSequence(entity);
   U32 const first = doc.next - static_cast<U32>(doc.elements.size());
   auto const same = [&](U32 at, U32 there) {
      return isEq(*doc.elements[at - first].value, ops.at(entity, there));
   };
   auto const allSame = [&](U32 from, U32 end, U32 shift) {
      bool all = true;
      for (U32 at = from; all && at != end; ++at) {
         all = same(at, at + shift);
      }
      return all;
   };
   if (next - front == doc.next - first && allSame(first, doc.next, front - first)) {
      return;
   }
   bool const goesOn = static_cast<S32>(first - front) >= 0 &&
                       static_cast<S32>(doc.next - next) >= 0 &&
                       static_cast<S32>(next - first) >= 0 && allSame(first, next, 0);
   refusing(path, [&] {
      if (goesOn) {
         while (ops.frontSequence(entity) != first) {
            ops.deq(entity);
         }
      } else {
         ops.delAll(entity);
      }
      for (U32 at = goesOn ? next : first; at != doc.next; ++at) {
         ops.enq(entity, doc.elements[at - first].value->get());
      }
   });
}

void Loader::removeOthers(Entity& entity, DocMember const& doc, Sarn::String const& path) {
   FieldDescriptor const& field = *doc.field;
   std::set<Sarn::String> named;
   for (DocElement const& element : doc.elements) {
      named.insert(valueText(*element.key));
   }
   std::vector<std::unique_ptr<AnyValue>> others;
   for (Kiv::CollectionCursor at(entity, field); at->valid(); at->next()) {
      if (!named.contains(field.keyType->genericIfStrRep(at->key()))) {
         others.push_back(std::make_unique<AnyValue>(*field.keyType));
         copyValue(at->key(), *others.back());
      }
   }
   for (auto const& key : others) {
      refusing(path + "[" + valueText(*key) + "]",
               [&] { field.ops->collection->del(entity, key->get()); });
   }
}

void Loader::collection(Entity& entity, DocMember const& doc, Sarn::String const& path) {
   removeOthers(entity, doc, path);
   for (DocElement const& each : doc.elements) {
      element(entity, *doc.field, each, path + "[" + valueText(*each.key) + "]");
   }
}

void Loader::element(Entity& entity, FieldDescriptor const& field, DocElement const& doc,
                     Sarn::String const& path) {
   if (field.kind == MemberKind::children) {
      if (Entity* const there = child(entity, field, doc.key->get(), *doc.child, path)) {
         this->entity(*there, *doc.child, path);
      }
      return;
   }
   if (!hasOwnKey(field, doc.key->get(), *doc.value)) {
      error(path, "the value " + valueText(*doc.value) + " has another key");
      return;
   }
   void const* const now = field.ops->collection->find(entity, doc.key->get());
   if (now == nullptr || !isEq(*doc.value, now)) {
      refusing(path, [&] { field.ops->collection->is(entity, doc.key->get(), doc.value->get()); });
   }
}

}  // namespace

void loadEntity(Entity& entity, DocEntity const& doc, Sarn::String const& path, DocErrors& errors) {
   Loader(errors).entity(entity, doc, path);
}

void loadPlace(Sarn::Ptr<Entity> const& root, DocPlace const& doc, DocErrors& errors) {
   try {
      Place place(root, doc.path.root.name, doc.path.steps);
      Loader loader(errors);
      if (doc.member != nullptr) {
         loader.member(place.owner(), *doc.member, doc.text);
      } else if (doc.value != nullptr) {
         place.set(*doc.value);
      } else if (Entity* const there = place.field() == nullptr
                                             ? root.get()
                                             : loader.child(place.owner(), *place.field(),
                                                            place.key(), *doc.entity, doc.text)) {
         loader.entity(*there, *doc.entity, doc.text);
      }
   } catch (Failure const& failure) {
      errors.emplace_back(failure.what());
   }
}

Sarn::Ptr<Kiv::NamedEntity> copyOfRoot(Kiv::NamedEntity const& root) {
   auto copy = newRoot(root.kivType().name, root.nameString());
   DocErrors ignored;  // what is there was accepted before
   loadEntity(*copy, *docOf(root), root.nameString(), ignored);
   return copy;
}

}  // namespace Holt
