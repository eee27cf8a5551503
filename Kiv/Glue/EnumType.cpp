#include "Kiv/Glue/EnumType.h"

namespace Kiv {
namespace {

struct Enumerators {
   MemberRecord const* begin;
   MemberRecord const* end;
};

Enumerators enumerators(KivModule const& module, U16 typeIndex) noexcept {
   TypeRecord const& type = module.typeRecords[typeIndex];
   MemberRecord const* const begin = module.memberRecords + type.firstMember;
   return {begin, begin + type.memberCount};
}

}  // namespace

char const* EnumType::stringValue(KivModule const& module, U16 typeIndex, U32 value) noexcept {
   auto const [begin, end] = enumerators(module, typeIndex);
   for (MemberRecord const* at = begin; at != end; ++at) {
      if (at->value == value) {
         return module.memberNames + at->nameOffset();
      }
   }
   return nullptr;
}

U8 EnumType::sequenceToValue(KivModule const& module, U16 typeIndex, U32 ordinal) {
   auto const [begin, end] = enumerators(module, typeIndex);
   if (ordinal >= static_cast<U32>(end - begin)) {
      throwRangeException("ordinal " + std::to_string(ordinal) + " of " +
                          module.data->types[typeIndex]->name + ", which has " +
                          std::to_string(end - begin) + " enumerators");
   }
   return static_cast<U8>(begin[ordinal].value);
}

U32 EnumType::enumeratorCount(KivModule const& module, U16 typeIndex) noexcept {
   return module.typeRecords[typeIndex].memberCount;
}

char const* enumName(TypeImpl const& type, U32 value) noexcept {
   return EnumType::stringValue(*type.module(), type.index, value);
}

void printEnum(TypeImpl const& type, U8 value, Sarn::String& out) {
   if (char const* const name = enumName(type, value)) {
      out += name;
   } else {
      printUnsigned(out, value);
   }
}

U8 parseEnum(TypeImpl const& type, CharRange& text) {
   text.skipBlanks();
   if (text.peek() >= '0' && text.peek() <= '9') {
      return static_cast<U8>(parseUnsigned(text, 255, type.name));
   }
   CharRange const before = text;
   std::string_view const word = text.word();
   auto const [begin, end] = enumerators(*type.module(), type.index);
   MemberRecord const* similar = nullptr;
   Sarn::String names;
   for (MemberRecord const* at = begin; at != end; ++at) {
      std::string_view const name = type.module()->memberNames + at->nameOffset();
      if (word == name) {
         return static_cast<U8>(at->value);
      }
      if (isSameIgnoringCase(word, name)) {
         similar = at;
      }
      names += Sarn::String(name) + ", ";
   }
   if (similar != nullptr) {
      return static_cast<U8>(similar->value);
   }
   before.fail("expected " + names + "or a number of " + Sarn::String(type.name));
}

}  // namespace Kiv
