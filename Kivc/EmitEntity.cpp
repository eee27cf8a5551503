#include "Kivc/EmitEntity.h"

#include <algorithm>
#include <set>

#include "Kivc/CppFile.h"
#include "Kivc/EmitMember.h"
#include "Kivc/Layout.h"

namespace Kivc {

namespace {

/// The entities that a type's header mentions, other than the type itself.
std::vector<Type const*> mentionedEntities(Type const& type) {
   std::vector<Type const*> found;
   auto const add = [&](Type const* mentioned) {
      if (mentioned != nullptr && mentioned->kind == TypeKind::entity && mentioned != &type &&
          std::find(found.begin(), found.end(), mentioned) == found.end()) {
         found.push_back(mentioned);
      }
   };
   add(type.baseType());
   for (auto const& member : type.members) {
      add(member.type.type);
      for (auto const& param : member.params) {
         add(param.type.type);
      }
   }
   return found;
}

bool reaches(Type const& from, Type const& to, std::set<Type const*>& seen) {
   if (&from == &to) {
      return true;
   }
   if (!seen.insert(&from).second) {
      return false;
   }
   auto const next = mentionedEntities(from);
   return std::any_of(next.begin(), next.end(),
                      [&](Type const* type) { return reaches(*type, to, seen); });
}

/// Whether `mentioned` mentions `type` in its turn, so that neither header can come first.
bool isMutual(Type const& type, Type const& mentioned) {
   std::set<Type const*> seen;
   return &type != &mentioned && type.baseType() != &mentioned && reaches(mentioned, type, seen);
}

std::string withoutInline(std::string text) {
   std::string_view const word = "inline ";
   for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at)) {
      if (at == 0 || text[at - 1] == '\n') {
         text.erase(at, word.size());
      } else {
         ++at;
      }
   }
   return text;
}

/// What all members contribute, in order.
struct EntityCode {
   std::string declarations;
   std::string privates;
   std::string storage;
   std::string inlineBodies;
   std::string sourceBodies;
   std::string constructorBody;
   std::string rows;
   /// Stored members in the order of their storage.
   std::vector<Member const*> layout;
};

EntityCode codeOf(Type const& type) {
   EntityCode all;
   struct Stored {
      Member const* member;
      MemberCode code;
   };
   std::vector<Stored> stored;
   for (auto const& member : type.members) {
      auto code = MemberEmitter(type, member).run();
      if (!code.declarations.empty()) {
         all.declarations += "\n" + code.declarations;
      }
      all.privates += code.privates;
      auto const* child = member.type.type;
      bool const isMutualChild =
            child != nullptr && child->kind == TypeKind::entity && isMutual(type, *child);
      if (!code.inlineBodies.empty()) {
         (isMutualChild ? all.sourceBodies : all.inlineBodies) +=
               "\n" + (isMutualChild ? withoutInline(code.inlineBodies) : code.inlineBodies);
      }
      all.sourceBodies += code.sourceBodies;
      all.constructorBody += code.constructorBody;
      all.rows += code.row;
      if (!code.storage.empty()) {
         stored.push_back({&member, std::move(code)});
      }
   }
   std::stable_sort(stored.begin(), stored.end(), [](Stored const& a, Stored const& b) {
      return a.code.alignment > b.code.alignment;
   });
   for (auto const& entry : stored) {
      all.storage += entry.code.storage;
      all.layout.push_back(entry.member);
   }
   return all;
}

std::uint32_t rowCount(Type const& type) {
   std::uint32_t count = 0;
   for (auto const& member : type.members) {
      count += member.idCount();
   }
   return count;
}

std::string baseName(Type const& type, CppNames const& names) {
   if (type.baseType() != nullptr) {
      return names.type(*type.baseType());
   }
   return type.isNamedRoot() ? "Kiv::NamedEntity" : "Kiv::Entity";
}

/// ": Base(name), enabled_(enabled)", or empty.
std::string initializerList(Type const& type, CppNames const& names, EntityCode const& code) {
   std::vector<std::string> parts;
   if (type.baseType() != nullptr) {
      std::vector<std::string> args;
      auto const& params = type.baseType()->constructorParams;
      for (std::size_t i = 0; i < type.baseArgs.size(); ++i) {
         auto const& arg = type.baseArgs[i];
         args.push_back(arg.passedOn ? arg.expr.text
                                     : names.literal(arg.expr, *params[i].type.type));
      }
      parts.push_back(baseName(type, names) + "(" + join(args, ", ") + ")");
   } else if (type.isNamedRoot()) {
      parts.emplace_back("NamedEntity(name)");
   }
   for (auto const* member : code.layout) {
      if (member->isConstructorArg()) {
         parts.push_back(member->name.text + "_(" + member->name.text + ")");
      }
   }
   return parts.empty() ? std::string() : " : " + join(parts, ", ");
}

