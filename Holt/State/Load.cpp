#include "Holt/State/Load.h"

#include <set>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/State/Key.h"
#include "Holt/State/Walk.h"
#include "Kiv/Printable.h"
#include "Kiv/Visit.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;

namespace {

/// Applies an entity of a document to a live one.
class Loader final : public StateVisitor<DocEntity> {
public:
   Loader(Entity& entity, Sarn::String path, DocErrors& errors)
         : entity_(entity), path_(std::move(path)), errors_(errors) {}

   void all(DocEntity const& doc) { walkMembers(doc, StatePart::all, *this); }
   /// Finds or creates a child with its constructor arguments, and applies what is below it.
   void childAt(FieldDescriptor const& field, Kiv::ValueRef key, DocEntity const& doc,
                Sarn::String const& path);

   void value(FieldDescriptor const& field, Kiv::ValueRef value) override;
   void child(FieldDescriptor const& field, DocEntity const* doc) override;
   void collection(FieldDescriptor const& field, Elements const& elements) override;
   void queue(FieldDescriptor const& field, Elements const& elements, U32 next) override;

private:
   Entity* found(FieldDescriptor const& field, Kiv::ValueRef key, DocEntity const& doc,
                 Sarn::String const& path);
   Entity* singleton(FieldDescriptor const& field, DocEntity const& doc, Sarn::String const& path);
   void element(FieldDescriptor const& field, StateElement<DocEntity> const& doc,
                Sarn::String const& path);
   void removeOthers(FieldDescriptor const& field, Elements const& elements,
                     Sarn::String const& path);
   Sarn::String pathOf(FieldDescriptor const& field) const { return path_ + "." + field.name; }
   void error(Sarn::String const& path, Sarn::String const& what) {
      errors_.push_back(Kiv::printable(path + ": " + what));
   }
   template <class Do>
   void refusing(Sarn::String const& path, Do&& doIt) {
      try {
         doIt();
      } catch (Kiv::Exception const& refused) {
         error(path, refused.what());
      }
   }

