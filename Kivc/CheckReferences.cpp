#include <algorithm>

#include "Kivc/Check.h"
#include "Kivc/Scope.h"

namespace Kivc {

namespace {

std::vector<std::string> memberNames(Type const& type, MemberKind kind) {
   std::vector<std::string> names;
   for (auto const* at = &type; at != nullptr; at = at->baseType()) {
      for (auto const& member : at->members) {
         if (member.kind == kind) {
            names.push_back(member.name.text);
         }
      }
   }
   return names;
}

/// The type, `type` or one of its bases, that declares `member`.
Type const* declarerOf(Type const& type, Member const& member) {
   for (auto const* at = &type; at != nullptr; at = at->baseType()) {
      if (at->find(member.name.text) == &member) {
         return at;
      }
   }
   return nullptr;
}

/// Values that are words of the language and not names of constants.
bool isWord(std::string const& text) {
   return text == "infinity" || text == "true" || text == "false";
}

class ReferenceCheck {
public:
   ReferenceCheck(Module& module, Scope const& scope, Diagnostics& diagnostics)
         : module_(module), scope_(scope), diagnostics_(diagnostics) {}

   void run() {
      for (auto const& type : module_.types) {
         scope_.resolve(type->base, type->nameSpace, diagnostics_);
         breakCircle(*type);
      }
      for (auto const& type : module_.types) {
         for (auto& member : type->members) {
            types(*type, member);
         }
      }
      for (auto const& type : module_.types) {
         for (auto& member : type->members) {
            constants(*type, member);
         }
      }
   }

private:
   /// Later passes walk from type to base and rely on coming to an end.
   void breakCircle(Type& type) {
      auto* base = type.base.type;
      if (base != nullptr && base->kind != TypeKind::entity) {
         diagnostics_.error(type.base.name.span, "'" + type.base.name.text +
                                                       "' is not an entity; only an entity can be "
                                                       "a base");
         type.base.type = nullptr;
         return;
      }
      for (auto const* at = base; at != nullptr; at = at->baseType()) {
         if (at == &type) {
            diagnostics_.error(type.base.name.span,
                               "'" + type.name.text + "' would be derived from itself");
            type.base.type = nullptr;
            return;
         }
      }
   }

   void types(Type const& owner, Member& member) {
      scope_.resolve(member.type, owner.nameSpace, diagnostics_);
      scope_.resolve(member.key, owner.nameSpace, diagnostics_);
      for (auto& param : member.params) {
         scope_.resolve(param.type, owner.nameSpace, diagnostics_);
      }
   }

   void constants(Type const& owner, Member& member) {
      for (auto* bound : {&member.lower, &member.upper}) {
         if (*bound && (*bound)->kind == Expr::Kind::name) {
            constant(owner, **bound);
         } else if (*bound && (*bound)->kind != Expr::Kind::number) {
            diagnostics_.error((*bound)->span, "a bound is a number or the name of a constant");
         }
      }
      auto& value = member.defaultValue;
      bool const isNumber =
            member.type.type != nullptr && (member.type.type->kind == TypeKind::integer ||
                                            member.type.type->kind == TypeKind::floating);
      if (value && value->kind == Expr::Kind::name && isNumber && !isWord(value->text)) {
         constant(owner, *value);
      } else if (value) {
         constantsWithin(owner, *value);
      }
   }

   /// Names among a value's arguments may be constants, or anything else that the argument's type
   /// will tell.
   void constantsWithin(Type const& owner, Expr& call) {
      for (auto& arg : call.args) {
         constantsWithin(owner, arg);
         if (arg.kind != Expr::Kind::name || isWord(arg.text)) {
            continue;
         }
         auto const qualifier = qualifierOf(arg.text);
         auto const* scope = qualifier.empty() ? &owner : scope_.lookUp(qualifier, owner.nameSpace);
         auto const* found =
               scope == nullptr ? nullptr : scope->findInherited(lastPartOf(arg.text));
         if (found != nullptr && found->kind == MemberKind::constant) {
            arg.scope = qualifier.empty() ? declarerOf(owner, *found) : scope;
            arg.target = found;
         }
      }
   }

   /// Finds what `limit` or `Holder::limit` names.
   void constant(Type const& owner, Expr& expr) {
      auto const qualifier = qualifierOf(expr.text);
      auto const name = lastPartOf(expr.text);
      if (qualifier.empty()) {
         auto const* found = owner.findInherited(name);
         if (found == nullptr || found->kind != MemberKind::constant) {
            diagnostics_.error(expr.span,
                               "unknown constant '" + name + "'" +
                                     suggestion(name, memberNames(owner, MemberKind::constant)));
            return;
         }
         expr.scope = declarerOf(owner, *found);
         expr.target = found;
         return;
      }
      expr.scope = scope_.lookUp(qualifier, owner.nameSpace);
      if (expr.scope == nullptr) {
         auto const hint = suggestion(qualifier, scope_.knownNames(owner.nameSpace));
         diagnostics_.error(expr.span,
                            "unknown holder of constants '" + qualifier + "'" +
                                  (hint.empty() ? "; declare it with extern constants" : hint));
         return;
      }
      expr.target = expr.scope->findInherited(name);
      bool const isOpen = expr.scope->kind == TypeKind::constants && expr.scope->members.empty();
      if (isOpen) {
         return;  // its constants are not listed, so any name is taken on trust
      }
      if (expr.target == nullptr || expr.target->kind != MemberKind::constant) {
         expr.target = nullptr;
         diagnostics_.error(expr.span,
                            "unknown constant '" + expr.text + "'" +
                                  suggestion(name, memberNames(*expr.scope, MemberKind::constant)));
      }
   }

   Module& module_;
   Scope const& scope_;
   Diagnostics& diagnostics_;
};

}  // namespace

void checkReferences(Module& module, Scope const& scope, Diagnostics& diagnostics) {
   ReferenceCheck(module, scope, diagnostics).run();
}

}  // namespace Kivc
