// The commands. Each adds itself to the command line.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/State/Place.h"
#include "tools/ptpstate/Reader.h"
#include "tools/shared/CommandLine.h"

namespace Ptpstate {

using Tools::addClientOptions;
using Tools::ClientOptions;
using Tools::Command;
using Tools::Option;

/// What to run once the command line has been read.
using Run = std::function<Holt::Exit()>;

void addServe(Command const& program, Run& run);
void addStatus(Command const& program, Run& run);
void addWatch(Command const& program, Run& run);
void addRecord(Command const& program, Run& run);
void addReplay(Command const& program, Run& run);
void addPlot(Command const& program, Run& run);
void addDump(Command const& program, Run& run);
void addGet(Command const& program, Run& run);
void addSet(Command const& program, Run& run);
void addWait(Command const& program, Run& run);
void addAdd(Command const& program, Run& run);
void addDel(Command const& program, Run& run);
void addTop(Command const& program, Run& run);
void addTypes(Command const& program, Run& run);
void addLoad(Command const& program, Run& run);
void addDiff(Command const& program, Run& run);
void addDigest(Command const& program, Run& run);
void addExport(Command const& program, Run& run);
void addFleet(Command const& program, Run& run);
void addComplete(Command const& program, Run& run);

/// Adds all commands to the program.
void addCommands(Command const& program, Run& run);

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

/// Complete mirrors of the roots that paths begin with, and the places that they lead to.
class OpenedPlaces {
public:
   /// Throws `Failure` if a path is invalid, leads to nothing, or if nothing fits a pattern.
   OpenedPlaces(RootSource& state, std::vector<std::string> const& paths);

   /// The places, in the order of the paths, and of dumps where a path is a pattern.
   std::vector<std::pair<Holt::Path, Holt::Place>> const& places() const { return places_; }
   /// Whether exactly one place was asked for.
   bool isSingle() const { return single_; }

private:
   std::vector<std::pair<Holt::Path, Holt::Place>> places_;
   bool single_;
};

/// An argument as the user typed it: `runCommandLine` marks negative numbers.
std::string plainArgument(std::string const& argument);

}  // namespace Ptpstate
