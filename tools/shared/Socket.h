// Where servers listen, and clients look for them, unless the user says otherwise.
#pragma once

#include <string>
#include <vector>

namespace Tools {

/// "$XDG_RUNTIME_DIR/ptpstate.sock" if the variable is set, then "/run/ptpstate.sock".
std::vector<std::string> usualSockets();

/// The first of the usual sockets whose directory this process may write to; the last one if there
/// is none.
std::string usualSocketToServe();

/// The first of the usual sockets that exists; empty if none does.
std::string usualSocketOfServer();

}  // namespace Tools
