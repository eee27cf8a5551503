// What the command lines of the programs share.
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

/// Options of every client of a server.
struct ClientOptions {
   std::string socket;
   /// In seconds.
   double timeout = 10;

   std::chrono::milliseconds patience() const {
      return std::chrono::milliseconds(static_cast<S64>(timeout * 1000));
   }
};

/// Adds `--socket`. `required`: the command needs one.
void addSocketOption(CLI::App& command, std::string& socket, bool required = true);
/// Adds `--socket` and `--timeout`.
void addClientOptions(CLI::App& command, ClientOptions& options, bool required = true);

/// Handles a command line that asks for help or is wrong: writes the help to `out`, or one line to
/// `errors`. Returns the exit status. `message` replaces that of CLI11.
Holt::Exit endWith(CLI::App const& app, CLI::ParseError const& error, std::ostream& out,
                   std::ostream& errors, std::string const& message = {});

/// Writes a file through `write`, or to standard output for "-". Throws `Holt::Failure` if it
/// cannot be written.
void writeFile(std::string const& path, std::function<void(std::ostream&)> const& write);

}  // namespace Tools
