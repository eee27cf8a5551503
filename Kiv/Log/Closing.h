#pragma once

#include <new>
#include <string_view>

#include "Kiv/NboAttrLogStatus.h"

namespace Kiv::NboAttrLog {

/// The reason when a session or recording runs out of memory; short enough to need none itself.
inline Sarn::String outOfMemory() noexcept {
   return "out of memory";
}
/// A copy of a reason, or `outOfMemory()` if there is no memory for one.
inline Sarn::String copyOrOutOfMemory(std::string_view reason) noexcept {
   try {
      return Sarn::String(reason);
   } catch (std::bad_alloc const&) {
      return outOfMemory();
   }
}

/// Whether a session is closed, by whom and why. Every part of the session may close it; the
/// session notifies the listener later.
///
///     open ---- fail ----> closed ---- the session's next turn ----> listener notified
///                          nothing is written or applied any more
///
/// Invariant: the first reason stays.
class Closing {
public:
   bool closed() const noexcept { return closed_; }
   Ending ending() const noexcept { return ending_; }
   Sarn::String const& reason() const noexcept { return reason_; }

   /// Closes the session unless it is closed already. Calls nobody, so it is safe while a change is
   /// being written.
   void fail(Sarn::String reason, Ending ending = Ending::fault) noexcept;
   /// Fails with the exception that is being handled as the reason.
   void failForException() noexcept;
   /// Runs work that must not be left half done: if it throws, for lack of memory, the session
   /// fails.
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
