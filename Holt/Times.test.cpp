#include "Holt/Times.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "Holt/Failure.h"

namespace Holt {
namespace {

TEST(Times, AreReadAsPeopleWriteThem) {
   U64 const begin = parseTime("2026-03-02 14:03:59.5", 0);
   EXPECT_EQ(timeText(begin), "2026-03-02 14:03:59.500");
   EXPECT_EQ(timeText(parseTime("2026-03-02T14:04", begin)), "2026-03-02 14:04:00.000");
   EXPECT_EQ(timeText(parseTime("14:05:01.25", begin)), "2026-03-02 14:05:01.250");
   EXPECT_EQ(timeText(parseTime("09:00", begin)), "2026-03-03 09:00:00.000") << "the next day";
   EXPECT_EQ(parseTime("+90.000000001", begin), begin + 90'000'000'001);
   EXPECT_EQ(parseTime("@12.5", begin), 12'500'000'000U);
   for (char const* const bad : {"x", "+", "+1x", "@", "14", "14:03:99", "14:03x", "25:00",
                                 "2026-13-01 00:00", "2026-03-02", "+99999999999"}) {
      EXPECT_THROW(parseTime(bad, begin), Failure) << bad;
   }
}

/// Sets the time zone of the process for a test.
class Zone {
public:
   explicit Zone(char const* zone)
         : before_(std::getenv("TZ") != nullptr ? std::getenv("TZ") : "") {
      ::setenv("TZ", zone, 1);
      ::tzset();
   }
   ~Zone() {
      before_.empty() ? ::unsetenv("TZ") : ::setenv("TZ", before_.c_str(), 1);
      ::tzset();
   }

private:
   std::string before_;
};

TEST(Times, AreWrittenInFourForms) {
   Zone const zone("XYZ-2");  // two hours ahead
   U64 const wall = 1'795'269'839'120'999'999;
   EXPECT_EQ(timeText(wall), "2026-11-21 16:03:59.120");
   EXPECT_EQ(timeText(wall, TimeForm::time), "16:03:59.120");
   EXPECT_EQ(timeText(wall, TimeForm::seconds), "16:03:59");
   EXPECT_EQ(timeText(wall, TimeForm::universal), "2026-11-21T14:03:59.120Z");
}

TEST(Times, DurationsAreSecondsUpToAMinute) {
   EXPECT_EQ(durationText(0), "0.000 s");
   EXPECT_EQ(durationText(59'999'999'999), "59.999 s");
   EXPECT_EQ(durationText(60'000'000'000), "0:01:00");
   EXPECT_EQ(durationText(7384'000'000'000), "2:03:04");
}

TEST(Times, ARootIsStaleSinceATimeOfTheDayOrADate) {
   Zone const zone("XYZ-2");
   U64 const since = 1'795'269'839'120'999'999;
   EXPECT_EQ(staleText(since, since + 305'000'000'000), "stale since 16:03:59 (0:05:05)");
   EXPECT_EQ(staleText(since, since + 50'000'000'000'000),
             "stale since 2026-11-21 16:03:59 (13:53:20)");
   EXPECT_EQ(staleText(since, since - 1), "stale since 16:03:59 (0.000 s)") << "another clock";
   EXPECT_EQ(staleText(0, since), "stale");
}

}  // namespace
}  // namespace Holt
