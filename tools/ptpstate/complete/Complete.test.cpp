// What bash offers after the Tab key.
#include "tools/ptpstate/complete/Complete.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

TEST(ShellWords, AreCutAsAShellDoes) {
   EXPECT_THAT(shellWords("ptpstate  get a").words, ElementsAre("ptpstate", "get", "a"));
   EXPECT_THAT(shellWords("ptpstate get ").words, ElementsAre("ptpstate", "get", ""));
   EXPECT_THAT(shellWords(R"(a 'b c' "d e" f\ g)").words, ElementsAre("a", "b c", "d e", "f g"));
   EXPECT_EQ(shellWords("a 'b c").quote, '\'');
   EXPECT_EQ(shellWords("a 'b c").raw, "'b c");
   EXPECT_THAT(shellWords("").words, ElementsAre(""));
}

TEST(ShellQuoted, EscapesWhatAShellWouldTake) {
   EXPECT_EQ(shellQuoted("a.b[c]", 0), "a.b[c]");
   EXPECT_EQ(shellQuoted("b[K(i=1, v=2)]", 0), "b[K\\(i=1,\\ v=2\\)]");
   EXPECT_EQ(shellQuoted("b[K(i=1, v=2)]", '\''), "b[K(i=1, v=2)]");
   EXPECT_EQ(shellQuoted("complete ", 0), "complete ");
   EXPECT_EQ(shellQuoted("b[\"x\"]", '"'), "b[\\\"x\\\"]");
}

constexpr char const* slowProfile =
      "Ptp::UcastNegProfile(announceProfile=Ptp::UcastNegMsgProfile(logInterval=3, duration=60), "
      "syncProfile=Ptp::UcastNegMsgProfile(logInterval=3, duration=60), "
      "delayRespProfile=Ptp::UcastNegMsgProfile(logInterval=3, duration=60))";

class CompleteTest : public WithServer {
protected:
   void serve() {
      WithServer::serve({"--root", "Ptp::Config=ptp/config", "--root", "Ptp::Status=ptp/status"});
      change({"add", "ptp/config.intfConfig[Ethernet10]", "true", "false"});
      change({"add", "ptp/config.intfConfig[Ethernet2]", "true", "false"});
      change({"add", "ptp/config.intfRegionConfig[Ptp::PortDSKey(intf=Ethernet2, vlanId=7)]"});
   }
   void change(std::vector<std::string> args) {
      args.insert(args.begin() + 1, {"--socket", socket});
      ASSERT_EQ(run(args).err, "");
   }
   /// Candidates for a line with the cursor at its end. `word` is what bash sees of the last word.
   std::vector<std::string> at(std::string const& line, std::string const& word) {
      Surroundings in;
      in.socket = server != nullptr ? socket : "";
      Outcome const outcome = run({"complete", "--", line, std::to_string(line.size()), word}, in);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      std::vector<std::string> lines;
      std::istringstream out(outcome.out);
      for (std::string each; std::getline(out, each);) {
         lines.push_back(each);
      }
      return lines;
   }
   std::vector<std::string> at(std::string const& line) {
      return at(line, line.substr(line.rfind(' ') + 1));
   }
};

TEST_F(CompleteTest, OffersCommandsAndOptionsWithoutAServer) {
   EXPECT_THAT(at("ptpstate d"), ElementsAre("dump ", "del ", "diff ", "digest "));
   EXPECT_THAT(at("ptpstate "), AllOf(Contains("watch "), Not(Contains("complete "))));
   EXPECT_THAT(at("ptpstate watch --"),
               AllOf(Contains("--json "), Contains("--count "), Contains("--help ")));
   EXPECT_THAT(at("ptpstate watch --count "), IsEmpty());
   EXPECT_THAT(at("ptpstate get ptp/"), IsEmpty());
   EXPECT_THAT(at("ptpstate nonsense x"), IsEmpty());
}

TEST_F(CompleteTest, OffersTypesOfTheModules) {
   EXPECT_THAT(at("ptpstate types PtpM"),
               ElementsAre("PtpMib ", "PtpMib::ClockRoleType ", "PtpMib::RxTxMode ",
                           "PtpMpassStatedbTypes "));
   // Bash sees only what follows the colon.
   EXPECT_THAT(at("ptpstate types Ptp::VlanS", "VlanS"), ElementsAre("VlanStatus "));
   EXPECT_THAT(at("ptpstate serve --root Ptp::Stat", "Stat"), ElementsAre("Status="));
}

