#include "Kivc/CppNames.h"

#include <algorithm>
#include <cctype>

#include "Kivc/Scope.h"
#include "Kivc/Words.h"

namespace Kivc {

namespace {

std::string firstPartOf(std::string const& name) {
   return name.substr(0, name.find("::"));
}

/// Whether code inside `nameSpace` finds something else first under the outermost name.
bool isHidden(std::string const& outermost, std::string nameSpace) {
   for (; nameSpace.find("::") != std::string::npos; nameSpace = qualifierOf(nameSpace)) {
      if (lastPartOf(nameSpace) == outermost) {
         return true;
      }
   }
   return false;
}

std::string number(Expr const& expr, Type const& type) {
   if (expr.integer && type.kind == TypeKind::integer) {
      auto const value = *expr.integer;
      WideInteger const largestSigned = (WideInteger{1} << 63) - 1;
      if (value > largestSigned) {
         return decimal(value) + "U";
      }
      if (value < -largestSigned) {
         return "std::numeric_limits<S64>::min()";
      }
      return expr.text.starts_with("0x") ? expr.text : decimal(value);
   }
   bool const hasFraction = expr.text.find_first_of(".e") != std::string::npos;
   return expr.text + (type.bits == 32 && hasFraction ? "F" : "");
}

}  // namespace

bool isScalar(Type const& type) {
   return type.kind != TypeKind::string && type.kind != TypeKind::value &&
          type.kind != TypeKind::entity;
}

std::string factoryName(Type const& type) {
   auto name = type.name.text;
   name[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
   return name + "Factory";
}

std::string capitalized(std::string text) {
   text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
   return text;
}

std::string accessorOf(Type const& type, Parameter const& param) {
   return type.isNamedRoot() && param.name.text == "name" ? "nameString" : param.name.text;
}

std::string join(std::vector<std::string> const& parts, std::string_view separator) {
   std::string out;
   for (auto const& part : parts) {
      if (!part.empty()) {
         out.append(out.empty() ? "" : separator).append(part);
      }
   }
   return out;
}

std::string joinNames(std::vector<Parameter> const& params) {
   std::vector<std::string> names(params.size());
   std::transform(params.begin(), params.end(), names.begin(),
                  [](Parameter const& param) { return param.name.text; });
   return join(names, ", ");
}

std::string CppNames::type(Type const& type) const {
   if (type.origin != Origin::builtin && type.nameSpace == nameSpace_) {
      return type.name.text;
   }
   if (type.nameSpace.empty()) {
      return (type.origin == Origin::builtin ? "" : "::") + type.name.text;
   }
   bool const needsRoot = isHidden(firstPartOf(type.nameSpace), nameSpace_);
   return (needsRoot ? "::" : "") + type.qualifiedName();
}

std::string CppNames::stored(Member const& member) const {
   auto const inner = type(*member.type.type);
   return member.kind == MemberKind::optional ? "Kiv::Optional<" + inner + ">" : inner;
}

std::string CppNames::param(Type const& type) const {
   if (type.kind == TypeKind::string) {
      return "std::string_view";
   }
   if (type.kind == TypeKind::entity) {
      return "Sarn::Ptr<" + this->type(type) + "> const&";
   }
   return this->type(type) + (isScalar(type) ? "" : " const&");
}

std::string CppNames::param(Member const& member) const {
   if (member.kind == MemberKind::optional) {
      return stored(member) + (isScalar(*member.type.type) ? "" : " const&");
   }
   return param(*member.type.type);
}

std::string CppNames::result(Member const& member) const {
   return stored(member) + (isScalar(*member.type.type) ? "" : " const&");
}

std::string CppNames::returned(Type const& type) const {
   return type.kind == TypeKind::entity ? "Sarn::Ptr<" + this->type(type) + ">" : this->type(type);
}

std::string CppNames::literal(Expr const& expr, Type const& type) const {
   switch (type.kind) {
      case TypeKind::integer:
      case TypeKind::floating:
         if (expr.text == "infinity") {
            return "std::numeric_limits<" + this->type(type) + ">::infinity()";
         }
         return expr.kind == Expr::Kind::name ? bound(expr) : number(expr, type);
      case TypeKind::enumeration:
         return this->type(type) + "::" + expr.target->name.text;
      case TypeKind::value: {
         if (expr.kind == Expr::Kind::text) {
            return "Kiv::textConstant<" + this->type(type) + ", " + expr.text + ">()";
         }
         std::vector<std::string> args;
         for (std::size_t i = 0; i < expr.args.size(); ++i) {
            bool const isKnown = i < type.constructorParams.size();
            args.push_back(isKnown ? literal(expr.args[i], *type.constructorParams[i].type.type)
                                   : expr.args[i].text);
         }
         return this->type(type) + "(" + join(args, ", ") + ")";
      }
      default:
         return expr.text;
   }
}

std::string CppNames::initializer(Member const& member) const {
   auto const& type = *member.type.type;
   if (member.kind == MemberKind::optional || member.isConstructorArg()) {
      return {};
   }
   if (member.defaultValue) {
      return " = " + literal(*member.defaultValue, type);
   }
   switch (type.kind) {
      case TypeKind::boolean:
         return " = false";
      case TypeKind::integer:
      case TypeKind::floating:
         return " = 0";
      case TypeKind::enumeration:
         return " = " + this->type(type) + "::" + type.enumDefault->text;
      default:
         return {};
   }
}

std::string CppNames::bound(Expr const& bound) const {
   if (bound.kind == Expr::Kind::number) {
      return bound.text;
   }
   auto const name = lastPartOf(bound.text);
   bool const isFunction = bound.isFunction || bound.scope->kind == TypeKind::entity;
   return type(*bound.scope) + "::" + name + (isFunction ? "()" : "");
}

std::string CppNames::params(Type const& type) const {
   std::vector<std::string> parts;
   for (auto const& param : type.constructorParams) {
      auto const* field = type.kind == TypeKind::value ? type.find(param.name.text) : nullptr;
      parts.push_back((field != nullptr ? this->param(*field) : this->param(*param.type.type)) +
                      " " + param.name.text);
   }
   return join(parts, ", ");
}

}  // namespace Kivc
