// types
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Holt/State/Json.h"
#include "Holt/State/Values.h"
#include "Holt/Table.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/types/Catalog.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using Kiv::TypeImpl;

struct TypesOptions {
   std::string name;
   bool json = false;
};

std::string hashText(Kiv::KivModule const& module) {
   std::ostringstream text;
   text << std::hex << std::setfill('0') << std::setw(8) << module.hash();
   return text.str();
}

std::string rangeText(MemberInfo const& member) {
   Kiv::FieldDescriptor const& field = *member.field;
   return field.bounds != nullptr ? valueText(field.least()) + ".." + valueText(field.greatest())
                                  : "";
}

/// Notes on a member: whether it is a constructor argument, not streamed, or named.
std::string remarkText(TypeImpl const& type, MemberInfo const& member) {
   using Kiv::FieldDescriptor;
   std::string text;
   if (type.isCtorArg(member.field->fieldId)) {
      text = "given";
   }
   if (member.kind == std::string_view("attribute") &&
       !member.field->has(FieldDescriptor::streamed)) {
      text += text.empty() ? "local" : ", local";
   }
   if (member.field->has(FieldDescriptor::named)) {
      text += "named";
   }
   return text;
}

void printList(std::vector<TypeImpl const*> const& types) {
   Table table({"module", "type", "kind", "members"});
   table.rightIs(3);
   for (TypeImpl const* const type : types) {
      std::size_t count = enumeratorsOf(*type).size();
      forEachField(*type, [&count](Kiv::FieldDescriptor const&) { ++count; });
      table.row({type->module()->name(), type->name, kindText(*type), std::to_string(count)});
   }
   table.print(std::cout);
}

void printType(TypeImpl const& type) {
   std::cout << type.name << ": " << kindText(type) << " of " << type.module()->name();
   if (type.base != nullptr) {
      std::cout << ", derived from " << type.base->name;
   }
   if (type.named) {
      std::cout << ", made with a name";
   }
   std::cout << '\n';
   if (type.kind == Kiv::TypeKind::enumeration) {
      Table table({"value", "name"});
      table.rightIs(0);
      for (Enumerator const& each : enumeratorsOf(type)) {
         table.row({std::to_string(each.value), each.name});
      }
      table.print(std::cout);
      return;
   }
   Table table({"id", "name", "kind", "type", "range", "note", "default"});
   table.rightIs(0);
   for (MemberInfo const& member : membersOf(type)) {
      table.row({std::to_string(member.field->fieldId), member.field->name, member.kind,
                 member.type, rangeText(member), remarkText(type, member),
                 member.initial != nullptr ? valueText(*member.initial) : ""});
   }
   table.print(std::cout);
}

Json memberJson(TypeImpl const& type, MemberInfo const& member) {
   using Kiv::FieldDescriptor;
   FieldDescriptor const& field = *member.field;
   Json json{{"id", field.fieldId}, {"name", field.name}, {"kind", member.kind}};
   if (field.type != nullptr) {
      json["type"] = member.valueType;
   }
   if (field.keyType != nullptr) {
      json["key"] = field.keyType->name;
   }
   if (member.initial != nullptr) {
      json["default"] = jsonOf(member.initial->ref());
   }
   if (field.bounds != nullptr) {
      json["range"] = {jsonOf(field.least()), jsonOf(field.greatest())};
   }
   if (type.kind == Kiv::TypeKind::entity) {
      json["given"] = type.isCtorArg(field.fieldId);
      json["streamed"] = field.has(FieldDescriptor::streamed);
   }
   return json;
}

Json typeJson(TypeImpl const& type) {
   Json json{{"name", type.name}, {"kind", kindText(type)}};
   if (type.base != nullptr) {
      json["base"] = type.base->name;
   }
   if (type.kind == Kiv::TypeKind::enumeration) {
      json["enumerators"] = Json::object();
      for (Enumerator const& each : enumeratorsOf(type)) {
         json["enumerators"][each.name] = each.value;
      }
      return json;
   }
   json["named"] = type.named;
   json["members"] = Json::array();
   for (MemberInfo const& member : membersOf(type)) {
      json["members"].push_back(memberJson(type, member));
   }
   return json;
}

void printJson(std::vector<TypeImpl const*> const& types) {
   Json modules = Json::array();
   for (TypeImpl const* const type : types) {
      if (modules.empty() || modules.back()["module"] != type->module()->name()) {
         modules.push_back({{"module", type->module()->name()},
                            {"hash", hashText(*type->module())},
                            {"types", Json::array()}});
      }
      modules.back()["types"].push_back(typeJson(*type));
   }
   std::cout << jsonLine(modules, 3) << '\n';
}

Exit types(TypesOptions const& options) {
   auto const found = typesByName(options.name);
   if (options.json) {
      printJson(found);
   } else if (options.name.empty()) {
      printList(found);
   } else {
      for (TypeImpl const* const type : found) {
         std::cout << (type == found.front() ? "" : "\n");
         printType(*type);
      }
   }
   return Exit::ok;
}

}  // namespace

void addTypes(Command const& program, Run& run) {
   auto const options = std::make_shared<TypesOptions>();
   Command const command = program.command(
         "types",
         "Lists modules and types; for a type, or for all types of a module, the members "
         "with id, kind, type, range, notes and default. A name may omit its namespace if "
         "it is unique. Needs no server.\n"
         "\n"
         "The range is what the setter accepts; without one, it accepts every value of the "
         "type. The notes are \"given\" for a constructor argument, \"local\" for an "
         "attribute that is not streamed, and \"named\" for a child that is constructed with "
         "a name.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate types\n"
         "  $ ptpstate types Ptp::IntfConfig\n"
         "  $ ptpstate types --json PtpMib");
   command.option("name", options->name).placeholder("NAME");
   command.flag("--json", options->json, "Print JSON, always with all members");
   command.onChosen([options, &run] { run = [options] { return types(*options); }; });
}

}  // namespace Ptpstate
