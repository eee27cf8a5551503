#include "tools/ptp4lAgent/ConfFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace {

using namespace Ptp4lAgent;

U64 confFileTime = 1;

class ConfFileTest : public testing::Test {
protected:
   ConfFileTest() {
      std::string pattern = (std::filesystem::temp_directory_path() / "confFile.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      ::pipe2(logPipe.data(), O_NONBLOCK | O_CLOEXEC);
      log.emplace(logPipe[1]);
      config->enabledIs(true);
      config->ptpModeIs(Ptp::PtpMode::ordinary);
   }
   ~ConfFileTest() override {
      ::close(logPipe[0]);
      ::close(logPipe[1]);
      std::filesystem::remove_all(directory);
   }

   std::string file(std::string const& name) const { return directory + "/" + name; }
   static std::string read(std::string const& path) {
      std::ostringstream all;
      all << std::ifstream(path).rdbuf();
      return all.str();
   }
   /// The lines of the log, without their times.
   std::string logged() const {
      std::array<char, 4096> buffer;
      ::ssize_t const n = ::read(logPipe[0], buffer.data(), buffer.size());
      std::istringstream lines(std::string(buffer.data(), n > 0 ? static_cast<std::size_t>(n) : 0));
      std::string all;
      for (std::string line; std::getline(lines, line);) {
         all += line.substr(24) + "\n";
      }
      return all;
   }
   ConfFile::Options options(std::string const& reload = "") {
      return {.path = file("conf"), .reload = reload, .log = &*log, .clock = []() noexcept {
                 return confFileTime;
              }};
   }
   static void turn(ConfFile& writer) {
      std::vector<pollfd> polled;
      writer.appendTo(polled);
      writer.onTurn(polled);
   }
   static void turnUntilIdle(ConfFile& writer) {
      for (int i = 0; i != 1000 && writer.isReloading(); ++i) {
         std::this_thread::sleep_for(std::chrono::milliseconds(5));
         turn(writer);
      }
      ASSERT_FALSE(writer.isReloading());
   }

   std::string directory;
   std::array<int, 2> logPipe;
   std::optional<Holt::LogOutput> log;
   Sarn::Ptr<Ptp::Config> const config = Ptp::configFactory("ptp/config");
};

TEST_F(ConfFileTest, ChangesInARowAreWrittenOnceAndTheCommandIsRunOnce) {
   ConfFile writer(config, options("echo again >>" + file("ran")));
   EXPECT_EQ(writer.deadline(), 0u);
   writer.changed();
   EXPECT_EQ(writer.deadline(), confFileTime + ConfFile::patience);
   confFileTime += ConfFile::patience / 2;
   config->priority1Is(7);
   writer.changed();
   EXPECT_EQ(writer.deadline(), confFileTime + ConfFile::patience / 2);
   turn(writer);
   EXPECT_FALSE(std::filesystem::exists(file("conf")));
   confFileTime += ConfFile::patience / 2;
   turn(writer);
   EXPECT_NE(read(file("conf")).find("priority1                       7\n"), std::string::npos);
   EXPECT_EQ(logged(), file("conf") + ": written\n");
   EXPECT_EQ(writer.deadline(), confFileTime + ConfFile::lookAgain);
   turnUntilIdle(writer);
   EXPECT_EQ(read(file("ran")), "again\n");
   EXPECT_EQ(writer.deadline(), 0u);
   EXPECT_EQ(logged(), "");
   EXPECT_FALSE(std::filesystem::exists(file("conf.new")));
}

TEST_F(ConfFileTest, WhatChangesWhileTheCommandRunsIsWrittenWhenItHasEnded) {
   ::mkfifo(file("go").c_str(), 0600);
   ConfFile writer(config, options("read line <" + file("go") + "; exit 3"));
   writer.changed();
   confFileTime += ConfFile::patience;
   turn(writer);
   ASSERT_TRUE(writer.isReloading());
   config->priority1Is(9);
   writer.changed();
   confFileTime += ConfFile::patience;
   turn(writer);
   EXPECT_EQ(read(file("conf")).find("priority1                       9\n"), std::string::npos);
   std::ofstream(file("go")) << "\n";
   while (read(file("conf")).find("priority1                       9\n") == std::string::npos) {
      turn(writer);
   }
   EXPECT_EQ(logged(), file("conf") + ": written\nthe command of --reload ended with status 3\n" +
                             file("conf") + ": written\n");
   EXPECT_TRUE(writer.isReloading());
   std::ofstream(file("go")) << "\n";
   turnUntilIdle(writer);
}

TEST_F(ConfFileTest, AFileThatCannotBeWrittenIsNamedAndTriedAgainWithTheNextChange) {
   std::filesystem::create_directory(file("conf"));
   ConfFile writer(config, options("touch " + file("ran")));
   writer.changed();
   confFileTime += ConfFile::patience;
   turn(writer);
   EXPECT_EQ(logged(), file("conf") + ": is a directory; give the name of a file in it\n");
   EXPECT_FALSE(writer.isReloading());
   EXPECT_EQ(writer.deadline(), 0u);
   std::filesystem::remove(file("conf"));
   std::ofstream(file("conf")) << "old\n";
   ::chmod(file("conf").c_str(), 0640);
   writer.changed();
   confFileTime += ConfFile::patience;
   turn(writer);
   EXPECT_EQ(logged(), file("conf") + ": written\n");
   EXPECT_EQ(std::filesystem::status(file("conf")).permissions(), std::filesystem::perms(0640));
   turnUntilIdle(writer);
   EXPECT_TRUE(std::filesystem::exists(file("ran")));
}

TEST_F(ConfFileTest, ChangesThatStillWaitAreWrittenAtTheEnd) {
   {
      ConfFile writer(config, options("touch " + file("ran")));
      config->holdPtpTimeIntervalIs(5);
      writer.changed();
   }
   EXPECT_NE(read(file("conf")).find("#    holdPtpTimeInterval = 5"), std::string::npos);
   EXPECT_EQ(logged(), file("conf") + ": written; see its first lines for what it leaves out\n");
   EXPECT_FALSE(std::filesystem::exists(file("ran")));
}

}  // namespace
