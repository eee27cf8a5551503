#include "tools/ptpstate/types/Catalog.h"

#include <bit>
#include <cmath>
#include <functional>

#include "Holt/Failure.h"
#include "Holt/State/Values.h"
#include "Kiv/Glue/EnumType.h"
#include "Kiv/Text.h"

namespace Ptpstate {

using namespace Holt;

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;
using Kiv::TypeKind;

namespace {

/// An entity or value to try things on. Empty where none can be made.
class Specimen {
public:
   explicit Specimen(TypeImpl const& type) {
      if (type.kind == TypeKind::value) {
         value_ = std::make_unique<AnyValue>(type);
         type.support->construct(value_->room());
         value_->constructed();
         return;
      }
      Sarn::String const name = "specimen";
      std::vector<std::unique_ptr<AnyValue>> values;
      std::vector<Kiv::ValueRef> args;
      for (Kiv::AttributeId const id : type.ctorArgs) {
         if (id == Kiv::nameFieldId) {
            args.push_back(&name);
            continue;
         }
         FieldDescriptor const& field = *type.field(id);
         values.push_back(std::make_unique<AnyValue>(*field.type));
         field.type->support->construct(values.back()->room());
         values.back()->constructed();
         args.push_back(values.back()->ref());
      }
      entity_ = type.entity->genericIfConstructFromCtorArgs(args);
   }

   void* object() const {
      return entity_ ? static_cast<void*>(entity_.get()) : const_cast<void*>(value_->get());
   }

private:
   Sarn::Ptr<Kiv::Entity> entity_;
   std::unique_ptr<AnyValue> value_;
};

/// Numbers of any kind on one line of 64 bits, in their order, so that bounds can be found by
/// halving.
struct Scale {
   enum Kind { none, unsignedNumber, signedNumber, floating } kind = none;
   U64 first = 0;
   U64 last = 0;

   static constexpr U64 sign = U64{1} << 63;

   static U64 ofSigned(S64 number) { return static_cast<U64>(number) ^ sign; }
   static U64 ofDouble(double number) {
      U64 const bits = std::bit_cast<U64>(number);
      return (bits & sign) != 0 ? ~bits : bits | sign;
   }

   explicit Scale(TypeImpl const& type) {
      std::string_view const name = type.name;
      for (int bits = 8; bits <= 64; bits *= 2) {
         if (name == "U" + std::to_string(bits)) {
            kind = unsignedNumber;
            last = ~U64{0} >> (64 - bits);
         } else if (name == "S" + std::to_string(bits)) {
            kind = signedNumber;
            S64 const greatest = static_cast<S64>(~U64{0} >> (65 - bits));
            first = ofSigned(-greatest - 1);
            last = ofSigned(greatest);
         }
      }
      if (name == Kiv::typeOf<double>().name || name == Kiv::typeOf<float>().name) {
         bool const isFloat = name == Kiv::typeOf<float>().name;
         kind = floating;
         double const greatest = isFloat ? double{std::numeric_limits<float>::max()}
                                         : std::numeric_limits<double>::max();
         first = ofDouble(-greatest);
         last = ofDouble(greatest);
      }
   }

   Sarn::String text(U64 at) const {
      if (kind == unsignedNumber) {
         return std::to_string(at);
      }
      if (kind == signedNumber) {
         return std::to_string(static_cast<S64>(at ^ sign));
      }
      Sarn::String text;
      Kiv::printDouble(text, std::bit_cast<double>((at & sign) != 0 ? at ^ sign : ~at));
      return text;
   }
};

class Bounds {
public:
   Bounds(Specimen const& specimen, FieldDescriptor const& field)
         : specimen_(specimen), field_(field), scale_(*field.type) {}

   void find(MemberInfo& info) {
      if (scale_.kind == Scale::none) {
         return;
      }
      std::optional<U64> const some = anyAccepted();
      if (!some) {
         return;
      }
      U64 const least = halve(*some, scale_.first);
      U64 const greatest = halve(*some, scale_.last);
      if (least != scale_.first || greatest != scale_.last) {
         info.least = valueAt(least);
         info.greatest = valueAt(greatest);
      }
   }

private:
   std::unique_ptr<AnyValue> valueAt(U64 at) const {
      auto value = std::make_unique<AnyValue>(*field_.type);
      parseValue(scale_.text(at), *value);
      return value;
   }

   bool accepts(U64 at) const {
      try {
         field_.ops->write(specimen_.object(), valueAt(at)->get());
         return true;
      } catch (Kiv::Exception const&) {
         return false;
      }
   }

