// The commands: each adds itself to the command line.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/ptpstate/Client.h"
#include "tools/ptpstate/Failure.h"

namespace CLI {
class App;
}

namespace Ptpstate {

/// What is to be run once the command line has been read.
using Run = std::function<Exit()>;

void addServe(CLI::App& app, Run& run);
void addStatus(CLI::App& app, Run& run);
void addWatch(CLI::App& app, Run& run);
void addRecord(CLI::App& app, Run& run);
void addReplay(CLI::App& app, Run& run);
void addDump(CLI::App& app, Run& run);
void addGet(CLI::App& app, Run& run);
void addSet(CLI::App& app, Run& run);
void addAdd(CLI::App& app, Run& run);
void addDel(CLI::App& app, Run& run);
void addTop(CLI::App& app, Run& run);
void addTypes(CLI::App& app, Run& run);
void addLoad(CLI::App& app, Run& run);
void addDiff(CLI::App& app, Run& run);
void addComplete(CLI::App& app, Run& run);
void addManual(CLI::App& app, Run& run);

/// What every client takes.
struct ClientOptions {
   std::string socket;
   double timeout = 10;

   std::chrono::milliseconds patience() const {
      return std::chrono::milliseconds(static_cast<S64>(timeout * 1000));
   }
};

/// `required`: the command can do nothing without a socket.
void addSocketOption(CLI::App& command, std::string& socket, bool required = true);
void addClientOptions(CLI::App& command, ClientOptions& options, bool required = true);

/// The program's command line: fills `app` with all commands.
void addCommands(CLI::App& app, Run& run);

/// Reads the command line and runs the command. What goes wrong is one line on `errors`.
Exit runCommandLine(std::vector<std::string> const& args, std::ostream& out, std::ostream& errors);

/// A complete mirror of a root, and the path's place in it.
struct Opened {
   Client client;
   Mount* mount = nullptr;
   Path path;

   Opened(ClientOptions const& options, std::string const& path, MountMode mode);
};

/// An argument as the user wrote it: see `runCommandLine`.
std::string plainArgument(std::string const& argument);

/// Writes a file through `write`, or to standard output for "-". Throws `Failure` if it cannot be
/// written.
void writeFile(std::string const& path, std::function<void(std::ostream&)> const& write);

/// Roots whole, one after the other, and how much it was.
void dumpRoots(std::ostream& out, std::vector<Kiv::NamedEntity*> const& roots);

}  // namespace Ptpstate
