#include "Kivc/EmitRecord.h"

#include <algorithm>
#include <set>

#include "Kivc/CppFile.h"
#include "Kivc/CppNames.h"
#include "Kivc/EmitEntity.h"
#include "Kivc/EmitEnum.h"
#include "Kivc/Layout.h"
#include "Kivc/NameTable.h"
#include "Kivc/Template.h"
#include "Kivc/Words.h"

namespace Kivc {

namespace {

/// Bits of the record's fields.
constexpr std::size_t typeNameLimit = 0xfff;
constexpr std::size_t memberNameLimit = 0xffff;

/// The alphabetical names of all types that the module defines or refers to.
NameTable typeNames(Module const& module) {
   std::set<std::string> names;
   auto const add = [&](Type const* type) {
      if (type != nullptr && type->kind != TypeKind::constants) {
         names.insert(type->recordName());
      }
   };
   for (auto const* type : recordOrder(module)) {
      add(type);
      add(type->baseType());
      for (auto const& member : type->members) {
         add(member.kind == MemberKind::name ? builtinType("String") : member.type.type);
         add(member.key.type);
         for (auto const& param : member.params) {
            add(param.type.type);
         }
      }
   }
   NameTable table;
   for (auto const& name : names) {
      table.add(name);
   }
   return table;
}

bool isRecorded(Member const& member) {
   return member.kind != MemberKind::reserved;
}

/// The member names, in the order of their records, behind an empty one.
NameTable memberNames(Module const& module) {
   NameTable table;
   table.add("");
   for (auto const* type : recordOrder(module)) {
      for (auto const& member : type->members) {
         if (isRecorded(member)) {
            table.add(member.name.text);
         }
      }
   }
   return table;
}

template <typename Predicate>
std::size_t countMembers(Type const& type, Predicate predicate) {
   return static_cast<std::size_t>(
         std::count_if(type.members.begin(), type.members.end(), predicate));
}

class RecordEmitter {
public:
   explicit RecordEmitter(Module const& module)
         : module_(module),
           types_(recordOrder(module)),
           typeNames_(typeNames(module)),
           memberNames_(memberNames(module)) {}

   std::string run() const {
      Includes includes;
      includes.add("<ostream>");
      includes.add("Kiv/Glue/Provider.h");
      for (auto const& type : module_.types) {
         includes.add(type.get());
      }
      std::string enums;
      for (auto const* type : types_) {
         if (type->kind == TypeKind::enumeration) {
            enums += emitEnumDefinitions(*type);
         }
      }
      auto const depends = dependencies();
      bool const isEmpty = types_.empty();
      Template text;
      text.set("banner", banner(module_))
            .set("include", includeLine(recordHeader(module_)))
            .set("includes", includes.text())
            .set("version", versionCheck())
            .set("limits", limits())
            .set("tables", isEmpty ? "" : "\n" + tables())
            .set("inRecord", isEmpty ? "nullptr, nullptr, &data, \"\", \"\", nullptr, nullptr"
                                     : "typeRecords, memberRecords, &data, typeNames, memberNames, "
                                       "counts, functions")
            .set("types", isEmpty ? "nullptr" : "types")
            .set("dependencies", depends)
            .set("dependsOn", depends.empty() ? "nullptr" : "dependsOn")
            .set("dependsOnCount", std::to_string(module_.uses.size()))
            .set("name", module_.name.text)
            .set("hash", module_.hash.text)
            .set("typeCount", std::to_string(types_.size()))
            .set("enums", enums)
            .set("record", module_.recordSymbol());
      text.append(R"(
         @banner@
         @include@

         @includes@

         @version@
         @limits@

         namespace {
         @tables@
         @dependencies@

         constinit Kiv::ModuleData data{
               "@name@", 0x@hash@, @dependsOnCount@, @dependsOn@, @types@, nullptr, 0};

         }  // namespace

         constinit Kiv::KivModule const @record@{
               @inRecord@, @typeCount@};
         constinit Kiv::KivModule const* const @record@At = &@record@;

         namespace {

         [[gnu::constructor]] void loaded() {
            Kiv::kivModuleIs(@record@);
         }
         [[gnu::destructor]] void unloaded() {
            Kiv::kivModuleUnloaded(@record@, &data);
         }

         }  // namespace
         @enums@
         )");
      return text.finish();
   }

private:
   std::string tables() const {
      Template text;
      text.set("typeNames", typeNames_.literals())
            .set("memberNames", memberNames_.literals())
            .set("types", typeAddresses())
            .set("functions", functions())
            .set("typeRecords", typeRecords())
            .set("memberRecords", memberRecords())
            .set("counts", counts());
      text.append(R"(
         /// Every type that the module defines or refers to, by name; each with its offset.
         constexpr char const typeNames[] =
               @typeNames@

         constexpr char const memberNames[] =
               @memberNames@

         /// In the order of the type names: kind, offset of the name, size, alignment, number of
         /// members, first member, flags.
         constexpr Kiv::TypeRecord typeRecords[] = {
               @typeRecords@
         };

         /// By type: id, kind, offset of the name, offset of the type's name; of an enumerator also
         /// the type's index and the value.
         constexpr Kiv::MemberRecord memberRecords[] = {
               @memberRecords@
         };

         /// Members, streamed ones, collections, operations.
         constexpr Kiv::TypeCounts counts[] = {
               @counts@
         };

         constexpr void const* functions[] = {
               @functions@
         };

         constexpr Kiv::TypeImpl const* types[] = {
               @types@
         };
         )");
      return text.finish();
   }

