// Tests of a clock and a stand-in for its daemon, in one thread and with a clock of their own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/ptp4lAgent/Clock.h"
#include "tools/ptp4lAgent/StandIn.test.h"

namespace Ptp4lAgent {

class WithStandIn : public testing::Test {
protected:
   WithStandIn() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptp4lAgent.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      nowIs(1'000'000'000'000);
   }
   ~WithStandIn() override {
      clock.reset();
      daemon.reset();
      log.reset();
      if (logFd >= 0) {
         ::close(logFd);
      }
      std::filesystem::remove_all(directory);
   }

   std::string path() const { return directory + "/ptp4l"; }

   /// Starts the daemon with a recording; no clock yet.
   void start(std::string const& recording) {
      daemon = std::make_unique<StandIn>(path(), recording);
   }
   /// Starts a clock for the daemon and lets it ask for everything.
   void follow(std::optional<U8> domain = std::nullopt) {
      logFile = directory + "/log";
      logFd = ::open(logFile.c_str(), O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0600);
      log = std::make_unique<Holt::LogOutput>(logFd);
      Clock::Options options;
      options.daemon.path = path();
      options.daemon.own = directory + "/own";
      options.daemon.domain = domain;
      options.daemon.log = log.get();
      options.daemon.clock = &now;
      options.conf = conf;
      options.seconds = [] { return static_cast<double>(now()) * 1e-9; };
      clock = std::make_unique<Clock>(std::move(options));
      settle();
   }
   /// Lets both ends talk until they have nothing more to say.
   void settle() {
      for (int turns = 0; turns != 10'000; ++turns) {
         U64 const before = clock->daemon().counters().requests;
         clock->daemon().onTurn({});
         int const served = daemon ? daemon->serve() : 0;
         if (served == 0 && before == clock->daemon().counters().requests) {
            return;
         }
      }
      FAIL() << "no end of talking";
   }
   /// Lets time pass in steps of 10 ms.
   void pass(U64 milliseconds) {
      for (U64 passed = 0; passed < milliseconds; passed += 10) {
         nowIs(now() + 10 * Daemon::millisecond);
         settle();
      }
   }

   Ptp::Status& status() const { return clock->status(); }
   Ptp::Config& config() const { return clock->config().config(); }
   static Ptp::PortDSKey key(char const* intf) {
      return {Dorn::IntfId(intf), Bridging::VlanIdOrNone()};
   }
   /// The log without times and the path.
   std::string said() const {
      std::ifstream file(logFile);
      std::string all;
      for (std::string line; std::getline(file, line);) {
         std::string const at = "ptp4l at " + path() + ": ";
         std::size_t const begin = line.find(at);
         all += (begin == std::string::npos ? line : line.substr(begin + at.size())) + "\n";
      }
      return all;
   }

   static U64 now() noexcept { return now_; }
   static void nowIs(U64 now) noexcept { now_ = now; }

   std::string directory;
   std::string logFile;
   int logFd = -1;
   std::unique_ptr<Holt::LogOutput> log;
   Sarn::Ptr<Ptp::Config> conf;
   std::unique_ptr<StandIn> daemon;
   std::unique_ptr<Clock> clock;

private:
   static inline U64 now_ = 0;
};

}  // namespace Ptp4lAgent
