#include "tools/ptpexport/Metrics/MetricFormat.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace Ptpexport::MetricsTest {
namespace {

constexpr MetricFormat text = MetricFormat::prometheus;
constexpr MetricFormat open = MetricFormat::openMetrics;

TEST(MetricFormat, IsTextWithoutAPreference) {
   EXPECT_EQ(formatFor(""), text);
   EXPECT_EQ(formatFor("*/*"), text);
   EXPECT_EQ(formatFor("text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8"), text);
   EXPECT_EQ(formatFor("image/png"), text);
   EXPECT_EQ(formatFor(",,;;=/"), text);
}

TEST(MetricFormat, IsWhatPrometheusPrefers) {
   EXPECT_EQ(formatFor("application/openmetrics-text;version=1.0.0,"
                       "application/openmetrics-text;version=0.0.1;q=0.75,"
                       "text/plain;version=0.0.4;q=0.5,*/*;q=0.1"),
             open);
   EXPECT_EQ(formatFor("text/plain;version=0.0.4;q=1,*/*;q=0.1"), text);
}

TEST(MetricFormat, IsThatOfTheGreaterQuality) {
   EXPECT_EQ(formatFor("application/openmetrics-text;q=0.4, text/plain;q=0.5"), text);
   EXPECT_EQ(formatFor("application/openmetrics-text;q=0.501, text/plain;q=0.5"), open);
   EXPECT_EQ(formatFor("text/plain;q=0,*/*"), open);
   EXPECT_EQ(formatFor("application/openmetrics-text;q=0,*/*;q=0.1"), text);
   EXPECT_EQ(formatFor("application/openmetrics-text;q=0,text/plain;q=0"), text);
}

TEST(MetricFormat, TheMostSpecificRangeCounts) {
   EXPECT_EQ(formatFor("text/*;q=0.9, text/plain;q=0.1, application/openmetrics-text;q=0.5"), open);
   EXPECT_EQ(formatFor("application/*;q=0.2, text/plain;q=0.1"), open);
   EXPECT_EQ(formatFor("application/openmetrics-text;q=0.9, "
                       "application/openmetrics-text;version=1.0.0;q=0.1, text/plain;q=0.5"),
             text);
}

TEST(MetricFormat, OfEqualQualityOpenMetricsMustBeNamed) {
   EXPECT_EQ(formatFor("text/plain, application/openmetrics-text"), open);
   EXPECT_EQ(formatFor("text/plain, application/*"), text);
}

TEST(MetricFormat, AnotherVersionIsAnotherFormat) {
   EXPECT_EQ(formatFor("application/openmetrics-text;version=0.0.1,text/plain;q=0.5"), text);
   EXPECT_EQ(formatFor("application/openmetrics-text;version=2.0.0"), text);
}

TEST(MetricFormat, CasesBlanksAndQuotesDoNotMatter) {
   EXPECT_EQ(
         formatFor(" Application/OpenMetrics-Text ; Version=\"1.0.0\" ; Q=1 , text/plain;q=0.9"),
         open);
   EXPECT_EQ(formatFor("text/plain;x=\"a,b;q=0\\\";\";q=0.2,application/openmetrics-text;q=0.1"),
             text);
}

TEST(MetricFormat, ARangeWithAQualityThatIsNoneIsIgnored) {
   for (char const* const quality : {"2", "1.001", "-1", "0.1234", "x", "", "0,5", ".5", "1e0"}) {
      EXPECT_EQ(formatFor(std::string("application/openmetrics-text;q=") + quality), text)
            << quality;
   }
}

TEST(MetricFormat, AnyTextIsRead) {
   std::minstd_rand random(1);
   std::string const characters = "ab/*;,=q\"\\ .01\txt-";
   for (int i = 0; i != 50'000; ++i) {
      std::string accept;
      for (auto left = random() % 40; left != 0; --left) {
         accept += characters[random() % characters.size()];
      }
      formatFor(accept);
   }
}

TEST(MetricFormat, HasAContentType) {
   EXPECT_STREQ(contentTypeOf(text), "text/plain; version=0.0.4; charset=utf-8");
   EXPECT_STREQ(contentTypeOf(open), "application/openmetrics-text; version=1.0.0; charset=utf-8");
}

}  // namespace
}  // namespace Ptpexport::MetricsTest
