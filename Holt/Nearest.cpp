#include "Holt/Nearest.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace Holt {
namespace {

bool isSame(char a, char b) {
   return std::tolower(static_cast<unsigned char>(a)) ==
          std::tolower(static_cast<unsigned char>(b));
}

/// How many letters must be inserted, removed or replaced to turn one into the other.
std::size_t editDistance(std::string_view from, std::string_view to) {
   std::vector<std::size_t> row(to.size() + 1);
   for (std::size_t j = 0; j <= to.size(); ++j) {
      row[j] = j;
   }
   for (std::size_t i = 1; i <= from.size(); ++i) {
      std::size_t diagonal = std::exchange(row[0], i);
      for (std::size_t j = 1; j <= to.size(); ++j) {
         std::size_t const replaced = diagonal + (isSame(from[i - 1], to[j - 1]) ? 0 : 1);
         diagonal = row[j];
         row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
      }
   }
   return row[to.size()];
}

}  // namespace

Sarn::String didYouMean(std::string_view name, std::vector<std::string_view> const& candidates) {
   std::string_view best;
   // A third of the letters may differ, but never all of them.
   std::size_t bestDistance = std::min(std::max<std::size_t>(1, name.size() / 3) + 1, name.size());
   for (std::string_view const candidate : candidates) {
      std::size_t const distance = editDistance(name, candidate);
      if (distance < bestDistance) {
         bestDistance = distance;
         best = candidate;
      }
   }
   if (best.empty() && !name.empty()) {
      auto const longer = std::find_if(
            candidates.begin(), candidates.end(),
            [name](std::string_view candidate) { return candidate.starts_with(name); });
      best = longer != candidates.end() ? *longer : best;
   }
   return best.empty() ? "" : "; did you mean '" + Sarn::String(best) + "'?";
}

}  // namespace Holt
