// What tests of scrapes share.
#pragma once

#include <vector>

#include "tools/ptpexport/Metrics/Scrape.h"

namespace Ptpexport {

using Roots = std::vector<Sarn::Ptr<Kiv::NamedEntity>>;

inline SourceHealth connectedHealth() {
   return {true, 1'700'000'100, 1'700'000'000, 4711, "0.1.0", 1'700'000'200.5};
}

/// Reads a scrape to its end in pieces of this size.
inline std::string readAll(Scrape& scrape, std::size_t slice = 32'768) {
   std::string all;
   std::vector<char> piece(slice);
   while (!scrape.ended()) {
      all.append(piece.data(), scrape.read(piece));
   }
   return all;
}

inline std::string scraped(Roots const& roots, MetricFormat format = MetricFormat::prometheus,
                           std::size_t slice = 32'768) {
   Counters counters;
   Scrape scrape(roots, format, connectedHealth(), counters);
   return readAll(scrape, slice);
}

}  // namespace Ptpexport
