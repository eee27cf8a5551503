#pragma once

#include <stdexcept>

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {

/// The program's exit statuses.
enum class Exit : U8 {
   ok = 0,
   refused = 1,     ///< what was asked for is not there or not allowed; nothing was changed
   usage = 2,       ///< the command line is wrong
   connection = 3,  ///< no server, no answer, the connection was lost, or a socket cannot be had
   // Of a comparison, as diff(1) has them.
   differs = 1,
   trouble = 2,
};

/// Ends the command with one line for the user and an exit status.
class Failure : public std::runtime_error {
public:
   explicit Failure(Sarn::String const& message, Exit status = Exit::refused)
         : std::runtime_error(message), status_(status) {}

   Exit status() const noexcept { return status_; }

private:
   Exit status_;
};

}  // namespace Holt
