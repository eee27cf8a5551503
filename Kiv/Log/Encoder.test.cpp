#include "KivTest/SessionParts.test.h"

namespace {

using namespace PartsTesting;

Limits smallEncoder() {
   Limits limits;
   limits.longestMessage = 64;
   limits.longestValue = 100;
   limits.entities = 3;
   return limits;
}

class EncoderTest : public testing::Test, protected Parts {
protected:
   EncoderTest() : Parts(smallEncoder()) {
      outbox.hasMount();
      serve();
   }
   /// "set 01000000.259": the beginning of a member's message.
   std::string begins(std::string const& opcode, char const* member) const {
      return opcode + " 01000000." + std::to_string(field(member).fieldId);
   }
};

TEST_F(EncoderTest, WritesOneChangeACall) {
   U32 const key = 5;
   root->byNumberIs(5, "x");
   Sarn::String const value = "x";
   EXPECT_TRUE(encoder.set(*root, field("u8"), root->streamHandle()));
   EXPECT_EQ(sent(), begins("set", "u8") + " c8");
   EXPECT_TRUE(encoder.element(*root, field("byNumber"), &key, &value));
   EXPECT_EQ(sent(), begins("element", "byNumber") + " 000000050000000178");
   EXPECT_TRUE(encoder.erase(*root, field("byNumber"), &key));
   EXPECT_EQ(sent(), begins("erase", "byNumber") + " 00000005");
   EXPECT_TRUE(encoder.erase(*root, field("core"), nullptr));
   EXPECT_EQ(sent(), begins("erase", "core"));
   EXPECT_TRUE(encoder.front(*root, field("samples"), 3, false));
   EXPECT_EQ(sent(), begins("front", "samples") + " 00000003");
   EXPECT_TRUE(encoder.front(*root, field("samples"), 3, true));
   EXPECT_EQ(sent(), begins("collectionBegin", "samples") + " 00000003");
}

TEST_F(EncoderTest, AChildIsNumberedAndIntroduced) {
   auto const core = root->coreIs();
   EXPECT_TRUE(encoder.introduce(*root, field("core"), *core));
   EXPECT_EQ(core->streamHandle(), 0x01000002u);
   EXPECT_TRUE(names.introduced(core->streamHandle()));
   EXPECT_EQ(sent(), begins("create", "core") + " 01000002");
}

TEST_F(EncoderTest, AChildWithoutANumberEndsTheSession) {
   root->leafIs(1, true, KivTest::Opaque(1));
   root->leafIs(2, true, KivTest::Opaque(1));
   EXPECT_TRUE(encoder.introduce(*root, field("leaf"), *root->leaf(1)));
   EXPECT_FALSE(encoder.introduce(*root, field("leaf"), *root->leaf(2)));
   EXPECT_EQ(closing.reason(), "more than 3 entities cannot be streamed");
}

TEST_F(EncoderTest, AValueThatIsTooLongIsLeftOutAndAnElementErased) {
   root->textIs(std::string(200, 'x'));
   EXPECT_TRUE(encoder.set(*root, field("text"), root->streamHandle()));
   EXPECT_EQ(sent(), "");
   U32 const key = 5;
   Sarn::String const value(200, 'x');
   EXPECT_TRUE(encoder.element(*root, field("byNumber"), &key, &value));
   EXPECT_EQ(sent(), begins("erase", "byNumber") + " 00000005");
   ASSERT_EQ(leftOut.count(), 2u);
   EXPECT_EQ(leftOut.names()[0], "test.text (" + std::to_string(field("text").fieldId) +
                                       "): 204 bytes exceed the bound of 100");
   EXPECT_EQ(leftOut.names()[1], "test.byNumber[5] (" + std::to_string(field("byNumber").fieldId) +
                                       "): 208 bytes exceed the bound of 100");
}

TEST_F(EncoderTest, AWriterSaysWhatItHasSeenBeforeItsNextChange) {
   EXPECT_TRUE(encoder.reach(*root));
   EXPECT_EQ(sent(), "");
   crossing.received = 3;
   EXPECT_TRUE(encoder.reach(*root)) << "a reader owes nothing";
   EXPECT_EQ(sent(), "");
   crossing.writesBack = true;
   EXPECT_TRUE(encoder.reach(*root));
   EXPECT_EQ(sent(), "ack 00000000.0 00000003");
   EXPECT_TRUE(encoder.reach(*root));
   EXPECT_EQ(sent(), "");
}

TEST_F(EncoderTest, WhatThePeerIntroducedIsBoundToOurHandle) {
   names.introducedIs(root->streamHandle(), false);
   EXPECT_FALSE(encoder.reach(*root)) << "nobody has introduced it";
   names.map(0x01000001, root.get(), true);
   EXPECT_TRUE(encoder.reach(*root));
   EXPECT_EQ(sent(), "bind 01000000.0 01000001");
   EXPECT_TRUE(encoder.reach(*root));
   EXPECT_EQ(sent(), "");
}

}  // namespace
