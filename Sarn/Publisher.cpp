#include "Sarn/Publisher.h"

#include "Sarn/Publications.h"
#include "Sarn/PublisherParts.h"

namespace Sarn {

[[gnu::tls_model("initial-exec")]] constinit thread_local std::uintptr_t Impl::topFrame = 0;
[[gnu::tls_model("initial-exec")]] constinit thread_local void* Impl::openFrame = nullptr;
constinit thread_local U32 Publisher::observersThrew_ = 0;

using Impl::loneBit;
using Impl::openFrame;
using Impl::topFrame;

Publisher::~Publisher() {
   for (Frame* frame = Frame::top(); frame != nullptr; frame = frame->outer) {
      if (frame->at == this || &frame->change.source == this) {
         frame->finish();
      }
      frame->flags.sourceGone = frame->flags.sourceGone || &frame->change.source == this;
   }
   if (List* const observers = list()) {
      List::destroy(observers);
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
   explicit Running(Frame& frame) noexcept : outer_(frame.outer) {
      topFrame = reinterpret_cast<std::uintptr_t>(&frame);
   }
   ~Running() { topFrame = reinterpret_cast<std::uintptr_t>(outer_); }
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

/// Here only what most changes need: one observer of this publisher, nobody above, and nothing
/// runs. It keeps nothing across the call, since that costs as much as the call itself. As long as
/// nobody has asked for the frame, nothing has happened to this publisher or to those above.
void Publisher::publish(U16 attributeId, void const* key, void const* oldValue,
                        KeyCompare keyCompare) {
   if (topFrame != 0 || watch_ != ownBit || list_->size != 1) [[unlikely]] {
      publishToMany(attributeId, key, oldValue, keyCompare);
      return;
   }
   Frame frame({*this, attributeId, key, oldValue, keyCompare});
   topFrame = reinterpret_cast<std::uintptr_t>(&frame) | loneBit;
   try {
      // Its slot has no flag: it watches no subtree.
      reinterpret_cast<Observer*>(list_->slots[0])->onChange(frame.change);
      if ((topFrame & loneBit) == 0) [[unlikely]] {
         run(*Frame::top());
      }
   } catch (...) {
      finishAfterThrow();
      topFrame = 0;
      throw;
   }
   topFrame = 0;
}

void Publisher::publishToMany(U16 attributeId, void const* key, void const* oldValue,
                              KeyCompare keyCompare) {
   if (topFrame != 0) [[unlikely]] {
      publishInside(attributeId, key, oldValue, keyCompare);
      return;
   }
   // To the nearest that has observers at once: this one or, since somebody is listening, one
   // above.
   Publisher* nearest = this;
   for (; nearest->list() == nullptr; nearest = nearest->parent_) {
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
   List const* const observers = list();
   Frame frame(Frame::top(), {*this, attributeId, key, oldValue, keyCompare}, this,
               observers != nullptr ? observers->size : 0);
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
   runRest(*Frame::top());
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
      while (higher != nullptr && higher->list() == nullptr) {
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
   if (topFrame != 0) {
      return nullptr;
   }
   if ((watch_ & shortcutBit) != 0) [[likely]] {
      return shortcut_->alone_ ? shortcut_->roomFor(attributeId, size, *this) : nullptr;
   }
   FirstObserver* const first = firstOfRoot();
   return first != nullptr && first->alone_ ? first->roomFor(attributeId, size, *this) : nullptr;
}

void const* Publications::innermost() noexcept {
   return Publisher::Frame::top();
}

void const* Publications::around(Change const& change) noexcept {
   Publisher::Frame const* frame = Publisher::Frame::top();
   while (&frame->change != &change) {
      frame = frame->outer;
   }
   return frame->outer;
}

void Publications::forEach(void* context, void (*visit)(void* context, Change const& change)) {
   Publisher::Frame* frame = Publisher::Frame::top();
   for (; frame != nullptr; frame = frame->outer) {
      if (!frame->flags.sourceGone) {
         visit(context, frame->change);
      }
   }
}

}  // namespace Sarn
