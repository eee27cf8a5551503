// Creates, changes and prints an entity of a type that is known only by name.
#include <iostream>

#include "Kiv/GenericIfImpl.h"
#include "Kiv/Module.h"

namespace {

/// Writes an attribute from its text form. Returns the status of the operation.
U8 attributeIs(Kiv::Entity& entity, Kiv::FieldDescriptor const& field, std::string_view text) {
   Kiv::AnyValue value(*field.type);
   Kiv::CharRange range(text);
   field.type->genericIfStrepToValue(value.room(), range);
   value.constructed();
   range.expectEnd();
   return entity.kivType().genericIfAttributeOp(
         nullptr, &entity, &field, static_cast<U8>(Kiv::AttributeOp::write), nullptr, value.ref());
}

/// Prints values, then collections with their keys, then children.
void print(Kiv::Entity& entity, std::string const& indent) {
   Kiv::forEachField(entity.kivType(), [&](Kiv::FieldDescriptor const& field) {
      if (field.kind == Kiv::MemberKind::single) {
         std::cout << indent << field.name << " = " << Kiv::attributeText(entity, field) << '\n';
      } else if (field.kind == Kiv::MemberKind::map) {
         for (Kiv::CollectionCursor at(entity, field); at->valid(); at->next()) {
            std::cout << indent << field.name << '[' << field.keyType->genericIfStrRep(at->key())
                      << "] = " << field.type->genericIfStrRep(at->value()) << '\n';
         }
      }
   });
   Kiv::forEachChild(entity,
                     [&](Kiv::Entity& child, Kiv::FieldDescriptor const& field, void const*) {
                        std::cout << indent << field.name << ":\n";
                        print(child, indent + "   ");
                     });
}

}  // namespace

int main() {
   Kiv::TypeImpl const* const type = Kiv::typeByName("Ptp::Config");
   if (type == nullptr) {
      return 1;
   }
   Sarn::String const name = "ptp/config";
   std::array<Kiv::ValueRef, 1> const args{&name};
   auto const config = type->entity->genericIfConstructFromCtorArgs(args);

   Kiv::FieldDescriptor const& domain = *type->field("domainNumber");
   if (attributeIs(*config, domain, "24") != Kiv::statusOk) {
      return 1;
   }
   try {
      attributeIs(*config, *type->field("driftLimit"), "49");
   } catch (Kiv::RangeException const& refusal) {
      std::cout << refusal.what() << '\n';
   }
   print(*config, "");
   return Kiv::attributeText(*config, domain) == "24" ? 0 : 1;
}
