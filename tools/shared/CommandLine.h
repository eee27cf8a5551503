// What the command lines of the programs share.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>

#include "Holt/Failure.h"
#include "Sarn/Types.h"
#include "tools/cli/Program.h"

namespace Tools {

/// Options of every client of a server.
struct ClientOptions {
   std::string socket;
   /// In seconds.
   double timeout = 10;

   std::chrono::milliseconds patience() const {
      return std::chrono::milliseconds(static_cast<S64>(timeout * 1000));
   }
};

/// Adds `--socket` of a client, with `PTPSTATE_SOCKET` or a usual socket as its default.
/// `required`: the command line is wrong if none of these gives one.
void addSocketOption(Command const& command, std::string& socket, bool required = true);
/// Adds `--socket` of a server, with the same defaults.
void addListenOption(Command const& command, std::string& socket);
/// Adds `--socket` and `--timeout` of a client.
void addClientOptions(Command const& command, ClientOptions& options, bool required = true);

/// The contents of the file that an option names; empty if it names none. Throws `Holt::Failure`,
/// with the option and the file, if it cannot be read or is empty.
std::string fileOf(char const* option, std::string const& path);

/// Writes a line about a command line that is wrong, and returns the exit status.
Holt::Exit refuse(Program const& program, std::string const& message, std::ostream& errors);

/// Throws `Holt::Failure` if what was written to standard output is lost, as on a full device.
void requireWritten(std::ostream& out);

/// Parses the command line and calls `run`: the body of `main`. Help goes to standard output.
/// Output that cannot be written is an error. An error is one line on standard error that begins
/// with the program's name. Returns the exit status.
int runProgram(Program& program, int argc, char const* const* argv,
               std::function<void()> const& run);

}  // namespace Tools
