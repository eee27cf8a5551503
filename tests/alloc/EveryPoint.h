// Runs a scenario once for each of its allocations, which fails.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/alloc/FailingNew.h"

namespace AllocTesting {

/// What a scenario found to be bad; the driver counts scenarios in which anything was.
class Findings {
public:
   void bad(std::string const& what);
   /// The same unless `what` is empty.
   void badIf(std::string const& where, std::string const& what) {
      if (!what.empty()) {
         bad(where + ": " + what);
      }
   }
   bool any() const noexcept { return !text_.empty(); }
   std::string const& text() const noexcept { return text_; }

private:
   std::string text_;
};

/// A scenario does something with `attempt`, goes on whatever fails, and looks at what is there.
using Scenario = std::function<void(Findings&)>;

/// Runs the scenario with its first allocation failing, then with the second, until none fails;
/// then so again with all allocations failing from that one on. A failure of the test if anything
/// was bad, if the process ended, hung for 20 s or leaked, or if there are fewer points than
/// `least` in either way (an AddressSanitizer build has more, since it has no slabs).
///
/// Scenarios run in a child process, of which there is another whenever one ends. With
/// ALLOC_TEST_POINT=single:17 or all:17 in the environment that point alone runs, in this one.
void everyPoint(std::size_t least, Scenario const& scenario);

}  // namespace AllocTesting
