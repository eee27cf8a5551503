#include "Kivc/Words.h"

#include <algorithm>
#include <array>

#include "Kivc/Scope.h"

namespace Kivc {

namespace {

std::string boundValue(Expr const& bound) {
   return bound.integer ? decimal(*bound.integer) : boundName(bound);
}

std::string nameOf(TypeRef const& ref) {
   if (ref.type == nullptr) {
      return ref.name.text;
   }
   // Strings are called by their name in the language: in C++ there are two for them.
   bool const isWord = ref.type->kind == TypeKind::string;
   return isWord ? ref.type->name.text : ref.type->qualifiedName();
}

/// The initial value of a member whose declaration states none.
std::string typeDefault(Type const& type) {
   switch (type.kind) {
      case TypeKind::boolean:
         return "false";
      case TypeKind::integer:
      case TypeKind::floating:
         return "0";
      case TypeKind::string:
         return "\"\"";
      case TypeKind::enumeration:
         return type.enumDefault ? type.enumDefault->text : std::string();
      default:
         return type.name.text + "()";
   }
}

}  // namespace

std::string decimal(WideInteger value) {
   bool const isNegative = value < 0;
   std::string digits;
   do {
      auto const digit = static_cast<int>(value % 10);
      digits += static_cast<char>('0' + (digit < 0 ? -digit : digit));
      value /= 10;
   } while (value != 0);
   if (isNegative) {
      digits += '-';
   }
   std::reverse(digits.begin(), digits.end());
   return digits;
}

std::string hexWord(std::uint16_t word) {
   static constexpr std::string_view digits = "0123456789abcdef";
   std::string text = "0x";
   for (int shift = 12; shift >= 0; shift -= 4) {
      text += digits[static_cast<std::size_t>(word >> shift) & 0xfU];
   }
   return text;
}

std::string boundName(Expr const& bound) {
   auto const parentheses = std::string(bound.isFunction ? "()" : "");
   if (bound.scope == nullptr || bound.text.starts_with("::")) {
      return bound.text + parentheses;
   }
   return bound.scope->qualifiedName() + "::" + lastPartOf(bound.text) + parentheses;
}

std::string rangeInWords(Member const& member) {
   if (!member.lower) {
      return {};
   }
   return member.upper ? boundValue(*member.lower) + " to " + boundValue(*member.upper)
                       : boundValue(*member.lower) + " and above";
}

std::string defaultInWords(Member const& member) {
   switch (member.kind) {
      case MemberKind::optional:
         return "none";
      case MemberKind::child:
         return member.creationName ? "made with its parent" : "none";
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered:
      case MemberKind::queue:
         return "empty";
      case MemberKind::derived:
      case MemberKind::operation:
      case MemberKind::reserved:
      case MemberKind::enumerator:
         return {};
      default:
         break;
   }
   if (member.isConstructorArg()) {
      return "given to the constructor";
   }
   if (!member.defaultValue) {
      return member.type.type == nullptr ? std::string() : typeDefault(*member.type.type);
   }
   auto const& value = *member.defaultValue;
   if (value.target != nullptr && value.target->kind == MemberKind::enumerator) {
      return value.target->name.text;
   }
   return std::string(value.span.text());
}

std::string streamedInWords(Member const& member) {
   switch (member.kind) {
      case MemberKind::name:
      case MemberKind::key:
      case MemberKind::constArg:
         return "at creation";
      default:
         return member.isStreamed() ? "yes" : "no";
   }
}

std::string typeInWords(Member const& member) {
   if (member.kind == MemberKind::name) {
      return "String";
   }
   auto text = nameOf(member.type);
   if (member.kind == MemberKind::operation) {
      std::string params;
      for (auto const& param : member.params) {
         params += (params.empty() ? "" : ", ") + param.name.text + ": " + nameOf(param.type);
      }
      return "(" + params + ")" + (text.empty() ? "" : " -> " + text);
   }
   if (member.keyField) {
      return text + " by ." + member.keyField->text;
   }
   return member.key ? text + " by " + nameOf(member.key) : text;
}

}  // namespace Kivc
