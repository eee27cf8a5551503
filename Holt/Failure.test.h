#pragma once

#include <functional>
#include <string>

#include "Holt/Failure.h"

namespace Holt {

/// The message with which `doIt` fails; empty if it does not.
inline std::string failureOf(std::function<void()> const& doIt) {
   try {
      doIt();
   } catch (Failure const& failure) {
      return failure.what();
   }
   return "";
}

}  // namespace Holt