TEST_F(CompleteTest, OffersPathsOfALiveServer) {
   serve();
   EXPECT_THAT(at("ptpstate get "), ElementsAre("ptp/config", "ptp/status"));
   EXPECT_THAT(at("ptpstate get ptp/config.prior"),
               ElementsAre("ptp/config.priority1 ", "ptp/config.priority2 "));
   EXPECT_THAT(at("ptpstate get ptp/config.intfC"), ElementsAre("ptp/config.intfConfig["));
   EXPECT_THAT(
         at("ptpstate get ptp/config.intfConfig[E"),
         ElementsAre("ptp/config.intfConfig[Ethernet2]", "ptp/config.intfConfig[Ethernet10]"));
   EXPECT_THAT(at("ptpstate get ptp/config.intfConfig[Ethernet2].tt"),
               ElementsAre("ptp/config.intfConfig[Ethernet2].ttl "));
   EXPECT_THAT(at("ptpstate get ptp/config.clockQuality.clockA"),
               ElementsAre("ptp/config.clockQuality.clockAccuracy "));
   EXPECT_THAT(at("ptpstate watch --json ptp/s"), ElementsAre("ptp/status"));
   EXPECT_THAT(at("ptpstate watch --count 3 ptp/s"), ElementsAre("ptp/status"));
   EXPECT_THAT(at("ptpstate get ptp/config.nothing.x"), IsEmpty());
   server.reset();
   EXPECT_THAT(at("ptpstate get --socket " + socket + " "), IsEmpty());
}

TEST_F(CompleteTest, OffersFormatsAndRootsToExport) {
   EXPECT_THAT(at("ptpstate export "), ElementsAre("openconfig ", "ptp4l-conf "));
   EXPECT_THAT(at("ptpstate export ptp4l-conf "), IsEmpty());
   serve();
   EXPECT_THAT(at("ptpstate export ptp4l-conf "), ElementsAre("ptp/config", "ptp/status"));
   EXPECT_THAT(at("ptpstate load --openc"), ElementsAre("--openconfig "));
}

TEST_F(CompleteTest, OffersKeysOfSeveralFieldsAsPathsHaveThem) {
   serve();
   EXPECT_THAT(at("ptpstate get ptp/config.intfRegionConfig[Eth"),
               ElementsAre("ptp/config.intfRegionConfig[Ethernet2,7]"));
   EXPECT_THAT(at("ptpstate get ptp/config.intfRegionConfig[Ethernet2,7].domainN"),
               ElementsAre("ptp/config.intfRegionConfig[Ethernet2,7].domainNumberMode "));
}

TEST_F(CompleteTest, QuotesWhatTheShellWouldTake) {
   serve();
   change({"set", "ptp/config.ucastNegProfile[a slow one]", slowProfile});
   EXPECT_THAT(at("ptpstate get ptp/config.ucastNegProfile["),
               ElementsAre(R"(ptp/config.ucastNegProfile[\"a\ slow\ one\"])"));
   EXPECT_THAT(at(R"(ptpstate get ptp/config.ucastNegProfile[\"a\ s)",
                  R"(ptp/config.ucastNegProfile[\"a\ s)"),
               ElementsAre(R"(ptp/config.ucastNegProfile[\"a\ slow\ one\"])"));
   EXPECT_THAT(at("ptpstate get 'ptp/config.ucastNegProfile[", "ptp/config.ucastNegProfile["),
               ElementsAre("ptp/config.ucastNegProfile[\"a slow one\"]"));
}

TEST_F(CompleteTest, OffersTheValuesOfAChoice) {
   serve();
   EXPECT_THAT(at("ptpstate set ptp/config.ptpProfile g8275"), ElementsAre("g8275_1 ", "g8275_2 "));
   EXPECT_THAT(at("ptpstate set ptp/config.enabled "), ElementsAre("false ", "true "));
   EXPECT_THAT(at("ptpstate set ptp/config.priority1 "), IsEmpty());
}

TEST_F(CompleteTest, TheScriptHandsItToBash) {
   serve();
   std::string const script = PTPLIB_SOURCE_DIR "/tools/ptpstate/ptpstate.bash";
   std::string const line = "ptpstate get ptp/config.prior";
   std::string const command = "PTPSTATE_SOCKET='" + socket + "' bash -c 'source \"" + script +
                               "\"; COMP_LINE=\"" + line +
                               "\" COMP_POINT=" + std::to_string(line.size()) +
                               "; _ptpstate \"" PTPLIB_BIN_DIR
                               "/ptpstate\" ptp/config.prior get; printf \"%s|\" "
                               "\"${COMPREPLY[@]}\"'";
   std::unique_ptr<FILE, int (*)(FILE*)> const pipe(::popen(command.c_str(), "r"), ::pclose);
   char said[256] = "";
   ASSERT_NE(std::fgets(said, sizeof said, pipe.get()), nullptr);
   EXPECT_STREQ(said, "ptp/config.priority1 |ptp/config.priority2 |");
}

}  // namespace
}  // namespace Ptpstate
