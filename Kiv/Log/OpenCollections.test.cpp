#include "Kiv/Log/OpenCollections.h"

#include <gtest/gtest.h>

#include "KivTest/TestTypes.h"

namespace {

using Kiv::NboAttrLog::FaultException;
using Kiv::NboAttrLog::In;
using Kiv::NboAttrLog::OpenCollections;

class OpenCollectionsTest : public testing::Test {
protected:
   OpenCollectionsTest() {
      for (U32 const key : {1u, 2u, 3u}) {
         root->byNumberIs(key, "x");
      }
   }
   std::string faultOf(void (OpenCollections::*act)(Kiv::Entity&, Kiv::FieldDescriptor const&,
                                                    In const&)) {
      try {
         (open.*act)(*root, field, in);
      } catch (FaultException const& error) {
         return error.what();
      }
      return "";
   }

   Sarn::Ptr<KivTest::Stem> const root = KivTest::stemFactory("test");
   Kiv::FieldDescriptor const& field =
         *KivTest::Stem::kivTypeImpl.field(std::string_view("byNumber"));
   In const in{nullptr, nullptr};
   OpenCollections open{2};
};

TEST_F(OpenCollectionsTest, TheEndRemovesWhatWasNotSeen) {
   open.begin(*root, field, in);
   U32 const key = 2;
   open.seen(*root, field)->insert(&key, false);
   open.end(*root, field, in);
   EXPECT_EQ(root->byNumberCount(), 1u);
   EXPECT_TRUE(root->byNumberHas(2));
   EXPECT_EQ(open.seen(*root, field), nullptr);
}

TEST_F(OpenCollectionsTest, AKeyThatIsChangedMeanwhileStays) {
   open.begin(*root, field, in);
   root->byNumberIs(9, "new");
   U32 const made = 9;
   open.changed(*root, field, &made);
   open.end(*root, field, in);
   EXPECT_EQ(root->byNumberCount(), 1u);
   EXPECT_TRUE(root->byNumberHas(9));
}

TEST_F(OpenCollectionsTest, AKeyThatIsRemovedMeanwhileIsNotKept) {
   open.begin(*root, field, in);
   U32 const key = 2;
   open.seen(*root, field)->insert(&key, false);
   root->byNumberDel(2);
   open.changed(*root, field, &key);
   EXPECT_EQ(open.seen(*root, field)->size(), 0u);
}

TEST_F(OpenCollectionsTest, AnEmptyCollectionKeepsNoKeys) {
   root->byNumberDelAll();
   open.begin(*root, field, in);
   EXPECT_EQ(open.seen(*root, field), nullptr);
   root->byNumberIs(1, "told by the replay");
   open.end(*root, field, in);
   EXPECT_TRUE(root->byNumberHas(1));
}

TEST_F(OpenCollectionsTest, AReplayBeginsOnceAndEndsOnce) {
   EXPECT_EQ(faultOf(&OpenCollections::end), "the collection's replay has not begun at offset 0");
   EXPECT_EQ(faultOf(&OpenCollections::begin), "");
   EXPECT_EQ(faultOf(&OpenCollections::begin),
             "the collection's replay has begun already at offset 0");
   EXPECT_EQ(faultOf(&OpenCollections::end), "");
}

TEST_F(OpenCollectionsTest, ReplaysNestNoDeeperThanTheBound) {
   Kiv::TypeImpl const& type = KivTest::Stem::kivTypeImpl;
   open.begin(*root, *type.field(std::string_view("byText")), in);
   open.begin(*root, *type.field(std::string_view("byPair")), in);
   EXPECT_EQ(faultOf(&OpenCollections::begin), "replays are nested deeper than 2 at offset 0");
   open.abandon(*root);
   EXPECT_EQ(faultOf(&OpenCollections::begin), "");
}

}  // namespace
