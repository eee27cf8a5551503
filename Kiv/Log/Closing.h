#pragma once

#include <new>
#include <string_view>

#include "Kiv/NboAttrLogStatus.h"

namespace Kiv::NboAttrLog {

/// Why a session or a recording ends without memory; short enough to need none itself.
inline Sarn::String outOfMemory() noexcept {
   return "out of memory";
}
/// A copy of a reason, or that there was no memory for one.
inline Sarn::String copyOrOutOfMemory(std::string_view reason) noexcept {
   try {
      return Sarn::String(reason);
   } catch (std::bad_alloc const&) {
      return outOfMemory();
   }
}

/// Whether a session is closed, by whom and why. Every part of the session may close it; who is to
/// hear of that is told later, by the session.
///
///     open ---- fail ----> closed ---- the session's next turn ----> told
///                          nothing is written or applied any more
///
/// Invariant: the first reason stays.
class Closing {
public:
   bool closed() const noexcept { return closed_; }
   Ending ending() const noexcept { return ending_; }
   Sarn::String const& reason() const noexcept { return reason_; }

   /// Closes the session, unless it is closed. Calls nobody, so that the writing of a change may do
   /// so.
   void fail(Sarn::String reason, Ending ending = Ending::fault) noexcept;
   /// Fails for the exception that is being handled.
   void failForException() noexcept;
   /// Does what must not be left half done: if it throws, for want of memory, the session fails.
   template <class Work>
   void orFail(Work&& work) noexcept {
      try {
         work();
      } catch (...) {
         failForException();
      }
   }

private:
   bool closed_ = false;
   Ending ending_ = Ending::open;
   Sarn::String reason_;
};

}  // namespace Kiv::NboAttrLog
