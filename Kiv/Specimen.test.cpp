#include "Kiv/Specimen.h"

#include <gtest/gtest.h>

#include "KivTest/TestTypes.h"

namespace {

using namespace KivTest;

template <class T>
Sarn::Ptr<T> made() {
   Sarn::Ptr<Kiv::Entity> const entity = Kiv::specimenOf(T::kivTypeImpl);
   EXPECT_EQ(&entity->kivType(), &T::kivTypeImpl);
   return Sarn::Ptr<T>(static_cast<T*>(entity.get()));
}

TEST(Specimen, GetsTheDefaultsOfItsArgumentsTypes) {
   Sarn::Ptr<Leaf> const leaf = made<Leaf>();
   EXPECT_EQ(leaf->number(), 0u);
   EXPECT_FALSE(leaf->lit());
   EXPECT_EQ(leaf->origin(), Opaque());
   EXPECT_EQ(made<Twig>()->level(), Level::low);
}

TEST(Specimen, HasTheDefaultsOfItsOtherMembers) {
   EXPECT_EQ(made<Core>()->label(), "core");
   EXPECT_EQ(made<WideLeaf>()->width(), 1u);
}

TEST(Specimen, OfANamedTypeIsCalledSpecimen) {
   EXPECT_EQ(made<Badge>()->nameString(), "specimen");
}

TEST(Specimen, GetsOnlyTheArgumentsThatADerivedTypeLeavesOpen) {
   EXPECT_EQ(made<WideLeaf>()->origin(), Opaque(2.5));
}

}  // namespace