/// The members that the constructor's arguments are the first values of, by id.
std::string argumentIds(Type const& type) {
   std::vector<std::string> ids;
   for (auto const& param : type.constructorParams) {
      auto const member = accessorOf(type, param);
      ids.push_back(member == "nameString" ? "Kiv::nameFieldId"
                                           : std::to_string(type.findInherited(member)->id));
   }
   return join(ids, ", ");
}

std::string indented(std::string const& lines) {
   Template text;
   text.set("lines", lines);
   text.append("{\n   @lines@\n}\n");
   auto const block = text.finish();
   return block.substr(2, block.size() - 4);
}

std::string constructorUses(Type const& type) {
   std::string uses;
   for (auto const& param : type.constructorParams) {
      uses += "use(" + accessorOf(type, param) + "());\n";
   }
   return uses;
}

struct HeaderParts {
   Includes includes;
   /// Declarations of types in other namespaces.
   std::string forward;
   /// And of those in the same.
   std::string forwardNear;
   Includes behind;
};

HeaderParts headerParts(Type const& type) {
   HeaderParts parts;
   parts.includes.add("Kiv/Glue/Members.h");
   for (auto const& member : type.members) {
      parts.includes.addValuesOf(member);
      if (member.kind == MemberKind::children) {
         for (auto const& param : member.type.type->constructorParams) {
            parts.includes.add(param.type.type);
         }
      }
   }
   for (auto const& param : type.constructorParams) {
      parts.includes.add(param.type.type);
   }
   for (auto const* entity : mentionedEntities(type)) {
      if (!isMutual(type, *entity)) {
         parts.includes.add(entity);
         continue;
      }
      parts.behind.add(entity);
      auto const declared = "class " + entity->name.text + ";\n";
      if (entity->nameSpace == type.nameSpace) {
         parts.forwardNear += declared;
      } else if (entity->nameSpace.empty()) {
         parts.forward += declared;
      } else {
         parts.forward += "namespace " + entity->nameSpace + " {\n" + declared + "}\n";
      }
   }
   parts.includes.remove(type.header);
   return parts;
}

}  // namespace

bool hasCollection(Type const& type) {
   for (auto const* at = &type; at != nullptr; at = at->baseType()) {
      if (std::any_of(at->members.begin(), at->members.end(),
                      [](Member const& member) { return member.isCollection(); })) {
         return true;
      }
   }
   return false;
}

std::string emitEntityHeader(Type const& type) {
   CppNames const names(type.nameSpace);
   auto const code = codeOf(type);
   auto const parts = headerParts(type);
   auto const rows = rowCount(type);
   auto const uses = constructorUses(type);
   auto const behind = parts.behind.text();

   Template text;
   text.set("banner", banner(*type.module))
         .set("includes", parts.includes.text())
         .set("forward", parts.forward.empty() ? "" : "\n" + parts.forward)
         .set("open", namespaceOpening(type.nameSpace))
         .set("forwardNear", parts.forwardNear.empty() ? "" : parts.forwardNear + "\n")
         .set("close", namespaceClosing(type.nameSpace))
         .set("doc", docComment(join(type.doc, "\n")))
         .set("Type", type.name.text)
         .set("Base", baseName(type, names))
         .set("qualified", type.qualifiedName())
         .set("explicit", type.constructorParams.size() == 1 ? "explicit " : "")
         .set("params", names.params(type))
         .set("factory", factoryName(type))
         .set("declarations", code.declarations)
         .set("use", uses.empty() ? "" : " use")
         .set("uses", uses)
         .set("rows", rows == 0 ? ""
                                : "static Kiv::FieldDescriptor const kivRows_[" +
                                        std::to_string(rows) + "];\n")
         .set("privates", code.privates)
         .set("storage", code.storage)
         .set("bodies", code.inlineBodies.empty()
                              ? ""
                              : "\n// " + std::string(88, '-') + " bodies\n" + code.inlineBodies)
         .set("behind", behind.empty() ? ""
                                       : "\n// These mention the type above, so they come behind "
                                         "it.\n" +
                                               behind);
   text.append(R"(
      @banner@
      #pragma once

      @includes@
      @forward@

      @open@
      @forwardNear@
      @doc@
      class @Type@ : public @Base@ {
      public:
         static constexpr char const* kivTypeName = "@qualified@";
         static Kiv::TypeImpl const kivTypeImpl;
         static Kiv::AllocTrackTypeInfo memAllocationTracker_;

         @explicit@@Type@(@params@);
         ~@Type@() override;
         /// Makes one, held by the returned pointer.
         static Sarn::Ptr<@Type@> @Type@Is(@params@);
         Kiv::TypeImpl const& kivType() const noexcept override { return kivTypeImpl; }
         static void* operator new(std::size_t size) {
            return Kiv::allocateTracked(memAllocationTracker_, size, alignof(@Type@));
         }
         static void operator delete(void* p, std::size_t size) noexcept {
            Kiv::deallocateTracked(memAllocationTracker_, p, size, alignof(@Type@));
         }
         @declarations@

         /// Calls `use` with each constructor argument, in order.
         template <class Use>
         void kivCtorParams(Use&&@use@) const {
            @uses@
         }

      private:
         @rows@
         @privates@
         @storage@
      };

      /// Makes one, held by the returned pointer.
      Sarn::Ptr<@Type@> @factory@(@params@);
      @bodies@
      @close@
      @behind@
      )");
   return text.finish();
}

