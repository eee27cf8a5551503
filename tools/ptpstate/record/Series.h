// Values over time, thinned out so that a recording of any length fits.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "Sarn/Types.h"

namespace Ptpstate {

/// A value at a time, in nanoseconds since 1970; none: from then on there is none.
struct Sample {
   U64 wall;
   std::optional<double> value;

   bool operator==(Sample const&) const = default;
};

/// The values of an attribute, in the order of their times.
///
/// Time is divided into spans. Of each, the first and last samples are kept, the least and the
/// greatest, and the first without a value: what a line drawn through all of them would show. When
/// the spans have become too many, each two are joined.
///
///     spans  | 0 .. 1 s | 1 .. 2 s | 2 .. 3 s | ...   at most `most`; at first 1 ms each
///
/// Complexity: `add` is constant, amortized; memory is bounded by `most`.
class Series {
public:
   /// More than any plot has columns.
   static constexpr std::size_t most = 8192;

   /// REQUIRES: no earlier than the sample before.
   void add(Sample const& sample);
   /// What has been kept, in order.
   std::vector<Sample> samples() const;

private:
   struct Span {
      /// `wall` divided by the length of spans.
      U64 number;
      Sample first;
      Sample last;
      Sample least;
      Sample greatest;
      std::optional<Sample> gap;

      void join(Span const& later);
   };

   U64 length_ = 1'000'000;
   std::vector<Span> spans_;
};

}  // namespace Ptpstate
