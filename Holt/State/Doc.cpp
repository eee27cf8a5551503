#include "Holt/State/Doc.h"

#include <algorithm>

#include "Holt/Failure.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

std::unique_ptr<AnyValue> copyOf(Kiv::TypeImpl const& type, void const* source) {
   auto value = std::make_unique<AnyValue>(type);
   copyValue(source, *value);
   return value;
}

void copyQueue(Entity const& entity, DocMember& member) {
   Kiv::QueueOps const& ops = *member.field->ops->queue;
   member.next = ops.nextSequence(entity);
   auto const size = static_cast<U32>(ops.size(entity));
   for (U32 sequence = member.next - size; sequence != member.next; ++sequence) {
      member.elements.push_back(
            {nullptr, copyOf(*member.field->type, ops.at(entity, sequence)), nullptr});
   }
}

void copyCollection(Entity const& entity, DocMember& member) {
   FieldDescriptor const& field = *member.field;
   std::vector<std::pair<Sarn::String, DocElement>> all;
   for (Kiv::CollectionCursor at(const_cast<Entity&>(entity), field); at->valid(); at->next()) {
      DocElement element{copyOf(*field.keyType, at->key()), nullptr, nullptr};
      if (field.kind == MemberKind::children) {
         element.child = docOf(*at->child());
      } else {
         element.value = copyOf(*field.type, at->value());
      }
      all.emplace_back(valueText(*element.key), std::move(element));
   }
   if (field.kind != MemberKind::ordered) {
      std::sort(all.begin(), all.end(),
                [](auto const& a, auto const& b) { return naturallyLess(a.first, b.first); });
   }
   for (auto& [key, element] : all) {
      member.elements.push_back(std::move(element));
   }
}

DocMember memberOf(Entity const& entity, FieldDescriptor const& field) {
   DocMember member;
   member.field = &field;
   switch (field.kind) {
      case MemberKind::single:
         member.value = std::make_unique<AnyValue>(*field.type);
         readMember(&entity, field, *member.value);
         break;
      case MemberKind::child:
         if (Entity const* const child = field.ops->child->get(entity)) {
            member.elements.push_back({nullptr, nullptr, docOf(*child)});
         }
         break;
      case MemberKind::queue:
         copyQueue(entity, member);
         break;
      default:
         copyCollection(entity, member);
         break;
   }
   return member;
}

Json memberJson(DocMember const& member) {
   FieldDescriptor const& field = *member.field;
   if (member.value != nullptr) {
      return jsonOf(*field.type, member.value->get());
   }
   if (field.kind == MemberKind::child) {
      return member.elements.empty() ? Json() : jsonOf(*member.elements[0].child);
   }
   if (field.kind == MemberKind::queue) {
      Json elements = Json::array();
      for (DocElement const& element : member.elements) {
         elements.push_back(jsonOf(*field.type, element.value->get()));
      }
      return Json{{"next", member.next}, {"elements", std::move(elements)}};
   }
   Json json = Json::object();
   for (DocElement const& element : member.elements) {
      json[jsonKey(*element.key)] = element.child != nullptr
                                          ? jsonOf(*element.child)
                                          : jsonOf(*field.type, element.value->get());
   }
   return json;
}

}  // namespace

bool isInDocs(FieldDescriptor const& field) {
   if (field.kind == MemberKind::none || field.kind == MemberKind::operation ||
       field.ops == nullptr) {
      return false;
   }
   return field.has(FieldDescriptor::streamed) ||
          (field.kind == MemberKind::single && field.ops->write == nullptr);
}

std::unique_ptr<DocEntity> docOf(Entity const& entity) {
   auto doc = std::make_unique<DocEntity>();
   doc->type = &entity.kivType();
   if (Sarn::String const* const name = entityName(entity);
       name != nullptr && entity.parent() != nullptr) {
      doc->name = *name;
   }
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (isInDocs(field)) {
         doc->members.push_back(memberOf(entity, field));
      }
   });
   return doc;
}

DocPlace docOf(Place const& place, Path const& path) {
   DocPlace doc;
   doc.path = path;
   doc.text = place.path();
   if (place.isCollection()) {
      doc.member = std::make_unique<DocMember>(memberOf(place.owner(), *place.field()));
   } else if (Entity const* const entity = place.entity()) {
      doc.entity = docOf(*entity);
   } else {
      doc.value = place.value();
   }
   return doc;
}

Json jsonOf(DocEntity const& entity) {
   Json json = Json::object();
   if (!entity.name.empty()) {
      json["@name"] = entity.name;
   }
   for (DocMember const& member : entity.members) {
      json[member.field->name] = memberJson(member);
   }
   return json;
}

Json jsonOf(DocPlace const& place) {
   return place.entity != nullptr   ? jsonOf(*place.entity)
          : place.member != nullptr ? memberJson(*place.member)
                                    : jsonOf(place.value->type(), place.value->get());
}

Json jsonOf(StateDoc const& doc) {
   Json places = Json::array();
   for (DocPlace const& place : doc.places) {
      places.push_back({{"root", {{"type", place.path.root.type}, {"name", place.path.root.name}}},
                        {"path", place.text},
                        {"state", jsonOf(place)}});
   }
   return {{"format", "ptpstate dump 1"}, {"places", std::move(places)}};
}

std::string jsonText(Json const& json) {
   return jsonLine(json, 3) + "\n";
}

}  // namespace Holt
