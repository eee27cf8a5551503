#include "Kiv/Text.h"

#include <cmath>
#include <limits>

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Kiv::CharRange;

namespace {

class TextProperties : public SeededTest {};

template <class T>
Sarn::String range(std::string_view text) {
   return messageOf<Kiv::RangeException>([&] { Kiv::fromText<T>(text); });
}

template <class T>
Sarn::String broken(std::string_view text) {
   return messageOf<Kiv::ParseException>([&] { Kiv::fromText<T>(text); });
}

TEST(CharRange, AcceptSkipsBlanksAndTakesTheTokenOrNothing) {
   CharRange text(" \t\r\n(x");
   EXPECT_FALSE(text.accept(")"));
   EXPECT_EQ(text.peek(), '(');
   EXPECT_TRUE(text.accept("("));
   EXPECT_EQ(text.rest(), "x");
   EXPECT_FALSE(text.accept("xy"));
   EXPECT_EQ(text.position(), 5u);
   EXPECT_TRUE(text.accept("x"));
   EXPECT_TRUE(text.atEnd());
   EXPECT_EQ(text.peek(), '\0');
   EXPECT_FALSE(text.accept("x"));
}

TEST(CharRange, WordTakesLettersDigitsAndTheExtraOnes) {
   CharRange text("  ab_1-2, x");
   EXPECT_EQ(text.word(), "ab_1");
   EXPECT_EQ(text.word(), "");
   EXPECT_EQ(text.word("-"), "-2");
   EXPECT_EQ(text.position(), 8u);
}

TEST(CharRange, ErrorsTellThePlace) {
   EXPECT_EQ(messageOf<Kiv::ParseException>([] { CharRange("  y").expect("x"); }),
             "at position 2: expected \"x\"");
   EXPECT_EQ(messageOf<Kiv::ParseException>([] { CharRange(" y").expectEnd(); }),
             "at position 1: text follows the value");
   CharRange(" \n").expectEnd();
   try {
      CharRange("abc").expect("d");
      FAIL();
   } catch (Kiv::ParseException const& error) {
      EXPECT_EQ(error.position(), 0u);
   }
}

TEST(Text, EightBitIntegersAreNumbersAndEveryOneRoundTrips) {
   for (int i = 0; i < 256; ++i) {
      auto const u = static_cast<U8>(i);
      auto const s = static_cast<S8>(i);
      EXPECT_EQ(printed(u), std::to_string(u));
      EXPECT_EQ(printed(s), std::to_string(s));
      EXPECT_EQ(Kiv::fromText<U8>(printed(u)), u);
      EXPECT_EQ(Kiv::fromText<S8>(printed(s)), s);
   }
}

TEST(Text, EverySixteenBitIntegerRoundTrips) {
   for (int i = 0; i < 65536; ++i) {
      auto const u = static_cast<U16>(i);
      auto const s = static_cast<S16>(i);
      ASSERT_EQ(Kiv::fromText<U16>(printed(u)), u);
      ASSERT_EQ(Kiv::fromText<S16>(printed(s)), s);
   }
}

template <class T>
void expectBounds() {
   using Limits = std::numeric_limits<T>;
   EXPECT_EQ(Kiv::fromText<T>(printed(Limits::min())), Limits::min());
   EXPECT_EQ(Kiv::fromText<T>(printed(Limits::max())), Limits::max());
   // One above the greatest, one below the least, in decimal.
   auto const beyond = [](Sarn::String text) {
      ++text.back();
      return text;
   };
   EXPECT_THROW(Kiv::fromText<T>(beyond(printed(Limits::max()))), Kiv::RangeException);
   EXPECT_THROW(Kiv::fromText<T>(Limits::min() == 0 ? "-1" : beyond(printed(Limits::min()))),
                Kiv::RangeException);
   EXPECT_THROW(Kiv::fromText<T>("99999999999999999999999999"), Kiv::RangeException);
   EXPECT_THROW(Kiv::fromText<T>("-99999999999999999999999999"), Kiv::RangeException);
}

TEST(Text, IntegersOfEveryWidthTakeTheirBoundsAndNoMore) {
   expectBounds<U8>();
   expectBounds<S8>();
   expectBounds<U16>();
   expectBounds<S16>();
   expectBounds<U32>();
   expectBounds<S32>();
   expectBounds<U64>();
   expectBounds<S64>();
}

TEST(Text, IntegerErrorsNameTypeAndBounds) {
   EXPECT_EQ(range<U8>("256"), "256 does not fit U8 (0 to 255)");
   EXPECT_EQ(range<U8>("-1"), "-1 does not fit U8 (0 to 255)");
   EXPECT_EQ(range<S8>("-129"), "-129 does not fit S8 (-128 to 127)");
   EXPECT_EQ(range<S64>("9223372036854775808"),
             "9223372036854775808 does not fit S64 (-9223372036854775808 to 9223372036854775807)");
   EXPECT_EQ(Kiv::fromText<U8>(" 7 "), 7);
   EXPECT_EQ(Kiv::fromText<U8>("-0"), 0);
   for (std::string_view const text :
        {"", " ", "x", "+1", "1x", "1.0", "0x", "0xg", "x10", "1e3", "- 1", "--1"}) {
      EXPECT_THROW(Kiv::fromText<S32>(text), Kiv::ParseException) << text;
   }
   EXPECT_EQ(broken<U16>("  z"), "at position 2: expected a number of type U16");
   EXPECT_EQ(broken<U16>("1 2"), "at position 2: text follows the value");
}

TEST(Text, IntegersMayBeHexadecimal) {
   EXPECT_EQ(Kiv::fromText<U8>("0x21"), 0x21);
   EXPECT_EQ(Kiv::fromText<U8>("0X0f"), 15);
   EXPECT_EQ(Kiv::fromText<S8>("-0x80"), -128);
   EXPECT_EQ(Kiv::fromText<U64>("0xffffffffFFFFFFFF"), ~U64{0});
   EXPECT_EQ(range<U8>("0x100"), "0x100 does not fit U8 (0 to 255)");
   EXPECT_EQ(range<U64>("0x10000000000000000"),
             "0x10000000000000000 does not fit U64 (0 to 18446744073709551615)");
}

TEST(Text, ALeadingZeroIsRefusedSinceItMightMeanOctal) {
   EXPECT_EQ(broken<U8>("010"),
             "at position 0: '010' begins with a zero and might be meant as octal; write 10");
   EXPECT_EQ(broken<S8>("-007"),
             "at position 1: '007' begins with a zero and might be meant as octal; write 7");
   EXPECT_EQ(broken<U8>("00"),
             "at position 0: '00' begins with a zero and might be meant as octal; write 0");
   EXPECT_EQ(broken<double>("-01.5"),
             "at position 0: '01.5' begins with a zero and might be meant as octal; write 1.5");
   EXPECT_EQ(Kiv::fromText<double>("0.5"), 0.5);
   EXPECT_EQ(Kiv::fromText<double>("0"), 0.0);
}

TEST(Text, BoolsAreTwoWords) {
   EXPECT_EQ(printed(true), "true");
   EXPECT_EQ(printed(false), "false");
   EXPECT_TRUE(Kiv::fromText<bool>(" true "));
   EXPECT_FALSE(Kiv::fromText<bool>("false"));
   EXPECT_TRUE(Kiv::fromText<bool>("True"));
   EXPECT_FALSE(Kiv::fromText<bool>("FALSE"));
   for (std::string_view const text : {"", "t", "1", "0", "truefalse", "true_", "yes"}) {
      EXPECT_EQ(broken<bool>(text), "at position 0: expected true or false") << text;
   }
}

TEST(Text, FloatingPointIsTheShortestThatReadsBack) {
   EXPECT_EQ(printed(0.1), "0.1");
   EXPECT_EQ(printed(0.1f), "0.1");
   EXPECT_EQ(printed(1.0), "1");
   EXPECT_EQ(printed(-0.0), "-0");
   EXPECT_EQ(printed(1e300), "1e+300");
   EXPECT_EQ(printed(std::numeric_limits<double>::denorm_min()), "5e-324");
   EXPECT_TRUE(std::signbit(Kiv::fromText<double>("-0")));
   EXPECT_EQ(Kiv::fromText<double>("1e+300"), 1e300);
   EXPECT_EQ(Kiv::fromText<double>(" 1.5E2 "), 150.0);
}

TEST(Text, NonFiniteNumbersAreInfAndNan) {
   constexpr double inf = std::numeric_limits<double>::infinity();
   EXPECT_EQ(printed(inf), "inf");
   EXPECT_EQ(printed(-inf), "-inf");
   EXPECT_EQ(printed(std::nan("")), "nan");
   EXPECT_EQ(printed(-std::nan("7")), "nan");
   EXPECT_EQ(printed(std::numeric_limits<float>::infinity()), "inf");
   EXPECT_EQ(Kiv::fromText<double>("inf"), inf);
   EXPECT_EQ(Kiv::fromText<double>("-inf"), -inf);
   EXPECT_TRUE(std::isnan(Kiv::fromText<double>("nan")));
   EXPECT_TRUE(std::isnan(Kiv::fromText<float>("nan")));
   for (std::string_view const text :
        {"infinity", "INF", "NaN", "nan(1)", "nan()", "infx", "+inf"}) {
      EXPECT_THROW(Kiv::fromText<double>(text), Kiv::ParseException) << text;
   }
}

TEST(Text, FloatingPointThatDoesNotFitIsARangeError) {
   EXPECT_EQ(range<double>("1e999"),
             "1e999 does not fit double (-1.7976931348623157e+308 to 1.7976931348623157e+308)");
   EXPECT_EQ(range<float>("1e39"), "1e39 does not fit float (-3.4028235e+38 to 3.4028235e+38)");
   EXPECT_EQ(broken<double>("x"), "at position 0: expected a number of type double");
   for (std::string_view const text : {"", "-", ".", "e5", "1e", "1x", "0x1p3", "+1", "1,5"}) {
      EXPECT_THROW(Kiv::fromText<double>(text), Kiv::ParseException) << text;
   }
}

TEST_F(TextProperties, EveryDoubleAndFloatReadsBackToTheBit) {
   for (int i = 0; i < 100000; ++i) {
      auto const d = std::bit_cast<double>(U64{random()});
      double const back = Kiv::fromText<double>(printed(d));
      ASSERT_TRUE(std::isnan(d) ? std::isnan(back)
                                : std::bit_cast<U64>(back) == std::bit_cast<U64>(d))
            << printed(d);
      auto const f = std::bit_cast<float>(static_cast<U32>(random()));
      float const backF = Kiv::fromText<float>(printed(f));
      ASSERT_TRUE(std::isnan(f) ? std::isnan(backF)
                                : std::bit_cast<U32>(backF) == std::bit_cast<U32>(f))
            << printed(f);
   }
}

TEST(Text, StringsAreQuotedAndEscaped) {
   EXPECT_EQ(printed(Sarn::String()), "\"\"");
   EXPECT_EQ(printed(Sarn::String("a b")), "\"a b\"");
   EXPECT_EQ(printed(Sarn::String("\"\\\n\r\t")), "\"\\\"\\\\\\n\\r\\t\"");
   EXPECT_EQ(printed(Sarn::String("\0\x1f\x7f", 3)), "\"\\x00\\x1f\\x7f\"");
   EXPECT_EQ(printed(Sarn::String("\xc3\xa9")), "\"\xc3\xa9\"");
   EXPECT_EQ(printed(Sarn::String("\x9b\xc2\x9b\xc3")), "\"\\x9b\\xc2\\x9b\\xc3\"");
   EXPECT_EQ(Kiv::fromText<Sarn::String>(R"( "a\x41\"\n" )"), "aA\"\n");
   EXPECT_EQ(Kiv::fromText<Sarn::String>(R"("\xAf")"), "\xaf");
}

TEST(Text, BrokenStringsTellThePlace) {
   EXPECT_EQ(broken<Sarn::String>("a"), "at position 0: expected \"\"\"");
   EXPECT_EQ(broken<Sarn::String>("\"ab"), "at position 3: expected the closing \" of a string");
   EXPECT_EQ(
         broken<Sarn::String>("\"a\\q\""),
         "at position 2: unknown escape in a string; there are \\\" \\\\ \\n \\r \\t and \\xHH");
   for (std::string_view const text :
        {"\"\\", "\"\\x1\"", "\"\\xg0\"", "\"\\x", "\"\\\"", "\"a\"b"}) {
      EXPECT_THROW(Kiv::fromText<Sarn::String>(text), Kiv::ParseException) << text;
   }
   EXPECT_THROW(Kiv::fromText<Sarn::String>(std::string_view("\"\\\0\"", 4)), Kiv::ParseException);
}

TEST_F(TextProperties, StringsOfAnyBytesComeBack) {
   Sarn::String all;
   for (int i = 0; i < 256; ++i) {
      all += static_cast<char>(i);
   }
   ASSERT_EQ(Kiv::fromText<Sarn::String>(printed(all)), all);
   for (int i = 0; i < 5000; ++i) {
      Sarn::String text;
      for (U64 n = random() % 40; n > 0; --n) {
         text += random() % 3 == 0 ? "\"\\\n\rx"[random() % 5] : static_cast<char>(random());
      }
      Sarn::String const form = printed(text) + ", 1";
      CharRange inside(form);
      ASSERT_EQ(Kiv::parseString(inside), text);
      ASSERT_EQ(inside.rest(), ", 1");
   }
}

TEST(Text, AbsentOptionalIsNone) {
   EXPECT_EQ(printed(std::optional<U8>()), "none");
   EXPECT_EQ(printed(std::optional<U8>(5)), "5");
   EXPECT_EQ(Kiv::fromText<std::optional<U8>>(" none "), std::nullopt);
   EXPECT_EQ(Kiv::fromText<std::optional<U8>>("5"), 5);
   EXPECT_THROW(Kiv::fromText<std::optional<U8>>("nonesuch"), Kiv::ParseException);
   EXPECT_THROW(Kiv::fromText<std::optional<U8>>("256"), Kiv::RangeException);
}

TEST(Text, FieldsNameGoesBeforeARangeError) {
   CharRange text("count = 300");
   EXPECT_EQ(messageOf<Kiv::RangeException>([&] { Kiv::deserializeAttr<U8>(text, "count"); }),
             "count: 300 does not fit U8 (0 to 255)");
   CharRange other("counter=1");
   EXPECT_EQ(messageOf<Kiv::ParseException>([&] { Kiv::deserializeAttr<U8>(other, "count"); }),
             "at position 5: expected \"=\"");
}

}  // namespace