   Entity& entity_;
   Sarn::String path_;
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

/// Equality that takes one nan for another.
bool isEq(Kiv::ValueRef a, Kiv::ValueRef b) {
   return a.type->support->isEq(a.address, b.address) || valueText(a) == valueText(b);
}

/// Whether an existing child was constructed with other arguments than the document has.
bool wasMadeOtherwise(Entity const& child, DocEntity const& doc) {
   bool otherwise = false;
   forEachCtorArg(child.kivType(), [&](FieldDescriptor const& field) {
      DocMember const* const given = memberOf(doc, field);
      otherwise = otherwise || (given != nullptr && field.has(FieldDescriptor::constant) &&
                                !isEq(given->value->ref(), Kiv::Present(child, field).value()));
   });
   return otherwise;
}

void Loader::value(FieldDescriptor const& field, Kiv::ValueRef value) {
   Kiv::Present const now(entity_, field);
   if (isEq(value, now.value())) {
      return;
   }
   Sarn::String const path = pathOf(field);
   if (field.ops->write != nullptr) {
      try {
         field.ops->write(&entity_, value.address);
      } catch (Kiv::RangeException const& refused) {
         Sarn::String const why = outOfBoundsText(field, value);
         error(path, why.empty() ? refused.what() : why);
      } catch (Kiv::Exception const& refused) {
         error(path, refused.what());
      }
   } else if (field.has(FieldDescriptor::constant)) {
      error(path, "is constant: " + valueText(now.value()) + " cannot become " + valueText(value));
   }
}

void Loader::child(FieldDescriptor const& field, DocEntity const* doc) {
   if (doc != nullptr) {
      childAt(field, {}, *doc, pathOf(field));
   } else {
      refusing(pathOf(field), [&] { field.ops->child->del(entity_); });
   }
}

void Loader::childAt(FieldDescriptor const& field, Kiv::ValueRef key, DocEntity const& doc,
                     Sarn::String const& path) {
   Entity* const there =
         field.keyType != nullptr ? found(field, key, doc, path) : singleton(field, doc, path);
   if (there != nullptr) {
      Loader(*there, path, errors_).all(doc);
   }
}

/// The singleton child, or null if it cannot be created.
Entity* Loader::singleton(FieldDescriptor const& field, DocEntity const& doc,
                          Sarn::String const& path) {
   Kiv::ChildOps const& ops = *field.ops->child;
   Entity const* const there = ops.get(entity_);
   if (there != nullptr && field.has(FieldDescriptor::named) && !doc.name.empty() &&
       *entityName(*there) != doc.name) {
      ops.del(entity_);
   }
   if (ops.get(entity_) == nullptr) {
      refusing(path, [&] { ops.is(entity_, doc.name); });
   }
   return ops.get(entity_);
}

/// The child of a collection, or null if it cannot be created.
Entity* Loader::found(FieldDescriptor const& field, Kiv::ValueRef key, DocEntity const& doc,
                      Sarn::String const& path) {
   Kiv::CollectionOps const& ops = *field.ops->collection;
   if (Entity* const there = ops.findChild(entity_, key.address)) {
      if (!wasMadeOtherwise(*there, doc)) {
         return there;
      }
      ops.del(entity_, key.address);
   }
   std::vector<Kiv::ValueRef> args{key};
   FieldDescriptor const* missing = nullptr;
   forEachGivenMember(*field.type, [&](FieldDescriptor const& member) {
      if (DocMember const* const given = memberOf(doc, member)) {
         args.push_back(given->value->ref());
      } else if (missing == nullptr) {
         missing = &member;
      }
   });
   if (missing != nullptr) {
      error(path, Sarn::String("cannot be created: '") + missing->name + "' is missing");
      return nullptr;
   }
   refusing(path, [&] { ops.childIs(entity_, args); });
   return ops.findChild(entity_, key.address);
}

/// A queue numbers its elements itself, so only their values can be applied. Elements that already
/// have the right number stay; if the document's queue is not a continuation, the queue is
/// refilled.
void Loader::queue(FieldDescriptor const& field, Elements const& elements, U32 docNext) {
   Kiv::QueueOps const& ops = *field.ops->queue;
   U32 const front = ops.frontSequence(entity_);
   U32 const next = ops.nextSequence(entity_);
   U32 const first = docNext - static_cast<U32>(elements.size());
   auto const same = [&](U32 at, U32 there) {
      return isEq(elements[at - first].value, {*field.type, ops.at(entity_, there)});
   };
   auto const allSame = [&](U32 from, U32 end, U32 shift) {
      bool all = true;
      for (U32 at = from; all && at != end; ++at) {
         all = same(at, at + shift);
      }
      return all;
   };
   if (next - front == docNext - first && allSame(first, docNext, front - first)) {
      return;
   }
   bool const goesOn = static_cast<S32>(first - front) >= 0 &&
                       static_cast<S32>(docNext - next) >= 0 &&
                       static_cast<S32>(next - first) >= 0 && allSame(first, next, 0);
   refusing(pathOf(field), [&] {
      if (goesOn) {
         while (ops.frontSequence(entity_) != first) {
            ops.deq(entity_);
         }
      } else {
         ops.delAll(entity_);
      }
      for (U32 at = goesOn ? next : first; at != docNext; ++at) {
         ops.enq(entity_, elements[at - first].value.address);
      }
   });
}

void Loader::removeOthers(FieldDescriptor const& field, Elements const& elements,
                          Sarn::String const& path) {
   std::set<Sarn::String> named;
   for (auto const& element : elements) {
      named.insert(element.keyText);
   }
   std::vector<std::unique_ptr<AnyValue>> others;
   for (Kiv::CollectionCursor at(entity_, field); at->valid(); at->next()) {
      if (!named.contains(keyText({*field.keyType, at->key()}))) {
         others.push_back(std::make_unique<AnyValue>(*field.keyType));
         others.back()->copy(at->key());
      }
   }
   for (auto const& key : others) {
      refusing(path + "[" + keyText(key->ref()) + "]",
               [&] { field.ops->collection->del(entity_, key->get()); });
   }
}

void Loader::collection(FieldDescriptor const& field, Elements const& elements) {
   Sarn::String const path = pathOf(field);
   removeOthers(field, elements, path);
   for (auto const& each : elements) {
      Sarn::String const at = path + "[" + each.keyText + "]";
      if (each.child != nullptr) {
         childAt(field, each.key, *each.child, at);
      } else {
         element(field, each, at);
      }
   }
}

void Loader::element(FieldDescriptor const& field, StateElement<DocEntity> const& doc,
                     Sarn::String const& path) {
   if (!hasOwnKey(field, doc.key, doc.value)) {
      error(path, "the value " + valueText(doc.value) + " has a different key");
      return;
   }
   Kiv::Present const now(entity_, field, doc.key.address);
   if (!now || !isEq(doc.value, now.value())) {
      refusing(path,
               [&] { field.ops->collection->is(entity_, doc.key.address, doc.value.address); });
   }
}

}  // namespace

void loadEntity(Entity& entity, DocEntity const& doc, Sarn::String const& path, DocErrors& errors) {
   Loader(entity, path, errors).all(doc);
}

void loadPlace(Sarn::Ptr<Entity> const& root, DocPlace const& doc, DocErrors& errors) {
   try {
      Place place(root, doc.path.root.name, doc.path.steps);
      if (doc.value != nullptr) {
         place.set(*doc.value);
      } else if (place.field() == nullptr) {
         Loader(*root, doc.text, errors).all(*doc.entity);
      } else {
         Loader loader(place.owner(), place.ownerPath(), errors);
         if (doc.member != nullptr) {
            walkMember(*doc.member, loader);
         } else {
            loader.childAt(*place.field(), place.key(), *doc.entity, doc.text);
         }
      }
   } catch (Failure const& failure) {
      errors.emplace_back(failure.what());
   }
}

Sarn::Ptr<Kiv::NamedEntity> copyOfRoot(Kiv::NamedEntity const& root) {
   auto copy = newRoot(root.kivType().name, root.nameString());
   DocErrors ignored;  // the setters have accepted this state before
   loadEntity(*copy, *docOf(root), root.nameString(), ignored);
   return copy;
}

}  // namespace Holt
