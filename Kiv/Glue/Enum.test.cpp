// Enumerations: names, numbers, defaults.
#include <gtest/gtest.h>

#include <sstream>

#include "Kiv/Glue/EnumType.h"
#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"

namespace {

using namespace KivTest;

TEST(Enum, IsOneByte) {
   static_assert(sizeof(Colour) == 1);
   EXPECT_EQ(Kiv::typeOf<Colour>().size, 1u);
}

TEST(Enum, HasTheNamesOfItsDeclaration) {
   EXPECT_EQ(stringValue(Colour::red), "red");
   EXPECT_EQ(stringValue(Colour::blue), "blue");
   EXPECT_EQ(stringValue(Level::middle), "middle");
   std::ostringstream out;
   out << Colour::green << ' ' << Level::high;
   EXPECT_EQ(out.str(), "green high");
}

TEST(Enum, NumbersGoOnFromTheOneBefore) {
   EXPECT_EQ(static_cast<int>(Colour::red), 0);
   EXPECT_EQ(static_cast<int>(Colour::green), 1);
   EXPECT_EQ(static_cast<int>(Colour::blue), 7);
}

TEST(Enum, AnUnnamedValueIsItsDecimalNumber) {
   EXPECT_EQ(stringValue(static_cast<Colour>(3)), "3");
   EXPECT_EQ(stringValue(static_cast<Colour>(255)), "255");
   EXPECT_EQ(Kiv::fromText<Colour>("3"), static_cast<Colour>(3));
   EXPECT_EQ(Kiv::fromText<Colour>("255"), static_cast<Colour>(255));
   EXPECT_EQ(Kiv::fromText<Colour>("7"), Colour::blue) << "a named one by its number";
}

TEST(Enum, AnyValueIsHeldAndPublished) {
   Sarn::Ptr<Stem> const root = stemFactory("test");
   root->colourIs(static_cast<Colour>(99));
   EXPECT_EQ(root->colour(), static_cast<Colour>(99));
}

TEST(Enum, ParsesItsNamesInAnyCaseAndListsThemForAnythingElse) {
   EXPECT_EQ(Kiv::fromText<Colour>(" blue "), Colour::blue);
   EXPECT_EQ(Kiv::fromText<Colour>("Blue"), Colour::blue);
   EXPECT_EQ(Kiv::fromText<Colour>("0x7"), Colour::blue);
   EXPECT_EQ(thrown<Kiv::ParseException>([] { Kiv::fromText<Colour>("  bluer"); }),
             "at position 2: expected red, green, blue, or a number of KivTest::Colour");
   EXPECT_EQ(thrown<Kiv::ParseException>([] { Kiv::fromText<Colour>(""); }),
             "at position 0: expected red, green, blue, or a number of KivTest::Colour");
   EXPECT_EQ(thrown<Kiv::RangeException>([] { Kiv::fromText<Colour>("256"); }),
             "256 does not fit KivTest::Colour (0 to 255)");
}

TEST(Enum, StatesItsDefault) {
   EXPECT_EQ(ColourInstance().defaultValue(), Colour::green);
   EXPECT_EQ(LevelInstance().defaultValue(), Level::low);
   EXPECT_EQ(Kiv::defaultValue<Colour>(), Colour::green);
}

TEST(Enum, CountsItsEnumeratorsByTheirPlace) {
   EXPECT_EQ(ColourInstance().count(), 3u);
   EXPECT_EQ(ColourInstance().sequenceToValue(0), Colour::red);
   EXPECT_EQ(ColourInstance().sequenceToValue(2), Colour::blue);
   EXPECT_EQ(Kiv::sequenceToValue<Colour>(1), Colour::green);
   EXPECT_EQ(Kiv::sequenceToValue<Level>(2), Level::high);
   EXPECT_EQ(thrown<Kiv::RangeException>([] { Kiv::sequenceToValue<Colour>(3); }),
             "ordinal 3 of KivTest::Colour, which has 3 enumerators");
}

TEST(Enum, AnInstanceKnowsItsTypeAndNames) {
   EXPECT_STREQ(ColourInstance().type().name, "KivTest::Colour");
   EXPECT_EQ(ColourInstance().type().kind, Kiv::TypeKind::enumeration);
   EXPECT_EQ(ColourInstance().stringValue(Colour::red), "red");
}

TEST(Enum, NamesAreLookedUpByTheTypesPlaceInItsModule) {
   Kiv::TypeImpl const& type = ColourInstance().type();
   EXPECT_STREQ(Kiv::EnumType::stringValue(*type.module(), type.index, 7), "blue");
   EXPECT_EQ(Kiv::EnumType::stringValue(*type.module(), type.index, 2), nullptr);
   EXPECT_STREQ(Kiv::enumName(type, 0), "red");
}

}  // namespace
