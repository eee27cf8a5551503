#include "Kivc/Diff.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "Kivc/Words.h"

namespace Kivc {

namespace {

std::string isNow(std::string const& before, std::string const& after) {
   auto const shown = [](std::string const& text) { return text.empty() ? "nothing" : text; };
   return shown(before) + " is now " + shown(after);
}

std::string joined(std::vector<std::string> const& all) {
   std::string out;
   for (auto const& one : all) {
      out += (out.empty() ? "" : ", ") + one;
   }
   return out;
}

std::string argumentsOf(Type const& type) {
   std::vector<std::string> all;
   for (auto const& param : type.constructorParams) {
      all.push_back(
            param.name.text + ": " +
            (param.type.type != nullptr ? param.type.type->qualifiedName() : param.type.name.text));
   }
   return "(" + joined(all) + ")";
}

std::string kindOf(Type const& type) {
   static constexpr std::array<char const*, 8> words{"a bool",    "an integer", "a number",
                                                     "a text",    "an enum",    "a value",
                                                     "an entity", "constants"};
   std::string const word = words[static_cast<std::size_t>(type.kind)];
   return type.origin == Origin::external ? word + " written in C++" : word;
}

std::string baseArgsOf(Type const& type) {
   std::vector<std::string> all;
   for (auto const& arg : type.baseArgs) {
      all.emplace_back(arg.expr.span.text());
   }
   return joined(all);
}

/// A bound of a range as a number, as far as it is known.
std::optional<long double> numberOf(Expr const& bound) {
   if (bound.integer) {
      return static_cast<long double>(*bound.integer);
   }
   double number = 0;
   auto const* const end = bound.text.data() + bound.text.size();
   auto const result = std::from_chars(bound.text.data(), end, number);
   bool const whole = result.ec == std::errc() && result.ptr == end;
   return whole ? std::optional<long double>(number) : std::nullopt;
}

/// The bounds of a member's type.
std::pair<long double, long double> limitsOf(Member const& member) {
   auto const* type = member.type.type;
   if (type == nullptr || type->kind != TypeKind::integer) {
      auto const infinity = std::numeric_limits<long double>::infinity();
      return {-infinity, infinity};
   }
   auto const values = std::ldexp(1.0L, type->bits);
   return type->isSigned ? std::pair(-values / 2, values / 2 - 1) : std::pair(0.0L, values - 1);
}

class Comparison {
public:
   std::vector<Difference> modules(Module const& before, Module const& after) {
      documentation("", before.doc, after.doc);
      uses(before, after);
      for (auto const& type : before.types) {
         auto const* now = find(after, *type);
         if (now == nullptr) {
            add(Effect::incompatible, type->qualifiedName(), "removed");
         } else {
            types(*type, *now);
         }
      }
      for (auto const& type : after.types) {
         if (find(before, *type) == nullptr) {
            add(Effect::compatible, type->qualifiedName(), "added");
         }
      }
      std::stable_sort(all_.begin(), all_.end(), [](Difference const& a, Difference const& b) {
         return a.effect < b.effect;
      });
      return std::move(all_);
   }

private:
   static Type const* find(Module const& module, Type const& wanted) {
      auto const at = std::find_if(module.types.begin(), module.types.end(), [&](auto const& type) {
         return type->qualifiedName() == wanted.qualifiedName();
      });
      return at != module.types.end() ? at->get() : nullptr;
   }

   void add(Effect effect, std::string what, std::string text) {
      all_.push_back({effect, std::move(what), std::move(text)});
   }
   /// Adds a difference if the two texts differ.
   void compare(Effect effect, std::string const& what, std::string const& subject,
                std::string const& before, std::string const& after) {
      if (before != after) {
         add(effect, what, subject + isNow(before, after));
      }
   }
   void documentation(std::string const& what, std::vector<std::string> const& before,
                      std::vector<std::string> const& after) {
      if (before != after) {
         add(Effect::documentation, what, "");
      }
   }