std::string emitEntitySource(Type const& type) {
   CppNames const names(type.nameSpace);
   auto const code = codeOf(type);
   Includes includes;
   includes.add("Kiv/Glue/Provider.h");
   includes.add(recordHeader(*type.module));

   Template text;
   text.set("banner", banner(*type.module))
         .set("include", includeLine(type.header))
         .set("includes", includes.text())
         .set("version", versionCheck())
         .set("open", namespaceOpening(type.nameSpace))
         .set("close", namespaceClosing(type.nameSpace))
         .set("Type", type.name.text)
         .set("qualified", type.qualifiedName())
         .set("params", names.params(type))
         .set("args", joinNames(type.constructorParams))
         .set("initializers", initializerList(type, names, code))
         .set("steps", code.constructorBody.empty() ? "" : "\n" + indented(code.constructorBody))
         .set("factory", factoryName(type))
         .set("hasCollection", hasCollection(type) ? "true" : "false")
         .set("base", type.baseType() == nullptr
                            ? "nullptr"
                            : "&" + names.type(*type.baseType()) + "::kivTypeImpl")
         .set("rowTable", code.rows.empty() ? "nullptr" : "kivRows_")
         .set("firstId", std::to_string(type.firstId))
         .set("record", type.module->recordSymbol())
         .set("index", std::to_string(recordIndex(type)))
         .set("arguments", argumentIds(type))
         .set("bodies", code.sourceBodies);
   std::string rows;
   if (!code.rows.empty()) {
      auto table = text.fork();
      table.set("rows", code.rows);
      table.append(R"(

         using Flag = Kiv::FieldDescriptor::Flag;

         constinit Kiv::FieldDescriptor const @Type@::kivRows_[] = {
               @rows@
         };
         )");
      rows = table.finish();
   }
   text.set("rows", rows);
   text.append(R"(
      @banner@
      @include@

      @includes@

      @version@

      @open@
      constinit Kiv::AllocTrackTypeInfo @Type@::memAllocationTracker_{"@qualified@"};
      @rows@

      constinit Kiv::TypeImpl const @Type@::kivTypeImpl = Kiv::entityType<@Type@>("@qualified@", Kiv::entityFunctions<@Type@, &@factory@, @hasCollection@>, @base@, @rowTable@, @firstId@, @record@At, @index@, Kiv::ctorArgIds<@arguments@>);

      @Type@::@Type@(@params@)@initializers@ {@steps@}

      @Type@::~@Type@() = default;

      Sarn::Ptr<@Type@> @Type@::@Type@Is(@params@) {
         return @factory@(@args@);
      }

      Sarn::Ptr<@Type@> @factory@(@params@) {
         return Sarn::Ptr<@Type@>(new @Type@(@args@), Sarn::adopt);
      }
      @bodies@
      @close@
      )");
   return text.finish();
}

}  // namespace Kivc
