#include "Holt/State/Path.h"

#include <gtest/gtest.h>

#include "Holt/Failure.h"

namespace Holt {
namespace {

std::vector<OfferedRoot> const roots = {{"Ptp::Config", "ptp/config"},
                                        {"Ptp::Status", "ptp/status"},
                                        {"Ptp::Status", "ptp/status.old"},
                                        {"Ptp::Status", "twice"},
                                        {"Ptp::HwTime", "twice"}};

/// The steps as "name" and "name[key]", separated by blanks; or the error.
std::string stepsText(std::string_view text) {
   try {
      std::string all;
      for (PathStep const& step : parseSteps(text)) {
         all += (all.empty() ? "" : " ") + step.name;
         all += step.key ? "[" + *step.key + "]" : "";
      }
      return all;
   } catch (Failure const& error) {
      return error.what();
   }
}

std::string rootText(std::string_view text) {
   try {
      Path const path = parsePath(text, roots);
      return path.root.type + " " + path.root.name + " " + std::to_string(path.steps.size());
   } catch (Failure const& error) {
      return error.what();
   }
}

TEST(Path, StepsAreNamesWithKeysInBrackets) {
   EXPECT_EQ(stepsText(""), "");
   EXPECT_EQ(stepsText(".enabled"), "enabled");
   EXPECT_EQ(stepsText(".intfConfig[Ethernet1].vlanConfig[100].vlanId"),
             "intfConfig[Ethernet1] vlanConfig[100] vlanId");
}

TEST(Path, AKeyMayHoldDotsSlashesAndBlanks) {
   EXPECT_EQ(stepsText(".a[Ethernet3/1/2.100].b"), "a[Ethernet3/1/2.100] b");
   EXPECT_EQ(stepsText(".a[10.0.0.1]"), "a[10.0.0.1]");
   EXPECT_EQ(stepsText(".a[2001:db8::1]"), "a[2001:db8::1]");
   EXPECT_EQ(stepsText(".a[T::Pair(first=1, second=-2)]"), "a[T::Pair(first=1, second=-2)]");
}

TEST(Path, AKeyMayHoldBalancedBracketsAndAnythingInQuotes) {
   EXPECT_EQ(stepsText(".a[b[c]d].e"), "a[b[c]d] e");
   EXPECT_EQ(stepsText(R"(.a["]"].b)"), R"(a["]"] b)");
   EXPECT_EQ(stepsText(R"(.a["x\"].y"].b)"), R"(a["x\"].y"] b)");
   EXPECT_EQ(stepsText(".a[]"), "a[]");
}

TEST(Path, SaysWhereItIsNoPath) {
   EXPECT_EQ(stepsText(".a[b"), "invalid path '.a[b': unclosed bracket at character 3");
   EXPECT_EQ(stepsText(".a[\"b]"), "invalid path '.a[\"b]': unterminated string at character 4");
   EXPECT_EQ(stepsText(".a[b]c"), "invalid path '.a[b]c': expected '.' at character 6");
   EXPECT_EQ(stepsText("..a"),
             "invalid path '..a': expected the name of an attribute at character 2");
   EXPECT_EQ(stepsText(".a."),
             "invalid path '.a.': expected the name of an attribute at character 4");
   EXPECT_EQ(stepsText(".a-b"), "invalid path '.a-b': expected '.' at character 3");
}

TEST(Path, BeginsWithTheLongestRootThatFits) {
   EXPECT_EQ(rootText("ptp/config"), "Ptp::Config ptp/config 0");
   EXPECT_EQ(rootText("ptp/status.old.enabled"), "Ptp::Status ptp/status.old 1");
   EXPECT_EQ(rootText("ptp/status.older"), "Ptp::Status ptp/status 1");
}

TEST(Path, ARootIsToldFromOthersOfItsNameByItsType) {
   EXPECT_EQ(rootText("Ptp::HwTime=twice.x"), "Ptp::HwTime twice 1");
   EXPECT_EQ(rootText("Ptp::Config=ptp/config.x"), "Ptp::Config ptp/config 1");
   EXPECT_NE(rootText("twice.x").find("put the type before it"), std::string::npos)
         << rootText("twice.x");
}

TEST(Path, SaysWhichRootsThereAre) {
   EXPECT_EQ(rootText("nothing.x"),
             "'nothing.x' does not begin with the name of a root; the server has ptp/config, "
             "ptp/status, "
             "ptp/status.old, twice, twice");
   EXPECT_THROW(parsePath("x", {}), Failure);
}

}  // namespace
}  // namespace Holt
