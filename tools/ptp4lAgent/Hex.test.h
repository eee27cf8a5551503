// Octets as tests write them.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ptp4lAgent/Octets.h"

namespace Ptp4lAgent {

/// Octets from pairs of hexadecimal digits; blanks are ignored.
inline std::vector<U8> octets(std::string_view text) {
   std::vector<U8> all;
   std::string digits;
   for (char const c : text) {
      if (c != ' ') {
         digits += c;
      }
      if (digits.size() == 2) {
         all.push_back(static_cast<U8>(std::stoul(digits, nullptr, 16)));
         digits.clear();
      }
   }
   return all;
}

inline std::string hex(Octets octets) {
   std::string text;
   for (U8 const octet : octets) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", octet);
      text += digits;
   }
   return text;
}

}  // namespace Ptp4lAgent
