#include <algorithm>
#include <charconv>
#include <utility>

#include "Kivc/Check.h"
#include "Kivc/Scope.h"
#include "Kivc/Words.h"

namespace Kivc {

namespace {

/// The value of a whole number as written, if it is one and has at most 64 bits.
std::optional<WideInteger> wholeNumber(std::string_view text) {
   bool const isNegative = text.starts_with("-");
   text.remove_prefix(isNegative ? 1 : 0);
   bool const isHex = text.starts_with("0x") || text.starts_with("0X");
   text.remove_prefix(isHex ? 2 : 0);
   std::uint64_t magnitude = 0;
   auto const result =
         std::from_chars(text.data(), text.data() + text.size(), magnitude, isHex ? 16 : 10);
   if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
      return std::nullopt;
   }
   return isNegative ? -static_cast<WideInteger>(magnitude) : static_cast<WideInteger>(magnitude);
}

std::pair<WideInteger, WideInteger> limitsOf(Type const& integer) {
   WideInteger const one = 1;
   if (integer.isSigned) {
      auto const half = one << (integer.bits - 1);
      return {-half, half - 1};
   }
   return {0, (one << integer.bits) - 1};
}

bool isNumeric(Type const& type) {
   return type.kind == TypeKind::integer || type.kind == TypeKind::floating;
}

class ValueCheck {
public:
   ValueCheck(Module& module, Diagnostics& diagnostics)
         : module_(module), diagnostics_(diagnostics) {}

   void run() {
      // Constants first: bounds of other members may name them, whatever the order.
      for (auto const& type : module_.types) {
         for (auto& member : type->members) {
            if (member.kind == MemberKind::constant) {
               constant(*type, member);
            }
         }
      }
      for (auto const& type : module_.types) {
         for (auto& member : type->members) {
            if (member.kind != MemberKind::constant) {
               this->member(member);
            }
         }
         baseArguments(*type);
      }
   }

private:
   void constant(Type const& owner, Member& member) {
      if (!member.defaultValue) {
         diagnostics_.error(member.name.span, "a constant needs a value: add '= ...'");
         return;
      }
      if (owner.kind == TypeKind::constants) {
         member.defaultValue->integer = wholeNumber(member.defaultValue->text);
         if (member.defaultValue->kind != Expr::Kind::number) {
            diagnostics_.error(member.defaultValue->span, "a limit is a number");
         }
         return;
      }
      if (member.type.type != nullptr) {
         value(*member.defaultValue, *member.type.type);
      }
   }

   void member(Member& member) {
      auto const* type = member.type.type;
      if (member.defaultValue) {
         if (member.isConstructorArg()) {
            diagnostics_.error(member.defaultValue->span,
                               "'" + member.name.text +
                                     "' gets its initial value from the constructor and has no "
                                     "default");
         } else if (member.kind == MemberKind::optional) {
            diagnostics_.error(member.defaultValue->span,
                               "an optional is absent at first and has no default");
         } else if (type != nullptr && type->isValueLike()) {
            value(*member.defaultValue, *type);
         }
      }
      if (member.lower && type != nullptr) {
         range(member, *type);
      }
   }

   // --- ranges -------------------------------------------------------------------------------

   void range(Member& member, Type const& type) {
      if (!isNumeric(type)) {
         diagnostics_.error(member.lower->span, "only numbers have a range; '" + member.name.text +
                                                      "' is of type '" + member.type.name.text +
                                                      "'");
         return;
      }
      if (member.kind == MemberKind::field || member.kind == MemberKind::counter ||
          member.kind == MemberKind::constant) {
         diagnostics_.error(member.lower->span, "a " + std::string(info(member.kind).keyword) +
                                                      " has no range; attributes of entities have");
         return;
      }
      bound(*member.lower, type);
      if (member.upper) {
         bound(*member.upper, type);
      }
      static constexpr decltype(member.lower->integer) open;
      auto const& low = member.lower->integer;
      auto const& high = member.upper ? member.upper->integer : open;
      if (low && high && *low > *high) {
         diagnostics_.error(member.lower->span.to(member.upper->span),
                            "the range is empty: " + decimal(*low) + " is above " + decimal(*high));
         return;
      }
      auto const start = member.defaultValue ? member.defaultValue->integer : std::nullopt;
      if (!start) {
         return;
      }
      if ((low && *start < *low) || (high && *start > *high)) {
         diagnostics_
               .error(member.defaultValue->span, "the default " + decimal(*start) +
                                                       " is outside the range" +
                                                       (low ? " from " + decimal(*low) : "") +
                                                       (high ? " to " + decimal(*high) : ""))
               .note(member.lower->span, "the range is stated here");
      }
   }

   void bound(Expr& expr, Type const& type) {
      if (expr.kind == Expr::Kind::name) {
         followName(expr);
         if (expr.integer && type.kind == TypeKind::integer) {
            mustFit(expr, *expr.integer, type);
         }
      } else if (expr.kind == Expr::Kind::number) {
         value(expr, type);
      }
   }

   static void followName(Expr& expr) {
      if (expr.target != nullptr && expr.target->defaultValue) {
         expr.integer = wholeNumber(expr.target->defaultValue->text);
      }
   }

   // --- values -------------------------------------------------------------------------------