   void uses(Module const& before, Module const& after) {
      auto const names = [](Module const& module) {
         std::vector<std::string> all;
         for (auto const& use : module.uses) {
            all.push_back(use.text);
         }
         std::sort(all.begin(), all.end());
         return joined(all);
      };
      compare(Effect::compatible, "", "uses: ", names(before), names(after));
   }

   void types(Type const& before, Type const& after) {
      auto const what = before.qualifiedName();
      documentation(what, before.doc, after.doc);
      if (before.kind != after.kind || before.origin != after.origin) {
         add(Effect::incompatible, what, isNow(kindOf(before), kindOf(after)));
         return;
      }
      auto const baseOf = [](Type const& type) {
         return type.baseType() != nullptr ? type.baseType()->qualifiedName() : std::string();
      };
      compare(Effect::incompatible, what, "base ", baseOf(before), baseOf(after));
      compare(Effect::compatible, what, "arguments of the base: ", baseArgsOf(before),
              baseArgsOf(after));
      if (before.kind == TypeKind::entity) {
         compare(Effect::incompatible, what, "made from ", argumentsOf(before), argumentsOf(after));
      }
      if (before.origin == Origin::external || before.kind == TypeKind::constants) {
         compare(Effect::compatible, what, "header ", before.header, after.header);
      }
      lost(what, "can be a key of a hash map", before.hashable, after.hashable);
      lost(what, "can be a key of an ordered map", before.ordered, after.ordered);
      if (before.transparent != after.transparent) {
         add(Effect::incompatible, what, "has another text form");
      }
      if (before.enumDefault && after.enumDefault) {
         compare(Effect::compatible, what, "default ", before.enumDefault->text,
                 after.enumDefault->text);
      }
      if (before.kind == TypeKind::constants) {
         constants(before, after);
      } else {
         members(before, after);
      }
   }

   void lost(std::string const& what, std::string const& ability, bool before, bool after) {
      if (before != after) {
         add(after ? Effect::compatible : Effect::incompatible, what,
             ability + (after ? " now" : " no longer"));
      }
   }

   void constants(Type const& before, Type const& after) {
      auto const value = [](Member const* member) {
         return member != nullptr ? std::string(member->defaultValue->span.text()) : "";
      };
      std::map<std::string, std::pair<std::string, std::string>> all;
      for (auto const& member : before.members) {
         all[member.name.text] = {value(&member), value(after.find(member.name.text))};
      }
      for (auto const& member : after.members) {
         all[member.name.text] = {value(before.find(member.name.text)), value(&member)};
      }
      for (auto const& [name, values] : all) {
         compare(Effect::compatible, before.qualifiedName() + "." + name, "", values.first,
                 values.second);
      }
   }

   // Members, identified by their names, and by their ids.

   static bool hasId(Member const& member) {
      return member.kind != MemberKind::reserved && member.kind != MemberKind::name;
   }

   static Member const* withId(Type const& type, std::uint32_t id) {
      for (auto const& member : type.members) {
         if (hasId(member) && member.id == id) {
            return &member;
         }
      }
      return nullptr;
   }

   static std::string idText(Type const& type, std::uint32_t id) {
      return (type.kind == TypeKind::enumeration ? "number " : "id ") + std::to_string(id);
   }

   void members(Type const& before, Type const& after) {
      std::uint32_t last = 0;
      for (auto const& member : before.members) {
         if (hasId(member)) {
            last = std::max(last, member.id);
         }
         if (member.kind == MemberKind::reserved || member.name.text.empty()) {
            continue;
         }
         auto const what = before.qualifiedName() + "." + member.name.text;
         if (auto const* now = after.find(member.name.text)) {
            this->member(before, member, *now, what);
         } else {
            removed(after, member, what);
         }
      }
      for (auto const& member : after.members) {
         bool const isNew =
               member.kind != MemberKind::reserved && before.find(member.name.text) == nullptr;
         if (isNew && (!hasId(member) || withId(before, member.id) == nullptr)) {
            added(after, member, last);
         }
      }
   }

   void removed(Type const& after, Member const& member, std::string const& what) {
      auto const* taken = hasId(member) ? withId(after, member.id) : nullptr;
      add(Effect::incompatible, what,
          taken != nullptr ? idText(after, member.id) + " is now " + taken->name.text : "removed");
   }

