#include "Kiv/Specimen.h"

#include <memory>
#include <vector>

#include "Kiv/AnyValue.h"
#include "Kiv/Entity.h"
#include "Kiv/Types.h"
#include "Kiv/Visit.h"

namespace Kiv {
namespace {

/// A number as it is; 0 for what has no order.
struct Number {
   long double operator()(U64 value) const { return static_cast<long double>(value); }
   long double operator()(S64 value) const { return static_cast<long double>(value); }
   long double operator()(float value) const { return value; }
   long double operator()(double value) const { return value; }
   long double operator()(EnumRef const& value) const { return value.value; }
   long double operator()(auto const&) const { return 0; }
};

/// Whether the constructor accepts the value.
bool isAccepted(FieldDescriptor const& field, ValueRef value) {
   if (field.bounds == nullptr) {
      return true;
   }
   long double const number = visitValue(value, Number());
   return visitValue(field.least(), Number()) <= number &&
          number <= visitValue(field.greatest(), Number());
}

}  // namespace

Sarn::Ptr<Entity> specimenOf(TypeImpl const& type) {
   Sarn::String const name = "specimen";
   std::vector<std::unique_ptr<AnyValue>> values;
   std::vector<ValueRef> args;
   for (AttributeId const id : type.ctorArgs) {
      if (id == nameFieldId) {
         args.emplace_back(&name);
      } else {
         FieldDescriptor const& field = *type.field(id);
         values.push_back(std::make_unique<AnyValue>(*field.type));
         values.back()->makeDefault();
         ValueRef const value = values.back()->ref();
         args.push_back(isAccepted(field, value) ? value : field.least());
      }
   }
   return type.entity->genericIfConstructFromCtorArgs(args);
}

}  // namespace Kiv