   /// A value that was accepted though it was not there before: setting what is there is no test.
   std::optional<U64> anyAccepted() const {
      AnyValue now(*field_.type);
      readMember(specimen_.object(), field_, now);
      Sarn::String const there = valueText(now);
      std::vector<U64> tries{scale_.first, scale_.last};
      for (U64 step = 1; step != 0 && step < scale_.last - scale_.first; step <<= 1) {
         tries.insert(tries.end(), {scale_.first + step, scale_.last - step});
         U64 const zero = scale_.kind == Scale::unsignedNumber ? 0
                          : scale_.kind == Scale::signedNumber ? Scale::ofSigned(0)
                                                               : Scale::ofDouble(0);
         tries.insert(tries.end(), {zero + step, zero - step});
      }
      for (U64 const at : tries) {
         if (at >= scale_.first && at <= scale_.last && scale_.text(at) != there && accepts(at)) {
            return at;
         }
      }
      return std::nullopt;
   }

   /// The last value on the way from one that is accepted to `end` that is.
   U64 halve(U64 accepted, U64 end) const {
      if (accepts(end)) {
         return end;
      }
      while (accepted > end ? accepted - end > 1 : end - accepted > 1) {
         U64 const middle =
               accepted > end ? end + (accepted - end) / 2 : accepted + (end - accepted) / 2;
         (accepts(middle) ? accepted : end) = middle;
      }
      return accepted;
   }

   Specimen const& specimen_;
   FieldDescriptor const& field_;
   Scale scale_;
};

/// The member's type as it was declared, from the module's records: a time is a double in C++.
Sarn::String declaredName(TypeImpl const& type, FieldDescriptor const& field) {
   if (field.type == nullptr) {
      return "";
   }
   Sarn::String name = field.type->name;
   for (TypeImpl const* at = &type; at != nullptr; at = at->base) {
      Kiv::TypeRecord const& record = at->module->typeRecords[at->index];
      for (U32 i = 0; i != record.memberCount; ++i) {
         Kiv::MemberRecord const& member = at->module->memberRecords[record.firstMember + i];
         if (member.id != field.fieldId || member.typeNameOffset() == Kiv::MemberRecord::noType) {
            continue;
         }
         std::string_view const declared = at->module->typeNames + member.typeNameOffset();
         std::string_view const cpp = Kiv::typeOf<Kiv::Seconds>().name;
         std::size_t const place = declared == "Kiv::Seconds" ? name.find(cpp) : name.npos;
         return place != name.npos ? name.replace(place, cpp.size(), declared) : name;
      }
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
   // Its parent knows it by the first argument of its constructor; the others never change.
   return field.fieldId == type.ctorArgs.front() ? "key" : "constant";
}

bool hasInitial(TypeImpl const& type, FieldDescriptor const& field) {
   return field.kind == MemberKind::single && field.ops != nullptr &&
          (type.kind == TypeKind::value || !type.isCtorArg(field.fieldId));
}

MemberInfo infoOf(TypeImpl const& type, FieldDescriptor const& field, Specimen const& specimen) {
   MemberInfo info;
   info.field = &field;
   info.kind = kindOf(type, field);
   info.valueType = declaredName(type, field);
   info.type = info.valueType;
   if (field.keyType != nullptr && field.kind != MemberKind::queue) {
      info.type += Sarn::String(" by ") + field.keyType->name;
   }
   if (hasInitial(type, field)) {
      info.initial = std::make_unique<AnyValue>(*field.type);
      readMember(specimen.object(), field, *info.initial);
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
   // Behind all the rest, since trying changes what is computed.
   for (MemberInfo& info : members) {
      if (info.field->kind == MemberKind::single && info.field->ops != nullptr &&
          info.field->ops->write != nullptr) {
         Bounds(specimen, *info.field).find(info);
      }
   }
   return members;
}

std::vector<Enumerator> enumeratorsOf(TypeImpl const& type) {
   std::vector<Enumerator> all;
   if (type.kind == TypeKind::enumeration) {
      U32 const count = Kiv::EnumType::enumeratorCount(*type.module, type.index);
      for (U32 i = 0; i != count; ++i) {
         U8 const value = Kiv::EnumType::sequenceToValue(*type.module, type.index, i);
         all.push_back({value, Kiv::EnumType::stringValue(*type.module, type.index, value)});
      }
   }
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
      throw Failure("there is no type and no module '" + Sarn::String(name) +
                    "'; 'ptpstate types' lists them");
   }
   if (found.size() > 1 && !name.empty() && Kiv::moduleByName(name) == nullptr) {
      throw Failure("'" + Sarn::String(name) + "' may be one of " + names + "; say which");
   }
   return found;
}

}  // namespace Ptpstate
