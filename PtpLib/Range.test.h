// For tests of setters with a range.
#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "Kiv/Exception.h"
#include "KivTest/Witness.h"

namespace Ptp {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// A setter, values that it accepts, and values that it refuses with exactly the given message.
template <typename Owner, typename T>
struct RangeRow {
   T (Owner::*get)() const;
   void (Owner::*set)(T);
   std::vector<T> accepted;
   std::vector<T> refused;
   char const* message;
};

/// The message of the `Kiv::RangeException` that `set` throws, or "accepted".
template <typename Set>
std::string rangeMessage(Set set) {
   try {
      set();
   } catch (Kiv::RangeException const& refusal) {
      return refusal.what();
   }
   return "accepted";
}

/// Checks that values in range are stored, and that others change and publish nothing.
template <typename Owner, typename T>
void checkRange(Owner& owner, RangeRow<Owner, T> const& row) {
   for (T const value : row.accepted) {
      EXPECT_EQ(rangeMessage([&] { (owner.*row.set)(value); }), "accepted") << +value;
      EXPECT_EQ((owner.*row.get)(), value);
   }
   for (T const value : row.refused) {
      T const before = (owner.*row.get)();
      KivTest::Witness published(owner);
      EXPECT_EQ(rangeMessage([&] { (owner.*row.set)(value); }), row.message) << +value;
      EXPECT_EQ((owner.*row.get)(), before);
      EXPECT_EQ(published.ids(), "");
   }
}

}  // namespace Ptp
