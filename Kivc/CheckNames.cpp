#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <utility>

#include "Kivc/Check.h"

namespace Kivc {

namespace {

constexpr auto cppKeywords =
      std::to_array<std::string_view>({"alignas",       "alignof",     "and",
                                       "and_eq",        "asm",         "auto",
                                       "bitand",        "bitor",       "bool",
                                       "break",         "case",        "catch",
                                       "char",          "char16_t",    "char32_t",
                                       "char8_t",       "class",       "co_await",
                                       "co_return",     "co_yield",    "compl",
                                       "concept",       "const",       "const_cast",
                                       "consteval",     "constexpr",   "constinit",
                                       "continue",      "decltype",    "default",
                                       "delete",        "do",          "double",
                                       "dynamic_cast",  "else",        "enum",
                                       "explicit",      "export",      "extern",
                                       "false",         "float",       "for",
                                       "friend",        "goto",        "if",
                                       "inline",        "int",         "long",
                                       "mutable",       "namespace",   "new",
                                       "noexcept",      "not",         "not_eq",
                                       "nullptr",       "operator",    "or",
                                       "or_eq",         "private",     "protected",
                                       "public",        "register",    "reinterpret_cast",
                                       "requires",      "return",      "short",
                                       "signed",        "sizeof",      "static",
                                       "static_assert", "static_cast", "struct",
                                       "switch",        "template",    "this",
                                       "thread_local",  "throw",       "true",
                                       "try",           "typedef",     "typeid",
                                       "typename",      "union",       "unsigned",
                                       "using",         "virtual",     "void",
                                       "volatile",      "wchar_t",     "while",
                                       "xor",           "xor_eq"});

/// What the generated functions of a member are called, after the member's own name.
std::vector<std::string_view> suffixes(Member const& member) {
   switch (member.kind) {
      case MemberKind::attr:
      case MemberKind::optional:
         return {"Is"};
      case MemberKind::field:
         return member.isConst ? std::vector<std::string_view>{}
                               : std::vector<std::string_view>{"Is"};
      case MemberKind::counter:
         return {"Is", "Inc"};
      case MemberKind::child:
         return {"Is", "Del"};
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered:
         return {"Is", "Del", "DelAll", "Has"};
      case MemberKind::queue:
         return {"Enq", "Deq", "Front", "Back", "Has", "DelAll"};
      default:
         return {};
   }
}

std::string lowered(std::string text) {
   std::transform(text.begin(), text.end(), text.begin(),
                  [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
   return text;
}

class NameCheck {
public:
   NameCheck(Module& module, Diagnostics& diagnostics)
         : module_(module), diagnostics_(diagnostics) {}

   void run() {
      std::map<std::string, Type const*> byLowerName;
      for (auto const& type : module_.types) {
         typeName(*type, byLowerName);
         members(*type);
      }
   }

private:
   void spelling(Name const& name) {
      if (std::find(cppKeywords.begin(), cppKeywords.end(), name.text) != cppKeywords.end()) {
         diagnostics_.error(name.span, "'" + name.text + "' is a C++ keyword; choose another name");
      } else if (name.text.front() == '_' || name.text.back() == '_' ||
                 name.text.find("__") != std::string::npos) {
         diagnostics_.error(name.span, "'" + name.text +
                                             "': a name may not begin or end with '_' or contain "
                                             "'__'");
      }
   }

   void documented(std::vector<std::string> const& doc, Name const& name) {
      if (doc.empty()) {
         diagnostics_.error(name.span,
                            "'" + name.text + "' is not documented; put a /// line in front of it");
      }
   }

   void clash(Name const& name, Name const& earlier, std::string const& where) {
      bool const isSame = name.text == earlier.text;
      diagnostics_
            .error(name.span, isSame ? "'" + name.text + "' is declared twice in " + where
                                     : "'" + name.text + "' and '" + earlier.text + "' in " +
                                             where + " differ only by case")
            .note(earlier.span, "first declared here");
   }

   void typeName(Type const& type, std::map<std::string, Type const*>& byLowerName) {
      spelling(type.name);
      documented(type.doc, type.name);
      // The last name alone must be unique, since it names the generated files.
      auto const [at, isNew] = byLowerName.emplace(lowered(type.name.text), &type);
      if (isNew) {
         return;
      }
      auto const& earlier = *at->second;
      bool const bothExternal =
            type.origin == Origin::external && earlier.origin == Origin::external;
      if (type.nameSpace == earlier.nameSpace) {
         clash(type.name, earlier.name, "module '" + module_.name.text + "'");
      } else if (!bothExternal) {
         diagnostics_
               .error(type.name.span, "'" + type.qualifiedName() + "' and '" +
                                            earlier.qualifiedName() +
                                            "' would be generated into the same file")
               .note(earlier.name.span, "first declared here");
      }
   }

   void members(Type const& type) {
      std::map<std::string, Member const*> byLowerName;
      for (auto const& member : type.members) {
         if (member.kind == MemberKind::reserved) {
            continue;
         }
         if (member.kind != MemberKind::name) {
            spelling(member.name);
            if (type.kind != TypeKind::constants) {
               documented(member.doc, member.name);
            }
            parameters(member);
         }
         auto const [at, isNew] = byLowerName.emplace(lowered(member.name.text), &member);
         if (!isNew) {
            clash(member.name, at->second->name, "'" + type.name.text + "'");
         }
      }
      for (auto const& member : type.members) {
         for (auto const suffix : suffixes(member)) {
            auto const* taken = type.find(member.name.text + std::string(suffix));
            if (taken != nullptr) {
               diagnostics_
                     .error(taken->name.span, "'" + taken->name.text +
                                                    "' is the name of a generated function of '" +
                                                    member.name.text + "'")
                     .note(member.name.span, "declared here");
            }
         }
      }
   }

   void parameters(Member const& member) {
      for (auto at = member.params.begin(); at != member.params.end(); ++at) {
         spelling(at->name);
         auto const earlier = std::find_if(member.params.begin(), at, [&](Parameter const& param) {
            return param.name.text == at->name.text;
         });
         if (earlier != at) {
            clash(at->name, earlier->name, "'" + member.name.text + "'");
         }
      }
   }

   Module& module_;
   Diagnostics& diagnostics_;
};

}  // namespace

void checkNames(Module& module, Diagnostics& diagnostics) {
   NameCheck(module, diagnostics).run();
}

}  // namespace Kivc
