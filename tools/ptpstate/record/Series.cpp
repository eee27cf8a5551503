#include "tools/ptpstate/record/Series.h"

#include <algorithm>
#include <limits>

namespace Ptpstate {

namespace {

/// A sample without a value neither is the least nor the greatest.
double orElse(Sample const& sample, double without) {
   return sample.value.value_or(without);
}

constexpr double infinity = std::numeric_limits<double>::infinity();

}  // namespace

void Series::Span::join(Span const& later) {
   last = later.last;
   if (orElse(later.least, infinity) < orElse(least, infinity)) {
      least = later.least;
   }
   if (orElse(later.greatest, -infinity) > orElse(greatest, -infinity)) {
      greatest = later.greatest;
   }
   if (!gap) {
      gap = later.gap;
   }
}

void Series::add(Sample const& sample) {
   Span const alone{sample.wall / length_,
                    sample,
                    sample,
                    sample,
                    sample,
                    sample.value ? std::nullopt : std::optional(sample)};
   if (!spans_.empty() && spans_.back().number == alone.number) {
      spans_.back().join(alone);
      return;
   }
   spans_.push_back(alone);
   if (spans_.size() <= most) {
      return;
   }
   length_ *= 2;
   std::size_t kept = 0;
   for (Span& span : spans_) {
      span.number /= 2;
      if (kept != 0 && spans_[kept - 1].number == span.number) {
         spans_[kept - 1].join(span);
      } else {
         spans_[kept++] = span;
      }
   }
   spans_.erase(spans_.begin() + static_cast<std::ptrdiff_t>(kept), spans_.end());
}

std::vector<Sample> Series::samples() const {
   std::vector<Sample> all;
   for (Span const& span : spans_) {
      std::vector<Sample> some{span.first, span.least, span.greatest, span.last};
      if (span.gap) {
         some.push_back(*span.gap);
      }
      std::stable_sort(some.begin(), some.end(),
                       [](Sample const& a, Sample const& b) { return a.wall < b.wall; });
      for (Sample const& sample : some) {
         if (all.empty() || all.back() != sample) {
            all.push_back(sample);
         }
      }
   }
   return all;
}

}  // namespace Ptpstate
