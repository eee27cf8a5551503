// Value types: fields, comparison, hash, and the text form both ways.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <unordered_set>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"

namespace {

using namespace KivTest;

template <class T>
std::string parseError(std::string const& text) {
   return thrown<Kiv::ParseException>([&] { Kiv::fromText<T>(text); });
}
template <class T>
std::string rangeError(std::string const& text) {
   return thrown<Kiv::RangeException>([&] { Kiv::fromText<T>(text); });
}

TEST(Value, EveryFieldHasItsDefault) {
   Record const record;
   EXPECT_EQ(record.key(), 0u);
   EXPECT_EQ(record.pair(), Pair(0, -1));
   EXPECT_FALSE(record.mark());
   EXPECT_EQ(record.note(), "");
   EXPECT_EQ(record.colour(), Colour::blue);
   EXPECT_EQ(record.stamp(), 9u);
   EXPECT_TRUE(record.isDefault());
}

TEST(Value, SettersStore) {
   Record record;
   record.keyIs(1);
   record.pairIs(Pair(2, 3));
   record.markIs(U8{4});
   record.noteIs("five");
   record.colourIs(Colour::red);
   EXPECT_EQ(record, Record(1, Pair(2, 3), U8{4}, "five", Colour::red, 9));
   EXPECT_FALSE(record.isDefault());
}

TEST(Value, EqualityLooksAtEveryField) {
   Record const base(1, Pair(2, 3), U8{4}, "five", Colour::red, 6);
   EXPECT_TRUE(base.isEq(Record(1, Pair(2, 3), U8{4}, "five", Colour::red, 6)));
   EXPECT_FALSE(base.isEq(Record(0, Pair(2, 3), U8{4}, "five", Colour::red, 6)));
   EXPECT_FALSE(base.isEq(Record(1, Pair(2, 0), U8{4}, "five", Colour::red, 6)));
   EXPECT_FALSE(base.isEq(Record(1, Pair(2, 3), std::nullopt, "five", Colour::red, 6)));
   EXPECT_FALSE(base.isEq(Record(1, Pair(2, 3), U8{4}, "four", Colour::red, 6)));
   EXPECT_FALSE(base.isEq(Record(1, Pair(2, 3), U8{4}, "five", Colour::blue, 6)));
   EXPECT_FALSE(base.isEq(Record(1, Pair(2, 3), U8{4}, "five", Colour::red, 0)));
}

TEST(Value, OrdersFieldByField) {
   EXPECT_LT(Pair(1, 9), Pair(2, 0));
   EXPECT_LT(Pair(1, -9), Pair(1, 0));
   EXPECT_TRUE((Pair(1, 1) <=> Pair(1, 1)) == 0);
   EXPECT_LT(Record(1, Pair(), std::nullopt, "z", Colour::red, 0),
             Record(1, Pair(), U8{0}, "a", Colour::red, 0))
         << "nothing comes before something";
   EXPECT_GT(Record(1, Pair(0, 1), std::nullopt, "", Colour::red, 0),
             Record(1, Pair(0, 0), std::nullopt, "z", Colour::red, 0));
}

TEST(Value, HashDependsOnEveryFieldAndTheSeed) {
   std::unordered_set<U32> hashes;
   for (U32 key = 0; key != 8; ++key) {
      for (int mark = -1; mark != 3; ++mark) {
         for (char const* const note : {"", "a", "b"}) {
            for (Colour const colour : {Colour::red, Colour::blue}) {
               hashes.insert(Record(key, Pair(key, 1),
                                    mark < 0 ? Kiv::Optional<U8>() : static_cast<U8>(mark), note,
                                    colour, 0)
                                   .hash(1));
            }
         }
      }
   }
   EXPECT_EQ(hashes.size(), 8u * 4 * 3 * 2);
   EXPECT_EQ(Pair(1, 2).hash(5), Pair(1, 2).hash(5));
   EXPECT_NE(Pair(1, 2).hash(5), Pair(1, 2).hash(6));
   EXPECT_NE(Pair(1, 2).hash(5), Pair(2, 1).hash(5));
}

TEST(Value, PrintsItsFieldsByName) {
   EXPECT_EQ(Kiv::strRep(Pair(60, -3)), "KivTest::Pair(first=60, second=-3)");
   EXPECT_EQ(Kiv::strRep(Record(1, Pair(2, 3), U8{255}, "a \"b\"\n\x01", Colour::red, 6)),
             "KivTest::Record(key=1, pair=KivTest::Pair(first=2, second=3), mark=255, "
             "note=\"a \\\"b\\\"\\n\\x01\", colour=red, stamp=6)");
   std::ostringstream out;
   out << Pair(1, 2) << Opaque(0.1);
   EXPECT_EQ(out.str(), "KivTest::Pair(first=1, second=2)KivTest::Opaque(content=0.1)");
}

TEST(Value, ReadsWhatItPrints) {
   std::string everyByte;
   for (int c = 0; c != 256; ++c) {
      everyByte += static_cast<char>(c);
   }
   for (Record const& record :
        {Record(), Record(1, Pair(4294967295u, -32768), U8{0}, everyByte, Colour::green, 6),
         Record(2, Pair(), std::nullopt, "none", static_cast<Colour>(200), ~U64(0))}) {
      EXPECT_EQ(Kiv::fromText<Record>(Kiv::strRep(record)), record) << record;
   }
   for (double const v : {0.0, -0.0, 0.1, 1e300, 5e-324, -1.0 / 3}) {
      EXPECT_EQ(Kiv::fromText<Opaque>(Kiv::strRep(Opaque(v))), Opaque(v)) << v;
   }
   EXPECT_EQ(Kiv::strRep(Opaque(INFINITY)), "KivTest::Opaque(content=inf)");
   EXPECT_EQ(Kiv::fromText<Opaque>("KivTest::Opaque(content=-inf)"), Opaque(-INFINITY));
   EXPECT_TRUE(std::isnan(Kiv::fromText<Opaque>("KivTest::Opaque(content=nan)").content()));
}

TEST(Value, TakesBlanksAroundEveryToken) {
   EXPECT_EQ(Kiv::fromText<Record>("  KivTest::Record (\n key = 1 ,\tpair = KivTest::Pair ( first "
                                   "= 2 , second = 3 ) , mark = none , note = \"x\" , colour = "
                                   "red , stamp = 6 ) "),
             Record(1, Pair(2, 3), std::nullopt, "x", Colour::red, 6));
}

TEST(Value, ABrokenStructureIsAParseExceptionWithItsPosition) {
   EXPECT_EQ(parseError<Pair>(""), "at position 0: expected \"KivTest::Pair\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pear(first=1, second=2)"),
             "at position 0: expected \"KivTest::Pair\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair first=1, second=2)"),
             "at position 14: expected \"(\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair(1, 2)"), "at position 14: expected \"first\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair(first=1 second=2)"), "at position 22: expected \",\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair(second=2, first=1)"),
             "at position 14: expected \"first\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair(first=one, second=2)"),
             "at position 20: expected a number of type U32");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair(first=1, second=2"), "at position 31: expected \")\"");
   EXPECT_EQ(parseError<Pair>("KivTest::Pair(first=1, second=2) x"),
             "at position 33: text follows the value");
   EXPECT_EQ(parseError<Record>("KivTest::Record(key=1, pair=KivTest::Pair(first=x, second=3)"),
             "at position 48: expected a number of type U32");
}

