// Who is registered with a publisher, and what those below inherit from it.
#include <algorithm>
#include <cassert>

#include "Sarn/Publisher.h"
#include "Sarn/PublisherParts.h"

namespace Sarn {

/// What a publisher with a list passes on if it is a root: the oldest of its first observers, who
/// stays the same while others come and go.
FirstObserver* Publisher::firstOfRoot() const noexcept {
   if (list_ == nullptr || parent_ != nullptr) {
      return nullptr;
   }
   FirstObserver* oldest = nullptr;
   for (U32 i = 0; i != list_->size; ++i) {
      std::uintptr_t const slot = list_->slots[i];
      if ((slot & List::firstBit) != 0) {
         oldest = static_cast<FirstObserver*>(List::observer(slot));
      }
   }
   return oldest;
}

Publisher::Heritage Publisher::heritage() const noexcept {
   Publisher const* at = this;
   for (; at != nullptr; at = at->parent_) {
      if ((at->watch_ & shortcutBit) != 0) {
         return {true, at->shortcut_};
      }
      if (at->list_ == nullptr) {
         return {at->subtreeWatched(), nullptr};
      }
      if (at->hasSubtreeObserver()) {
         return {true, at->firstOfRoot()};
      }
   }
   return {};
}

bool Publisher::inherit() noexcept {
   Heritage const above = parent_ != nullptr ? parent_->heritage() : Heritage{};
   if (list() != nullptr) {
      Frame::top();  // a lone frame that stands here must look above
      bool const was = subtreeWatched();
      bool const subtree = hasSubtreeObserver();
      bool const is = above.watched || subtree;
      watch_ = static_cast<U8>(is ? watch_ | aboveBit : watch_ & ~aboveBit);
      return !subtree && (was || is);
   }
   U8 const watch = above.shortcut != nullptr ? aboveBit | shortcutBit
                    : above.watched           ? aboveBit
                                              : 0;
   bool const changed =
         watch != watch_ || (above.shortcut != nullptr && shortcut_ != above.shortcut);
   watch_ = watch;
   if (above.shortcut != nullptr) {
      shortcut_ = above.shortcut;
   } else {
      list_ = nullptr;
   }
   return changed;
}

bool Publisher::hasSubtreeObserver() const noexcept {
   List const* const observers = list();
   return observers != nullptr &&
          std::any_of(observers->slots, observers->slots + observers->size,
                      [](std::uintptr_t slot) { return (slot & List::subtreeBit) != 0; });
}

bool Publisher::hasObserver(Observer const& observer, Scope scope) const noexcept {
   List* const observers = list();
   return observers != nullptr && observers->find(List::slot(observer, scope)) != nullptr;
}

/// Room in the list for one more, with `slot` in it.
std::uintptr_t& Publisher::append(std::uintptr_t slot) {
   if (list() == nullptr) {
      listIs(List::make(2));
   } else if (list_->size == list_->capacity) {
      List* const wider = List::make(list_->capacity * 2);
      std::copy(list_->slots, list_->slots + list_->size, wider->slots);
      wider->size = list_->size;
      listIs(wider);
   }
   // The list may have moved, and those who are told above are others.
   forEachOpen([this](Frame& frame) { frame.flags.touched |= frame.at == this; });
   return list_->slots[list_->size++] = slot;
}

void Publisher::add(Observer& observer, Scope scope) {
   assert(!hasObserver(observer, scope));
   append(List::slot(observer, scope));
   watch_ |= ownBit;
   tellFirstWhetherAlone();
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
   tellFirstWhetherAlone();
}

bool Publisher::remove(Observer& observer, Scope scope) noexcept {
   std::uintptr_t* const slot =
         list() != nullptr ? list_->find(List::slot(observer, scope)) : nullptr;
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
      listIs(nullptr);
      inherit();  // a shortcut takes the place of the list
   } else {
      tellFirstWhetherAlone();
   }
}

void Publisher::listIs(List* fresh) noexcept {
   if (List* const old = list()) {
      List::destroy(old);
   }
   watch_ = static_cast<U8>(watch_ & ~shortcutBit);
   list_ = fresh;
}

void Publisher::tellFirstWhetherAlone() noexcept {
   for (U32 i = 0; i != list_->size; ++i) {
      std::uintptr_t const slot = list_->slots[i];
      if ((slot & List::firstBit) == 0 && slot != 0) {
         return;
      }
      if (slot != 0) {
         static_cast<FirstObserver*>(List::observer(slot))->alone_ = list_->size == 1;
      }
   }
}

}  // namespace Sarn
