#pragma once

#include <sys/single_threaded.h>

#include <atomic>
#include <cassert>

#include "Sarn/Types.h"

namespace Sarn {

/// Whether the process may have more than one thread.
/// Until it has, reference counts and allocation counters are changed by plain adds.
inline bool threadsExist() noexcept {
   return __libc_single_threaded == 0;
}

/// A reference-counted object: base of every entity. Held through `Ptr<T>`.
///
/// The count word, bit by bit:
///
///     31 | 30 29 | 28 ........................ 0
///      u |  f  f | u                             u     u: number of users, f: node flags
///
/// A fresh node has one user, the pointer that its creator returns. The node is destroyed by the
/// decrement that leaves all user bits zero, on the thread that does it. Flags do not count.
///
/// Threads: counting is safe from any thread; everything else of a node belongs to one thread.
class Node {
public:
   static constexpr U32 flagMask = 0x60000000;
   static constexpr U32 userMask = 0x9fffffff;

   Node(Node const&) = delete;
   Node& operator=(Node const&) = delete;

   void userInc() const noexcept {
      if (!threadsExist()) {
         ++users_;
      } else {
         std::atomic_ref<U32>(users_).fetch_add(1, std::memory_order_relaxed);
      }
   }

   void userDec() const noexcept {
      U32 left;
      if (!threadsExist()) {
         left = --users_;
      } else {
         left = std::atomic_ref<U32>(users_).fetch_sub(1, std::memory_order_acq_rel) - 1;
      }
      if ((left & userMask) == 0) {
         const_cast<Node*>(this)->lastUserGoneImpl();
      }
   }

   /// The number of users now; for tests and diagnosis, since other threads may change it.
   U32 userCount() const noexcept {
      return std::atomic_ref<U32>(users_).load(std::memory_order_relaxed) & userMask;
   }

   /// The two node flags, as a mask within `flagMask`. The framework leaves them to the owner.
   U32 nodeFlags() const noexcept {
      return std::atomic_ref<U32>(users_).load(std::memory_order_relaxed) & flagMask;
   }
   void nodeFlagsIs(U32 flags) noexcept {
      assert((flags & ~flagMask) == 0);
      std::atomic_ref<U32> word(users_);
      U32 old = word.load(std::memory_order_relaxed);
      while (!word.compare_exchange_weak(old, (old & userMask) | flags)) {
      }
   }

protected:
   Node() noexcept = default;
   virtual ~Node();

   /// Called once, when the last user has gone; destroys the node.
   virtual void lastUserGoneImpl() noexcept { delete this; }

   /// A word that the framework above may use; it fills what would be padding.
   U32 tag_ = 0;

private:
   mutable U32 users_ = 1;
};

}  // namespace Sarn
