// What types and their members tell of themselves: kinds, keys, bounds, constructor arguments.
#include <gtest/gtest.h>

#include "Kiv/Glue/MemberOps.h"
#include "KivTest/Bounds.h"
#include "KivTest/TestTypes.h"

namespace {

using namespace KivTest;
using Kiv::FieldDescriptor;
using Kiv::TypeKind;

FieldDescriptor const& field(Kiv::TypeImpl const& type, char const* name) {
   FieldDescriptor const* const found = type.field(std::string_view(name));
   EXPECT_NE(found, nullptr) << name;
   return *found;
}

TEST(TypeData, TellsTheKindOfEveryType) {
   EXPECT_EQ(Kiv::typeOf<bool>().kind, TypeKind::boolean);
   for (auto const* const type :
        {&Kiv::typeOf<U8>(), &Kiv::typeOf<U16>(), &Kiv::typeOf<U32>(), &Kiv::typeOf<U64>()}) {
      EXPECT_EQ(type->kind, TypeKind::unsignedNumber) << type->name;
   }
   for (auto const* const type :
        {&Kiv::typeOf<S8>(), &Kiv::typeOf<S16>(), &Kiv::typeOf<S32>(), &Kiv::typeOf<S64>()}) {
      EXPECT_EQ(type->kind, TypeKind::signedNumber) << type->name;
   }
   EXPECT_EQ(Kiv::typeOf<float>().kind, TypeKind::floating);
   EXPECT_EQ(Kiv::typeOf<double>().kind, TypeKind::floating);
   EXPECT_EQ(Kiv::typeOf<Sarn::String>().kind, TypeKind::string);
   EXPECT_EQ(Kiv::typeOf<Colour>().kind, TypeKind::enumeration);
   EXPECT_EQ(Kiv::typeOf<Kiv::Optional<Colour>>().kind, TypeKind::optional);
   EXPECT_EQ(Kiv::typeOf<Pair>().kind, TypeKind::value);
   EXPECT_EQ(Kiv::typeOf<Dorn::IntfId>().kind, TypeKind::opaque);
   EXPECT_EQ(Stem::kivTypeImpl.kind, TypeKind::entity);
}

TEST(TypeData, AnOptionalTellsOfWhatItIsAndHandsItOut) {
   auto const& support = *Kiv::typeOf<Kiv::Optional<U8>>().optional;
   EXPECT_EQ(support.inner, &Kiv::typeOf<U8>());
   Kiv::Optional<U8> empty;
   EXPECT_EQ(support.held(&empty), nullptr);
   Kiv::Optional<U8> const five = U8{5};
   EXPECT_EQ(support.held(&five), &*five);
   std::destroy_at(&empty);
   U8 const six = 6;
   support.construct(&empty, &six);
   EXPECT_EQ(empty, U8{6});
   std::destroy_at(&empty);
   support.construct(&empty, nullptr);
   EXPECT_EQ(empty, std::nullopt);
   EXPECT_EQ(Kiv::typeOf<U8>().optional, nullptr);
   EXPECT_EQ(Kiv::typeOf<Kiv::Optional<Pair>>().optional->inner, &Pair::kivTypeImpl);
}

TEST(TypeData, TellsTheBoundsOfAttributesWhereTheyAreNarrowerThanTheType) {
   EXPECT_EQ(boundsOf(Stem::kivTypeImpl),
             (std::vector<std::string>{"dial 10..20", "tick -3..32767", "knob -2..2"}));
   EXPECT_EQ(boundsOf(Pair::kivTypeImpl), std::vector<std::string>());
   FieldDescriptor const& dial = field(Stem::kivTypeImpl, "dial");
   EXPECT_TRUE(dial.least().isA(Kiv::typeOf<U8>()));
   EXPECT_EQ(field(Stem::kivTypeImpl, "u8").least().address, nullptr);
   EXPECT_EQ(field(Stem::kivTypeImpl, "u8").greatest().address, nullptr);
}

/// The rows are in another library than this program.
TEST(TypeData, ABuiltInTypeOfOneLibraryIsTheSameOneOfAnother) {
   Kiv::TypeImpl const& type = *field(Stem::kivTypeImpl, "u8").type;
   EXPECT_TRUE(type.isA(Kiv::typeOf<U8>()));
   EXPECT_FALSE(type.isA(Kiv::typeOf<U16>()));
   EXPECT_FALSE(type.isA(Pair::kivTypeImpl));
   EXPECT_FALSE(Pair::kivTypeImpl.isA(type));
}

constexpr Kiv::Range<U8> wholeRange() {
   return {0, 255, ""};
}
constexpr Kiv::Range<U8> upToTen() {
   return {0, 10, ""};
}

TEST(TypeData, ARangeThatLeavesNothingOutIsNoBound) {
   EXPECT_EQ(Kiv::Impl::bounds<&wholeRange>(), nullptr);
   EXPECT_NE(Kiv::Impl::bounds<&upToTen>(), nullptr);
   EXPECT_EQ(Kiv::Impl::bounds<nullptr>(), nullptr);
}

TEST(TypeData, BoundsAreThoseThatTheSettersKeepTo) {
   EXPECT_EQ(wrongBounds(), std::vector<std::string>());
}

TEST(TypeData, TellsTheKeyOfAnEntity) {
   EXPECT_EQ(Leaf::kivTypeImpl.key(), &field(Leaf::kivTypeImpl, "number"));
   EXPECT_EQ(Stem::kivTypeImpl.key(), nullptr) << "it has a name";
   EXPECT_EQ(Core::kivTypeImpl.key(), nullptr);
   EXPECT_TRUE(field(Leaf::kivTypeImpl, "number").has(FieldDescriptor::key));
   EXPECT_FALSE(field(Leaf::kivTypeImpl, "origin").has(FieldDescriptor::key));
}

TEST(TypeData, TellsTheFieldThatIsTheKeyOfAValueInAMap) {
   FieldDescriptor const& record = field(Stem::kivTypeImpl, "record");
   EXPECT_EQ(record.keyField(), &field(Record::kivTypeImpl, "key"));
   EXPECT_EQ(record.keyField()->type, record.keyType);
   EXPECT_EQ(field(Stem::kivTypeImpl, "byPair").keyField(), nullptr);
   EXPECT_EQ(field(Stem::kivTypeImpl, "leaf").keyField(), nullptr);
}

TEST(TypeData, TellsWhatTheCreationOfAChildTakesBesidesItsKey) {
   std::string names;
   Kiv::forEachGivenMember(Leaf::kivTypeImpl, [&names](FieldDescriptor const& given) {
      names += std::string(given.name) + " ";
   });
   EXPECT_EQ(names, "lit origin ");
   Kiv::forEachGivenMember(Badge::kivTypeImpl,
                           [](FieldDescriptor const& given) { ADD_FAILURE() << given.name; });
}

TEST(TypeData, TellsWhichNumbersAreSeconds) {
   EXPECT_TRUE(field(Stem::kivTypeImpl, "wait").has(FieldDescriptor::seconds));
   EXPECT_TRUE(field(Stem::kivTypeImpl, "deadline").has(FieldDescriptor::seconds));
   EXPECT_FALSE(field(Stem::kivTypeImpl, "precise").has(FieldDescriptor::seconds));
}

}  // namespace
