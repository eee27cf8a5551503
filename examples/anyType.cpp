// Creates, changes and prints an entity of a type that is known only by name.
#include <iostream>

#include "Kiv/Module.h"
#include "Kiv/Visit.h"

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

/// Prints the members of an entity as they are handed out, and all below it.
class Printer {
public:
   explicit Printer(std::string indent) : indent_(std::move(indent)) {}

   void value(Kiv::FieldDescriptor const& field, Kiv::ValueRef value) {
      std::cout << indent_ << field.name << " = " << text(value);
      if (field.bounds != nullptr) {
         std::cout << "  (" << text(field.least()) << " to " << text(field.greatest()) << ')';
      }
      std::cout << '\n';
   }
   void child(Kiv::FieldDescriptor const& field, Kiv::Entity const* child) {
      if (child != nullptr) {
         std::cout << indent_ << field.name << ":\n";
         Kiv::visitMembers(*child, Printer(indent_ + "   "));
      }
   }
   void collection(Kiv::FieldDescriptor const& field, Kiv::CollectionCursor& at) {
      for (; at->valid(); at->next()) {
         std::cout << indent_ << field.name << '[' << text({*field.keyType, at->key()}) << ']';
         if (Kiv::Entity const* const child = at->child()) {
            std::cout << ":\n";
            Kiv::visitMembers(*child, Printer(indent_ + "   "));
         } else {
            std::cout << " = " << text({*field.type, at->value()}) << '\n';
         }
      }
   }
   void queue(Kiv::FieldDescriptor const& field, Kiv::CollectionCursor& at, U32) {
      collection(field, at);
   }

private:
   static Sarn::String text(Kiv::ValueRef value) {
      return value.type->genericIfStrRep(value.address);
   }

   std::string indent_;
};

/// How many numbers a value holds that are not 0, in its fields and theirs, too.
struct NumbersSet {
   int operator()(U64 v) { return v != 0 ? 1 : 0; }
   int operator()(S64 v) { return v != 0 ? 1 : 0; }
   int operator()(double v) { return v != 0 ? 1 : 0; }
   int operator()(Kiv::OptionalRef v) {
      return v.held.address != nullptr ? Kiv::visitValue(v.held, *this) : 0;
   }
   int operator()(Kiv::RecordRef v) {
      int count = 0;
      Kiv::forEachPart(v, [&](Kiv::FieldDescriptor const&, Kiv::ValueRef part) {
         count += Kiv::visitValue(part, *this);
      });
      return count;
   }
   int operator()(auto const&) { return 0; }
};

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
   Kiv::visitMembers(*config, Printer(""));
   Kiv::Present const quality(*config, *type->field("clockQuality"));
   std::cout << Kiv::visitValue(quality.value(), NumbersSet())
             << " numbers of the clock's quality\n";
   return Kiv::attributeText(*config, domain) == "24" ? 0 : 1;
}
