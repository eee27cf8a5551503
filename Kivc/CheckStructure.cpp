#include <algorithm>
#include <map>
#include <set>

#include "Kivc/Check.h"

namespace Kivc {

namespace {

std::string listed(std::vector<std::string> const& names) {
   std::string result = "(";
   for (auto const& name : names) {
      result += (result.size() > 1 ? ", " : " ") + name;
   }
   return result + " )";
}

std::vector<std::string> namesOf(std::vector<Parameter> const& params, std::size_t from = 0) {
   std::vector<std::string> names;
   for (std::size_t i = from; i < params.size(); ++i) {
      names.push_back(params[i].name.text);
   }
   return names;
}

class StructureCheck {
public:
   StructureCheck(Module& module, Diagnostics& diagnostics)
         : module_(module), diagnostics_(diagnostics) {}

   void run() {
      for (auto const& type : module_.types) {
         if (type->kind == TypeKind::entity) {
            firstMembers(*type);
            inheritedNames(*type);
         }
         if (type->kind == TypeKind::value && type->origin == Origin::declared) {
            value(*type);
         }
      }
      for (auto const& type : module_.types) {
         constructor(*type);
      }
      std::map<std::uint32_t, Member const*> hashes;
      for (auto const& type : module_.types) {
         if (type->kind == TypeKind::entity) {
            for (auto& member : type->members) {
               entityMember(*type, member);
               hash(member, hashes);
            }
         }
      }
   }

private:
   // --- entities -----------------------------------------------------------------------------

   /// `name;` and `key` come first, one of them at most, and only once in a line of bases.
   void firstMembers(Type const& type) {
      for (std::size_t i = 0; i < type.members.size(); ++i) {
         auto const& member = type.members[i];
         if (member.kind != MemberKind::name && member.kind != MemberKind::key) {
            continue;
         }
         auto const what = std::string(member.kind == MemberKind::key ? "the key" : "'name'");
         if (type.base) {
            diagnostics_.error(member.name.span,
                               what + " is declared by the base, not by a derived entity");
         } else if (i != 0) {
            diagnostics_.error(member.name.span, what + " must be the first member of an entity")
                  .note(type.members[0].span, "the first member is here");
         }
      }
   }

   void inheritedNames(Type const& type) {
      if (type.baseType() == nullptr) {
         return;
      }
      for (auto const& member : type.members) {
         auto const* inherited = member.name.text.empty()
                                       ? nullptr
                                       : type.baseType()->findInherited(member.name.text);
         if (inherited != nullptr) {
            diagnostics_
                  .error(member.name.span,
                         "'" + member.name.text + "' is a member of the base already")
                  .note(inherited->name.span, "declared here");
         }
      }
   }

   void entityMember(Type const& owner, Member& member) {
      auto const* type = member.type.type;
      switch (member.kind) {
         case MemberKind::child:
            if (type != nullptr) {
               singleton(member, *type);
               endlessConstruction(member, owner);
            }
            break;
         case MemberKind::children:
            if (type != nullptr) {
               children(member, *type);
            }
            break;
         case MemberKind::map:
         case MemberKind::ordered:
            valueMap(member);
            break;
         case MemberKind::derived:
            view(owner, member);
            break;
         case MemberKind::operation:
            break;
         case MemberKind::counter:
            if (type != nullptr && (type->kind != TypeKind::integer || type->isSigned)) {
               diagnostics_.error(member.type.name.span,
                                  "a counter is of type U8, U16, U32 or U64, not '" +
                                        member.type.name.text + "'");
            }
            break;
         default:
            mustBeValue(member);
            break;
      }
   }

   void mustBeValue(Member const& member) {
      if (member.type.type != nullptr && !member.type.type->isValueLike()) {
         diagnostics_
               .error(member.type.name.span, "'" + member.type.name.text +
                                                   "' is an entity; an entity is held by 'child' "
                                                   "or 'children'")
               .note(member.type.type->name.span, "declared here");
      }
   }

