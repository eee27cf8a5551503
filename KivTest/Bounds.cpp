#include "KivTest/Bounds.h"

#include "Kiv/Module.h"
#include "Kiv/Specimen.h"
#include "Kiv/Visit.h"

namespace KivTest {

namespace {

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::TypeImpl;
using Kiv::TypeKind;

/// Wide enough for every integer.
__extension__ using Wide = __int128;

std::string decimal(Wide number) {
   std::string text;
   bool const negative = number < 0;
   do {
      auto const digit = static_cast<int>(number % 10);
      text.insert(text.begin(), static_cast<char>('0' + (digit < 0 ? -digit : digit)));
      number /= 10;
   } while (number != 0);
   return negative ? "-" + text : text;
}

struct Span {
   Wide least;
   Wide greatest;
};

Span typeSpan(TypeImpl const& type) {
   Wide const one = 1;
   auto const bits = static_cast<int>(type.size) * 8;
   return type.kind == TypeKind::unsignedNumber
                ? Span{0, (one << bits) - 1}
                : Span{-(one << (bits - 1)), (one << (bits - 1)) - 1};
}

/// The number of an integer.
struct Integer {
   Wide operator()(U64 v) const { return v; }
   Wide operator()(S64 v) const { return v; }
   Wide operator()(auto const&) const { return 0; }
};

Wide wide(Kiv::ValueRef value) {
   return Kiv::visitValue(value, Integer());
}

/// One attribute of one entity, tried through its setter.
class Trial {
public:
   Trial(Kiv::Entity& entity, FieldDescriptor const& field, std::vector<std::string>& wrong)
         : entity_(entity), field_(field), wrong_(wrong) {}

   void run() {
      Span const all = typeSpan(*field_.type);
      Span const told =
            field_.bounds != nullptr ? Span{wide(field_.least()), wide(field_.greatest())} : all;
      // Each bound twice, since what is there already is not looked at.
      for (Wide const at : {told.least, told.greatest, told.least, told.greatest}) {
         expect(at, true);
      }
      if (told.least != all.least) {
         expect(told.least - 1, false);
         expect(all.least, false);
      }
      if (told.greatest != all.greatest) {
         expect(told.greatest + 1, false);
         expect(all.greatest, false);
      }
   }

private:
   void expect(Wide number, bool wanted) {
      std::string const text = decimal(number);
      std::string const before = attributeText(entity_, field_);
      AnyValue value(*field_.type);
      Kiv::CharRange range(text);
      field_.type->genericIfStrepToValue(value.room(), range);
      value.constructed();
      bool accepted = true;
      try {
         field_.ops->write(&entity_, value.get());
      } catch (Kiv::RangeException const&) {
         accepted = false;
      }
      std::string const path = std::string(entity_.kivType().name) + "." + field_.name;
      if (accepted != wanted) {
         wrong_.push_back(path + (accepted ? " takes " : " refuses ") + text);
      } else if (attributeText(entity_, field_) != (accepted ? text : before)) {
         wrong_.push_back(path + " is " + attributeText(entity_, field_) + " after " + text);
      }
   }

   Kiv::Entity& entity_;
   FieldDescriptor const& field_;
   std::vector<std::string>& wrong_;
};

bool isInteger(TypeImpl const& type) {
   return type.kind == TypeKind::unsignedNumber || type.kind == TypeKind::signedNumber;
}

}  // namespace

std::vector<std::string> wrongBounds() {
   std::vector<std::string> wrong;
   for (auto const* module = Kiv::firstModule(); module != nullptr; module = module->data->next) {
      for (U32 i = 0; i != module->typeCount; ++i) {
         TypeImpl const& type = *module->data->types[i];
         if (type.kind != TypeKind::entity) {
            continue;
         }
         auto const entity = Kiv::specimenOf(type);
         Kiv::forEachField(type, [&](FieldDescriptor const& field) {
            bool const settable = field.ops != nullptr && field.ops->write != nullptr;
            if (field.bounds != nullptr && (!settable || !isInteger(*field.type))) {
               wrong.push_back(std::string(type.name) + "." + field.name + " cannot be tried");
            } else if (settable && isInteger(*field.type)) {
               Trial(*entity, field, wrong).run();
            }
         });
      }
   }
   return wrong;
}

std::vector<std::string> boundsOf(TypeImpl const& type) {
   std::vector<std::string> all;
   Kiv::forEachField(type, [&](FieldDescriptor const& field) {
      if (field.bounds != nullptr) {
         all.push_back(std::string(field.name) + " " +
                       field.type->genericIfStrRep(field.least().address) + ".." +
                       field.type->genericIfStrRep(field.greatest().address));
      }
   });
   return all;
}

}  // namespace KivTest
