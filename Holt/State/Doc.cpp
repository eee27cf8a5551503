#include "Holt/State/Doc.h"

#include <nlohmann/json.hpp>

#include "Holt/State/Walk.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;

namespace {

std::unique_ptr<AnyValue> copyOf(Kiv::ValueRef source) {
   if (source.address == nullptr) {
      return nullptr;
   }
   auto value = std::make_unique<AnyValue>(*source.type);
   value->copy(source.address);
   return value;
}

/// Copies members of a live entity.
class Copier final : public StateVisitor<Entity> {
public:
   explicit Copier(std::vector<DocMember>& members) : members_(members) {}

   void value(FieldDescriptor const& field, Kiv::ValueRef value) override {
      add(field).value = copyOf(value);
   }
   void child(FieldDescriptor const& field, Entity const* child) override {
      DocMember& member = add(field);
      if (child != nullptr) {
         member.elements.push_back({nullptr, nullptr, docOf(*child)});
      }
   }
   void collection(FieldDescriptor const& field, Elements const& elements) override {
      DocMember& member = add(field);
      for (auto const& element : elements) {
         member.elements.push_back({copyOf(element.key), copyOf(element.value),
                                    element.child != nullptr ? docOf(*element.child) : nullptr});
      }
   }
   void queue(FieldDescriptor const& field, Elements const& elements, U32 next) override {
      collection(field, elements);
      members_.back().next = next;
   }

private:
   DocMember& add(FieldDescriptor const& field) {
      members_.emplace_back().field = &field;
      return members_.back();
   }

   std::vector<DocMember>& members_;
};

/// Puts the members of a document into a JSON object under their names.
class JsonMembers final : public StateVisitor<DocEntity> {
public:
   explicit JsonMembers(Json& object) : object_(object) {}

   void value(FieldDescriptor const& field, Kiv::ValueRef value) override {
      object_[field.name] = jsonOf(value);
   }
   void child(FieldDescriptor const& field, DocEntity const* child) override {
      object_[field.name] = child != nullptr ? jsonOf(*child) : Json();
   }
   void collection(FieldDescriptor const& field, Elements const& elements) override {
      Json json = Json::object();
      for (auto const& element : elements) {
         json[jsonKey(element.key)] =
               element.child != nullptr ? jsonOf(*element.child) : jsonOf(element.value);
      }
      object_[field.name] = std::move(json);
   }
   void queue(FieldDescriptor const& field, Elements const& elements, U32 next) override {
      Json json = Json::array();
      for (auto const& element : elements) {
         json.push_back(jsonOf(element.value));
      }
      object_[field.name] = Json{{"next", next}, {"elements", std::move(json)}};
   }

private:
   Json& object_;
};

Json memberJson(DocMember const& member) {
   Json object = Json::object();
   JsonMembers members(object);
   walkMember(member, members);
   return std::move(object[member.field->name]);
}

}  // namespace

std::unique_ptr<DocEntity> docOf(Entity const& entity) {
   auto doc = std::make_unique<DocEntity>();
   doc->type = &entity.kivType();
   if (Sarn::String const* const name = entityName(entity);
       name != nullptr && entity.parent() != nullptr) {
      doc->name = *name;
   }
   Copier members(doc->members);
   walkMembers(entity, StatePart::all, members);
   return doc;
}

DocPlace docOf(Place const& place, Path const& path) {
   DocPlace doc;
   doc.path = path;
   doc.text = place.path();
   if (place.isCollection()) {
      std::vector<DocMember> members;
      Copier copier(members);
      walkMember(place.owner(), *place.field(), copier);
      doc.member = std::make_unique<DocMember>(std::move(members.front()));
   } else if (Entity const* const entity = place.entity()) {
      doc.entity = docOf(*entity);
   } else {
      doc.value = place.value();
   }
   return doc;
}

StateDoc docOf(std::vector<Kiv::NamedEntity*> const& roots) {
   StateDoc doc;
   for (Kiv::NamedEntity const* const root : roots) {
      DocPlace& place = doc.places.emplace_back();
      place.path.root = {root->kivType().name, root->nameString()};
      place.text = root->nameString();
      place.entity = docOf(*root);
   }
   return doc;
}

Json jsonOf(DocEntity const& entity) {
   Json json = Json::object();
   if (!entity.name.empty()) {
      json["@name"] = jsonOf(entity.name);
   }
   JsonMembers members(json);
   walkMembers(entity, StatePart::all, members);
   return json;
}

Json jsonOf(DocPlace const& place) {
   return place.entity != nullptr   ? jsonOf(*place.entity)
          : place.member != nullptr ? memberJson(*place.member)
                                    : jsonOf(place.value->ref());
}

Json jsonOf(StateDoc const& doc) {
   Json places = Json::array();
   for (DocPlace const& place : doc.places) {
      places.push_back(
            {{"root", {{"type", place.path.root.type}, {"name", jsonOf(place.path.root.name)}}},
             {"path", jsonOf(place.text)},
             {"state", jsonOf(place)}});
   }
   return {{"format", "ptpstate dump 1"}, {"places", std::move(places)}};
}

std::string jsonText(Json const& json) {
   return jsonLine(json, 3) + "\n";
}

}  // namespace Holt
