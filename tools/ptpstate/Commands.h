// The commands. Each adds itself to the command line.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "tools/shared/CommandLine.h"

namespace CLI {
class App;
}

namespace Ptpstate {

/// What to run once the command line has been read.
using Run = std::function<Holt::Exit()>;

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

using Tools::addClientOptions;
using Tools::addSocketOption;
using Tools::ClientOptions;
using Tools::writeFile;

/// Adds all commands to `app`.
void addCommands(CLI::App& app, Run& run);

/// Reads the command line and runs the command. An error is one line on `errors`.
Holt::Exit runCommandLine(std::vector<std::string> const& args, std::ostream& out,
                          std::ostream& errors);

/// A connection with a complete mirror of the root that a path begins with.
struct Opened {
   Holt::Client client;
   Holt::Mount* mount = nullptr;
   Holt::Path path;

   Opened(ClientOptions const& options, std::string const& path, Holt::MountMode mode);
};

/// An argument as the user typed it: `runCommandLine` marks negative numbers.
std::string plainArgument(std::string const& argument);

}  // namespace Ptpstate
