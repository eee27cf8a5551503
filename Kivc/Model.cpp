#include "Kivc/Model.h"

#include <algorithm>
#include <deque>

namespace Kivc {

namespace {

Type scalar(std::string name, TypeKind kind, int bits, bool isSigned) {
   Type type;
   type.kind = kind;
   type.origin = Origin::builtin;
   type.name.text = std::move(name);
   type.bits = bits;
   type.isSigned = isSigned;
   return type;
}

std::deque<Type> makeBuiltins() {
   std::deque<Type> types;
   types.push_back(scalar("bool", TypeKind::boolean, 8, false));
   for (int const bits : {8, 16, 32, 64}) {
      types.push_back(scalar("U" + std::to_string(bits), TypeKind::integer, bits, false));
      types.push_back(scalar("S" + std::to_string(bits), TypeKind::integer, bits, true));
   }
   types.push_back(scalar("float", TypeKind::floating, 32, true));
   types.push_back(scalar("double", TypeKind::floating, 64, true));
   types.push_back(scalar("Seconds", TypeKind::floating, 64, true));
   types.back().nameSpace = "Kiv";
   types.push_back(scalar("String", TypeKind::string, 0, false));
   types.back().nameSpace = "Sarn";
   return types;
}

std::deque<Type> const& builtins() {
   static std::deque<Type> const types = makeBuiltins();
   return types;
}

}  // namespace

MemberKindInfo const& info(MemberKind kind) {
   static constexpr std::array<MemberKindInfo, 17> table{{
         {"name", "name"},
         {"key", "key"},
         {"constant", "constant"},
         {"const", "constructor argument"},
         {"attr", "attribute"},
         {"counter", "counter"},
         {"optional", "optional"},
         {"child", "child"},
         {"children", "children by key"},
         {"map", "values by key"},
         {"ordered", "values by key, in order"},
         {"queue", "queue"},
         {"derived", "derived"},
         {"op", "operation"},
         {"reserved", "reserved"},
         {"field", "field"},
         {"enumerator", "enumerator"},
   }};
   return table[static_cast<std::size_t>(kind)];
}

bool Member::isCollection() const {
   return kind == MemberKind::children || kind == MemberKind::map || kind == MemberKind::ordered ||
          kind == MemberKind::queue;
}

bool Member::isStored() const {
   return kind != MemberKind::constant && kind != MemberKind::derived &&
          kind != MemberKind::operation && kind != MemberKind::reserved &&
          kind != MemberKind::enumerator;
}

bool Member::isReadable() const {
   return !isCollection() && kind != MemberKind::operation && kind != MemberKind::reserved &&
          kind != MemberKind::enumerator;
}

bool Member::isStreamed() const {
   return isStored() && !local && kind != MemberKind::name && kind != MemberKind::key &&
          kind != MemberKind::constArg;
}

bool Member::isConstructorArg() const {
   return kind == MemberKind::name || kind == MemberKind::key || kind == MemberKind::constArg ||
          given;
}

bool Member::isInSeconds() const {
   return type.type != nullptr && type.type == builtinType("Seconds");
}

std::uint16_t Member::kindWord() const {
   switch (kind) {
      case MemberKind::name:
         return 0x0810;
      case MemberKind::operation:
         return isConst ? 0x0810 : 0x0811;
      case MemberKind::key:
      case MemberKind::constArg:
         return 0x2c00;
      case MemberKind::field:
         return isConst ? 0x2c00 : 0x9c00;
      case MemberKind::constant:
         return 0x2800;
      case MemberKind::derived:
         return viewOf ? 0x2808 : 0x2800;
      case MemberKind::attr:
      case MemberKind::counter:
         return 0xdc00;
      case MemberKind::optional:
         return id < 0x100 ? 0x9c00 : 0xdc00;
      case MemberKind::child:
         return 0xdd20;
      case MemberKind::children:
         return 0xdd21;
      case MemberKind::map:
      case MemberKind::ordered:
      case MemberKind::queue:
         return 0xdc01;
      case MemberKind::reserved:
      case MemberKind::enumerator:
         break;
   }
   return 0;
}

std::uint32_t Member::idCount() const {
   if (kind == MemberKind::name) {
      return 0;
   }
   return kind == MemberKind::queue ? 2 : places;
}

std::string Type::qualifiedName() const {
   return nameSpace.empty() ? name.text : nameSpace + "::" + name.text;
}

std::string Type::recordName() const {
   return kind == TypeKind::string ? "Kiv::String" : qualifiedName();
}

Member const* Type::find(std::string_view member) const {
   auto const found = std::find_if(members.begin(), members.end(),
                                   [&](Member const& m) { return m.name.text == member; });
   return found == members.end() ? nullptr : &*found;
}

Member const* Type::findInherited(std::string_view member) const {
   for (auto const* type = this; type != nullptr; type = type->baseType()) {
      if (auto const* found = type->find(member)) {
         return found;
      }
   }
   return nullptr;
}

Member const* Type::keyMember() const {
   for (auto const* type = this; type != nullptr; type = type->baseType()) {
      for (auto const& member : type->members) {
         if (member.kind == MemberKind::key) {
            return &member;
         }
      }
   }
   return nullptr;
}

bool Type::isNamedRoot() const {
   for (auto const* type = this; type != nullptr; type = type->baseType()) {
      for (auto const& member : type->members) {
         if (member.kind == MemberKind::name) {
            return true;
         }
      }
   }
   return false;
}

Member const* Type::defaultEnumerator() const {
   return enumDefault ? find(enumDefault->text) : nullptr;
}

std::uint32_t Module::hashValue() const {
   return static_cast<std::uint32_t>(std::stoul(hash.text, nullptr, 16));
}

std::string Module::recordSymbol() const {
   return "_" + name.text + "_" + hash.text + "_kivModule";
}

std::string Module::outputPath() const {
   return directory.empty() ? name.text : directory + "/" + name.text;
}

std::string Module::displayPath() const {
   return outputPath() + ".kiv";
}

Type const* builtinType(std::string_view name) {
   auto const& types = builtins();
   auto const found = std::find_if(types.begin(), types.end(),
                                   [&](Type const& type) { return type.name.text == name; });
   return found == types.end() ? nullptr : &*found;
}

std::vector<std::string> builtinTypeNames() {
   std::vector<std::string> names;
   for (auto const& type : builtins()) {
      names.push_back(type.name.text);
   }
   return names;
}

}  // namespace Kivc
