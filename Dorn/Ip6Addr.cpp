#include "Dorn/Ip6Addr.h"

#include <charconv>

#include "Dorn/IpAddr.h"

namespace Dorn {
namespace {

using Groups = std::array<U16, 8>;

int hexDigit(char c) {
   if (c >= '0' && c <= '9') {
      return c - '0';
   }
   if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
   }
   return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// A run of 16-bit groups with colons between them, the last of which may be an IPv4 address that
/// counts as two. `count`: groups so far, at most 8.
char const* readGroups(std::string_view text, Groups& groups, std::size_t& count) {
   std::size_t at = 0;
   for (;;) {
      std::size_t const begin = at;
      U32 number = 0;
      while (at < text.size() && at - begin < 5 && hexDigit(text[at]) >= 0) {
         number = number << 4 | static_cast<U32>(hexDigit(text[at++]));
      }
      if (at < text.size() && text[at] == '.') {
         U32 v4 = 0;
         if (char const* const reason = IpAddr::misspelling(text.substr(begin), v4)) {
            return reason;
         }
         if (count > 6) {
            return "it has more than eight groups";
         }
         groups[count++] = static_cast<U16>(v4 >> 16);
         groups[count++] = static_cast<U16>(v4);
         return nullptr;
      }
      if (at == begin) {
         return "a group is empty or not hexadecimal";
      }
      if (at - begin > 4) {
         return "a group has more than four digits";
      }
      if (count == 8) {
         return "it has more than eight groups";
      }
      groups[count++] = static_cast<U16>(number);
      if (at == text.size()) {
         return nullptr;
      }
      if (text[at++] != ':') {
         return "a group is empty or not hexadecimal";
      }
   }
}

struct Run {
   std::size_t begin = 8;
   std::size_t size = 0;
};

/// The longest run of two or more zero groups, the first of equals (RFC 5952, 4.2).
Run longestZeroRun(Groups const& groups, std::size_t count) {
   Run best;
   for (std::size_t i = 0; i < count;) {
      std::size_t end = i;
      while (end < count && groups[end] == 0) {
         ++end;
      }
      if (end - i > 1 && end - i > best.size) {
         best = Run{i, end - i};
      }
      i = end + 1;
   }
   return best;
}

}  // namespace

char const* Ip6Addr::misspelling(std::string_view text, Ip6Addr& value) noexcept {
   Groups groups{};
   std::size_t count = 0;
   std::size_t const gap = text.find("::");
   if (gap == std::string_view::npos) {
      if (char const* const reason = readGroups(text, groups, count)) {
         return reason;
      }
      if (count != 8) {
         return "it has fewer than eight groups and no \"::\"";
      }
   } else {
      std::string_view const before = text.substr(0, gap);
      std::string_view const after = text.substr(gap + 2);
      if (before.find('.') != std::string_view::npos) {
         return "an IPv4 address is not at its end";
      }
      if (!before.empty()) {
         if (char const* const reason = readGroups(before, groups, count)) {
            return reason;
         }
      }
      std::size_t const head = count;
      if (!after.empty()) {
         if (char const* const reason = readGroups(after, groups, count)) {
            return reason;
         }
      }
      if (count == 8) {
         return "its \"::\" replaces no group";
      }
      // The groups after the gap belong at the end.
      for (std::size_t i = count; i-- > head;) {
         groups[8 - (count - i)] = groups[i];
         groups[i] = 0;
      }
   }
   value = Ip6Addr();
   for (std::size_t i = 0; i < 4; ++i) {
      value.high_ = value.high_ << 16 | groups[i];
      value.low_ = value.low_ << 16 | groups[i + 4];
   }
   return nullptr;
}

Ip6Addr::Ip6Addr(Kiv::CharRange& text) {
   std::string_view const word = text.word(":.-");
   if (word.empty()) {
      text.fail("expected an IPv6 address");
   }
   if (char const* const reason = misspelling(word, *this)) {
      Kiv::throwRangeException("\"" + Sarn::String(word) + "\" is not an IPv6 address: " + reason);
   }
}

Ip6Addr::Ip6Addr(std::string_view text) {
   Kiv::CharRange range(text);
   *this = Ip6Addr(range);
   range.expectEnd();
}

Ip6Addr::Ip6Addr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) {
   // Both halves at once: a short message is one fault for the whole address.
   U8 const* const bytes = in->nextBytes(kivMaxEncodedSize);
   Bytes copy;
   std::memcpy(copy.data(), bytes, copy.size());
   *this = Ip6Addr(copy);
}

void Ip6Addr::print(Sarn::String& out) const {
   Groups groups;
   for (std::size_t i = 0; i < 4; ++i) {
      groups[i] = static_cast<U16>(high_ >> (48 - 16 * i));
      groups[i + 4] = static_cast<U16>(low_ >> (48 - 16 * i));
   }
   bool const mapped = high_ == 0 && low_ >> 32 == 0xffff;
   std::size_t const count = mapped ? 6 : 8;
   Run const zeros = longestZeroRun(groups, count);
   char text[maxTextSize + 1];
   char* at = text;
   for (std::size_t i = 0; i < count;) {
      if (i == zeros.begin) {
         *at++ = ':';
         *at++ = ':';
         i += zeros.size;
         continue;
      }
      if (i != 0 && i != zeros.begin + zeros.size) {
         *at++ = ':';
      }
      at = std::to_chars(at, text + sizeof text, groups[i], 16).ptr;
      ++i;
   }
   if (mapped) {
      *at++ = ':';
   }
   out.append(text, at);
   if (mapped) {
      IpAddr(static_cast<U32>(low_)).print(out);
   }
}

}  // namespace Dorn