   std::string typeRecords() const {
      std::string out;
      std::size_t first = 0;
      for (auto const* type : types_) {
         auto const members = countMembers(*type, isRecorded);
         bool const isDerived = type->baseType() != nullptr;
         bool const isNamed = type->kind == TypeKind::entity && type->isNamedRoot();
         Template row;
         row.set("kind", kindOf(*type))
               .set("name", std::to_string(typeNames_.offset(type->recordName())))
               .set("type", "::" + type->qualifiedName())
               .set("members", std::to_string(members))
               .set("first", std::to_string(first))
               .set("flags", std::to_string((isDerived ? 1 : 0) + (isNamed ? 2 : 0)));
         row.append(
               "Kiv::typeRecord(Kiv::TypeRecord::@kind@, @name@, sizeof(@type@), "
               "alignof(@type@), @members@, @first@, @flags@),\n");
         out += row.finish();
         first += members;
      }
      return out;
   }

   static std::string kindOf(Type const& type) {
      switch (type.kind) {
         case TypeKind::enumeration:
            return "enumerationKind";
         case TypeKind::value:
            return "valueKind";
         default:
            return type.constructorParams.empty() ? "plainEntityKind" : "entityKind";
      }
   }

   std::string memberRecords() const {
      std::string out;
      std::size_t enumerators = 0;
      for (std::size_t index = 0; index < types_.size(); ++index) {
         auto const& type = *types_[index];
         std::string rows;
         for (auto const& member : type.members) {
            if (!isRecorded(member)) {
               continue;
            }
            bool const isEnumerator = member.kind == MemberKind::enumerator;
            auto const id = isEnumerator ? enumerators++ : member.id;
            rows += "Kiv::memberRecord(" + std::to_string(id) + ", " +
                    (isEnumerator ? "0x0001" : hexWord(member.kindWord())) + ", " +
                    std::to_string(memberNames_.offset(member.name.text)) + ", " +
                    typeOffset(type, member) +
                    (isEnumerator ? ", " + std::to_string(index) + ", " + std::to_string(member.id)
                                  : "") +
                    "),  // " + member.name.text + "\n";
         }
         out += "// " + type.qualifiedName() + "\n" + alignRemarks(rows);
      }
      return out;
   }

   std::string typeOffset(Type const& owner, Member const& member) const {
      auto const* type = member.type.type;
      if (member.kind == MemberKind::enumerator) {
         type = &owner;
      } else if (member.kind == MemberKind::name) {
         type = builtinType("String");
      }
      return type == nullptr ? "Kiv::MemberRecord::noType"
                             : std::to_string(typeNames_.offset(type->recordName()));
   }

   std::string counts() const {
      std::string out;
      for (auto const* type : types_) {
         auto const streamed =
               countMembers(*type, [](Member const& member) { return member.isStreamed(); });
         auto const collections =
               countMembers(*type, [](Member const& member) { return member.isCollection(); });
         auto const operations = countMembers(
               *type, [](Member const& member) { return member.kind == MemberKind::operation; });
         out += "{" + std::to_string(countMembers(*type, isRecorded)) + ", " +
                std::to_string(streamed) + ", " + std::to_string(collections) + ", " +
                std::to_string(operations) + "},  // " + type->qualifiedName() + "\n";
      }
      return alignRemarks(out);
   }

