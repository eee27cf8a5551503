#include "Fleet/Message.h"

#include <gtest/gtest.h>

#include "Fleet/EntityText.h"
#include "Holt/Failure.h"

namespace Fleet {

TEST(FleetMessage, ReadsWhatItWrites) {
   std::string text;
   writeMessage({.session = "5a", .sequence = 7, .rootType = "Ptp::Status", .value = "{\"a\":1}"},
                text);
   EXPECT_EQ(text, R"({"session":"5a","sequence":7,"root":"Ptp::Status","value":{"a":1}})");
   EntityMessage message;
   EXPECT_EQ(readMessage(text, message), "");
   EXPECT_EQ(message.session, "5a");
   EXPECT_EQ(message.sequence, 7);
   EXPECT_EQ(message.rootType, "Ptp::Status");
   EXPECT_EQ(message.value, "{\"a\":1}");
   text.clear();
   writeMessage({.session = "5a", .sequence = 8, .rootType = "-", .value = {}}, text);
   EXPECT_EQ(readMessage(text, message), "");
   EXPECT_TRUE(message.isDeleted());
}

TEST(FleetMessage, EveryCutIsRefused) {
   std::string const text =
         R"({"session":"5a","sequence":7,"root":"Ptp::Status","value":{"a":{"b":1}}})";
   for (std::size_t size = 0; size != text.size(); ++size) {
      EntityMessage message;
      std::vector<TextMember> members;
      std::string_view wrong = readMessage(text.substr(0, size), message);
      if (wrong.empty()) {
         wrong = splitEntityText(message.value, members);
      }
      EXPECT_NE(wrong, "") << size;
   }
}

TEST(FleetMessage, HeartbeatsComeBack) {
   Meta meta;
   meta.session = "5a";
   meta.sequence = 9;
   meta.time = 5;
   meta.every = 2'000'000'000;
   meta.pending = 3;
   meta.current = true;
   meta.since = 4;
   meta.reason = "caf\xe9";
   meta.roots = {{"ptp/status", "Ptp::Status", 5, 0xfedcba9876543210}};
   Meta const read = readMeta(metaText(meta));
   EXPECT_EQ(read.session, "5a");
   EXPECT_EQ(read.sequence, 9);
   EXPECT_EQ(read.reason, "caf\xe9");
   EXPECT_TRUE(read.current);
   EXPECT_EQ(read.roots, meta.roots);
   EXPECT_EQ(metaText(read), metaText(meta));
}

TEST(FleetMessage, AHeartbeatThatLacksSomethingIsNamed) {
   try {
      readMeta(R"({"session":"5a"})");
      FAIL();
   } catch (Holt::Failure const& failure) {
      EXPECT_STREQ(failure.what(), "heartbeat: 'sequence' must be a whole number");
   }
   EXPECT_THROW(readMeta("[]"), Holt::Failure);
   EXPECT_THROW(readMeta(""), Holt::Failure);
}

TEST(FleetMessage, DigestsAreTheSameInEveryRelease) {
   EXPECT_EQ(hexText(digestOf("", "")), "8cd1534c369edef6");
   EXPECT_EQ(hexText(digestOf("status.portDS.Ethernet1", "{\"portState\":\"master\"}")),
             "06a91ea83e0c37a2");
   EXPECT_NE(digestOf("a", "b"), digestOf("b", "a"));
   EXPECT_NE(digestOf("ab", ""), digestOf("a", "b"));
}

TEST(FleetText, SplitsMembersWithoutParsingThem) {
   std::vector<TextMember> members;
   EXPECT_EQ(splitEntityText(R"({"a":1,"b":"x,}\"","c":{"d":[1,2]}})", members), "");
   ASSERT_EQ(members.size(), 3);
   EXPECT_EQ(members[1].name, "b");
   EXPECT_EQ(members[1].json, R"("x,}\"")");
   EXPECT_EQ(members[2].json, R"({"d":[1,2]})");
   EXPECT_EQ(splitEntityText("{}", members), "");
   EXPECT_TRUE(members.empty());
   for (char const* const text : {"", "{", "}", "[]", "{\"a\"}", "{\"a\":}", "{\"a\":1",
                                  "{\"a\":1}}", "{\"a\":1]", "{,}", "{\"a\":1,}", "{\"a\":\"}"}) {
      EXPECT_NE(splitEntityText(text, members), "") << text;
   }
}

}  // namespace Fleet
