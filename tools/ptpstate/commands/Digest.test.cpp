// Digests of what a server holds.
#include <gtest/gtest.h>

#include "Kiv/Digest.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {

namespace {

class DigestTest : public WithServer {
protected:
   void SetUp() override { serve(); }
   Outcome digest(std::vector<std::string> const& paths = {}) const {
      std::vector<std::string> args{"digest", "--socket", socket};
      args.insert(args.end(), paths.begin(), paths.end());
      return run(args);
   }
};

TEST_F(DigestTest, IsThatOfAnEqualStateInAnotherProcess) {
   ASSERT_EQ(run({"set", "--socket", socket, "ptp/config.priority1", "7"}).status, 0);
   auto const config = Ptp::configFactory("ptp/config");
   config->priority1Is(7);
   Outcome const outcome = digest({"ptp/config"});
   EXPECT_EQ(outcome.out, Kiv::treeDigest(*config).text() + "  ptp/config\n");
   EXPECT_EQ(outcome.err, "");
   EXPECT_EQ(outcome.status, 0);
}

TEST_F(DigestTest, OfAllRootsChangesWithTheStateAndBack) {
   std::string const before = digest().out;
   ASSERT_NE(before, "");
   ASSERT_EQ(run({"set", "--socket", socket, "ptp/config.priority1", "7"}).status, 0);
   EXPECT_NE(digest().out, before);
   ASSERT_EQ(run({"set", "--socket", socket, "ptp/config.priority1", "128"}).status, 0);
   EXPECT_EQ(digest().out, before);
}

TEST_F(DigestTest, IsOfEntitiesOnly) {
   Outcome const outcome = digest({"ptp/config.priority1"});
   EXPECT_EQ(outcome.err, "ptpstate: ptp/config.priority1 is not an entity, so it has no digest\n");
   EXPECT_EQ(outcome.status, 1);
}

}  // namespace

}  // namespace Ptpstate
