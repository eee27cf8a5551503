#include "Holt/State/Values.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Holt/Failure.h"
#include "KivTest/TestTypes/Colour.h"
#include "KivTest/TestTypes/Pair.h"

namespace Holt {
namespace {

template <class T>
std::string readAs(std::string_view text) {
   try {
      Kiv::AnyValue value(Kiv::typeOf<T>());
      parseValue(text, value);
      return valueText(value);
   } catch (Failure const& error) {
      return error.what();
   }
}

TEST(Values, StringsNeedNoQuotes) {
   EXPECT_EQ(readAs<Sarn::String>("two words"), "\"two words\"");
   EXPECT_EQ(readAs<Sarn::String>("\"quo\\\"ted\""), "\"quo\\\"ted\"");
   EXPECT_EQ(readAs<Sarn::String>(""), "\"\"");
}

TEST(Values, AreReadWholeOrRefused) {
   EXPECT_EQ(readAs<U8>(" 7"), "7");
   EXPECT_EQ(readAs<U8>("256"), "256 does not fit U8 (0 to 255)");
   EXPECT_NE(readAs<U8>("7 8").find("'7 8' is not a valid U8: "), std::string::npos)
         << readAs<U8>("7 8");
   EXPECT_NE(readAs<bool>("yes").find("'yes' is not a valid bool: "), std::string::npos);
}

TEST(Values, AreReadInHexadecimalAndInAnyCase) {
   EXPECT_EQ(readAs<U8>("0x21"), "33");
   EXPECT_EQ(readAs<S16>("-0x21"), "-33");
   EXPECT_EQ(readAs<bool>("TRUE"), "true");
   EXPECT_EQ(readAs<KivTest::Colour>("Blue"), "blue");
   EXPECT_EQ(readAs<KivTest::Pair>("KivTest::Pair(first=0x10, second=-0x1)"),
             "KivTest::Pair(first=16, second=-1)");
   EXPECT_EQ(readAs<U8>("010"),
             "'010' is not a valid U8: at position 0: '010' begins with a zero "
             "and might be meant as octal; write 10");
}

TEST(Values, WithUnknownNamesAreRefusedWithTheNamesThereAre) {
   EXPECT_EQ(readAs<KivTest::Colour>("gren"),
             "'gren' is not a valid KivTest::Colour: at position 0: expected red, green, blue, or "
             "a number of KivTest::Colour; did you mean 'green'?");
   EXPECT_EQ(readAs<KivTest::Colour>("yellow"),
             "'yellow' is not a valid KivTest::Colour: at position 0: expected red, green, blue, "
             "or a number of KivTest::Colour");
   EXPECT_EQ(readAs<bool>("tru"),
             "'tru' is not a valid bool: at position 0: expected true or false; did you mean "
             "'true'?");
}

TEST(Values, SortNaturally) {
   std::vector<std::string> const sorted = {
         "-10",       "-3",        "2",           "10",         "10.5",         "Ethernet",
         "Ethernet1", "Ethernet2", "Ethernet02a", "Ethernet10", "Ethernet10/2", "Ethernet10/10",
         "eth0",      "eth1.2",    "eth1.10"};
   std::vector<std::string> shuffled = sorted;
   std::reverse(shuffled.begin(), shuffled.end());
   std::sort(shuffled.begin(), shuffled.end(), naturallyLess);
   EXPECT_EQ(shuffled, sorted);
}

TEST(Values, NaturalOrderIsAnOrder) {
   std::vector<std::string> const texts = {"",    "a",   "a1",   "a01", "a1b", "-9",  "-9a",  "-10",
                                           "1.0", "1",   "01",   "nan", "inf", "1e3", "1000", "[",
                                           "é",   "a10", "a010", "9",   "9a",  "10",  "0",    "00"};
   for (auto const& a : texts) {
      EXPECT_FALSE(naturallyLess(a, a)) << a;
      for (auto const& b : texts) {
         EXPECT_EQ(a == b, !naturallyLess(a, b) && !naturallyLess(b, a)) << a << " " << b;
         for (auto const& c : texts) {
            EXPECT_TRUE(!(naturallyLess(a, b) && naturallyLess(b, c)) || naturallyLess(a, c))
                  << a << " " << b << " " << c;
         }
      }
   }
}

}  // namespace
}  // namespace Holt
