#include "Fleet/Names.h"

#include <algorithm>

#include "Kiv/Path.h"

namespace Fleet {

namespace {

constexpr std::string_view usualRoots = "ptp/";
constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isPlain(char c) {
   return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
          c == '_';
}

/// Whether the token of a root begins with its name after "ptp/".
bool isShort(std::string_view rest) {
   return !rest.empty() && rest[0] != '/' && rest != metaToken;
}

}  // namespace

void appendToken(std::string& subject, std::string_view text) {
   if (text.empty()) {
      subject += '%';
      return;
   }
   for (char const c : text) {
      if (isPlain(c)) {
         subject += c;
      } else {
         auto const byte = static_cast<unsigned char>(c);
         subject += {'%', hexDigits[byte >> 4], hexDigits[byte & 15]};
      }
   }
}

std::optional<std::string> tokenText(std::string_view token) {
   if (token == "%") {
      return std::string();
   }
   if (token.empty()) {
      return std::nullopt;
   }
   std::string text;
   for (std::size_t at = 0; at != token.size(); ++at) {
      if (isPlain(token[at])) {
         text += token[at];
         continue;
      }
      if (token[at] != '%' || token.size() - at < 3) {
         return std::nullopt;
      }
      std::size_t const high = hexDigits.find(token[at + 1]);
      std::size_t const low = hexDigits.find(token[at + 2]);
      if (high == std::string_view::npos || low == std::string_view::npos) {
         return std::nullopt;
      }
      auto const c = static_cast<char>(high << 4 | low);
      if (isPlain(c)) {
         return std::nullopt;
      }
      text += c;
      at += 2;
   }
   return text;
}

std::string rootToken(std::string_view rootName) {
   std::string token;
   if (rootName.starts_with(usualRoots) && isShort(rootName.substr(usualRoots.size()))) {
      appendToken(token, rootName.substr(usualRoots.size()));
   } else {
      appendToken(token, "/" + std::string(rootName));
   }
   return token;
}

std::optional<std::string> rootName(std::string_view token) {
   std::optional<std::string> const text = tokenText(token);
   if (!text || text->empty()) {
      return std::nullopt;
   }
   std::string name = (*text)[0] == '/' ? text->substr(1) : std::string(usualRoots).append(*text);
   return rootToken(name) == token ? std::optional(std::move(name)) : std::nullopt;
}

void appendChild(std::string& place, Kiv::FieldDescriptor const& field, void const* key) {
   place += '.';
   appendToken(place, field.name);
   if (key != nullptr) {
      place += '.';
      appendToken(place, Kiv::keyText({*field.keyType, key}));
   }
}

std::string placeOf(Kiv::Entity const& entity) {
   std::vector<Kiv::Entity const*> up{&entity};
   while (up.back()->parent() != nullptr) {
      up.push_back(up.back()->parent());
   }
   std::string place = rootToken(static_cast<Kiv::NamedEntity const*>(up.back())->nameString());
   for (std::size_t i = up.size() - 1; i != 0; --i) {
      Kiv::forEachChild(
            *up[i], [&](Kiv::Entity& child, Kiv::FieldDescriptor const& field, void const* key) {
               if (&child == up[i - 1]) {
                  appendChild(place, field, key);
               }
            });
   }
   return place;
}

std::vector<std::string_view> tokensOf(std::string_view subject) {
   std::vector<std::string_view> tokens;
   std::size_t begin = 0;
   for (;;) {
      std::size_t const end = std::min(subject.find('.', begin), subject.size());
      tokens.push_back(subject.substr(begin, end - begin));
      if (end == subject.size()) {
         return tokens;
      }
      begin = end + 1;
   }
}

}  // namespace Fleet
