// Recordings of a live server, made and replayed by the real program.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/State/Place.h"
#include "Holt/Times.h"
#include "Kiv/Record/Recording.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {

using namespace Holt;

namespace {

std::string withoutDates(std::string const& text) {
   static std::regex const date(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
   return std::regex_replace(text, date, "DATE");
}

class RecordTest : public WithServer {
protected:
   void SetUp() override { serve(); }

   std::unique_ptr<Program> record(std::vector<std::string> const& more = {}) {
      std::vector<std::string> args{"record", "--socket", socket, file};
      args.insert(args.end(), more.begin(), more.end());
      auto recording = std::make_unique<Program>(args);
      EXPECT_TRUE(recording->says("recording ")) << recording->finish().err;
      return recording;
   }
   Outcome client(std::vector<std::string> args) const {
      args.insert(args.begin() + 1, {"--socket", socket});
      return run(args);
   }
   void set(std::string const& path, std::string const& value) const {
      ASSERT_EQ(client({"set", path, value}).err, "");
   }
   static std::string ended(Program& recording) {
      recording.signal(SIGINT);
      EXPECT_EQ(recording.finish().status, 0) << recording.finish().err;
      EXPECT_EQ(recording.finish().err, "") << "no progress where there is no terminal";
      return recording.finish().out;
   }
   Outcome replay(std::vector<std::string> const& more = {}) const {
      std::vector<std::string> args{"replay", file};
      args.insert(args.end(), more.begin(), more.end());
      return run(args);
   }
   /// The time now, for --at. What is changed later has a later time.
   static std::string moment() {
      ::usleep(30'000);
      U64 const wall = wallNow();
      std::string fraction = std::to_string(wall % 1'000'000'000);
      fraction.insert(0, 9 - fraction.size(), '0');
      ::usleep(30'000);
      return "@" + std::to_string(wall / 1'000'000'000) + "." + fraction;
   }

   std::string file = scratch.file("recording");
};

TEST_F(RecordTest, PrintsWhatHappenedWithItsTimes) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   ASSERT_EQ(client({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"}).err, "");
   set("ptp/config.missingSequenceThresholds[sync]", "5");
   ASSERT_EQ(client({"del", "ptp/config.intfConfig[Ethernet1]"}).err, "");
   std::string const said = ended(*recording);
   EXPECT_TRUE(std::regex_match(said, std::regex("recording 1 root to .*/recording\nrecorded \\d+ "
                                                 "changes, \\d+ bytes\n")))
         << said;
   Outcome const played = replay();
   EXPECT_EQ(played.err, "");
   EXPECT_EQ(withoutDates(played.out),
             "DATE -- ptp/config is complete: 3 entities, 40 attributes\n"
             "DATE ptp/config.priority1: 128 -> 7\n"
             "DATE ptp/config.intfConfig[Ethernet1] created: enabled=true, mpassEnabled=false\n"
             "DATE ptp/config.missingSequenceThresholds[sync] created: 5\n"
             "DATE ptp/config.intfConfig[Ethernet1] deleted\n");
   Outcome const info = replay({"--info"});
   EXPECT_EQ(withoutDates(info.out),
             file +
                   "\n   begins     DATE\n   ends       DATE\n   roots      ptp/config "
                   "(Ptp::Config)\n" +
                   info.out.substr(info.out.find("   size ")));
}

TEST_F(RecordTest, ShowsTheStateAtAnyTime) {
   auto const recording = record();
   std::vector<std::pair<std::string, std::string>> states;
   for (char const* const value : {"1", "2", "3"}) {
      set("ptp/config.priority1", value);
      set("ptp/config.missingSequenceThresholds[sync]", value);
      states.emplace_back(moment(), client({"dump"}).out);
   }
   std::string const json = client({"dump", "--json"}).out;
   ended(*recording);
   for (auto const& [time, dump] : states) {
      Outcome const then = replay({"--at", time});
      EXPECT_EQ(then.err, "");
      EXPECT_EQ(then.out, dump) << time;
   }
   EXPECT_EQ(replay({"--dump", "-"}).out, states.back().second) << "at the end";
   EXPECT_EQ(replay({"--dump", "-", "--json"}).out, json);
   std::istringstream changes(replay({"--json"}).out);
   std::string line;
   std::getline(changes, line);
   EXPECT_NE(line.find("\"event\":\"complete\""), std::string::npos) << line;
   for (; std::getline(changes, line);) {
      EXPECT_EQ(line.substr(0, 9), "{\"time\":\"") << line;
      EXPECT_EQ(line.back(), '}') << line;
   }
   std::string const dumpFile = scratch.file("dump");
   EXPECT_EQ(replay({"--at", states[0].first, "--dump", dumpFile}).out, "");
   EXPECT_EQ(readFile(dumpFile), states[0].second);
   Outcome const first = replay({"--at", "+0"});
   EXPECT_NE(first.out.find("ptp/config.priority1                     = 128\n"), std::string::npos)
         << first.err;
   Outcome const late = replay({"--at", "+86400"});
   EXPECT_NE(late.out.find("# the recording ends before that, at "), std::string::npos);
   Outcome const early = replay({"--at", "@1000"});
   EXPECT_EQ(early.status, 1);
   EXPECT_NE(early.err.find("is before the beginning, "), std::string::npos) << early.err;
   EXPECT_EQ(replay({"--at", "noon"}).status, 2);
}

TEST_F(RecordTest, ShowsTheChangesBetweenTwoTimesAndBelowPaths) {
   auto const recording = record();
   std::vector<std::string> moments;
   for (char const* value : {"1", "2", "3"}) {
      ASSERT_EQ(client({"set", "ptp/config.priority1", value, "ptp/config.priority2", value}).err,
                "");
      moments.push_back(moment());
   }
   ended(*recording);
   auto const lines = [&](std::vector<std::string> const& more) {
      Outcome const outcome = replay(more);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      return withoutDates(outcome.out);
   };
   EXPECT_EQ(lines({"--since", moments[0], "--until", moments[1]}),
             "DATE ptp/config.priority1: 1 -> 2\n"
             "DATE ptp/config.priority2: 1 -> 2\n");
   EXPECT_EQ(lines({"--since", moments[1], "--path", "ptp/config.priority2"}),
             "DATE ptp/config.priority2: 2 -> 3\n");
   EXPECT_EQ(lines({"--since", moments[2]}), "");
   EXPECT_EQ(replay({"--path", "ptp/status"}).err,
             "ptpstate: 'ptp/status' is not a path below a root of the recording\n");
   EXPECT_EQ(replay({"--at", "+0", "--since", "+0"}).status, 2);
}

TEST_F(RecordTest, PlaysIntoAServer) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   ASSERT_EQ(client({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"}).err, "");
   std::string const then = client({"dump"}).out;
   ended(*recording);
   set("ptp/config.priority1", "8");
   ASSERT_EQ(client({"del", "ptp/config.intfConfig[Ethernet1]"}).err, "");
   ASSERT_EQ(client({"add", "ptp/config.intfConfig[Ethernet2]", "true", "false"}).err, "");
   Program watcher({"watch", "--socket", socket, "ptp/config.priority1"});
   ASSERT_TRUE(watcher.says("is complete"));
   EXPECT_EQ(replay({"--into", socket}).err, "");
   EXPECT_EQ(client({"dump"}).out, then);
   EXPECT_TRUE(watcher.says("ptp/config.priority1: 8 -> 128"));
   EXPECT_TRUE(watcher.says("ptp/config.priority1: 128 -> 7")) << "as it happened";
}

TEST_F(RecordTest, ClaimsWhatItPlaysIntoIfThatIsWanted) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   ::usleep(300'000);
   set("ptp/config.priority1", "9");
   ended(*recording);
   Program slow({"replay", file, "--into", socket, "--claim", "--speed", "0.1"});
   ASSERT_TRUE(server->says("opened", 4)) << server->out();
   Outcome refused;
   for (int i = 0; i != 100 && refused.status != 1; ++i) {
      refused = client({"set", "ptp/config.priority2", "1"});
   }
   EXPECT_NE(refused.err.find("is claimed by pid " + std::to_string(slow.pid())), std::string::npos)
         << refused.err;
   for (int i = 0; i != 500 && client({"get", "ptp/config.priority1"}).out != "7\n"; ++i) {
      ::usleep(10'000);
   }
   slow.signal(SIGINT);
   EXPECT_EQ(slow.finish().status, 0) << slow.finish().err;
   EXPECT_EQ(client({"set", "ptp/config.priority2", "1"}).err, "");
   EXPECT_EQ(client({"get", "ptp/config.priority1"}).out, "7\n") << "it was interrupted in between";
}

TEST_F(RecordTest, AServerWithoutTheRootIsTold) {
   auto const recording = record();
   ended(*recording);
   server.reset();
   serve({"--root", "Ptp::Status=ptp/status"});
   Outcome const outcome = replay({"--into", socket});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_NE(outcome.err.find("has no root ptp/config; serve it with --root "
                              "Ptp::Config=ptp/config"),
             std::string::npos)
         << outcome.err;
}

TEST_F(RecordTest, PlaysAtTheSpeedThatIsWanted) {
   auto const recording = record();
   ::usleep(800'000);
   set("ptp/config.priority1", "7");
   ended(*recording);
   auto const seconds = [this](std::vector<std::string> const& how) {
      U64 const begin = steadyNow();
      EXPECT_EQ(replay(how).err, "");
      return static_cast<double>(steadyNow() - begin) / 1e9;
   };
   EXPECT_GT(seconds({"--speed", "2"}), 0.4);
   EXPECT_LT(seconds({}), 0.4);
}

TEST_F(RecordTest, ThatWasCutOrDamagedIsReadUpToThere) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   set("ptp/config.priority1", "8");
   set("ptp/config.priority1", "9");
   ended(*recording);
   std::string const whole = readFile(file);
   std::ofstream(file, std::ios::binary) << whole.substr(0, whole.size() - 30);
   Outcome const cut = replay();
   EXPECT_EQ(cut.status, 1);
   EXPECT_EQ(withoutDates(cut.out),
             "DATE -- ptp/config is complete: 3 entities, 40 attributes\n"
             "DATE ptp/config.priority1: 128 -> 7\n"
             "DATE ptp/config.priority1: 7 -> 8\n");
   // The end is 25 bytes, the last change 36 before it.
   EXPECT_EQ(withoutDates(cut.err), "ptpstate: " + file + ": damaged at byte " +
                                          std::to_string(whole.size() - 61) +
                                          ": it ends within a frame; read up to there, DATE\n");
   Outcome const dump = replay({"--dump", "-"});
   EXPECT_EQ(dump.status, 1);
   EXPECT_NE(dump.out.find("ptp/config.priority1                     = 8\n"), std::string::npos);

   std::string bad = whole;
   bad[whole.size() - 30] ^= 1;
   std::ofstream(file, std::ios::binary) << bad;
   Outcome const damaged = replay({"--info"});
   EXPECT_EQ(damaged.status, 1);
   EXPECT_NE(damaged.out.find("   fault      damaged at byte " + std::to_string(whole.size() - 61) +
                              ": the checksum of a frame does not fit\n"),
             std::string::npos)
         << damaged.out;
   std::ofstream(file, std::ios::binary) << whole.substr(0, whole.size() - 25);
   EXPECT_EQ(replay().status, 0) << "a recorder that was killed is no damage";
   EXPECT_NE(replay({"--info"}).out.find(", not closed\n"), std::string::npos);
   std::ofstream(file, std::ios::binary) << "something else";
   EXPECT_NE(replay().err.find("damaged at byte 0: it does not begin as a recording of version 2"),
             std::string::npos);
   EXPECT_NE(run({"replay", scratch.file("nothing")}).err.find("there is no such recording"),
             std::string::npos);
}

TEST_F(RecordTest, AServerThatIsKilledEndsItAndNothingIsLost) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   ::usleep(100'000);
   server->signal(SIGKILL);
   Outcome const& outcome = recording->finish();
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.err.find("the connection is lost: the peer has closed the connection; "
                              "everything up to there is recorded"),
             std::string::npos)
         << outcome.err;
   EXPECT_NE(replay().out.find("ptp/config.priority1: 128 -> 7\n"), std::string::npos);
   EXPECT_NE(replay({"--info"}).out.find("4 frames, 1 snapshot"), std::string::npos)
         << replay({"--info"}).out;
}

TEST_F(RecordTest, GoesOnWhenTheServerIsBack) {
   auto const recording = record({"--reconnect"});
   set("ptp/config.priority1", "7");
   ::usleep(100'000);
   server->signal(SIGKILL);
   server->finish();
   ::usleep(200'000);
   std::string const lost = moment();
   serve();
   // It finds the server, and records that what was there has gone.
   ASSERT_TRUE(server->says("opened"));
   Outcome mirrored;
   for (int i = 0; i != 100; ++i) {
      mirrored = client({"status"});
      if (mirrored.out.find("as reader, complete") != std::string::npos) {
         break;
      }
   }
   set("ptp/config.priority1", "9");
   ended(*recording);
   EXPECT_EQ(withoutDates(replay().out),
             "DATE -- ptp/config is complete: 3 entities, 40 attributes\n"
             "DATE ptp/config.priority1: 128 -> 7\n"
             "DATE -- the recorder lost the server\n"
             "DATE ptp/config.priority1: 7 -> 128\n"
             "DATE -- the recorder has the server again\n"
             "DATE ptp/config.priority1: 128 -> 9\n");
   EXPECT_NE(
         replay({"--at", lost})
               .out.find("# the recorder had lost the server; this is the last state that it knew"),
         std::string::npos);
}

TEST_F(RecordTest, KeepsARingOfFilesEachOfWhichStandsAlone) {
   auto const recording = record({"--ring", "2", "--size", "14MB"});
   // Keys of 100 kB make it quick.
   std::string dump;
   {
      Client writer(socket, std::chrono::seconds(20));
      Mount& mount = writer.mountIs({"Ptp::Config", "ptp/config"}, MountMode::writer);
      writer.waitComplete(mount);
      for (int i = 0; i != 400; ++i) {
         Sarn::String const key = std::to_string(i % 3) + Sarn::String(100'000, 'k');
         Place place(Sarn::Ptr<Kiv::Entity>(&mount.root()), "ptp/config",
                     parseSteps(".ucastNegProfile[" + key + "]"));
         Sarn::String const message =
               "Ptp::UcastNegMsgProfile(logInterval=0, duration=" + std::to_string(i) + ")";
         place.set("Ptp::UcastNegProfile(announceProfile=" + message + ", syncProfile=" + message +
                   ", delayRespProfile=" + message + ")");
         writer.sync();
      }
   }
   dump = client({"dump"}).out;
   ended(*recording);
   std::vector<std::string> left;
   for (int i = 1; i != 9; ++i) {
      std::string const name = file + ".00000" + std::to_string(i);
      struct stat found {};
      if (::stat(name.c_str(), &found) == 0) {
         left.push_back(name);
         EXPECT_LE(found.st_size, 14 << 20);
      }
   }
   ASSERT_EQ(left.size(), 2U);
   EXPECT_NE(left[0], file + ".000001") << "the first is gone";
   EXPECT_EQ(run({"replay", left[1], "--dump", "-"}).out, dump);
   EXPECT_EQ(replay({"--dump", "-"}).out, dump) << "by the name of the ring";
   EXPECT_EQ(run({"replay", left[0], "--info"}).status, 0);
   Outcome const small = run({"record", "--socket", socket, file, "--ring", "2", "--size", "1MB"});
   EXPECT_EQ(small.status, 1);
   EXPECT_NE(small.err.find("files of 1048576 bytes: at least 14680064 are needed"),
             std::string::npos)
         << small.err;
}

TEST_F(RecordTest, AFileThatIsBeingRecordedIsLeftAlone) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   Outcome const second = run({"record", "--socket", socket, "--for", "5", "--replace", file});
   EXPECT_EQ(second.status, 1);
   EXPECT_EQ(second.err, "ptpstate: " + file +
                               ": another recorder is writing to it; nothing is recorded; choose "
                               "another name\n");
   ended(*recording);
   Outcome const played = replay();
   EXPECT_EQ(played.err, "");
   EXPECT_NE(played.out.find("ptp/config.priority1: 128 -> 7\n"), std::string::npos);
}

TEST_F(RecordTest, InfoAndReplayNameTheSameHole) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   ended(*recording);
   std::string const whole = readFile(file);
   std::size_t holes = 0;
   for (std::size_t begin = 0; begin < whole.size(); begin += whole.size() / 15 + 1) {
      for (std::size_t const length : {std::size_t(40), whole.size()}) {
         std::string bad = whole;
         std::size_t const end = std::min(begin + length, bad.size());
         std::fill(bad.begin() + static_cast<std::ptrdiff_t>(begin),
                   bad.begin() + static_cast<std::ptrdiff_t>(end), '\0');
         ASSERT_NE(bad, whole);
         ++holes;
         std::ofstream(file, std::ios::binary) << bad;
         Outcome const info = replay({"--info"});
         Outcome const played = replay({"--dump", "/dev/null"});
         EXPECT_EQ(info.status, 1) << begin;
         EXPECT_EQ(played.status, 1) << begin;
         // What was played adds up to which time.
         std::string const fault = info.err.substr(0, info.err.size() - 1);
         EXPECT_EQ(played.err.substr(0, fault.size()), fault);
         EXPECT_NE(info.err.find(": damaged at byte "), std::string::npos) << info.err;
      }
   }
   EXPECT_GE(holes, 28u);
}

TEST_F(RecordTest, InfoTellsWhatReplayWouldFind) {
   auto const recording = record();
   set("ptp/config.priority1", "7");
   ended(*recording);
   std::string const whole = readFile(file);
   auto const expectSame = [this](std::string const& bytes, std::string const& fault) {
      std::ofstream(file, std::ios::binary) << bytes;
      Outcome const info = replay({"--info"});
      Outcome const played = replay({"--dump", "/dev/null"});
      EXPECT_EQ(info.status, 1) << fault;
      EXPECT_EQ(played.status, 1) << fault;
      EXPECT_NE(info.out.find("   fault      " + fault), std::string::npos) << info.out;
      EXPECT_NE(info.err.find(fault), std::string::npos) << info.err;
      EXPECT_NE(played.err.find(fault), std::string::npos) << played.err;
   };
   // A frame with a correct checksum and an invalid message: the frame of the last change begins 61
   // bytes before the end.
   std::string bad = whole;
   std::size_t const frame = whole.size() - 61;
   bad[frame + Kiv::NboAttrLog::frameHeaderSize] = '\x7f';
   U8* const at = reinterpret_cast<U8*>(bad.data()) + frame;
   Kiv::NboAttrLog::writeFrameHeader(at, Kiv::NboAttrLog::FrameKind::log, {1, 1}, 11);
   expectSame(bad, "cannot be played after byte " + std::to_string(frame) + ": ");
   // Only the beginning of the snapshot.
   std::size_t const roots = whole.find("Ptp::Config") + 11 + 4 + 10;
   expectSame(whole.substr(0, roots), "the state is not yet complete at that time");
   std::string hole = whole;
   std::fill(hole.begin() + static_cast<std::ptrdiff_t>(frame), hole.end(), '\0');
   expectSame(hole, "damaged at byte " + std::to_string(frame) +
                          ": there are zeros where a frame should begin");
}

TEST_F(RecordTest, AFileThatIsThereIsLeftAlone) {
   std::ofstream(file) << "precious";
   Outcome const refused = run({"record", "--socket", socket, file});
   EXPECT_EQ(refused.status, 1);
   EXPECT_NE(refused.err.find("already exists; choose another name, or use --replace"),
             std::string::npos)
         << refused.err;
   EXPECT_EQ(readFile(file), "precious");
   auto const recording = record({"--replace"});
   ended(*recording);
   EXPECT_EQ(replay().err, "");
}

TEST_F(RecordTest, ADiskThatIsFullEndsItWithItsName) {
   Outcome const full = run({"record", "--socket", socket, "--replace", "/dev/full"});
   EXPECT_EQ(full.status, 1);
   EXPECT_EQ(
         full.err,
         "ptpstate: the recording ends: /dev/full: No space left on device; make room, or record "
         "elsewhere\n");
}

TEST_F(RecordTest, OnlyTheRootsThatAreNamed) {
   server.reset();
   serve({"--root", "Ptp::Status=ptp/status", "--root", "Ptp::Config=ptp/config"});
   auto const recording = record({"ptp/status"});
   set("ptp/status.holdoverExpiry", "5");
   set("ptp/config.priority1", "5");
   ended(*recording);
   std::string const told = replay().out;
   EXPECT_NE(told.find("ptp/status.holdoverExpiry: 0 -> 5\n"), std::string::npos) << told;
   EXPECT_EQ(told.find("ptp/config"), std::string::npos) << told;
   Outcome const part =
         run({"record", "--socket", socket, scratch.file("x"), "ptp/config.enabled"});
   EXPECT_EQ(part.status, 1);
   EXPECT_NE(part.err.find("only whole roots can be recorded; give ptp/config"), std::string::npos);
}

TEST_F(RecordTest, EndsAfterTheTimeThatIsGiven) {
   Outcome const outcome = run({"record", "--socket", socket, "--for", "0.2", file});
   EXPECT_EQ(outcome.status, 0) << outcome.err;
   EXPECT_EQ(replay().status, 0);
}

}  // namespace
}  // namespace Ptpstate
