// Runs a scenario once for each of its allocations, making that one fail.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/alloc/FailingNew.h"

namespace AllocTesting {

/// What a scenario found wrong; the driver counts the scenarios with findings.
class Findings {
public:
   void bad(std::string const& what);
   /// Adds a finding unless `what` is empty.
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

/// A scenario does something with `attempt`, continues whatever fails, and checks the result.
using Scenario = std::function<void(Findings&)>;

/// Runs the scenario with its first allocation failing, then with the second, until none fails;
/// then does the same with all allocations failing from that one on. The test fails if there were
/// findings, if the process ended, hung for 20 s or leaked, or if either way has fewer points than
/// `least` (an AddressSanitizer build has more, since it has no slabs).
///
/// Scenarios run in a child process, which is replaced whenever it ends. With
/// ALLOC_TEST_POINT=single:17 or all:17 in the environment, only that point runs, in this process.
void everyPoint(std::size_t least, Scenario const& scenario);

}  // namespace AllocTesting
