// What commands that only read have in common: a server at a socket, or switches of a fleet.
#pragma once

#include <functional>

#include "tools/ptpstate/FleetStates.h"

namespace Ptpstate {

/// Options of a command that reads.
struct ReaderOptions : Tools::ClientOptions {
   FleetOptions fleet;
};

/// Adds `--socket`, `--timeout`, and the options of a fleet.
void addReaderOptions(Tools::Command const& command, ReaderOptions& options);

/// Throws `Tools::UsageError` if neither a server nor a switch is named.
void requireState(ReaderOptions const& options);

/// Connects to what was asked for. Throws `Holt::Failure`, and `Tools::UsageError` if that is
/// nothing.
std::vector<NamedState> openStates(ReaderOptions const& options, int interruptFd = -1);
/// The same for a command that shows one state only. Throws `Holt::Failure` for a pattern.
std::unique_ptr<RootSource> openState(ReaderOptions const& options, int interruptFd = -1);

/// Calls `print` for each state, and passes on what it writes to standard output, in front of each
/// line the switch, as "edge-7:". Where there are several states, those that do not have what
/// `print` looks for are left out; throws what it has thrown if none has.
void printStates(std::vector<NamedState> const& states, bool named,
                 std::function<void(RootSource&, std::ostream&)> const& print);

}  // namespace Ptpstate
