#include "Holt/State/Changes.h"

#include <algorithm>

#include "Holt/State/Place.h"
#include "Kiv/Path.h"

namespace Holt {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

namespace {

/// What a child was made with besides its key.
std::vector<FieldDescriptor const*> givenFields(Entity const& child, bool keyed) {
   std::vector<FieldDescriptor const*> given;
   bool skip = keyed;
   forEachCtorArg(child.kivType(), [&](FieldDescriptor const& field) {
      if (!skip) {
         given.push_back(&field);
      }
      skip = false;
   });
   return given;
}

Sarn::String entityWhat(Entity const* present, bool keyed) {
   if (present == nullptr) {
      return " deleted";
   }
   Sarn::String given;
   for (FieldDescriptor const* const field : givenFields(*present, keyed)) {
      given += (given.empty() ? "" : ", ") + Sarn::String(field->name) + "=" +
               attributeText(*present, *field);
   }
   return given.empty() ? " created" : " created: " + given;
}

Sarn::String elementWhat(FieldDescriptor const& field, void const* old, void const* now) {
   Sarn::String const oldText = old != nullptr ? field.type->genericIfStrRep(old) : "";
   if (now == nullptr) {
      return old != nullptr ? " deleted: was " + oldText : " deleted";
   }
   Sarn::String const nowText = field.type->genericIfStrRep(now);
   return old != nullptr ? ": " + oldText + " -> " + nowText : " created: " + nowText;
}

void const* queueElement(Entity const& entity, FieldDescriptor const& field, void const* key) {
   Kiv::QueueOps const& queue = *field.ops->queue;
   U32 const sequence = *static_cast<U32 const*>(key);
   U32 const place = sequence - queue.frontSequence(entity);
   return place < queue.size(entity) ? queue.at(entity, sequence) : nullptr;
}

Sarn::String whatOf(Kiv::Change const& change, Entity const& entity, FieldDescriptor const& field) {
   switch (field.kind) {
      case MemberKind::child:
         return entityWhat(field.ops->child->get(entity), false);
      case MemberKind::children:
         return entityWhat(field.ops->collection->findChild(entity, change.key), true);
      case MemberKind::map:
      case MemberKind::ordered:
         return elementWhat(field, change.oldValue,
                            field.ops->collection->find(entity, change.key));
      case MemberKind::queue:
         return elementWhat(field, nullptr, queueElement(entity, field, change.key));
      default:
         return ": " + field.type->genericIfStrRep(change.oldValue) + " -> " +
                attributeText(entity, field);
   }
}

}  // namespace

ChangeText changeText(Kiv::Change const& change) {
   Entity const& entity = Kiv::entityOf(change);
   Sarn::String path = entityPath(entity);
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || field->type == nullptr) {
      return {path + "." + std::to_string(change.attributeId), " changed", change};
   }
   path += '.';
   path += field->name;
   if (change.key != nullptr) {
      path += "[" + field->keyType->genericIfStrRep(change.key) + "]";
   }
   return {path, whatOf(change, entity, *field), change};
}

Json changeJson(ChangeText const& text) {
   Kiv::Change const& change = text.change;
   Entity const& entity = Kiv::entityOf(change);
   Json json{{"path", text.path}, {"change", "set"}};
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || field->type == nullptr) {
      return json;
   }
   if (field->kind == MemberKind::child || field->kind == MemberKind::children) {
      bool const keyed = field->kind == MemberKind::children;
      Entity const* const child = keyed ? field->ops->collection->findChild(entity, change.key)
                                        : field->ops->child->get(entity);
      json["change"] = child != nullptr ? "created" : "deleted";
      if (child != nullptr) {
         json["new"] = Json::object();
         for (FieldDescriptor const* const given : givenFields(*child, keyed)) {
            Kiv::AnyValue value(*given->type);
            readMember(child, *given, value);
            json["new"][given->name] = jsonOf(*given->type, value.get());
         }
      }
      return json;
   }
   Kiv::AnyValue single(*field->type);
   void const* now = nullptr;
   if (field->kind == MemberKind::single) {
      readMember(&entity, *field, single);
      now = single.get();
   } else {
      now = field->kind == MemberKind::queue ? queueElement(entity, *field, change.key)
                                             : field->ops->collection->find(entity, change.key);
      json["change"] = now == nullptr ? "deleted" : change.oldValue == nullptr ? "created" : "set";
   }
   if (change.oldValue != nullptr && field->kind != MemberKind::queue) {
      json["old"] = jsonOf(*field->type, change.oldValue);
   }
   if (now != nullptr) {
      json["new"] = jsonOf(*field->type, now);
   }
   return json;
}

ChangeObserver::ChangeObserver(Sarn::Ptr<Entity> root, Sarn::String below, Tell tell)
      : root_(std::move(root)), below_(std::move(below)), tell_(std::move(tell)) {
   root_->observerAdd(*this, Kiv::Scope::subtree);
}

ChangeObserver::~ChangeObserver() {
   root_->observerDel(*this, Kiv::Scope::subtree);
}

void ChangeObserver::onChange(Kiv::Change const& change) {
   if (!telling_) {
      return;
   }
   ChangeText const text = changeText(change);
   std::string_view const rest =
         std::string_view(text.path).substr(std::min(text.path.size(), below_.size()));
   bool const inside = text.path.starts_with(below_) &&
                       (rest.empty() || rest.front() == '.' || rest.front() == '[');
   // What is told of a whole that holds the watched part: its creation and its deletion.
   bool const holds = below_.size() > text.path.size() && below_.starts_with(text.path) &&
                      (below_[text.path.size()] == '.');
   if (inside || holds) {
      tell_(text);
   }
}

Sarn::String canonicalPath(TypeImpl const& rootType, Path const& path) {
   return destinationOf(rootType, path).path;
}

}  // namespace Holt
