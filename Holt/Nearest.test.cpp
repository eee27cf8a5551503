#include "Holt/Nearest.h"

#include <gtest/gtest.h>

namespace Holt {

namespace {

std::vector<std::string_view> const names = {"priority1", "priority2", "domainNumber", "ttl"};

TEST(DidYouMean, NamesTheCandidateWithTheFewestOtherLetters) {
   EXPECT_EQ(didYouMean("prioryti1", names), "; did you mean 'priority1'?");
   EXPECT_EQ(didYouMean("priorit2", names), "; did you mean 'priority2'?");
   EXPECT_EQ(didYouMean("DOMAINNUMBER", names), "; did you mean 'domainNumber'?");
}

TEST(DidYouMean, NamesACandidateThatGoesOn) {
   EXPECT_EQ(didYouMean("domain", names), "; did you mean 'domainNumber'?");
}

TEST(DidYouMean, NamesNoneThatIsNotAlike) {
   EXPECT_EQ(didYouMean("nothing", names), "");
   EXPECT_EQ(didYouMean("xyz", names), "") << "all letters differ";
   EXPECT_EQ(didYouMean("", names), "");
   EXPECT_EQ(didYouMean("ttl", {}), "");
}

}  // namespace

}  // namespace Holt
