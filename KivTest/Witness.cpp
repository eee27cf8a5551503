#include "KivTest/Witness.h"

#include <stdexcept>

#include "Kiv/AnyValue.h"
#include "Kiv/AttrOps.h"
#include "Kiv/Text.h"

namespace KivTest {

namespace {

std::string oldValueText(Kiv::FieldDescriptor const& field, void const* oldValue) {
   if (oldValue == nullptr) {
      return "nothing";
   }
   if (field.kind == Kiv::MemberKind::child || field.kind == Kiv::MemberKind::children) {
      auto const& child = *static_cast<Sarn::Ptr<Kiv::Entity> const*>(oldValue);
      return child ? child->kivType().name : "nothing";
   }
   return field.type->genericIfStrRep(oldValue);
}

std::string keyText(Kiv::FieldDescriptor const& field, void const* key) {
   if (field.kind == Kiv::MemberKind::queue) {
      return std::to_string(*static_cast<U32 const*>(key));
   }
   return field.keyType->genericIfStrRep(key);
}

char const* kindText(Kiv::MemberKind kind) {
   switch (kind) {
      case Kiv::MemberKind::child:
         return "child";
      case Kiv::MemberKind::children:
         return "children";
      case Kiv::MemberKind::map:
         return "map";
      case Kiv::MemberKind::ordered:
         return "ordered";
      case Kiv::MemberKind::queue:
         return "queue";
      case Kiv::MemberKind::operation:
         return "op";
      default:
         return "";
   }
}

std::string hex(U16 number) {
   constexpr char const* digits = "0123456789abcdef";
   std::string text;
   for (int shift = 12; shift >= 0; shift -= 4) {
      text += digits[(number >> shift) & 0xf];
   }
   return text;
}

/// Whether writing the attribute's current value (op 1) is accepted.
bool isWritable(Kiv::Entity& entity, Kiv::FieldDescriptor const& field) {
   return attributeTextIs(entity, field.fieldId, attributeText(entity, field.fieldId)) ==
          Kiv::statusOk;
}

std::string row(Kiv::Entity& entity, Kiv::FieldDescriptor const& field) {
   std::string line = std::to_string(field.fieldId) + " " + hex(field.kindWord) + " " + field.name;
   if (field.type != nullptr) {
      line += std::string(" : ") + field.type->name;
   }
   if (field.kind == Kiv::MemberKind::single) {
      line += " = " + attributeText(entity, field.fieldId);
      line += isWritable(entity, field) ? "" : " const";
   } else {
      line += std::string(" (") + kindText(field.kind);
      if (field.keyType != nullptr) {
         line += std::string(" by ") + field.keyType->name;
      }
      line += ")";
   }
   line += field.has(Kiv::FieldDescriptor::streamed) ? "" : " local";
   if (field.has(Kiv::FieldDescriptor::instantiation1) ||
       field.has(Kiv::FieldDescriptor::instantiation2) ||
       field.has(Kiv::FieldDescriptor::instantiation3)) {
      line += " instantiation";
      line += field.has(Kiv::FieldDescriptor::instantiation1) ? " 1" : " 0";
      line += field.has(Kiv::FieldDescriptor::instantiation2) ? "1" : "0";
      line += field.has(Kiv::FieldDescriptor::instantiation3) ? "1" : "0";
   }
   return line;
}

}  // namespace

Witness::Witness(Kiv::Entity& entity, Kiv::Scope scope) : entity_(&entity), scope_(scope) {
   entity.observerAdd(*this, scope);
}

Witness::~Witness() {
   entity_->observerDel(*this, scope_);
}

void Witness::onChange(Kiv::Change const& change) {
   auto& entity = Kiv::entityOf(change);
   std::string text;
   if (&entity != entity_.get()) {
      text = std::string(entity.kivType().name) + ".";
   }
   auto const* field = entity.kivType().field(change.attributeId);
   if (field == nullptr) {
      text += std::to_string(change.attributeId);
   } else {
      text += field->name;
      if (change.key != nullptr) {
         text += "[" + keyText(*field, change.key) + "]";
      }
      text += " was " + oldValueText(*field, change.oldValue);
   }
   published_.push_back({change.attributeId, text});
}

std::string Witness::ids() {
   std::string all;
   for (auto const& one : published_) {
      all += (all.empty() ? "" : " ") + std::to_string(one.id);
   }
   published_.clear();
   return all;
}

std::string Witness::changes() {
   std::string all;
   for (auto const& one : published_) {
      all += (all.empty() ? "" : "; ") + one.text;
   }
   published_.clear();
   return all;
}

std::string attributeTable(Kiv::Entity& entity) {
   std::string all = "\n";
   Kiv::forEachField(entity.kivType(),
                     [&](Kiv::FieldDescriptor const& field) { all += row(entity, field) + "\n"; });
   return all;
}

std::string attributeText(Kiv::Entity& entity, Kiv::AttributeId id) {
   auto const& type = entity.kivType();
   auto const* field = type.field(id);
   if (field == nullptr || field->kind != Kiv::MemberKind::single) {
      throw std::logic_error(std::string(type.name) + " has no value " + std::to_string(id));
   }
   Kiv::AnyValue value(*field->type);
   if (type.genericIfAttributeOp(value.room(), &entity, field, 0, nullptr, nullptr) !=
       Kiv::statusOk) {
      throw std::logic_error(std::string(type.name) + "." + field->name + " cannot be read");
   }
   value.constructed();
   return field->type->genericIfStrRep(value.get());
}

U8 attributeTextIs(Kiv::Entity& entity, Kiv::AttributeId id, std::string_view text) {
   auto const& type = entity.kivType();
   auto const* field = type.field(id);
   if (field == nullptr) {
      return Kiv::statusUnknownField;
   }
   Kiv::AnyValue value(*field->type);
   Kiv::CharRange range(text);
   field->type->genericIfStrepToValue(value.room(), range);
   value.constructed();
   range.expectEnd();
   return type.genericIfAttributeOp(nullptr, &entity, field, 1, nullptr, value.ref());
}

}  // namespace KivTest
