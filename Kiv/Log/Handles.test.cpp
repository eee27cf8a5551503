#include "KivTest/SessionParts.test.h"

namespace {

using PartsTesting::Gone;
using namespace Kiv::NboAttrLog;

class HandleTableTest : public testing::Test {
protected:
   Sarn::Ptr<Kiv::Entity> const entity = KivTest::stemFactory("test");
   Sarn::Ptr<Kiv::Entity> const other = KivTest::stemFactory("other");
};

TEST_F(HandleTableTest, CountsIndexesAndBeginsTurnsAtOne) {
   HandleTable table(3);
   EXPECT_EQ(table.add(*entity), 0x01000000u);
   EXPECT_EQ(table.add(*other), 0x01000001u);
   EXPECT_EQ(table.find(0x01000001), other.get());
   EXPECT_EQ(table.find(0x02000001), nullptr);
   EXPECT_TRUE(table.known(0x02000001));
   EXPECT_FALSE(table.known(0x01000002));
   EXPECT_EQ(table.size(), 2u);
}

TEST_F(HandleTableTest, AFullTableGivesNoHandleUntilOneIsFreed) {
   HandleTable table(2);
   U32 const first = table.add(*entity);
   table.add(*entity);
   EXPECT_EQ(table.add(*other), 0u);
   table.remove(first);
   EXPECT_EQ(table.find(first), nullptr);
   EXPECT_EQ(table.add(*other), 0x02000000u) << "another turn of the same entry";
   EXPECT_EQ(table.find(first), nullptr);
}

TEST_F(HandleTableTest, TurnsGoOnFromTwoHundredFiftyFiveToOne) {
   HandleTable table(1);
   U32 handle = table.add(*entity);
   for (U32 turn = 2; turn != 256; ++turn) {
      table.remove(handle);
      handle = table.add(*entity);
      ASSERT_EQ(handle, turn << 24);
   }
   table.remove(handle);
   EXPECT_EQ(table.add(*entity), U32(1) << 24);
}

TEST_F(HandleTableTest, AFreedEntryRestsBehindOthers) {
   HandleTable table(1 << 20);
   U32 const first = table.add(*entity);
   table.remove(first);
   U32 added = 0;
   for (U32 handle = 0; HandleTable::index(handle) != 0 || added == 0; ++added) {
      handle = table.add(*entity);
      table.remove(handle);
      ASSERT_LT(added, 5000u);
   }
   EXPECT_GT(added, 1000u);
}

TEST(Handles, NumberATreeFromItsRootDown) {
   Gone gone;
   Handles handles(10, gone);
   auto const root = KivTest::stemFactory("test");
   auto const core = root->coreIs();
   auto const leaf = root->leafIs(4, true, KivTest::Opaque(1));
   EXPECT_TRUE(handles.registerTree(*root));
   EXPECT_EQ(root->streamHandle(), 0x01000000u);
   EXPECT_EQ(handles.find(core->streamHandle()), core.get());
   EXPECT_EQ(handles.find(leaf->streamHandle()), leaf.get());
   handles.unregisterTree(*root);
   EXPECT_EQ(root->streamHandle(), 0u);
   EXPECT_EQ(leaf->streamHandle(), 0u);
   EXPECT_EQ(gone.handles.size(), 4u) << "with the medal that a root is made with";
   EXPECT_EQ(gone.handles.front(), 0x01000000u);
}

TEST(Handles, NumberAllOfATreeOrNothing) {
   Gone gone;
   Handles handles(2, gone);
   auto const root = KivTest::stemFactory("test");
   root->leafIs(1, true, KivTest::Opaque(1));
   root->leafIs(2, true, KivTest::Opaque(1));
   EXPECT_FALSE(handles.registerTree(*root));
   EXPECT_EQ(root->streamHandle(), 0u);
   EXPECT_EQ(root->leaf(1)->streamHandle(), 0u);
   EXPECT_EQ(handles.tooMany(), "more than 2 entities cannot be streamed");
}

TEST(Handles, NumberNoMoreThanAnIndexHoldsAndSaySo) {
   Gone gone;
   EXPECT_EQ(Handles(0xffffff, gone).tooMany(), "more than 16777215 entities cannot be streamed");
   EXPECT_EQ(Handles(0x1000000, gone).tooMany(), "more than 16777215 entities cannot be streamed");
   EXPECT_EQ(Handles(0xfffffe, gone).tooMany(), "more than 16777214 entities cannot be streamed");
}

}  // namespace