   bool mustBeEntity(Member const& member, Type const& type) {
      if (type.kind == TypeKind::entity) {
         return true;
      }
      auto& error =
            diagnostics_.error(member.type.name.span, "'" + member.type.name.text +
                                                            "' is not an entity; a value is "
                                                            "held by 'attr' or 'map'");
      if (type.name.span.source != nullptr) {
         error.note(type.name.span, "declared here");
      }
      return false;
   }

   void singleton(Member const& member, Type const& type) {
      if (!mustBeEntity(member, type)) {
         return;
      }
      if (member.named != type.isNamedRoot()) {
         diagnostics_
               .error(member.type.name.span,
                      member.named
                            ? "'" + member.type.name.text + "' has no name; leave out 'named'"
                            : "'" + member.type.name.text + "' has a name; add 'named'")
               .note(type.name.span, "declared here");
         return;
      }
      auto const args = namesOf(type.constructorParams, member.named ? 1 : 0);
      if (!args.empty()) {
         diagnostics_
               .error(member.type.name.span, "a single child is made without arguments, but '" +
                                                   member.type.name.text + "' is made with " +
                                                   listed(args))
               .note(type.name.span, "declared here");
      }
   }

   /// A type whose construction makes children must not make itself by that.
   void endlessConstruction(Member const& member, Type const& owner) {
      std::set<Type const*> seen;
      if (member.creationName && member.type.type != nullptr &&
          makes(*member.type.type, owner, seen)) {
         diagnostics_.error(member.name.span,
                            "making '" + owner.name.text + "' would make children without end");
      }
   }

   static bool makes(Type const& type, Type const& wanted, std::set<Type const*>& seen) {
      if (&type == &wanted) {
         return true;
      }
      if (!seen.insert(&type).second) {
         return false;
      }
      bool const byBase = type.baseType() != nullptr && makes(*type.baseType(), wanted, seen);
      return byBase ||
             std::any_of(type.members.begin(), type.members.end(), [&](Member const& member) {
                return member.creationName && member.type.type != nullptr &&
                       makes(*member.type.type, wanted, seen);
             });
   }

   void children(Member const& member, Type const& type) {
      if (!mustBeEntity(member, type)) {
         return;
      }
      auto const* key = type.keyMember();
      if (member.keyField || key == nullptr) {
         diagnostics_
               .error(member.keyField ? member.keyField->span : member.type.name.span,
                      member.keyField ? "children are held by a key type, not by a field"
                                      : "'" + member.type.name.text +
                                              "' declares no key, so it cannot be "
                                              "held by key")
               .note(type.name.span, "declared here");
         return;
      }
      if (member.key.type != nullptr && key->type.type != nullptr &&
          member.key.type != key->type.type) {
         diagnostics_
               .error(member.key.name.span, "the key of '" + member.type.name.text +
                                                  "' is of type '" +
                                                  key->type.type->qualifiedName() + "', not '" +
                                                  member.key.name.text + "'")
               .note(key->name.span, "the key is declared here");
      }
      mustBeHashable(member);
      auto const expected = namesOf(type.constructorParams, 1);
      std::vector<std::string> found;
      for (auto const& arg : member.childArgs) {
         found.push_back(arg.text);
      }
      if (found != expected) {
         auto const span = member.childArgs.empty()
                                 ? member.key.name.span
                                 : member.childArgs.front().span.to(member.childArgs.back().span);
         diagnostics_
               .error(span, "'" + member.type.name.text + "' is made with its key and " +
                                  (expected.empty() ? "no arguments" : listed(expected)) +
                                  ", found " + (found.empty() ? "no arguments" : listed(found)))
               .note(type.name.span, "declared here");
      }
   }

