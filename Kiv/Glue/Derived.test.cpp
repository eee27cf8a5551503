// A type that is derived from another.
#include <gtest/gtest.h>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;

class Derived : public testing::Test {
protected:
   Sarn::Ptr<WideLeaf> leaf = wideLeafFactory(4, true);
};

TEST_F(Derived, HasWhatItsBaseHasAndItsOwnFrom386) {
   EXPECT_EQ(attributeTable(*leaf), R"(
258 2c00 number : U32 = 4 const local
259 dc00 lit : bool = true
260 2c00 origin : KivTest::Opaque = KivTest::Opaque(content=2.5) const local
261 dc00 ticks : U16 = 0
262 dd21 twig : KivTest::Twig (children by KivTest::Level)
386 dc00 width : U32 = 1
387 2800 shape : Kiv::String = "oval" const local
)");
}

TEST_F(Derived, IsAnItsBase) {
   EXPECT_EQ(&leaf->kivType(), &WideLeaf::kivTypeImpl);
   EXPECT_EQ(leaf->kivType().base, &Leaf::kivTypeImpl);
   EXPECT_TRUE(leaf->kivType().isA(Leaf::kivTypeImpl));
   EXPECT_TRUE(leaf->kivType().isA(WideLeaf::kivTypeImpl));
   EXPECT_FALSE(Leaf::kivTypeImpl.isA(WideLeaf::kivTypeImpl));
}

TEST_F(Derived, FindsMembersByIdAndNameOnBothLevels) {
   Kiv::TypeImpl const& type = WideLeaf::kivTypeImpl;
   EXPECT_STREQ(type.field(258)->name, "number");
   EXPECT_STREQ(type.field(386)->name, "width");
   EXPECT_EQ(type.field("lit")->fieldId, 259);
   EXPECT_EQ(type.field("shape")->fieldId, 387);
   for (int const id : {0, 1, 2, 257, 263, 385, 388, 65535}) {
      EXPECT_EQ(type.field(static_cast<Kiv::AttributeId>(id)), nullptr) << id;
   }
   EXPECT_EQ(Leaf::kivTypeImpl.field(386), nullptr);
   EXPECT_EQ(type.field("nothing"), nullptr);
}

TEST_F(Derived, TheGenericInterfaceReadsAndWritesInheritedIds) {
   EXPECT_EQ(attributeTextIs(*leaf, 259, "false"), Kiv::statusOk);
   EXPECT_FALSE(leaf->lit());
   EXPECT_EQ(attributeTextIs(*leaf, 386, "77"), Kiv::statusOk);
   EXPECT_EQ(leaf->width(), 77u);
   EXPECT_EQ(attributeText(*leaf, 261), "0");
   EXPECT_EQ(attributeTextIs(*leaf, 258, "1"), Kiv::statusRefused);
}

TEST_F(Derived, TheBasesTypeReadsADerivedObject) {
   bool lit = false;
   EXPECT_EQ(Leaf::kivTypeImpl.genericIfAttributeOp(&lit, leaf.get(), Leaf::kivTypeImpl.field(259),
                                                    0, nullptr, nullptr),
             Kiv::statusOk);
   EXPECT_TRUE(lit);
   U32 width = 0;
   EXPECT_EQ(Leaf::kivTypeImpl.genericIfAttributeOp(
                   &width, leaf.get(), WideLeaf::kivTypeImpl.field(386), 0, nullptr, nullptr),
             Kiv::statusUnknownField);
}

TEST_F(Derived, PublishesInheritedIdsAsItsOwn) {
   Witness published(*leaf);
   leaf->ticksInc(1);
   leaf->widthIs(9);
   leaf->twigIs(Level::low);
   EXPECT_EQ(published.changes(), "ticks was 0; width was 1; twig[low] was nothing");
}

TEST_F(Derived, LivesInACollectionOfItsOwnType) {
   Sarn::Ptr<Hedge> const hedge = hedgeFactory("hedge");
   Sarn::Ptr<WideLeaf> const made = hedge->wideLeafIs(3, false);
   EXPECT_EQ(made->number(), 3u);
   EXPECT_EQ(made->origin(), Opaque(2.5));
   EXPECT_EQ(hedge->wideLeafIs(3, true), made);
   EXPECT_TRUE(made->lit());
   EXPECT_EQ(hedge->wideLeafDel(3), made);
}

TEST_F(Derived, IsTrackedUnderItsOwnName) {
   U64 const before = WideLeaf::memAllocationTracker_.liveObjects();
   U64 const baseBefore = Leaf::memAllocationTracker_.liveObjects();
   Sarn::Ptr<Leaf> base = wideLeafFactory(1, true);
   EXPECT_EQ(WideLeaf::memAllocationTracker_.liveObjects(), before + 1);
   EXPECT_EQ(Leaf::memAllocationTracker_.liveObjects(), baseBefore);
   base.reset();
   EXPECT_EQ(WideLeaf::memAllocationTracker_.liveObjects(), before);
}

}  // namespace
