#pragma once

#include <algorithm>
#include <cstddef>
#include <new>

#include "Sarn/FirstObserver.h"

/// The inside of a publisher, for its own sources.
namespace Sarn {

namespace Impl {
#pragma GCC visibility push(hidden)
/// The address of the top frame, with `loneBit` set as long as a lone one's words are not set; 0 if
/// nothing runs. A fixed offset from the thread pointer instead of a call for every publication.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uintptr_t topFrame;
/// The oldest frame that may not be done; null if only the top one may be open.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local void* openFrame;
#pragma GCC visibility pop
inline constexpr std::uintptr_t loneBit = 1;
}  // namespace Impl

/// The registrations of one publisher:
///
///     | size | capacity | slot 0 | slot 1 | ... |
///
/// A slot is an observer's address with bit 0 set for a subtree observer and bit 1 for a
/// `FirstObserver`, or 0 for a hole that a removal left while a publication was running.
struct Publisher::List {
   U32 size;
   U32 capacity;
   std::uintptr_t slots[1];

   static constexpr std::uintptr_t subtreeBit = 1;
   static constexpr std::uintptr_t firstBit = 2;
   static constexpr std::uintptr_t flagBits = subtreeBit | firstBit;

   static List* make(U32 capacity) {
      void* const room = ::operator new(offsetof(List, slots) + capacity * sizeof(std::uintptr_t));
      return new (room) List{0, capacity, {0}};
   }
   static void destroy(List* list) noexcept { ::operator delete(list); }
   static std::uintptr_t slot(Observer const& observer, Scope scope) noexcept {
      return reinterpret_cast<std::uintptr_t>(&observer) |
             (scope == Scope::subtree ? subtreeBit : 0);
   }
   static Observer* observer(std::uintptr_t slot) noexcept {
      return reinterpret_cast<Observer*>(slot & ~flagBits);
   }
   std::uintptr_t* find(std::uintptr_t wanted) noexcept {
      std::uintptr_t* const end = slots + size;
      std::uintptr_t* const at = std::find_if(
            slots, end, [wanted](std::uintptr_t s) { return (s & ~firstBit) == wanted; });
      return at == end ? nullptr : at;
   }
};

/// One running publication. The frames of a thread form a stack; a publication that begins while
/// others run first brings those to their end, oldest first, which keeps changes in order for
/// everybody. A frame whose publisher died, or that somebody above brought to its end, is done:
/// `at` is null. Since whoever begins inside finishes all that is older, the oldest frame that may
/// not be done yet (`openFrame`) only moves on towards the newest: it costs each frame one step,
/// however deep they are stacked.
///
/// Who tells keeps the list and its position in registers and only writes `next`. Whoever else
/// changes the frame or the list of `at` sets `touched`; from then on, the frame's words hold.
///
/// A lone frame tells the only observer of a publisher, and there is none above. Its words are not
/// set: `top` sets them for whoever first asks for the frame, which nearly nobody does.
struct Publisher::Frame {
   Change change;
   Publisher* at;
   U32 next;
   U32 end;
   Frame* outer;
   struct Flags {
      bool touched;
      /// A removal has left holes in the list of `at`.
      bool holes;
      bool sourceGone;
      bool unused[5];  // so that one store clears them
   } flags;
   /// The next above, once there is one.
   Frame* inner;

   /// Stands on `first`, whose first `count` registrations are to be told.
   Frame(Frame* outerFrame, Change const& made, Publisher* first, U32 count) noexcept
         : change(made), at(first), next(0), end(count), outer(outerFrame), flags{} {}
   /// The top frame, all of whose words are set; null if nothing runs.
   static Frame* top() noexcept;
   /// A lone one.
   explicit Frame(Change const& made) noexcept : change(made) {}
   /// Sets the words of a lone frame: the only observer is being told.
   void standAlone() noexcept {
      at = &change.source;
      next = end = 1;
      outer = nullptr;
      flags = {};
   }

   /// Whether everybody has been told whom the list had, and nobody above is to be.
   bool atEnd() const noexcept {
      if (flags.touched || (at->watch_ & aboveBit) != 0) [[unlikely]] {
         return !flags.touched && at->parent_ == nullptr;
      }
      return true;
   }
   void enter(Publisher* publisher) noexcept {
      at = publisher;
      next = 0;
      List const* const observers = publisher->list();
      end = observers != nullptr ? observers->size : 0;
      flags.touched = true;
      flags.holes = false;
   }
   void finish() noexcept {
      at = nullptr;
      next = end = 0;
      flags.touched = true;
      flags.holes = false;
   }
   /// Goes on to `higher`, or ends here if that is null.
   void leave(Publisher* higher) noexcept {
      Publisher* const left = flags.holes ? at : nullptr;
      if (higher != nullptr) {
         enter(higher);
      } else {
         finish();
      }
      if (left != nullptr) [[unlikely]] {
         left->tidy();
      }
   }
};

inline Publisher::Frame* Publisher::Frame::top() noexcept {
   auto* const frame = reinterpret_cast<Frame*>(Impl::topFrame & ~Impl::loneBit);
   if ((Impl::topFrame & Impl::loneBit) != 0) {
      frame->standAlone();
      Impl::topFrame &= ~Impl::loneBit;
   }
   return frame;
}

/// Calls `visit(frame)` for each frame that may not be done.
template <class Visit>
void Publisher::forEachOpen(Visit&& visit) {
   Frame* frame = Frame::top();
   if (frame != nullptr) {
      for (; visit(*frame), Impl::openFrame != nullptr && frame != Impl::openFrame;
           frame = frame->outer) {
      }
   }
}

}  // namespace Sarn
