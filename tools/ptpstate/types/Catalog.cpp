#include "tools/ptpstate/types/Catalog.h"

#include "Holt/Failure.h"
#include "Holt/State/Values.h"
#include "Kiv/Specimen.h"
#include "Kiv/Visit.h"

namespace Ptpstate {

using namespace Holt;

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;
using Kiv::TypeKind;

namespace {

/// A new entity or value, whose members have their defaults.
class Specimen {
public:
   explicit Specimen(TypeImpl const& type) {
      if (type.kind == TypeKind::entity) {
         entity_ = Kiv::specimenOf(type);
      } else {
         value_.emplace(type).makeDefault();
      }
   }

   void const* object() const {
      return entity_ ? static_cast<void const*>(entity_.get()) : value_->get();
   }

private:
   Sarn::Ptr<Kiv::Entity> entity_;
   std::optional<AnyValue> value_;
};

/// A type's name as declared: a time, too, is a double in C++.
Sarn::String declaredName(FieldDescriptor const& field) {
   if (field.type == nullptr) {
      return "";
   }
   Sarn::String name = field.type->name;
   if (field.has(FieldDescriptor::seconds)) {
      std::string_view const number = Kiv::typeOf<Kiv::Seconds>().name;
      name.replace(name.find(number), number.size(), "Kiv::Seconds");
   }
   return name;
}

char const* kindOf(TypeImpl const& type, FieldDescriptor const& field) {
   switch (field.kind) {
      case MemberKind::child:
         return "child";
      case MemberKind::children:
         return "children";
      case MemberKind::map:
         return "map";
      case MemberKind::ordered:
         return "ordered";
      case MemberKind::queue:
         return "queue";
      case MemberKind::operation:
         return "operation";
      default:
         break;
   }
   if (type.kind == TypeKind::value) {
      return field.has(FieldDescriptor::streamed) ? "field" : "computed";
   }
   if (field.ops != nullptr && field.ops->write != nullptr) {
      return "attribute";
   }
   if (!type.isCtorArg(field.fieldId)) {
      return field.has(FieldDescriptor::constant) ? "constant" : "computed";
   }
   return field.has(FieldDescriptor::key) ? "key" : "constant";
}

bool hasInitial(TypeImpl const& type, FieldDescriptor const& field) {
   return field.kind == MemberKind::single && field.ops != nullptr &&
          (type.kind == TypeKind::value || !type.isCtorArg(field.fieldId));
}

MemberInfo infoOf(TypeImpl const& type, FieldDescriptor const& field, Specimen const& specimen) {
   MemberInfo info;
   info.field = &field;
   info.kind = kindOf(type, field);
   info.valueType = declaredName(field);
   info.type = info.valueType;
   if (field.keyType != nullptr && field.kind != MemberKind::queue) {
      info.type += Sarn::String(" by ") + field.keyType->name;
   }
   if (hasInitial(type, field)) {
      info.initial = std::make_unique<AnyValue>(*field.type);
      info.initial->read(specimen.object(), field);
   }
   return info;
}

}  // namespace

std::vector<MemberInfo> membersOf(TypeImpl const& type) {
   std::vector<MemberInfo> members;
   if (type.kind != TypeKind::entity && type.kind != TypeKind::value) {
      return members;
   }
   Specimen const specimen(type);
   forEachField(type, [&](FieldDescriptor const& field) {
      members.push_back(infoOf(type, field, specimen));
   });
   return members;
}

std::vector<Enumerator> enumeratorsOf(TypeImpl const& type) {
   std::vector<Enumerator> all;
   Kiv::forEachEnumerator(type, [&all](U8 value, char const* name) {
      all.push_back({value, name});
   });
   return all;
}

char const* kindText(TypeImpl const& type) {
   switch (type.kind) {
      case TypeKind::entity:
         return "entity";
      case TypeKind::enumeration:
         return "enumeration";
      default:
         return "value";
   }
}

std::vector<TypeImpl const*> typesByName(std::string_view name) {
   std::vector<TypeImpl const*> found;
   Sarn::String names;
   for (Kiv::KivModule const* module = Kiv::firstModule(); module != nullptr;
        module = module->data->next) {
      for (U32 i = 0; i != module->typeCount; ++i) {
         TypeImpl const& type = *module->data->types[i];
         std::string_view const whole = type.name;
         if (whole == name) {
            return {&type};
         }
         std::size_t const colon = whole.rfind(':');
         bool const unqualified =
               colon != std::string_view::npos && whole.substr(colon + 1) == name;
         if (name.empty() || module->name() == name || unqualified) {
            found.push_back(&type);
            names += (names.empty() ? "" : ", ") + Sarn::String(whole);
         }
      }
   }
   if (found.empty()) {
      throw Failure("there is no type or module '" + Sarn::String(name) +
                    "'; 'ptpstate types' lists them");
   }
   if (found.size() > 1 && !name.empty() && Kiv::moduleByName(name) == nullptr) {
      throw Failure("'" + Sarn::String(name) + "' is ambiguous; it may be one of " + names);
   }
   return found;
}

}  // namespace Ptpstate
