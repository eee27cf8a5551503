// Drives the real program from tests: runs it, keeps it running, and reads its output.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Ptpstate {

/// The result of a run.
struct Outcome {
   /// The exit status; 128 and the signal's number if it was killed.
   int status = -1;
   std::string out;
   std::string err;
};

/// How a program is run.
struct Surroundings {
   /// As this user, if the test is run by root.
   uid_t uid = 0;
   /// In this directory; in that of the test if empty.
   std::string directory = "";
   /// With this value of PTPSTATE_SOCKET; without it if empty.
   std::string socket = "";
   /// With this value of XDG_RUNTIME_DIR; without it if empty.
   std::string runtime = "";
   /// With this file as standard input; with that of the test if empty.
   std::string input = "";
   /// With this descriptor as standard output; -1 for one whose text comes in the outcome.
   int output = -1;
   std::string program = "ptpstate";
   /// With this library, besides those that it is linked with.
   std::string preload = "";
};

/// A running `ptpstate`, in a locale with UTF-8. Killed at the end if it still runs.
class Program {
public:
   explicit Program(std::vector<std::string> const& args, uid_t uid = 0)
         : Program(args, Surroundings{uid}) {}
   Program(std::vector<std::string> const& args, Surroundings const& in);
   ~Program();
   Program(Program const&) = delete;
   Program& operator=(Program const&) = delete;

   pid_t pid() const noexcept { return pid_; }
   void signal(int number) const;
   /// Waits until its output has `text` this many times, for at most ten seconds. Returns whether
   /// it has.
   bool says(std::string const& text, int times = 1);
   /// All of its output so far.
   std::string const& out() const noexcept { return outcome_.out; }
   /// Waits until it has ended, for at most twenty seconds; then kills it.
   Outcome const& finish();

private:
   /// Reads what is available, waiting for at most `wait`. Returns false once both outputs have
   /// ended.
   bool read(std::chrono::milliseconds wait);

   pid_t pid_ = -1;
   int outFd_ = -1;
   int errFd_ = -1;
   Outcome outcome_;
};

/// Runs it to its end.
Outcome run(std::vector<std::string> const& args, uid_t uid = 0);
Outcome run(std::vector<std::string> const& args, Surroundings const& in);

/// A temporary directory, removed with everything in it.
class Scratch {
public:
   Scratch();
   ~Scratch();
   Scratch(Scratch const&) = delete;
   Scratch& operator=(Scratch const&) = delete;

   std::string const& path() const noexcept { return path_; }
   std::string file(std::string const& name) const { return path_ + "/" + name; }

private:
   std::string path_;
};

/// Tests with a server of their own, and commands that ask it.
class WithServer : public testing::Test {
protected:
   /// Starts the server, with options besides its socket, and waits until it serves.
   void serve(std::vector<std::string> const& more = {});
   /// Runs a command against it.
   Outcome client(std::vector<std::string> args, uid_t uid = 0) const;

   Scratch scratch;
   std::string socket = scratch.file("socket");
   std::unique_ptr<Program> server;
};

/// A stream socket that is connected to `path`, or -1.
int connectedTo(std::string const& path);
/// A stream socket that listens at `path` with a queue of `backlog`. Throws if there is none.
int listeningAt(std::string const& path, int backlog);

std::string readFile(std::string const& path);

/// With `from` replaced by `to`, everywhere.
std::string replaced(std::string text, std::string const& from, std::string const& to);
/// With the time at the beginning of lines replaced by "TIME".
std::string withoutTimes(std::string const& text);

}  // namespace Ptpstate
