#include "Kivc/EmitMember.h"

#include "Kivc/Layout.h"
#include "Kivc/Words.h"

namespace Kivc {

int alignmentOf(Type const& type) {
   switch (type.kind) {
      case TypeKind::boolean:
      case TypeKind::enumeration:
         return 1;
      case TypeKind::integer:
      case TypeKind::floating:
         return type.bits / 8;
      default:
         return 8;
   }
}

MemberCode MemberEmitter::run() const {
   switch (member_.kind) {
      case MemberKind::key:
      case MemberKind::constArg:
      case MemberKind::attr:
      case MemberKind::counter:
      case MemberKind::optional:
         return attribute();
      case MemberKind::constant:
         return constant();
      case MemberKind::derived:
         return derived();
      case MemberKind::operation:
         return operation();
      case MemberKind::child:
         return child();
      case MemberKind::children:
         return children();
      case MemberKind::map:
      case MemberKind::ordered:
         return map();
      case MemberKind::queue:
         return queue();
      case MemberKind::reserved: {
         MemberCode code;
         for (std::uint32_t i = 0; i < member_.places; ++i) {
            code.row += "Kiv::reserved(" + std::to_string(member_.id + i) + "),\n";
         }
         return code;
      }
      case MemberKind::name:
      case MemberKind::field:
      case MemberKind::enumerator:
         break;
   }
   return {};
}

std::string MemberEmitter::fill(
      std::string_view text,
      std::initializer_list<std::pair<char const*, std::string>> keys) const {
   Template common;
   common.set("Owner", owner_.name.text)
         .set("name", member_.name.text)
         .set("id", std::to_string(member_.id))
         .set("kind", hexWord(member_.kindWord()))
         .set("flags", flags());
   auto own = common.fork();
   for (auto const& [key, value] : keys) {
      own.set(key, value);
   }
   own.append(text);
   return own.finish();
}

std::string MemberEmitter::doc(std::string const& facts) const {
   auto lines = join(member_.doc, "\n");
   return docComment(lines + "\nId " + std::to_string(member_.id) +
                     (facts.empty() ? "" : "; " + facts) +
                     (member_.local && member_.isStored() ? "; not streamed" : "") + ".");
}

std::string MemberEmitter::flags() const {
   std::vector<std::string> flags;
   if (member_.isStreamed()) {
      flags.emplace_back("streamed");
   }
   if (member_.kind == MemberKind::key) {
      flags.emplace_back("key");
   }
   if (member_.kind == MemberKind::key || member_.kind == MemberKind::constArg ||
       member_.kind == MemberKind::constant) {
      flags.emplace_back("constant");
   }
   if (member_.named) {
      flags.emplace_back("named");
   }
   for (std::size_t i = 0; i < member_.instantiation.size(); ++i) {
      if (member_.instantiation[i]) {
         flags.push_back("instantiation" + std::to_string(i + 1));
      }
   }
   if (member_.isInSeconds()) {
      flags.emplace_back("seconds");
   }
   for (auto& flag : flags) {
      flag.insert(0, "Flag::");
   }
   return flags.empty() ? "0" : join(flags, " | ");
}

std::string MemberEmitter::elementParam(Type const& type) const {
   return type.kind == TypeKind::string ? "Sarn::String const&" : names_.param(type);
}

}  // namespace Kivc
