// The real program, with real clients.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tools/ptpstate/ProgramUnderTest.h"
#include "tools/statedb/Sqlite.h"

namespace Statedb {
namespace {

using Ptpstate::Outcome;

class ServiceTest : public testing::Test {
protected:
   void start(std::vector<std::string> const& more = {}, bool serves = true) {
      std::vector<std::string> args{"--socket", socket, "--database", database};
      args.insert(args.end(), more.begin(), more.end());
      Ptpstate::Surroundings in;
      in.program = "statedb";
      program = std::make_unique<Ptpstate::Program>(args, in);
      if (serves) {
         ASSERT_TRUE(program->says("serving")) << program->finish().err;
      }
   }
   void kill() {
      program->signal(SIGKILL);
      program->finish();
      ::unlink(socket.c_str());
   }
   /// Ends it, and returns its output.
   Outcome const& stop() {
      program->signal(SIGTERM);
      return program->finish();
   }
   /// Starts it where it refuses to run.
   Outcome const& refused(std::vector<std::string> const& more = {}) {
      start(more, false);
      return program->finish();
   }
   Outcome client(std::vector<std::string> args) const {
      args.insert(args.end(), {"--socket", socket});
      return Ptpstate::run(args);
   }
   std::string get(std::string const& path) const { return client({"get", path}).out; }
   void set(std::string const& path, std::string const& value) const {
      Outcome const outcome = client({"set", path, value});
      EXPECT_EQ(outcome.status, 0) << outcome.err;
   }
   void sql(char const* statements) const { Sqlite(database, false).run(statements); }