   void value(Expr& expr, Type const& type) {
      switch (type.kind) {
         case TypeKind::boolean:
            if (expr.kind != Expr::Kind::name || (expr.text != "true" && expr.text != "false")) {
               expected(expr, "true or false");
            }
            break;
         case TypeKind::integer:
            integer(expr, type);
            break;
         case TypeKind::floating:
            floating(expr);
            break;
         case TypeKind::string:
            if (expr.kind != Expr::Kind::text) {
               expected(expr, "a text in quotes");
            }
            break;
         case TypeKind::enumeration:
            enumerator(expr, type);
            break;
         case TypeKind::value:
            composite(expr, type);
            break;
         case TypeKind::entity:
         case TypeKind::constants:
            break;
      }
   }

   void expected(Expr const& expr, std::string const& what) {
      diagnostics_.error(expr.span,
                         "expected " + what + ", found '" + std::string(expr.span.text()) + "'");
   }

   void integer(Expr& expr, Type const& type) {
      if (expr.kind == Expr::Kind::name && expr.scope != nullptr) {
         followName(expr);
      } else if (expr.kind == Expr::Kind::number) {
         expr.integer = wholeNumber(expr.text);
      }
      if (expr.integer) {
         mustFit(expr, *expr.integer, type);
      } else if (expr.scope == nullptr) {
         expected(expr, "a whole number of type " + type.name.text);
      }
   }

   void mustFit(Expr const& expr, WideInteger number, Type const& type) {
      auto const [low, high] = limitsOf(type);
      if (number < low || number > high) {
         diagnostics_.error(expr.span, decimal(number) + " does not fit into " + type.name.text +
                                             " (" + decimal(low) + " to " + decimal(high) + ")");
      }
   }

   void floating(Expr& expr) {
      bool const isNumber = expr.kind == Expr::Kind::number && !expr.text.starts_with("0x") &&
                            !expr.text.starts_with("-0x");
      if (expr.kind == Expr::Kind::name && expr.scope != nullptr) {
         followName(expr);
      } else if (isNumber) {
         expr.integer = wholeNumber(expr.text);
      } else if (expr.text != "infinity") {
         expected(expr, "a number or infinity");
      }
   }

   void enumerator(Expr& expr, Type const& type) {
      if (expr.kind == Expr::Kind::call && expr.text == "ordinal" && expr.args.size() == 1) {
         auto const number = wholeNumber(expr.args[0].text);
         for (auto const& member : type.members) {
            if (number && *number == member.id) {
               expr.target = &member;
            }
         }
         if (expr.target == nullptr) {
            diagnostics_
                  .error(expr.args[0].span, "no enumerator of '" + type.name.text +
                                                  "' has the number " + expr.args[0].text)
                  .note(type.name.span, "declared here");
         }
         return;
      }
      if (expr.kind != Expr::Kind::name || expr.isFunction) {
         expected(expr, "an enumerator of '" + type.name.text + "' or ordinal(number)");
         return;
      }
      expr.target = type.find(expr.text);
      if (expr.target == nullptr) {
         std::vector<std::string> names;
         for (auto const& member : type.members) {
            names.push_back(member.name.text);
         }
         diagnostics_
               .error(expr.span, "'" + type.name.text + "' has no enumerator '" + expr.text + "'" +
                                       suggestion(expr.text, names))
               .note(type.name.span, "declared here");
      }
   }

   /// `ClockQuality(248, 254, 65535)`, or a text that is parsed when the program starts.
   void composite(Expr& expr, Type const& type) {
      if (expr.kind == Expr::Kind::text) {
         return;
      }
      if (expr.kind != Expr::Kind::call) {
         expected(expr, "'" + type.name.text + "(...)' or a text in quotes");
         return;
      }
      bool const isSame = lastPartOf(expr.text) == type.name.text &&
                          ("::" + type.qualifiedName()).ends_with("::" + expr.text);
      if (!isSame && expr.text != "::" + type.qualifiedName()) {
         diagnostics_.error(expr.span, "the default is a '" + expr.text + "', but the type is '" +
                                             type.qualifiedName() + "'");
         return;
      }
      if (type.origin == Origin::external) {
         return;  // its constructors are known to C++ alone
      }
      if (expr.args.size() != type.constructorParams.size()) {
         diagnostics_
               .error(expr.span, "'" + type.name.text + "' is made of " +
                                       std::to_string(type.constructorParams.size()) +
                                       " values, found " + std::to_string(expr.args.size()))
               .note(type.name.span, "declared here");
         return;
      }
      for (std::size_t i = 0; i < expr.args.size(); ++i) {
         if (auto const* field = type.constructorParams[i].type.type) {
            value(expr.args[i], *field);
         }
      }
   }

   void baseArguments(Type& type) {
      if (type.baseType() == nullptr ||
          type.baseArgs.size() != type.baseType()->constructorParams.size()) {
         return;
      }
      for (std::size_t i = 0; i < type.baseArgs.size(); ++i) {
         auto& arg = type.baseArgs[i];
         auto const& param = type.baseType()->constructorParams[i];
         if (!arg.passedOn && param.type.type != nullptr) {
            value(arg.expr, *param.type.type);
         }
      }
   }

   Module& module_;
   Diagnostics& diagnostics_;
};

}  // namespace

void checkValues(Module& module, Diagnostics& diagnostics) {
   ValueCheck(module, diagnostics).run();
}

}  // namespace Kivc