   std::string functions() const {
      std::string out;
      for (auto const* type : types_) {
         auto const cppName = "::" + type->qualifiedName();
         if (type->kind == TypeKind::enumeration) {
            out += "nullptr,  // " + type->qualifiedName() + "\n";
         } else if (type->kind == TypeKind::value) {
            out += "&Kiv::Impl::valueFunctions<" + cppName + ">,\n";
         } else {
            Template row;
            row.set("type", cppName)
                  .set("scope", type->nameSpace.empty() ? "" : "::" + type->nameSpace)
                  .set("factory", factoryName(*type))
                  .set("hasCollection", hasCollection(*type) ? "true" : "false");
            row.append("&Kiv::entityFunctions<@type@, &@scope@::@factory@, @hasCollection@>,\n");
            out += row.finish();
         }
      }
      return out;
   }

   std::string typeAddresses() const {
      std::string out;
      for (auto const* type : types_) {
         out += type->kind == TypeKind::enumeration
                      ? "&Kiv::EnumTraits<::" + type->qualifiedName() + ">::typeImpl,\n"
                      : "&::" + type->qualifiedName() + "::kivTypeImpl,\n";
      }
      return out;
   }

   std::string dependencies() const {
      if (module_.uses.empty()) {
         return {};
      }
      std::vector<std::string> names;
      for (auto const& use : module_.uses) {
         names.push_back("\"" + use.text + "\"");
      }
      return "\nconstexpr char const* dependsOn[] = {" + join(names, ", ") + "};\n";
   }

   /// The limits that the declarations repeat must be those of the C++ class.
   std::string limits() const {
      std::string out;
      for (auto const& holder : module_.types) {
         if (holder->kind != TypeKind::constants) {
            continue;
         }
         for (auto const& limit : holder->members) {
            if (auto const* bound = boundNaming(limit)) {
               out += "static_assert(" + CppNames("").bound(*bound) +
                      " == " + limit.defaultValue->text + ");\n";
            }
         }
      }
      return out.empty() ? out : "\n" + out;
   }

   Expr const* boundNaming(Member const& limit) const {
      for (auto const& type : module_.types) {
         for (auto const& member : type->members) {
            for (auto const* bound : {&member.lower, &member.upper}) {
               if (*bound && (*bound)->target == &limit) {
                  return &**bound;
               }
            }
         }
      }
      return nullptr;
   }

   Module const& module_;
   std::vector<Type const*> types_;
   NameTable typeNames_;
   NameTable memberNames_;
};

}  // namespace

std::string emitRecordHeader(Module const& module) {
   Template text;
   text.set("banner", banner(module))
         .set("include", includeLine("Kiv/Module.h"))
         .set("record", module.recordSymbol())
         .set("name", module.name.text);
   text.append(R"(
      @banner@
      #pragma once

      @include@

      /// The record of module @name@.
      extern Kiv::KivModule const @record@;
      /// Where the module's types find it: in the library itself, so that the loader looks up the name
      /// once.
      [[gnu::visibility("hidden")]] extern Kiv::KivModule const* const @record@At;
      )");
   return text.finish();
}

std::string emitRecordSource(Module const& module) {
   return RecordEmitter(module).run();
}

std::string emitUmbrella(Module const& module) {
   Includes includes;
   for (auto const* type : recordOrder(module)) {
      includes.add(type);
   }
   includes.add(recordHeader(module));
   Template text;
   text.set("banner", banner(module))
         .set("name", module.name.text)
         .set("includes", includes.text());
   text.append(R"(
      @banner@
      #pragma once

      // All types of module @name@.
      @includes@
      )");
   return text.finish();
}

std::string emitPart(Module const& module, std::size_t part, std::size_t count) {
   std::vector<Type const*> types;
   for (auto const* type : recordOrder(module)) {
      if (type->origin == Origin::declared && type->kind != TypeKind::enumeration) {
         types.push_back(type);
      }
   }
   auto text = banner(module) + "\n";
   for (auto i = types.size() * part / count; i < types.size() * (part + 1) / count; ++i) {
      text += includeLine(module.outputPath() + "/" + types[i]->name.text + ".cpp");
   }
   return text;
}

void checkRecordLimits(Module const& module, Diagnostics& diagnostics) {
   if (typeNames(module).size() > typeNameLimit) {
      diagnostics.error(module.name.span,
                        "the names of the types that the module mentions take "
                        "more than " +
                              std::to_string(typeNameLimit) + " bytes; split the module");
   }
   if (memberNames(module).size() > memberNameLimit) {
      diagnostics.error(module.name.span, "the names of the module's members take more than " +
                                                std::to_string(memberNameLimit) +
                                                " bytes; split the module");
   }
}

}  // namespace Kivc
