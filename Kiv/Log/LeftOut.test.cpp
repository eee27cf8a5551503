#include "Kiv/Log/LeftOut.h"

#include <gtest/gtest.h>

#include "KivTest/TestTypes.h"

namespace {

using Kiv::NboAttrLog::LeftOut;

class LeftOutTest : public testing::Test {
protected:
   void note(U32 key) { leftOut.note(20, 10, *root, &field, &key); }

   Sarn::Ptr<KivTest::Stem> const root = KivTest::stemFactory("test");
   Kiv::FieldDescriptor const& field =
         *KivTest::Stem::kivTypeImpl.field(std::string_view("byNumber"));
   LeftOut leftOut;
};

TEST_F(LeftOutTest, TellsEachNameOnceAndOldestFirst) {
   note(1);
   note(2);
   note(1);
   EXPECT_EQ(leftOut.count(), 3u);
   std::string const id =
         " (" + std::to_string(field.fieldId) + "): 20 bytes exceed the bound of 10";
   ASSERT_TRUE(leftOut.untold());
   EXPECT_EQ(leftOut.takeUntold(), "test.byNumber[1]" + id);
   EXPECT_EQ(leftOut.takeUntold(), "test.byNumber[2]" + id);
   EXPECT_FALSE(leftOut.untold());
   note(2);
   EXPECT_FALSE(leftOut.untold());
}

TEST_F(LeftOutTest, KeepsTheLastSixteen) {
   for (U32 key = 0; key != 20; ++key) {
      note(key);
   }
   EXPECT_EQ(leftOut.names().size(), 16u);
   EXPECT_EQ(leftOut.count(), 20u);
   EXPECT_EQ(leftOut.takeUntold().substr(0, 16), "test.byNumber[4]");
}

TEST_F(LeftOutTest, ShortensLongNames) {
   auto const longName = KivTest::stemFactory(std::string(300, 'n'));
   leftOut.note(20, 10, *longName, nullptr, nullptr);
   EXPECT_EQ(leftOut.names().front(),
             std::string(197, 'n') + "...: 20 bytes exceed the bound of 10");
}

}  // namespace