   Ptpstate::Scratch scratch;
   std::string socket = scratch.file("socket");
   std::string database = scratch.file("state.db");
   std::unique_ptr<Ptpstate::Program> program;
};

bool has(std::string const& text, std::string const& part) {
   return text.find(part) != std::string::npos;
}

TEST_F(ServiceTest, WhatWasSetIsThereAfterAKill) {
   start();
   EXPECT_TRUE(has(program->out(), "state.db: made; there was none\n"));
   set("ptp/config.priority1", "100");
   EXPECT_EQ(client({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"}).status, 0);
   set("ptp/config.missingSequenceThresholds[sync]", "5");
   kill();
   start();
   EXPECT_TRUE(has(program->out(), "the last process did not close it"));
   EXPECT_TRUE(has(program->out(), "Ptp::Config=ptp/config: restored, 4 entities, "));
   EXPECT_EQ(get("ptp/config.priority1"), "100\n");
   EXPECT_EQ(get("ptp/config.missingSequenceThresholds[sync]"), "5\n");
   EXPECT_EQ(get("ptp/config.intfConfig[Ethernet1].enabled"), "true\n");
   EXPECT_EQ(stop().status, 0);
   EXPECT_FALSE(std::filesystem::exists(database + "-wal"));
}

TEST_F(ServiceTest, TheTablesCanBeReadWithJsonFunctions) {
   start();
   set("ptp/config.clockQuality.clockClass", "6");
   Sqlite db(database, false);
   EXPECT_EQ(db.number("SELECT json_extract(value, '$.clockClass') FROM state "
                       "WHERE path = 'ptp/config.clockQuality'"),
             6);
   EXPECT_EQ(db.text("SELECT name FROM root"), "ptp/config");
   EXPECT_EQ(db.text("SELECT value FROM meta WHERE name = 'format'"), "1");
}

TEST_F(ServiceTest, AStatusIsKeptOnlyOnRequest) {
   std::vector<std::string> const roots{"--root", "Ptp::Config=ptp/config", "--root",
                                        "Ptp::HwStatus=ptp/hwStatus"};
   start(roots);
   EXPECT_TRUE(has(program->out(), "keeps 1 root "));
   stop();
   std::vector<std::string> kept = roots;
   kept.insert(kept.end(), {"--keep", "ptp/hwStatus"});
   start(kept);
   EXPECT_TRUE(has(program->out(), "Ptp::HwStatus=ptp/hwStatus: kept from now on"));
   stop();
   start();  // what is in the database is served, and kept
   EXPECT_TRUE(program->says("serving Ptp::HwStatus=ptp/hwStatus"));
   EXPECT_TRUE(has(program->out(), "keeps 2 roots "));
   stop();
   Outcome const& wrong = refused({"--keep", "ptp/nothing"});
   EXPECT_EQ(wrong.status, 1);
   EXPECT_EQ(wrong.err,
             "statedb: --keep ptp/nothing: there is no such root; add --root TYPE=ptp/nothing\n");
}

TEST_F(ServiceTest, AStatusThatWasRestoredIsStaleSinceItWasWritten) {
   std::vector<std::string> const options{"--root", "Ptp::HwStatus=ptp/hwStatus",
                                          "--root", "Ptp::Config=ptp/config",
                                          "--keep", "ptp/hwStatus"};
   start(options);
   set("ptp/config.priority1", "100");
   EXPECT_FALSE(has(client({"status"}).out, "stale"));
   stop();
   start(options);
   std::string const status = client({"status"}).out;
   EXPECT_TRUE(has(status, "root ptp/hwStatus (Ptp::HwStatus): stale since ")) << status;
   EXPECT_FALSE(has(status, "root ptp/config")) << "whoever sets it need not stay";
}

TEST_F(ServiceTest, IntervalsAndNoSyncsLoseNothingAtAnOrderlyEnd) {
   for (char const* const sync : {"interval", "never"}) {
      start({"--sync", sync, "--interval", "3600"});
      set("ptp/config.priority1", "50");
      set("ptp/config.priority1", sync == std::string("never") ? "61" : "60");
      EXPECT_EQ(stop().status, 0);
      start();
      EXPECT_EQ(get("ptp/config.priority1"), sync == std::string("never") ? "61\n" : "60\n");
      stop();
   }
   EXPECT_EQ(refused({"--sync", "often"}).status, 2);
}

TEST_F(ServiceTest, WhileTheDiskFailsNothingIsConfirmedAndNothingIsLost) {
   start();
   set("ptp/config.priority1", "100");
   rlimit const none{0, RLIM_INFINITY};
   ASSERT_EQ(::prlimit(program->pid(), RLIMIT_FSIZE, &none, nullptr), 0);
   Outcome const refused = client({"set", "ptp/config.priority1", "101"});
   EXPECT_EQ(refused.status, 3);
   EXPECT_TRUE(has(refused.err, "not confirmed, since the disk fails: ")) << refused.err;
   EXPECT_TRUE(program->says("nothing is confirmed, and writing is tried every second"));
   EXPECT_EQ(get("ptp/config.priority1"), "101\n");  // served all the same
   EXPECT_EQ(client({"set", "ptp/config.priority2", "7"}).status, 3);
   rlimit const all{RLIM_INFINITY, RLIM_INFINITY};
   ASSERT_EQ(::prlimit(program->pid(), RLIMIT_FSIZE, &all, nullptr), 0);
   EXPECT_TRUE(program->says("written again; everything is kept"));
   set("ptp/config.domainNumber", "3");
   kill();
   start();
   EXPECT_EQ(get("ptp/config.priority1"), "101\n");
   EXPECT_EQ(get("ptp/config.priority2"), "7\n");
   EXPECT_EQ(get("ptp/config.domainNumber"), "3\n");
}

TEST_F(ServiceTest, AValueThatNoLongerFitsIsReportedAndKeptAside) {
   start();
   stop();
   sql("UPDATE value SET value = '4000' WHERE attribute = 'priority1'; "
       "UPDATE meta SET value = '0.0.1' WHERE name = 'release'; "
       "UPDATE module SET hash = '00000001' WHERE name = 'PtpStatusStatedbTypes'");
   start();
   std::string const& out = program->out();
   EXPECT_TRUE(has(out, "written by release 0.0.1; this is release ")) << out;
   EXPECT_TRUE(has(out, "module PtpStatusStatedbTypes has hash ")) << out;
   EXPECT_TRUE(has(out, "priority1: cannot be restored: ")) << out;
   EXPECT_EQ(get("ptp/config.priority1"), "128\n");
   stop();
   EXPECT_EQ(Sqlite(database, false).text("SELECT value FROM rejected"), "4000");
}

TEST_F(ServiceTest, AFormatOfAnotherReleaseIsRefused) {
   start();
   stop();
   sql("PRAGMA user_version = 7; UPDATE meta SET value = '9.1' WHERE name = 'release'");
   Outcome const& outcome = refused({"--recover"});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_TRUE(has(outcome.err, "has format 7, written by release 9.1; this release, "))
         << outcome.err;
   sql("PRAGMA application_id = 5");
   EXPECT_TRUE(has(refused().err, "is a database of another program; choose another file"));
}

TEST_F(ServiceTest, ADamagedFileIsRefusedOrMovedAside) {
   start();
   set("ptp/config.priority1", "100");
   stop();
   std::filesystem::resize_file(database, 20'000);
   EXPECT_TRUE(has(refused().err, "state.db: is damaged: "));
   std::ofstream(database).close();
   EXPECT_TRUE(has(refused().err,
                   "is damaged: the file is empty; restore a copy, or start with --recover"));
   start({"--recover"});
   EXPECT_TRUE(has(program->out(), "state.db: moved aside as ")) << program->out();
   EXPECT_EQ(get("ptp/config.priority1"), "128\n");
}

TEST_F(ServiceTest, AFileThatIsInUseIsRefused) {
   start();
   Ptpstate::Surroundings in;
   in.program = "statedb";
   Outcome const outcome =
         Ptpstate::run({"--socket", scratch.file("other"), "--database", database}, in);
   EXPECT_EQ(outcome.status, 1);
   EXPECT_TRUE(has(outcome.err, "another process keeps its state here")) << outcome.err;
}

TEST_F(ServiceTest, ADirectoryThatIsMissingIsNamed) {
   database = scratch.file("nowhere/state.db");
   EXPECT_TRUE(has(refused().err,
                   "nowhere/state.db.new: cannot be written: No such file or "
                   "directory; create its directory first"));
}

TEST_F(ServiceTest, WhatIsLoadedIsOnlyTheFirstState) {
   start();
   set("ptp/config.priority1", "77");
   std::string const dump = scratch.file("dump.json");
   std::ofstream(dump) << client({"dump", "--json"}).out;
   stop();
   std::filesystem::remove(database);
   start({"--load", dump});
   EXPECT_EQ(get("ptp/config.priority1"), "77\n");
   set("ptp/config.priority1", "78");
   stop();
   start({"--load", dump});
   EXPECT_TRUE(
         has(program->out(), "Ptp::Config=ptp/config is not loaded, since the database has it"));
   EXPECT_EQ(get("ptp/config.priority1"), "78\n");
}

TEST_F(ServiceTest, ModulesOfTheUserAreLoadedServedAndKept) {
   std::string const library = PTPLIB_BIN_DIR "/../lib/libKivTest.so";
   start({"--module", library, "--root", "KivTest::Stem=stem", "--keep", "stem"});
   EXPECT_TRUE(has(program->out(), "loaded " + library + ": TestTypes")) << program->out();
   EXPECT_TRUE(has(program->out(), "KivTest::Stem=stem: kept from now on"));
   stop();
   start();
   EXPECT_TRUE(has(program->out(),
                   "KivTest::Stem=stem: kept, but not served: there is no type "
                   "KivTest::Stem; load its library with --module"))
         << program->out();
   stop();
   EXPECT_TRUE(
         has(refused({"--module", "./libNothing.so"}).err, "statedb: --module: ./libNothing.so: "));
   EXPECT_TRUE(has(refused({"--module", "libm.so.6"}).err, "--module libm.so.6: adds no module"));
}

/// As systemd starts a service: with a socket, and one to report to.
TEST_F(ServiceTest, TakesItsSocketFromSystemdAndReportsThatItLives) {
   sockaddr_un reports{};
   reports.sun_family = AF_UNIX;
   std::snprintf(reports.sun_path, sizeof reports.sun_path, "%s", scratch.file("notify").c_str());
   int const notify = ::socket(AF_UNIX, SOCK_DGRAM, 0);
   ASSERT_EQ(::bind(notify, reinterpret_cast<sockaddr*>(&reports), sizeof reports), 0);
   timeval const patience{10, 0};
   ::setsockopt(notify, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
   int const listening = Ptpstate::listeningAt(socket, 8);
   pid_t const child = ::fork();
   if (child == 0) {
      ::dup2(listening, 3);
      ::setenv("LISTEN_FDS", "1", 1);
      ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
      ::setenv("NOTIFY_SOCKET", reports.sun_path, 1);
      ::setenv("WATCHDOG_USEC", "100000", 1);
      ::execl(PTPLIB_BIN_DIR "/statedb", "statedb", "--quiet", "--database", database.c_str(),
              nullptr);
      ::_exit(127);
   }
   std::string said;
   for (int i = 0; i != 20 && !has(said, "WATCHDOG=1\nWATCHDOG=1\n"); ++i) {
      char text[256];
      ssize_t const size = ::recv(notify, text, sizeof text, 0);
      ASSERT_GT(size, 0);
      said += std::string(text, static_cast<std::size_t>(size)) + "\n";
   }
   EXPECT_EQ(said.substr(0, said.find("WATCHDOG")), "STATUS=Keeps 1 root\nREADY=1\n");
   set("ptp/config.priority1", "9");
   EXPECT_EQ(get("ptp/config.priority1"), "9\n");
   ::kill(child, SIGTERM);
   int status = 0;
   ::waitpid(child, &status, 0);
   EXPECT_EQ(status, 0);
   EXPECT_TRUE(std::filesystem::exists(socket));  // it is not the program's
   ::close(listening);
   ::close(notify);
}

}  // namespace
}  // namespace Statedb
