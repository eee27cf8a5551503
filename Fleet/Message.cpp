#include "Fleet/Message.h"

#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/State/Json.h"

namespace Fleet {

namespace {

constexpr std::string_view sessionBegin = R"({"session":")";
constexpr std::string_view sequenceBegin = R"(","sequence":)";
constexpr std::string_view rootBegin = R"(,"root":")";
constexpr std::string_view valueBegin = R"(","value":)";
constexpr std::string_view deletedEnd = R"(","deleted":true})";
constexpr std::size_t longestName = 256;

bool isWord(std::string_view text) {
   for (char const c : text) {
      if (c < 0x20 || c == '"' || c == '\\' || c == 0x7f) {
         return false;
      }
   }
   return !text.empty() && text.size() <= longestName;
}

/// Takes a text that is expected.
bool take(std::string_view& rest, std::string_view expected) {
   bool const is = rest.starts_with(expected);
   rest.remove_prefix(is ? expected.size() : 0);
   return is;
}

/// Takes what comes before the next quote.
std::string_view takeWord(std::string_view& rest) {
   std::string_view const word = rest.substr(0, rest.find('"'));
   rest.remove_prefix(word.size());
   return word;
}

/// A multiplication whose halves are folded together.
U64 folded(U64 a, U64 b) noexcept {
   __extension__ using U128 = unsigned __int128;
   auto const product = U128{a} * b;
   return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

U64 mixed(U64 state, std::string_view text) noexcept {
   constexpr U64 first = 0x9e3779b97f4a7c15;
   constexpr U64 second = 0xe7037ed1a0b428db;
   state = folded(state ^ first, text.size() ^ second);
   while (!text.empty()) {
      U64 word = 0;
      std::size_t const size = std::min(text.size(), sizeof word);
      std::memcpy(&word, text.data(), size);
      state = folded(state ^ word ^ first, state ^ second) + word;
      text.remove_prefix(size);
   }
   return folded(state ^ second, first);
}

U64 wholeIn(Holt::Json const& json, char const* name) {
   auto const at = json.find(name);
   if (at == json.end() || !at->is_number_unsigned()) {
      throw Holt::Failure(std::string("heartbeat: '") + name + "' must be a whole number");
   }
   return at->get<U64>();
}

std::string textIn(Holt::Json const& json, char const* name) {
   auto const at = json.find(name);
   std::optional<Sarn::String> text =
         at != json.end() ? Holt::stringOf(*at) : std::optional<Sarn::String>();
   if (!text) {
      throw Holt::Failure(std::string("heartbeat: '") + name + "' must be a string");
   }
   return *text;
}

bool flagIn(Holt::Json const& json, char const* name) {
   auto const at = json.find(name);
   if (at == json.end() || !at->is_boolean()) {
      throw Holt::Failure(std::string("heartbeat: '") + name + "' must be true or false");
   }
   return at->get<bool>();
}

MetaRoot rootIn(Holt::Json const& json) {
   MetaRoot root{textIn(json, "name"), textIn(json, "type"), wholeIn(json, "entities"), 0};
   std::string const digest = textIn(json, "digest");
   auto const end = digest.data() + digest.size();
   auto const read = std::from_chars(digest.data(), end, root.digest, 16);
   if (read.ec != std::errc() || read.ptr != end) {
      throw Holt::Failure("heartbeat: 'digest' must be a hexadecimal number");
   }
   return root;
}

}  // namespace

void writeMessage(EntityMessage const& message, std::string& out) {
   out += sessionBegin;
   out += message.session;
   out += sequenceBegin;
   out += std::to_string(message.sequence);
   out += rootBegin;
   out += message.rootType;
   if (message.isDeleted()) {
      out += deletedEnd;
   } else {
      out += valueBegin;
      out += message.value;
      out += '}';
   }
}

std::string_view readMessage(std::string_view text, EntityMessage& message) {
   std::string_view rest = text;
   if (!take(rest, sessionBegin)) {
      return R"(does not begin with {"session":)";
   }
   message.session = takeWord(rest);
   if (!isWord(message.session) || !take(rest, sequenceBegin)) {
      return "has no valid session";
   }
   auto const read = std::from_chars(rest.data(), rest.data() + rest.size(), message.sequence);
   if (read.ec != std::errc()) {
      return "has no valid sequence";
   }
   rest.remove_prefix(static_cast<std::size_t>(read.ptr - rest.data()));
   if (!take(rest, rootBegin)) {
      return "has no root";
   }
   message.rootType = takeWord(rest);
   if (!isWord(message.rootType)) {
      return "has no valid root";
   }
   if (rest == deletedEnd) {
      message.value = {};
      return {};
   }
   if (!take(rest, valueBegin) || rest.size() < 3 || rest.front() != '{' || !rest.ends_with("}}")) {
      return "has neither a value nor a deletion";
   }
   message.value = rest.substr(0, rest.size() - 1);
   return {};
}

std::string metaText(Meta const& meta) {
   Holt::Json roots = Holt::Json::array();
   for (MetaRoot const& root : meta.roots) {
      roots.push_back({{"name", Holt::jsonOf(Sarn::String(root.name))},
                       {"type", root.type},
                       {"entities", root.entities},
                       {"digest", hexText(root.digest)}});
   }
   Holt::Json const json{{"session", meta.session},
                         {"sequence", meta.sequence},
                         {"time", meta.time},
                         {"every", meta.every},
                         {"pending", meta.pending},
                         {"leftOut", meta.leftOut},
                         {"current", meta.current},
                         {"since", meta.since},
                         {"reason", Holt::jsonOf(Sarn::String(meta.reason))},
                         {"ended", meta.ended},
                         {"roots", std::move(roots)}};
   return json.dump(-1, ' ', true, Holt::Json::error_handler_t::replace);
}

Meta readMeta(std::string_view text) {
   Holt::Json const json = Holt::Json::parse(text, nullptr, false);
   if (!json.is_object()) {
      throw Holt::Failure("heartbeat: is not a JSON object");
   }
   Meta meta;
   meta.session = textIn(json, "session");
   if (!isWord(meta.session)) {
      throw Holt::Failure("heartbeat: 'session' is not a session");
   }
   meta.sequence = wholeIn(json, "sequence");
   meta.time = wholeIn(json, "time");
   meta.every = wholeIn(json, "every");
   meta.pending = wholeIn(json, "pending");
   meta.leftOut = wholeIn(json, "leftOut");
   meta.current = flagIn(json, "current");
   meta.since = wholeIn(json, "since");
   meta.reason = textIn(json, "reason");
   meta.ended = flagIn(json, "ended");
   constexpr U64 longestInterval = 86'400'000'000'000;
   if (meta.every == 0 || meta.every > longestInterval) {
      throw Holt::Failure("heartbeat: 'every' must be 1 to 86400000000000 nanoseconds");
   }
   auto const roots = json.find("roots");
   if (roots == json.end() || !roots->is_array()) {
      throw Holt::Failure("heartbeat: 'roots' must be a list");
   }
   for (Holt::Json const& root : *roots) {
      if (!root.is_object()) {
         throw Holt::Failure("heartbeat: a root must be an object");
      }
      meta.roots.push_back(rootIn(root));
   }
   return meta;
}

U64 digestOf(std::string_view place, std::string_view value) noexcept {
   return mixed(mixed(0, place), value);
}

std::string hexText(U64 number) {
   constexpr char const* digits = "0123456789abcdef";
   std::string text(16, '0');
   for (std::size_t i = 16; i-- != 0; number >>= 4) {
      text[i] = digits[number & 15];
   }
   return text;
}

}  // namespace Fleet
