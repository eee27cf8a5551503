#include "Sarn/Publisher.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <new>

#include "Sarn/FirstObserver.h"
#include "Sarn/Publications.h"

namespace Sarn {

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
struct Publisher::Frame {
   Change change;
   Publisher* at;
   U32 next = 0;
   U32 end;
   Frame* outer;
   struct Flags {
      bool touched;
      /// A removal has left holes in the list of `at`.
      bool holes;
      bool sourceGone;
      bool unused[5];  // so that one store clears them
   } flags{};
   /// The next above, once there is one.
   Frame* inner;

   /// Stands on `first`, whose first `count` registrations are to be told.
   Frame(Frame* outerFrame, Change const& made, Publisher* first, U32 count) noexcept
         : change(made), at(first), end(count), outer(outerFrame) {}

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
      end = publisher->list_ != nullptr ? publisher->list_->size : 0;
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

namespace {

// A fixed offset from the thread pointer instead of a call for every publication.
[[gnu::tls_model("initial-exec")]] constinit thread_local void* topFrame = nullptr;
/// The oldest frame that may not be done; null if only the top one may be open.
[[gnu::tls_model("initial-exec")]] constinit thread_local void* openFrame = nullptr;

}  // namespace

constinit thread_local U32 Publisher::observersThrew_ = 0;

Publisher::~Publisher() {
   for (auto* frame = static_cast<Frame*>(topFrame); frame != nullptr; frame = frame->outer) {
      if (frame->at == this || &frame->change.source == this) {
         frame->finish();
      }
      frame->flags.sourceGone = frame->flags.sourceGone || &frame->change.source == this;
   }
   if (list_ != nullptr) {
      List::destroy(list_);
   }
}

/// The observers of the publisher that the frame stands on.
inline void Publisher::tell(Frame& frame) {
   bool const atSource = frame.at == &frame.change.source;
   while (frame.next != frame.end) {
      std::uintptr_t const slot = frame.at->list_->slots[frame.next++];
      if (slot != 0 && (atSource || (slot & List::subtreeBit) != 0)) {
         List::observer(slot)->onChange(frame.change);
      }
   }
}

/// Puts a frame on top of the thread's stack as long as it lives.
class Publisher::Running {
public:
   explicit Running(Frame& frame) noexcept : outer_(frame.outer) { topFrame = &frame; }
   ~Running() { topFrame = outer_; }
   Running(Running const&) = delete;
   Running& operator=(Running const&) = delete;

private:
   Frame* outer_;
};

/// The same for a frame that is not the only one.
class Publisher::RunningInside : Running {
public:
   explicit RunningInside(Frame& frame) noexcept : Running(frame) {
      frame.outer->inner = &frame;
      if (openFrame == nullptr) {
         openFrame = frame.outer;
      }
   }
   /// This frame is done, and before it all that are older.
   ~RunningInside() { openFrame = nullptr; }
   RunningInside(RunningInside const&) = delete;
   RunningInside& operator=(RunningInside const&) = delete;
};

/// Calls `visit(frame)` for each frame that may not be done.
template <class Visit>
void Publisher::forEachOpen(Visit&& visit) {
   auto* frame = static_cast<Frame*>(topFrame);
   if (frame != nullptr) {
      for (; visit(*frame), openFrame != nullptr && frame != openFrame; frame = frame->outer) {
      }
   }
}

/// Here only what most changes need: one observer of this publisher, and nothing runs. It takes no
/// jump and keeps nothing across the call, since each of these costs as much as the call itself:
/// what comes after finds the frame through `topFrame`.
void Publisher::publish(U16 attributeId, void const* key, void const* oldValue,
                        KeyCompare keyCompare) {
   if (topFrame != nullptr || list_ == nullptr || list_->size != 1) [[unlikely]] {
      publishToMany(attributeId, key, oldValue, keyCompare);
      return;
   }
   Frame frame(nullptr, {*this, attributeId, key, oldValue, keyCompare}, this, 0);
   Running const running(frame);
   try {
      List::observer(list_->slots[0])->onChange(frame.change);
      if (!frame.atEnd()) [[unlikely]] {
         run(*static_cast<Frame*>(topFrame));
      }
   } catch (...) {
      finishAfterThrow();
      throw;
   }
}

void Publisher::publishToMany(U16 attributeId, void const* key, void const* oldValue,
                              KeyCompare keyCompare) {
   if (topFrame != nullptr) [[unlikely]] {
      publishInside(attributeId, key, oldValue, keyCompare);
      return;
   }
   // To the nearest that has observers at once: this one or, since somebody is listening, one
   // above.
   Publisher* nearest = this;
   for (; nearest->list_ == nullptr; nearest = nearest->parent_) {
   }
   // Whoever changes these touches the frame.
   std::uintptr_t const* const slots = nearest->list_->slots;
   U32 const size = nearest->list_->size;
   std::uintptr_t const wanted = nearest == this ? ~List::flagBits : List::subtreeBit;
   Frame frame(nullptr, {*this, attributeId, key, oldValue, keyCompare}, nearest, size);
   Running const running(frame);
   try {
      U32 next = 0;
      do {
         std::uintptr_t const slot = slots[next];
         frame.next = ++next;
         if ((slot & wanted) != 0) [[likely]] {
            List::observer(slot)->onChange(frame.change);
         }
      } while (!frame.flags.touched && next != size);
      if (!frame.atEnd()) [[unlikely]] {
         run(frame);
      }
   } catch (...) {
      finishAfterThrow();
      throw;
   }
}

/// A change that is made while others are told: those first, which may change who is to be told of
/// this one.
void Publisher::publishInside(U16 attributeId, void const* key, void const* oldValue,
                              KeyCompare keyCompare) {
   auto* const outer = static_cast<Frame*>(topFrame);
   Frame frame(outer, {*this, attributeId, key, oldValue, keyCompare}, this,
               list_ != nullptr ? list_->size : 0);
   RunningInside const running(frame);
   try {
      runUpTo(frame);
   } catch (...) {
      finishAfterThrow();
      throw;
   }
}

/// Brings the running publications to their ends, oldest first, `last` as the last one.
void Publisher::runUpTo(Frame& last) {
   for (;;) {
      auto* const oldest = openFrame != nullptr ? static_cast<Frame*>(openFrame) : &last;
      if (oldest->at != nullptr) {
         // What is published inside brings all of them to their ends, `last` included.
         run(*oldest);
      } else if (oldest != &last) {
         openFrame = oldest->inner;
      } else {
         return;
      }
   }
}

/// The same, whatever is thrown.
void Publisher::runRest(Frame& last) noexcept {
   for (bool done = false; !done;) {
      try {
         runUpTo(last);
         done = true;
      } catch (...) {  // the first exception is on its way already
      }
   }
}

/// What an observer threw waits until the top frame has told all.
void Publisher::finishAfterThrow() noexcept {
   runRest(*static_cast<Frame*>(topFrame));
   ++observersThrew_;
}

void Publisher::run(Frame& frame) {
   while (frame.at != nullptr) {
      tell(frame);
      if (frame.at == nullptr || !climb(frame)) {
         return;
      }
   }
}

/// On to the next publisher above that may have a subtree observer; false, and done, if none has.
bool Publisher::climb(Frame& frame) noexcept {
   if ((frame.at->watch_ & aboveBit) != 0) {
      Publisher* higher = frame.at->parent_;
      while (higher != nullptr && higher->list_ == nullptr) {
         higher = higher->parent_;
      }
      if (higher != nullptr) {
         frame.leave(higher);
         return true;
      }
   }
   frame.leave(nullptr);
   return false;
}

U8* Publisher::bypass(U16 attributeId, std::size_t size) const noexcept {
   if (topFrame != nullptr) {
      return nullptr;
   }
   Publisher const* at = this;
   while (at->list_ == nullptr) {
      at = at->parent_;
      if (at == nullptr) {
         return nullptr;
      }
   }
   std::uintptr_t const slot = at->list_->slots[0];
   bool const sole = at->list_->size == 1 && at->parent_ == nullptr && (slot & List::firstBit) != 0;
   if (!sole) {
      return nullptr;
   }
   auto* const observer = static_cast<FirstObserver*>(List::observer(slot));
   return observer->roomFor(*this, attributeId, size);
}

bool Publisher::hasSubtreeObserver() const noexcept {
   if (list_ == nullptr) {
      return false;
   }
   return std::any_of(list_->slots, list_->slots + list_->size,
                      [](std::uintptr_t slot) { return (slot & List::subtreeBit) != 0; });
}

bool Publisher::hasObserver(Observer const& observer, Scope scope) const noexcept {
   return list_ != nullptr && list_->find(List::slot(observer, scope)) != nullptr;
}

/// Room in the list for one more, with `slot` in it.
std::uintptr_t& Publisher::append(std::uintptr_t slot) {
   if (list_ == nullptr) {
      list_ = List::make(2);
   }
   if (list_->size == list_->capacity) {
      List* const wider = List::make(list_->capacity * 2);
      std::copy(list_->slots, list_->slots + list_->size, wider->slots);
      wider->size = list_->size;
      replaceList(wider);
      forEachOpen([this](Frame& frame) { frame.flags.touched |= frame.at == this; });
   }
   return list_->slots[list_->size++] = slot;
}

void Publisher::add(Observer& observer, Scope scope) {
   assert(!hasObserver(observer, scope));
   append(List::slot(observer, scope));
   watch_ |= ownBit;
}

void Publisher::addFirst(FirstObserver& observer) {
   assert(!hasObserver(observer, Scope::subtree));
   std::uintptr_t* const last = &append(List::slot(observer, Scope::subtree) | List::firstBit);
   std::rotate(list_->slots, last, last + 1);
   // A running publication has gone past the first place: its position moves with the others.
   forEachOpen([this](Frame& frame) {
      if (frame.at == this) {
         ++frame.next;
         ++frame.end;
         frame.flags.touched = true;
      }
   });
}

bool Publisher::remove(Observer& observer, Scope scope) noexcept {
   std::uintptr_t* const slot =
         list_ != nullptr ? list_->find(List::slot(observer, scope)) : nullptr;
   if (slot == nullptr) {
      return false;
   }
   *slot = 0;
   if (std::all_of(list_->slots, list_->slots + list_->size,
                   [](std::uintptr_t s) { return s == 0 || (s & List::firstBit) != 0; })) {
      watch_ = static_cast<U8>(watch_ & aboveBit);
   }
   tidy();
   return true;
}

/// Closes the holes in the list, and frees it if nothing else is in it: at once, or when the last
/// publication that runs on it leaves.
void Publisher::tidy() noexcept {
   bool running = false;
   forEachOpen([&](Frame& frame) {
      if (frame.at == this) {
         frame.flags.touched = frame.flags.holes = true;
         running = true;
      }
   });
   if (running) {
      return;
   }
   std::uintptr_t* const end =
         std::remove(list_->slots, list_->slots + list_->size, std::uintptr_t(0));
   list_->size = static_cast<U32>(end - list_->slots);
   if (list_->size == 0) {
      replaceList(nullptr);
   }
}

void Publisher::replaceList(List* list) noexcept {
   List::destroy(list_);
   list_ = list;
}

void const* Publications::innermost() noexcept {
   return topFrame;
}

void const* Publications::around(Change const& change) noexcept {
   auto const* frame = static_cast<Publisher::Frame const*>(topFrame);
   while (&frame->change != &change) {
      frame = frame->outer;
   }
   return frame->outer;
}

void Publications::forEach(void* context, void (*visit)(void* context, Change const& change)) {
   auto* frame = static_cast<Publisher::Frame*>(topFrame);
   for (; frame != nullptr; frame = frame->outer) {
      if (!frame->flags.sourceGone) {
         visit(context, frame->change);
      }
   }
}

}  // namespace Sarn
