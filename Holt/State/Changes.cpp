#include "Holt/State/Changes.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Holt/State/Match.h"
#include "Kiv/Path.h"
#include "Kiv/Visit.h"

namespace Holt {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

namespace {

Sarn::String entityWhat(Entity const* present) {
   if (present == nullptr) {
      return " deleted";
   }
   Sarn::String given;
   forEachGivenMember(present->kivType(), [&](FieldDescriptor const& field) {
      given += (given.empty() ? "" : ", ") + Sarn::String(field.name) + "=" +
               attributeText(*present, field);
   });
   return given.empty() ? " created" : " created: " + given;
}

Sarn::String elementWhat(FieldDescriptor const& field, void const* old, Kiv::Present const& now) {
   Sarn::String const oldText = old != nullptr ? field.type->genericIfStrRep(old) : "";
   if (!now) {
      return old != nullptr ? " deleted: was " + oldText : " deleted";
   }
   Sarn::String const nowText = valueText(now.value());
   return old != nullptr ? ": " + oldText + " -> " + nowText : " created: " + nowText;
}

/// The value before a change; null for entities and where it is not known.
void const* oldValueOf(Kiv::Change const& change, FieldDescriptor const& field) {
   return field.kind == MemberKind::queue ? nullptr : change.oldValue;
}

bool isOfEntity(FieldDescriptor const& field) {
   return field.type->kind == Kiv::TypeKind::entity;
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
      path += "[" + Kiv::keyText({*field->keyType, change.key}) + "]";
   }
   Kiv::Present const now(entity, *field, change.key);
   return {path,
           isOfEntity(*field) ? entityWhat(now.child())
                              : elementWhat(*field, oldValueOf(change, *field), now),
           change};
}

Json changeJson(ChangeText const& text) {
   Kiv::Change const& change = text.change;
   Entity const& entity = Kiv::entityOf(change);
   Json json{{"path", text.path}, {"change", "set"}};
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || field->type == nullptr) {
      return json;
   }
   Kiv::Present const now(entity, *field, change.key);
   if (isOfEntity(*field)) {
      json["change"] = now ? "created" : "deleted";
      if (now) {
         json["new"] = Json::object();
         forEachGivenMember(now.child()->kivType(), [&](FieldDescriptor const& given) {
            json["new"][given.name] = jsonOf(Kiv::Present(*now.child(), given).value());
         });
      }
      return json;
   }
   if (field->keyType != nullptr) {
      json["change"] = !now ? "deleted" : change.oldValue == nullptr ? "created" : "set";
   }
   if (void const* const old = oldValueOf(change, *field)) {
      json["old"] = jsonOf({*field->type, old});
   }
   if (now) {
      json["new"] = jsonOf(now.value());
   }
   return json;
}

ChangeObserver::ChangeObserver(Sarn::Ptr<Entity> root, std::vector<Sarn::String> below, Tell tell)
      : root_(std::move(root)), below_(std::move(below)), tell_(std::move(tell)) {
   root_->observerAdd(*this, Kiv::Scope::subtree);
}

ChangeObserver::ChangeObserver(Sarn::Ptr<Entity> root, Sarn::String below, Tell tell)
      : ChangeObserver(std::move(root), std::vector{std::move(below)}, std::move(tell)) {}

ChangeObserver::~ChangeObserver() {
   root_->observerDel(*this, Kiv::Scope::subtree);
}

void ChangeObserver::onChange(Kiv::Change const& change) {
   if (!telling_) {
      return;
   }
   ChangeText const text = changeText(change);
   if (std::any_of(below_.begin(), below_.end(),
                   [&text](Sarn::String const& below) { return concerns(text.path, below); })) {
      tell_(text);
   }
}

Sarn::String canonicalPath(TypeImpl const& rootType, Path const& path) {
   return destinationOf(rootType, path).path;
}

}  // namespace Holt
