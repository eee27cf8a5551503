// Output that is lost is an error, whatever prints it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class FullDevice : public WithServer {
protected:
   void SetUp() override {
      full_ = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
      ASSERT_GE(full_, 0);
   }
   void TearDown() override { ::close(full_); }

   /// What a program says about its output, and its status.
   std::string intoFull(std::vector<std::string> const& args, std::string const& program) const {
      Surroundings in;
      in.program = program;
      in.socket = socket;
      in.output = full_;
      Outcome const outcome = run(args, in);
      return std::to_string(outcome.status) + " " + outcome.err;
   }

   int full_ = -1;
};

TEST_F(FullDevice, EndsEveryProgramThatPrintsHelp) {
   for (std::string const program : {"ptpstate", "ptpports", "ptp4lAgent", "demoAgent", "kivc"}) {
      for (std::string const option : {"--help", "--version"}) {
         EXPECT_EQ(intoFull({option}, program), "1 " + program + ": the output cannot be written\n")
               << option;
      }
   }
   EXPECT_EQ(intoFull({"help", "get"}, "ptpstate"), "1 ptpstate: the output cannot be written\n");
}

TEST_F(FullDevice, EndsEveryCommandThatPrints) {
   serve({"--root", "Ptp::Config=ptp/config", "--root", "Ptp::Status=ptp/status"});
   std::string const state = scratch.file("state");
   std::ofstream(state) << client({"dump", "--json"}).out;
   std::ofstream(scratch.file("other")) << R"({"format": "ptpstate dump 1", "places": []})";
   for (std::vector<std::string> const& args :
        std::vector<std::vector<std::string>>{{"get", "ptp/config.priority1"},
                                              {"dump"},
                                              {"dump", "--json"},
                                              {"dump", "--summary"},
                                              {"status"},
                                              {"types"},
                                              {"watch", "--timeout", "5"},
                                              {"top", "--batch", "ptp/config"},
                                              {"load", "--dry-run", state},
                                              {"diff", state, scratch.file("other")},
                                              {"export", "ptp4l-conf"}}) {
      std::string const status = args[0] == "diff" ? "2" : "1";
      EXPECT_EQ(intoFull(args, "ptpstate"), status + " ptpstate: the output cannot be written\n")
            << args[0];
   }
   for (std::vector<std::string> const& args :
        std::vector<std::vector<std::string>>{{}, {"--json"}, {"--watch"}}) {
      EXPECT_EQ(intoFull(args, "ptpports"), "1 ptpports: the output cannot be written\n");
   }
}

}  // namespace
}  // namespace Ptpstate
