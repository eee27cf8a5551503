#include "Holt/Access.h"

#include <gtest/gtest.h>

#include "Holt/Failure.test.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace Holt {
namespace {

TEST(Access, ReadsOwnersByNameAndByNumber) {
   EXPECT_EQ(parseOwner("root").user, 0U);
   EXPECT_FALSE(parseOwner("root").group);
   EXPECT_EQ(parseOwner(":12").group, 12U);
   EXPECT_EQ(parseOwner("7:root").user, 7U);
   EXPECT_EQ(parseOwner("7:root").group, 0U);
   EXPECT_NE(failureOf([] { parseOwner("no such user"); }).find("there is no user"),
             std::string::npos);
   EXPECT_NE(failureOf([] { parseOwner(":no such group"); }).find("there is no group"),
             std::string::npos);
   EXPECT_NE(failureOf([] { parseOwner(":"); }).find("invalid owner"), std::string::npos);
   EXPECT_NE(failureOf([] { parseOwner("4294967295"); }), "") << "is the id of nobody";
}

TEST(Access, ReadsModesInOctal) {
   EXPECT_EQ(parseMode("0660"), 0660U);
   EXPECT_EQ(parseMode("7"), 07U);
   for (char const* const bad : {"", "8", "rw", "01000", "-1", "066 "}) {
      EXPECT_NE(failureOf([bad] { parseMode(bad); }).find("invalid mode"), std::string::npos)
            << bad;
   }
}

TEST(Access, WritersAreListedUsersAndMembersOfListedGroups) {
   auto const root = Ptp::configFactory("ptp/config");
   Writers const writers({"1000", ":27"});
   EXPECT_EQ(writers.refusal(*root, {1, 1000, 5, ""}, {}), "");
   EXPECT_EQ(writers.refusal(*root, {1, 2000, 27, ""}, {}), "");
   EXPECT_EQ(writers.refusal(*root, {1, 2000, 5, ""}, {4, 27}), "");
   EXPECT_EQ(writers.refusal(*root, {1, 27, 1000, ""}, {1000}),
             "uid 27, gid 1000 may only read here; writers: user 1000, group 27");
   EXPECT_NE(writers.refusal(*root, {}, {}), "") << "nobody knows who that is";
   EXPECT_EQ(Writers().refusal(*root, {}, {}), "");
}

TEST(Access, NobodyWritesWhatBelongsToItsServer) {
   auto const root = Ptp::configFactory("ptp/config");
   EXPECT_EQ(Writers::nobody("the agent's own").refusal(*root, {1, 0, 0, ""}, {0}),
             "ptp/config is the agent's own; it is read-only");
}

}  // namespace
}  // namespace Holt