   void added(Type const& type, Member const& member, std::uint32_t last) {
      auto const what = type.qualifiedName() + "." + member.name.text;
      if (type.kind == TypeKind::value) {
         add(Effect::incompatible, what, "added to a value, which is sent as a whole");
         return;
      }
      if (!hasId(member)) {
         return;  // the arguments of the constructor tell
      }
      auto const where =
            type.kind == TypeKind::enumeration
                  ? " with "
                  : (member.id > last ? " at the end with " : " in a reserved place with ");
      add(Effect::compatible, what, "added" + std::string(where) + idText(type, member.id));
   }

   void member(Type const& type, Member const& before, Member const& after,
               std::string const& what) {
      documentation(what, before.doc, after.doc);
      if (hasId(before) && before.id != after.id) {
         add(Effect::incompatible, what,
             idText(type, before.id) + " is now " + std::to_string(after.id));
      }
      if (before.kind != after.kind) {
         compare(Effect::incompatible, what, "", std::string(info(before.kind).keyword),
                 std::string(info(after.kind).keyword));
         return;
      }
      compare(Effect::incompatible, what, "", typeInWords(before), typeInWords(after));
      streaming(before, after, what);
      range(before, after, what);
      compare(Effect::compatible, what, "default ", defaultInWords(before), defaultInWords(after));
      details(before, after, what);
   }

   void streaming(Member const& before, Member const& after, std::string const& what) {
      if (before.local != after.local) {
         add(after.local ? Effect::incompatible : Effect::compatible, what,
             after.local ? "no longer streamed" : "streamed now");
      }
      if (before.named != after.named) {
         add(Effect::incompatible, what, after.named ? "has a name now" : "has no name now");
      }
   }

   void range(Member const& before, Member const& after, std::string const& what) {
      auto const was = rangeInWords(before);
      auto const is = rangeInWords(after);
      if (was == is) {
         return;
      }
      auto const bound = [](std::optional<Expr> const& expr, long double open) {
         return expr ? numberOf(*expr) : std::optional<long double>(open);
      };
      // Both versions have the same type here, or its difference is incompatible anyway.
      auto const [least, greatest] = limitsOf(after);
      auto const oldLow = bound(before.lower, least);
      auto const oldHigh = bound(before.upper, greatest);
      auto const low = bound(after.lower, least);
      auto const high = bound(after.upper, greatest);
      bool const known = oldLow && oldHigh && low && high;
      bool const wider = known && *low <= *oldLow && *high >= *oldHigh;
      auto const text = "range " + isNow(was, is);
      add(wider ? Effect::compatible : Effect::incompatible, what,
          known ? text : text + ", whose values are not known here");
   }

   /// What neither peers nor stored states notice.
   void details(Member const& before, Member const& after, std::string const& what) {
      auto const hex = [](Member const& member) {
         return member.hash ? member.hash->text : std::string();
      };
      auto const view = [](Member const& member) {
         return member.viewOf ? member.viewOf->text : std::string();
      };
      auto const creation = [](Member const& member) {
         return member.creationName ? member.creationName->text : std::string();
      };
      if (before.hashConstant != after.hashConstant) {
         compare(Effect::compatible, what, "hash constant ", hex(before), hex(after));
      }
      compare(Effect::compatible, what, "view of ", view(before), view(after));
      compare(Effect::compatible, what, "created as ", creation(before), creation(after));
      if (before.instantiation != after.instantiation) {
         add(Effect::compatible, what, "other instantiation flags");
      }
      if (before.isConst != after.isConst) {
         add(Effect::compatible, what, after.isConst ? "const now" : "no longer const");
      }
   }

   std::vector<Difference> all_;
};

}  // namespace

std::string_view name(Effect effect) {
   static constexpr std::array<std::string_view, 3> names{"incompatible", "compatible",
                                                          "documentation"};
   return names[static_cast<std::size_t>(effect)];
}

std::vector<Difference> differences(Module const& before, Module const& after) {
   return Comparison().modules(before, after);
}

}  // namespace Kivc