   void valueMap(Member& member) {
      mustBeValue(member);
      if (!member.childArgs.empty()) {
         diagnostics_.error(member.childArgs.front().span,
                            "values have no constructor arguments here; 'children' have");
      }
      if (member.keyField) {
         keyInside(member);
      }
      if (member.kind == MemberKind::map) {
         mustBeHashable(member);
      } else if (member.key.type != nullptr && !member.key.type->ordered) {
         diagnostics_.error(keySpan(member), "'" + member.key.type->qualifiedName() +
                                                   "' has no order and cannot be the key of an "
                                                   "ordered map");
      }
   }

   void keyInside(Member& member) {
      auto const* type = member.type.type;
      if (type == nullptr) {
         return;
      }
      auto const& name = *member.keyField;
      std::vector<std::string> fields;
      for (auto const& field : type->members) {
         fields.push_back(field.name.text);
      }
      auto const* field = type->find(name.text);
      if (type->kind != TypeKind::value || type->origin != Origin::declared) {
         diagnostics_.error(name.span, "'" + member.type.name.text +
                                             "' has no declared fields that could be the key");
      } else if (field == nullptr) {
         diagnostics_
               .error(name.span, "'" + member.type.name.text + "' has no field '" + name.text +
                                       "'" + suggestion(name.text, fields))
               .note(type->name.span, "declared here");
      } else if (field != &type->members.front() || field->kind != MemberKind::field) {
         diagnostics_
               .error(name.span,
                      "a key inside the value must be its first field, since an encoded "
                      "value begins with its key")
               .note(field->name.span, "declared here");
      } else {
         member.key.type = field->type.type;
      }
   }

   static Span keySpan(Member const& member) {
      return member.keyField ? member.keyField->span : member.key.name.span;
   }

   void mustBeHashable(Member const& member) {
      auto const* key = member.key.type;
      if (key != nullptr && !key->isValueLike()) {
         diagnostics_.error(keySpan(member), "an entity cannot be a key");
      } else if (key != nullptr && !key->hashable) {
         diagnostics_.error(keySpan(member),
                            "'" + key->qualifiedName() + "' is unhashable and cannot be a key");
      }
   }

   void view(Type const& owner, Member const& member) {
      if (!member.viewOf) {
         return;
      }
      auto const* viewed = owner.findInherited(member.viewOf->text);
      if (viewed == nullptr || viewed == &member) {
         std::vector<std::string> names;
         for (auto const& other : owner.members) {
            if (&other != &member && other.isReadable()) {
               names.push_back(other.name.text);
            }
         }
         diagnostics_.error(member.viewOf->span, "unknown attribute '" + member.viewOf->text + "'" +
                                                       suggestion(member.viewOf->text, names));
      }
   }

   void hash(Member& member, std::map<std::uint32_t, Member const*>& hashes) {
      bool const needed = member.kind == MemberKind::map || member.kind == MemberKind::children;
      if (!member.hash) {
         if (needed) {
            diagnostics_.error(member.name.span, "'" + member.name.text +
                                                       "' needs a hash constant of its own, such "
                                                       "as hash 0x5B266113");
         }
         return;
      }
      if (!needed) {
         diagnostics_.error(member.hash->span, "only 'map' and 'children' have a hash constant");
         return;
      }
      auto const& text = member.hash->text;
      if (!text.starts_with("0x") || text.size() > 10) {
         diagnostics_.error(member.hash->span,
                            "a hash constant is 0x and up to eight hexadecimal digits");
         return;
      }
      member.hashConstant = static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
      auto const [at, isNew] = hashes.emplace(member.hashConstant, &member);
      if (!isNew) {
         diagnostics_.error(member.hash->span, "the hash constant is used twice")
               .note(at->second->hash->span, "first used here");
      }
   }

   // --- values -------------------------------------------------------------------------------

