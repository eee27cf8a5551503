// What the command lines of all programs share.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>

#include "Sarn/Types.h"

namespace CLI {
class App;
}

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

/// Writes a file through `write`, or to standard output for "-". Throws `Holt::Failure` if it
/// cannot be written.
void writeFile(std::string const& path, std::function<void(std::ostream&)> const& write);

}  // namespace Tools
