// What the command lines of all programs share.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>

#include "Holt/Failure.h"
#include "Sarn/Types.h"

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace Tools {

/// What every client of a server of states takes.
struct ClientOptions {
   std::string socket;
   /// In seconds.
   double timeout = 10;

   std::chrono::milliseconds patience() const {
      return std::chrono::milliseconds(static_cast<S64>(timeout * 1000));
   }
};

/// Adds `--socket`. `required`: the command can do nothing without one.
void addSocketOption(CLI::App& command, std::string& socket, bool required = true);
/// Adds `--socket` and `--timeout`.
void addClientOptions(CLI::App& command, ClientOptions& options, bool required = true);

/// What a program does when its command line cannot be read, or asks for help: it writes one line
/// to `errors`, or the help to `out`. Returns the exit status. `message`: what to say instead of
/// what CLI11 says.
Holt::Exit endWith(CLI::App const& app, CLI::ParseError const& error, std::ostream& out,
                   std::ostream& errors, std::string message = {});

/// Writes a file through `write`, or to standard output for "-". Throws `Holt::Failure` if it
/// cannot be written.
void writeFile(std::string const& path, std::function<void(std::ostream&)> const& write);

}  // namespace Tools
