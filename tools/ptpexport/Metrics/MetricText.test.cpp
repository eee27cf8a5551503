#include "tools/ptpexport/Metrics/MetricText.h"

#include <gtest/gtest.h>

#include <limits>

namespace Ptpexport::MetricsTest {
namespace {

template <class Number>
std::string seconds(Number nanoseconds) {
   std::string out;
   appendSeconds(out, nanoseconds);
   return out;
}

std::string number(double value) {
   std::string out;
   appendNumber(out, value);
   return out;
}

TEST(MetricText, WholeNanosecondsBecomeSecondsWithTheSameDigits) {
   EXPECT_EQ(seconds(S64{0}), "0");
   EXPECT_EQ(seconds(S64{1}), "0.000000001");
   EXPECT_EQ(seconds(S64{-3}), "-0.000000003");
   EXPECT_EQ(seconds(S64{212}), "0.000000212");
   EXPECT_EQ(seconds(S64{-1'500'000'000}), "-1.5");
   EXPECT_EQ(seconds(S64{1'000'000'000}), "1");
   EXPECT_EQ(seconds(S64{1'000'000'100}), "1.0000001");
   EXPECT_EQ(seconds(std::numeric_limits<S64>::max()), "9223372036.854775807");
   EXPECT_EQ(seconds(std::numeric_limits<S64>::min()), "-9223372036.854775808");
   EXPECT_EQ(seconds(std::numeric_limits<U64>::max()), "18446744073.709551615");
}

TEST(MetricText, NanosecondsWithAFractionBecomeSecondsWithTheSameDigits) {
   EXPECT_EQ(seconds(0.0), "0");
   EXPECT_EQ(seconds(-0.0), "-0");
   EXPECT_EQ(seconds(212.5), "2.125e-7");
   EXPECT_EQ(seconds(-0.1), "-1e-10");
   // 4.7e-324 has no shorter text than 5e-324, and the quotient by 1e9 would be 0.
   EXPECT_EQ(seconds(std::numeric_limits<double>::denorm_min()), "5e-333");
   EXPECT_EQ(seconds(1e300), "1e291");
   EXPECT_EQ(seconds(1e9), "1e0");
   EXPECT_EQ(seconds(std::numeric_limits<double>::infinity()), "+Inf");
}

TEST(MetricText, NumbersThatAreNotFiniteHaveTheNamesOfTheFormats) {
   EXPECT_EQ(number(std::numeric_limits<double>::infinity()), "+Inf");
   EXPECT_EQ(number(-std::numeric_limits<double>::infinity()), "-Inf");
   EXPECT_EQ(number(std::numeric_limits<double>::quiet_NaN()), "NaN");
}

TEST(MetricText, NumbersReadBackAsTheSame) {
   EXPECT_EQ(number(1.0000000000000002), "1.0000000000000002");
   EXPECT_EQ(number(0.0078125), "0.0078125");
   EXPECT_EQ(number(1'700'000'000), "1700000000");
   EXPECT_EQ(number(-1), "-1");
   EXPECT_EQ(number(9007199254740992.0), "9007199254740992");
   EXPECT_EQ(number(1e30), "1e+30");
   EXPECT_EQ(number(1.5e-9), "1.5e-09");
}

TEST(MetricText, LabelsAreEscaped) {
   std::string out;
   appendLabel(out, "a", "plain");
   appendLabel(out, "b", "quote \" backslash \\");
   appendLabel(out, "c",
               "line\nfeed, \xff and gr\xc3\xb6\xc3\x9f"
               "er");
   EXPECT_EQ(out,
             "a=\"plain\",b=\"quote \\\" backslash \\\\\","
             "c=\"line\\\\nfeed, \\\\xff and gr\xc3\xb6\xc3\x9f"
             "er\"");
}

}  // namespace
}  // namespace Ptpexport::MetricsTest
