#pragma once

#include <cstdint>

#include "Sarn/Types.h"

namespace Sarn {

class FirstObserver;
class Publisher;

/// Tells whether the two keys of a collection, given by address, are equal.
using KeyCompare = bool (*)(void const*, void const*);

/// One change of one attribute, as an observer gets it. Everything is by reference and valid only
/// during the call.
struct Change {
   /// Whose attribute changed. `Kiv::entityOf(change)` gives the entity.
   Publisher& source;
   U16 attributeId;
   /// The collection's key, or the queue's `U32` sequence number; null for a single attribute.
   void const* key;
   /// The value before; null for an insertion and where there was none.
   void const* oldValue;
   /// Compares keys of this collection; null without a key.
   KeyCompare keyCompare;
};

/// Somebody who is told of changes. It must be removed from every publisher before it dies.
///
/// Inside `onChange` anything is allowed: add and remove observers, this one included; call
/// setters; drop the last reference to the entity. A change that is made inside is told to every
/// observer after the change that is being told, so that all see changes in the order they were
/// made; an observer that reads the entity then reads the newest value. An observer that is added
/// inside is not told of the change that its publisher is telling just then.
class Observer {
public:
   virtual void onChange(Change const& change) = 0;

protected:
   Observer() = default;
   Observer(Observer const&) = default;
   Observer& operator=(Observer const&) = default;
   ~Observer() = default;
};

/// What an observer watches.
enum class Scope : U8 {
   /// The publisher's own changes.
   entity,
   /// Its own and those of every publisher below it.
   subtree,
};

/// The observers of one entity, and its place in the tree that changes climb.
///
/// A publisher without observers is a null list and a byte of flags. The list comes with the
/// first observer and goes with the last. Publishing with nobody listening, here or above, is a
/// load and a branch.
///
/// Where a `FirstObserver` of the root is the only one who can hear of changes below, each
/// publisher without a list of its own has its address in place of the list, so that a setter need
/// not climb:
///
///     root    list | first observer |           mid, watched itself   list | observer |
///      |                    ^                    |
///     leaf    shortcut -----+                   leaf    shortcut to the same first observer
///
/// Invariants:
/// - `watch_ & ownBit` exactly when the list holds an observer that is no `FirstObserver`;
/// - `watch_ & aboveBit` exactly when this publisher or one above it has a subtree observer, and
///   `watch_ & shortcutBit` exactly when it has no list and the nearest subtree observers above are
///   those of a root with a `FirstObserver`: whoever changes the tree or a subtree's observers
///   keeps both up (`inherit`);
/// - a list on which a publication is running is neither compacted nor freed: a removal leaves a
///   hole, which the last publication that leaves the list closes.
///
/// Threads: one thread owns a tree of publishers.
class Publisher {
public:
   /// One running publication: see `Sarn/Publications.h`.
   struct Frame;

   Publisher() noexcept = default;
   Publisher(Publisher const&) = delete;
   Publisher& operator=(Publisher const&) = delete;
   ~Publisher();

   /// Tells everybody: this publisher's observers in the order of their registration, then the
   /// subtree observers of its parent, and so on to the root. What an observer throws comes out
   /// here when all have been told, so that no mirror misses a change; of several exceptions, the
   /// first.
   void publishChangeRecursive(U16 attributeId, void const* key, void const* oldValue,
                               KeyCompare keyCompare) {
      if (watch_ != 0) [[unlikely]] {
         publish(attributeId, key, oldValue, keyCompare);
      }
   }

   /// The same where the caller has asked `watched()` already.
   void publishToWatchers(U16 attributeId, void const* key, void const* oldValue,
                          KeyCompare keyCompare) {
      publish(attributeId, key, oldValue, keyCompare);
   }

   /// Where the change would be told to a `FirstObserver` alone, and no publication is running on
   /// this thread: what its `roomFor` answers. Else null: the change is to be published.
   U8* bypass(U16 attributeId, std::size_t size) const noexcept;
   /// Whether `bypass` may give room. REQUIRES: `watched()`.
   bool mayBypass() const noexcept { return (watch_ & ownBit) == 0; }
   /// Whether a change here would be told to anybody.
   bool watched() const noexcept { return watch_ != 0; }
   /// Whether this publisher or one above it has a subtree observer.
   bool subtreeWatched() const noexcept { return (watch_ & aboveBit) != 0; }
   /// Whether this publisher itself has a subtree observer.
   bool hasSubtreeObserver() const noexcept;
   bool hasObserver(Observer const& observer, Scope scope) const noexcept;

   /// How many publications on this thread have thrown what an observer threw. Whoever calls a
   /// setter learns from it whether an exception is the setter's own, which comes before anything
   /// is published, or an observer's.
   static U32 observersThrew() noexcept { return observersThrew_; }

protected:
   /// Adds an observer behind the others. REQUIRES: it is not registered here with this scope
   /// already.
   void add(Observer& observer, Scope scope);
   /// Adds an observer of the subtree before the others. REQUIRES: the same. `remove` takes it out.
   void addFirst(FirstObserver& observer);
   /// Removes it. Returns false if it was not registered here with this scope.
   bool remove(Observer& observer, Scope scope) noexcept;

   Publisher* parentPublisher() const noexcept { return parent_; }
   void parentPublisherIs(Publisher* parent) noexcept { parent_ = parent; }

   /// What the publishers below inherit.
   struct Heritage {
      /// Whether there is a subtree observer here or above.
      bool watched = false;
      /// The `FirstObserver` of the root, if nobody else between can hear of changes below.
      FirstObserver* shortcut = nullptr;

      friend bool operator==(Heritage const&, Heritage const&) = default;
   };
   /// O(1) unless entity observers are all that this publisher has.
   Heritage heritage() const noexcept;
   /// Takes from the parent what it passes on now. Returns whether this may have changed what is
   /// passed on from here. Whoever changes a parent or a subtree observer calls it for this
   /// publisher, and then, if `heritage` has changed, for those below as long as it returns true.
   bool inherit() noexcept;

private:
   struct List;
   static constexpr U8 ownBit = 1;
   static constexpr U8 aboveBit = 2;
   static constexpr U8 shortcutBit = 4;
   [[gnu::tls_model("initial-exec")]] static constinit thread_local U32 observersThrew_;

   class Running;
   class RunningInside;

   /// Null where `shortcut_` is in its place.
   List* list() const noexcept { return (watch_ & shortcutBit) != 0 ? nullptr : list_; }

   void publish(U16 attributeId, void const* key, void const* oldValue, KeyCompare keyCompare);
   void publishToMany(U16 attributeId, void const* key, void const* oldValue,
                      KeyCompare keyCompare);
   void publishInside(U16 attributeId, void const* key, void const* oldValue,
                      KeyCompare keyCompare);
   static void finishAfterThrow() noexcept;
   static void run(Frame& frame);
   static void tell(Frame& frame);
   static bool climb(Frame& frame) noexcept;
   static void runUpTo(Frame& last);
   static void runRest(Frame& last) noexcept;
   template <class Visit>
   static void forEachOpen(Visit&& visit);
   std::uintptr_t& append(std::uintptr_t slot);
   void tidy() noexcept;
   void listIs(List* list) noexcept;
   FirstObserver* firstOfRoot() const noexcept;
   void tellFirstWhetherAlone() noexcept;

   union {
      List* list_ = nullptr;
      /// If `shortcutBit` is set.
      FirstObserver* shortcut_;
   };
   Publisher* parent_ = nullptr;
   U8 watch_ = 0;
};

}  // namespace Sarn
