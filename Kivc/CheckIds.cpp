#include <charconv>
#include <map>

#include "Kivc/Check.h"

namespace Kivc {

namespace {

constexpr std::uint32_t nameId = 154;
constexpr std::uint32_t firstFieldId = 2;
constexpr std::uint32_t lastFieldId = 255;
constexpr std::uint32_t firstEntityId = 258;
constexpr std::uint32_t lastEntityId = 511;
/// Ids between the first of a base and the first of a type derived from it.
constexpr std::uint32_t derivedDistance = 128;

class IdCheck {
public:
   IdCheck(Module& module, Diagnostics& diagnostics) : module_(module), diagnostics_(diagnostics) {}

   void run() {
      for (auto const& type : module_.types) {
         if (type->kind == TypeKind::enumeration) {
            enumeration(*type);
         } else if (type->kind == TypeKind::value) {
            number(*type, firstFieldId, lastFieldId);
         } else if (type->kind == TypeKind::entity) {
            number(*type, firstIdOf(*type), lastEntityId);
         }
      }
      for (auto const& type : module_.types) {
         if (type->baseType() != nullptr) {
            room(*type);
         }
      }
   }

private:
   static std::uint32_t firstIdOf(Type const& type) {
      std::uint32_t id = firstEntityId;
      for (auto const* base = type.baseType(); base != nullptr; base = base->baseType()) {
         id += derivedDistance;
      }
      return id;
   }

   void number(Type& type, std::uint32_t first, std::uint32_t last) {
      type.firstId = first;
      auto next = first;
      for (auto& member : type.members) {
         if (member.kind == MemberKind::name) {
            member.id = nameId;
            continue;
         }
         // A queue takes two ids and publishes with the second.
         member.id = member.kind == MemberKind::queue ? next + 1 : next;
         auto const count = member.idCount();
         if (count > last || next + count - 1 > last) {
            diagnostics_.error(member.name.span, "'" + type.name.text + "' has no id left for '" +
                                                       std::string(member.name.span.text()) +
                                                       "'; the last one is " +
                                                       std::to_string(last));
            return;
         }
         next += count;
      }
   }

   /// A base's ids must end before those of the derived type begin.
   void room(Type const& type) {
      auto const& base = *type.baseType();
      for (auto const& member : base.members) {
         auto const end = member.id + (member.kind == MemberKind::queue ? 1 : member.idCount());
         if (member.kind != MemberKind::name && end > type.firstId) {
            diagnostics_
                  .error(type.base.name.span, "'" + type.base.name.text +
                                                    "' has too many ids to be a base: those of "
                                                    "derived types begin at " +
                                                    std::to_string(type.firstId))
                  .note(member.name.span, "its first id beyond that is here");
            return;
         }
      }
   }

   void enumeration(Type& type) {
      std::map<std::uint32_t, Member const*> byValue;
      std::uint32_t next = 0;
      for (auto& member : type.members) {
         if (member.number) {
            next = parsed(member.number->text);
         }
         auto const span = member.number ? member.number->span : member.name.span;
         member.id = next;
         if (next > 255) {
            diagnostics_.error(span, "the number of '" + member.name.text +
                                           "' does not fit into one byte (0 to 255)");
            next = 0;
            continue;
         }
         auto const [at, isNew] = byValue.emplace(next, &member);
         if (!isNew) {
            diagnostics_
                  .error(span, "'" + member.name.text + "' has the same number as '" +
                                     at->second->name.text + "': " + std::to_string(next))
                  .note(at->second->name.span, "declared here");
         }
         ++next;
      }
      enumerationDefault(type);
   }

   void enumerationDefault(Type const& type) {
      if (type.members.empty()) {
         diagnostics_.error(type.name.span, "'" + type.name.text + "' has no enumerator");
      } else if (!type.enumDefault) {
         diagnostics_.error(type.name.span, "'" + type.name.text +
                                                  "' states no default; add 'default " +
                                                  type.members.front().name.text + ";'");
      } else if (type.defaultEnumerator() == nullptr) {
         std::vector<std::string> names;
         for (auto const& member : type.members) {
            names.push_back(member.name.text);
         }
         diagnostics_.error(type.enumDefault->span,
                            "'" + type.name.text + "' has no enumerator '" +
                                  type.enumDefault->text + "'" +
                                  suggestion(type.enumDefault->text, names));
      }
   }

   /// The value of a number token; what is no whole number of 32 bits counts as too large.
   static std::uint32_t parsed(std::string const& text) {
      bool const isHex = text.starts_with("0x");
      auto const* begin = text.data() + (isHex ? 2 : 0);
      std::uint32_t value = 0;
      auto const result = std::from_chars(begin, text.data() + text.size(), value, isHex ? 16 : 10);
      bool const isWhole = result.ec == std::errc() && result.ptr == text.data() + text.size();
      return isWhole ? value : 256;
   }

   Module& module_;
   Diagnostics& diagnostics_;
};

}  // namespace

void checkIds(Module& module, Diagnostics& diagnostics) {
   IdCheck(module, diagnostics).run();
}

}  // namespace Kivc
