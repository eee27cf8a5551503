#include "Kivc/EmitReference.h"

#include <cctype>

#include "Kivc/Template.h"
#include "Kivc/Words.h"

namespace Kivc {

namespace {

std::string joined(std::vector<std::string> const& lines, std::string_view separator) {
   std::string out;
   for (auto const& line : lines) {
      out += (out.empty() ? "" : std::string(separator)) + line;
   }
   return out;
}

/// Text for a table's cell.
std::string cell(std::string const& text) {
   std::string out;
   for (char const c : text) {
      out += c == '|' ? "\\|" : std::string(1, c);
   }
   return out;
}

std::string code(std::string const& text) {
   return text.empty() ? "" : "`" + cell(text) + "`";
}

/// The anchor that Markdown renderers give to the heading of a type.
std::string anchor(Type const& type) {
   std::string out;
   for (char const c : type.qualifiedName()) {
      if (c != ':') {
         out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      }
   }
   return out;
}

/// A type's name that leads to its table, where it has one.
std::string link(Type const& type, Module const& from) {
   auto name = code(type.qualifiedName());
   if (type.origin != Origin::declared) {
      return name;
   }
   auto const page = type.module == &from ? std::string() : type.module->name.text + ".md";
   return "[" + name + "](" + page + "#" + anchor(type) + ")";
}

std::string typeCell(Member const& member, Module const& from) {
   auto const* type = member.type.type;
   bool const isPlain = member.kind != MemberKind::operation && type != nullptr &&
                        type->origin == Origin::declared;
   if (!isPlain) {
      return code(typeInWords(member));
   }
   auto out = link(*type, from);
   if (member.keyField) {
      out += " by " + code("." + member.keyField->text);
   } else if (member.key.type != nullptr) {
      auto const& key = *member.key.type;
      out += " by " + (key.origin == Origin::builtin ? code(key.name.text) : link(key, from));
   }
   return out;
}

std::string idCell(Member const& member) {
   if (member.kind == MemberKind::reserved && member.places > 1) {
      return std::to_string(member.id) + "-" + std::to_string(member.id + member.places - 1);
   }
   return std::to_string(member.id);
}

std::string memberRow(Member const& member, Module const& from) {
   if (member.kind == MemberKind::reserved) {
      return "| " + idCell(member) + " | | reserved | | | | | |\n";
   }
   auto const value = defaultInWords(member);
   bool const isLiteral = member.defaultValue ||
                          (!member.isConstructorArg() && !member.isCollection() &&
                           member.kind != MemberKind::child && member.kind != MemberKind::optional);
   Template row;
   row.set("id", idCell(member))
         .set("member", code(member.name.text))
         .set("kind", std::string(info(member.kind).inWords))
         .set("type", typeCell(member, from))
         .set("default", isLiteral ? code(value) : value)
         .set("range", rangeInWords(member))
         .set("streamed", streamedInWords(member))
         .set("doc", cell(joined(member.doc, " ")));
   row.append("| @id@ | @member@ | @kind@ | @type@ | @default@ | @range@ | @streamed@ | @doc@ |");
   return row.finish();
}

std::string enumerationTable(Type const& type) {
   std::string rows;
   for (auto const& member : type.members) {
      bool const isDefault = &member == type.defaultEnumerator();
      rows += "| " + std::to_string(member.id) + " | " + code(member.name.text) +
              (isDefault ? " (default)" : "") + " | " + cell(joined(member.doc, " ")) + " |\n";
   }
   Template table;
   table.set("rows", rows).append(R"(
      | number | enumerator | |
      |---|---|---|
      @rows@
      )");
   return table.finish();
}

std::string memberTable(Type const& type, Module const& module) {
   std::string rows;
   for (auto const& member : type.members) {
      rows += memberRow(member, module);
   }
   Template table;
   table.set("rows", rows).append(R"(
      | id | member | kind | type | default | range | streamed | |
      |---|---|---|---|---|---|---|---|
      @rows@
      )");
   return table.finish();
}

/// One line that says what sort of type it is and how one is made.
std::string character(Type const& type) {
   switch (type.kind) {
      case TypeKind::enumeration:
         return "Enumeration.";
      case TypeKind::value:
         if (type.origin == Origin::external) {
            return "Value type, written in C++: `" + type.header + "`.";
         }
         return std::string("Value type") + (type.hashable ? "" : ", unhashable") +
                (type.ordered ? ", ordered" : "") +
                (type.transparent ? ", with the hash and the text of its field" : "") + ".";
      case TypeKind::constants:
         return "Named limits, written in C++: `" + type.header + "`.";
      default:
         break;
   }
   std::string params;
   for (auto const& param : type.constructorParams) {
      params += (params.empty() ? "" : ", ") + param.name.text;
   }
   return std::string(type.isNamedRoot() ? "Root entity" : "Entity") + ", made with `" +
          type.name.text + "Is(" + params + ")`.";
}

std::string section(Type const& type, Module const& module) {
   std::string table;
   if (type.kind == TypeKind::enumeration) {
      table = "\n" + enumerationTable(type);
   } else if (!type.members.empty() && type.origin == Origin::declared) {
      table = "\n" + memberTable(type, module);
   }
   auto const base = type.baseType() == nullptr
                           ? std::string()
                           : "\nDerived from " + link(*type.baseType(), module) +
                                   ", whose members it has too.\n";
   Template text;
   text.set("name", type.qualifiedName())
         .set("character", character(type))
         .set("doc", joined(type.doc, "\n"))
         .set("base", base)
         .set("table", table);
   text.append(R"(

      ## @name@

      @doc@

      @character@
      @base@
      @table@
      )");
   return text.finish();
}

}  // namespace

std::string emitReference(Module const& module) {
   std::string sections;
   for (auto const& type : module.types) {
      sections += section(*type, module);
   }
   std::string uses;
   for (auto const& use : module.uses) {
      uses += (uses.empty() ? "" : ", ") + code(use.text);
   }
   Template page;
   page.set("name", module.name.text)
         .set("hash", module.hash.text)
         .set("path", module.displayPath())
         .set("doc", module.doc.empty() ? "" : "\n" + joined(module.doc, "\n"))
         .set("uses", uses.empty() ? "" : "\nUses the modules " + uses + ".")
         .set("sections", sections);
   page.append(R"(
      <!-- Generated by kivc from @path@. Do not edit. -->
      # Module @name@
      @doc@

      Hash `@hash@`, declared in `@path@`.
      @uses@
      @sections@
      )");
   return page.finish();
}

}  // namespace Kivc
