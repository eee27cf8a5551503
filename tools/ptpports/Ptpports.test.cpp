// The program against a live server.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "Holt/Client.h"
#include "Holt/Server.h"
#include "PtpLib/PtpStatusStatedbTypes.h"

namespace {

/// Serves a root from a thread of its own; no other thread touches the root.
class Serving {
public:
   Serving(std::string const& socket, char const* type, char const* name) {
      if (::pipe(stop_) != 0) {
         throw std::runtime_error("no pipe");
      }
      Holt::Server::Options options;
      options.socket = socket;
      auto server = std::make_unique<Holt::Server>(std::move(options));  // listens from here on
      server->rootIs(Holt::newRoot(type, name));
      thread_ = std::thread([server = std::move(server), stop = stop_[0]]() mutable {
         server->run(stop);
         server.reset();
      });
   }
   ~Serving() {
      ::close(stop_[1]);
      thread_.join();
      ::close(stop_[0]);
   }
   Serving(Serving const&) = delete;
   Serving& operator=(Serving const&) = delete;

private:
   int stop_[2];
   std::thread thread_;
};

class Ptpports : public testing::Test {
protected:
   Ptpports() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptpports.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
   }
   ~Ptpports() override { std::filesystem::remove_all(directory); }

   std::string socket() const { return directory + "/socket"; }
   /// Runs the program to its end; returns its exit status and output.
   std::string ptpports(std::string const& arguments) const {
      std::string const out = directory + "/out";
      int const status = std::system((std::string(PTPLIB_BIN_DIR) + "/ptpports --socket " +
                                      socket() + " " + arguments + " >" + out + " 2>&1")
                                           .c_str());
      std::ostringstream said;
      said << WEXITSTATUS(status) << ' ' << std::ifstream(out).rdbuf();
      return said.str();
   }

   std::string directory;
};

TEST_F(Ptpports, ShowsTheStatusThatIsOffered) {
   Serving const serving(socket(), "Ptp::Status", "ptp/status");
   std::string const said = ptpports("");
   EXPECT_EQ(said.substr(0, 2), "0 ");
   EXPECT_EQ(said.substr(2, 19), "status  ptp/status\n");
   EXPECT_NE(said.find("\n0 ports\n"), std::string::npos) << said;
   EXPECT_EQ(ptpports("--root ptp/status"), said);
}

TEST_F(Ptpports, WritesADumpOfTheMirror) {
   Serving const serving(socket(), "Ptp::Status", "ptp/status");
   EXPECT_NE(ptpports("--dump -").find("ptp/status : Ptp::Status\n"), std::string::npos);
}

TEST_F(Ptpports, WhereThereIsNoStatusItSaysSo) {
   Serving const serving(socket(), "Ptp::Config", "ptp/config");
   EXPECT_EQ(
         ptpports(""),
         "1 ptpports: the server offers no Ptp::Status; 'ptpstate dump' shows what it offers\n");
}

TEST_F(Ptpports, WhereThereIsNoStatusOfTheNameItSaysSo) {
   Serving const serving(socket(), "Ptp::Status", "ptp/status");
   EXPECT_EQ(ptpports("--root other"),
             "1 ptpports: the server offers no Ptp::Status named other; it has ptp/status\n");
}

TEST_F(Ptpports, PrintsJson) {
   Serving const serving(socket(), "Ptp::Status", "ptp/status");
   EXPECT_EQ(ptpports("--json"),
             "0 {\n   \"status\": \"ptp/status\",\n   \"clock\": null,\n   \"follows\": null,\n"
             "   \"ports\": []\n}\n");
}

TEST_F(Ptpports, WatchesUntilItIsInterruptedAndPrintsOnlyWhatHasChanged) {
   Serving const serving(socket(), "Ptp::Status", "ptp/status");
   std::string const command = "timeout -s INT 1 " + std::string(PTPLIB_BIN_DIR) +
                               "/ptpports --watch --json --interval 0.05 --socket " + socket() +
                               " >" + directory + "/out 2>&1";
   EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 124);
   std::ostringstream said;
   said << std::ifstream(directory + "/out").rdbuf();
   EXPECT_EQ(said.str(), R"({"status":"ptp/status","clock":null,"follows":null,"ports":[]})"
                         "\n");
}

TEST_F(Ptpports, TabCompletesItsOptionsAndThoseOfTheAgent) {
   auto const completed = [this](std::string const& program, std::string const& word) {
      std::string const command = "bash -c 'source " PTPLIB_SOURCE_DIR "/tools/" + program + "/" +
                                  program + ".bash; _" + program + " " PTPLIB_BIN_DIR "/" +
                                  program + " " + word + " " + program +
                                  "; printf \"%s|\" \"${COMPREPLY[@]}\"' >" + directory + "/out";
      EXPECT_EQ(std::system(command.c_str()), 0);
      std::ostringstream said;
      said << std::ifstream(directory + "/out").rdbuf();
      return said.str();
   };
   EXPECT_EQ(completed("ptpports", "--w"), "--watch |");
   EXPECT_EQ(completed("ptpports", "--j"), "--json |");
   EXPECT_EQ(completed("ptp4lAgent", "--p"), "--ptp4l |");
}

TEST_F(Ptpports, WithoutAServerItEndsWith3AndNamesTheSocket) {
   std::string const said = ptpports("");
   EXPECT_EQ(said.substr(0, 12), "3 ptpports: ");
   EXPECT_NE(said.find(socket()), std::string::npos) << said;
}

TEST_F(Ptpports, AnUnknownOptionEndsWith2) {
   EXPECT_EQ(ptpports("--nonsense")[0], '2');
}

}  // namespace