TEST(Value, APositionIsGivenAsANumberToo) {
   try {
      Kiv::fromText<Pair>("KivTest::Pair(first=?");
      FAIL() << "nothing thrown";
   } catch (Kiv::ParseException const& error) {
      EXPECT_EQ(error.position(), 20u);
   }
}

TEST(Value, AValueThatDoesNotFitNamesThePathOfFields) {
   EXPECT_EQ(rangeError<Pair>("KivTest::Pair(first=4294967296, second=0)"),
             "first: 4294967296 does not fit U32 (0 to 4294967295)");
   EXPECT_EQ(rangeError<Pair>("KivTest::Pair(first=-1, second=0)"),
             "first: -1 does not fit U32 (0 to 4294967295)");
   EXPECT_EQ(rangeError<Record>("KivTest::Record(key=1, pair=KivTest::Pair(first=1, "
                                "second=32768), mark=none, note=\"\", colour=red, stamp=0)"),
             "pair: second: 32768 does not fit S16 (-32768 to 32767)");
   EXPECT_EQ(rangeError<Record>("KivTest::Record(key=1, pair=KivTest::Pair(first=1, second=1), "
                                "mark=256, note=\"\", colour=red, stamp=0)"),
             "mark: 256 does not fit U8 (0 to 255)");
   EXPECT_EQ(rangeError<Record>("KivTest::Record(key=1, pair=KivTest::Pair(first=1, second=1), "
                                "mark=1, note=\"\", colour=300, stamp=0)"),
             "colour: 300 does not fit KivTest::Colour (0 to 255)");
   EXPECT_EQ(rangeError<Opaque>("KivTest::Opaque(content=1e999)"),
             "content: 1e999 does not fit double (-1.7976931348623157e+308 to "
             "1.7976931348623157e+308)");
}

TEST(Value, ConstructionFromTextLeavesTheCursorBehindTheValue) {
   Kiv::CharRange text("KivTest::Pair(first=1, second=2)KivTest::Pair(first=3, second=4)rest");
   EXPECT_EQ(Pair(text), Pair(1, 2));
   EXPECT_EQ(Pair(text), Pair(3, 4));
   EXPECT_EQ(text.rest(), "rest");
}

TEST(Value, GoesThroughTheLogAndBack) {
   Record const record(1, Pair(2, 3), U8{4}, "five", Colour::red, 6);
   EXPECT_EQ(record.kivEncodedSize(), 4u + (4 + 2) + (1 + 1) + (4 + 4) + 4 + 8);
   std::vector<U8> bytes(record.kivEncodedSize());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   out << record;
   EXPECT_EQ(out.room(), 0u);
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   EXPECT_EQ(Record(&in, Kiv::StreamBogon{}), record);
   in.expectEnd();
   for (std::size_t size = 0; size != bytes.size(); ++size) {
      Kiv::NboAttrLog::In cut(bytes.data(), bytes.data() + size);
      EXPECT_THROW(Record(&cut, Kiv::StreamBogon{}), Kiv::NboAttrLog::FaultException) << size;
   }
   EXPECT_EQ(Pair::kivMaxEncodedSize, 6u);
}

}  // namespace