   void value(Type const& type) {
      for (auto const& member : type.members) {
         mustBeValue(member);
         auto const* field = member.type.type;
         if (field == nullptr) {
            continue;
         }
         if (type.hashable && !field->hashable && field->isValueLike()) {
            diagnostics_.error(member.type.name.span,
                               "'" + member.type.name.text + "' is unhashable, so '" +
                                     type.name.text + "' must be declared unhashable too");
         }
         if (type.ordered && !field->ordered && field->isValueLike()) {
            diagnostics_.error(member.type.name.span, "'" + member.type.name.text +
                                                            "' has no order, so '" +
                                                            type.name.text + "' cannot be ordered");
         }
         if (contains(*field, type)) {
            diagnostics_.error(member.type.name.span,
                               "'" + type.name.text + "' would contain itself");
         }
      }
      if (type.transparent && type.members.size() != 1) {
         diagnostics_.error(type.name.span,
                            "'" + type.name.text +
                                  "' is transparent and must have one field, found " +
                                  std::to_string(type.members.size()));
      }
      if (type.members.empty()) {
         diagnostics_.error(type.name.span, "'" + type.name.text + "' has no field");
      }
   }

   static bool contains(Type const& outer, Type const& inner) {
      std::set<Type const*> seen;
      return contains(outer, inner, seen);
   }

   static bool contains(Type const& outer, Type const& inner, std::set<Type const*>& seen) {
      if (&outer == &inner) {
         return true;
      }
      if (!seen.insert(&outer).second || outer.kind != TypeKind::value) {
         return false;
      }
      return std::any_of(outer.members.begin(), outer.members.end(), [&](Member const& member) {
         return member.type.type != nullptr && contains(*member.type.type, inner, seen);
      });
   }

   // --- constructors -------------------------------------------------------------------------

   /// Fills in the constructor's parameters: those that the base's arguments pass on, then the
   /// type's own in declaration order.
   void constructor(Type& type) {
      bool const isDone = !done_.insert(&type).second;
      if (isDone || (type.kind != TypeKind::entity && type.kind != TypeKind::value)) {
         return;
      }
      if (type.baseType() != nullptr) {
         for (auto const& other : module_.types) {
            if (other.get() == type.baseType()) {
               constructor(*other);
            }
         }
         baseArguments(type);
      }
      for (auto const& member : type.members) {
         if (member.kind == MemberKind::name) {
            Parameter param{{"name", member.name.span}, {{"String", {}}, builtinType("String")}};
            type.constructorParams.push_back(std::move(param));
         } else if (member.isConstructorArg() || type.kind == TypeKind::value) {
            type.constructorParams.push_back({member.name, member.type});
         }
      }
   }

   void baseArguments(Type& type) {
      auto const& expected = type.baseType()->constructorParams;
      if (!type.baseArgsGiven) {
         for (auto const& param : expected) {
            Expr expr;
            expr.kind = Expr::Kind::name;
            expr.text = param.name.text;
            expr.span = type.base.name.span;
            type.baseArgs.push_back({expr, true});
            type.constructorParams.push_back(param);
         }
         return;
      }
      if (type.baseArgs.size() != expected.size()) {
         diagnostics_
               .error(type.base.name.span,
                      "'" + type.base.name.text + "' is made with " + listed(namesOf(expected)) +
                            ", found " + std::to_string(type.baseArgs.size()) +
                            (type.baseArgs.size() == 1 ? " argument" : " arguments"))
               .note(type.baseType()->name.span, "declared here");
         return;
      }
      for (std::size_t i = 0; i < expected.size(); ++i) {
         auto& arg = type.baseArgs[i];
         if (arg.expr.kind == Expr::Kind::name && arg.expr.text == expected[i].name.text) {
            arg.passedOn = true;
            type.constructorParams.push_back(expected[i]);
         }
      }
   }

   Module& module_;
   Diagnostics& diagnostics_;
   std::set<Type const*> done_;
};

}  // namespace

void checkStructure(Module& module, Diagnostics& diagnostics) {
   StructureCheck(module, diagnostics).run();
}

}  // namespace Kivc
