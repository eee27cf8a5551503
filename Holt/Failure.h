#pragma once

#include <stdexcept>

#include "Kiv/Printable.h"
#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {

/// The program's exit statuses.
enum class Exit : U8 {
   ok = 0,
   /// Something does not exist or is not allowed; nothing was changed.
   refused = 1,
   /// The command line is wrong.
   usage = 2,
   /// No server, no answer, a lost connection, or the socket cannot be created.
   connection = 3,
   /// A fleet has no such switch. 4 is an internal error.
   noSwitch = 5,
   // Of a comparison, as in diff(1).
   differs = 1,
   trouble = 2,
};

/// Ends a command with one line for its user, and an exit status. The line may name what others
/// have sent or typed: it is made printable.
class Failure : public std::runtime_error {
public:
   explicit Failure(Sarn::String const& message, Exit status = Exit::refused)
         : std::runtime_error(Kiv::printable(message)), status_(status) {}

   Exit status() const noexcept { return status_; }

private:
   Exit status_;
};

}  // namespace Holt
