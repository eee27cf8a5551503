#pragma once

#include <type_traits>
#include <utility>

#include "Kiv/Entity.h"
#include "Kiv/Exception.h"
#include "Kiv/Identical.h"
#include "Kiv/ValueOps.h"

/// Members that hold one thing: attributes, and singleton children. See `Kiv/Glue/Members.h`.
namespace Kiv {

// Single values

/// What a bounded attribute may be, both bounds included, and what its setter says of other values.
/// Declared once: the setter, the constructor and the attribute's row take it from here.
template <class T>
struct Range {
   T least;
   T greatest;
   char const* message;
};

/// Throws `RangeException(range.message)` for a value out of range: one unsigned comparison.
template <class T>
inline void checkRange(T v, Range<T> const& range) {
   if constexpr (std::is_integral_v<T>) {
      using U = std::make_unsigned_t<T>;
      if (static_cast<U>(static_cast<U>(v) - static_cast<U>(range.least)) >
          static_cast<U>(static_cast<U>(range.greatest) - static_cast<U>(range.least)))
            [[unlikely]] {
         throwRangeException(range.message);
      }
   } else if (!(v >= range.least && v <= range.greatest)) [[unlikely]] {
      throwRangeException(range.message);
   }
}

namespace Impl {
/// A string setter with listeners: keeps the old string, without an allocation as long as the sizes
/// of the strings stay the same.
void publishString(Entity& owner, AttributeId id, Sarn::String& stored, std::string_view v);
}  // namespace Impl

/// Whether an attribute travels in the attribute log.
enum class Streamed : bool { no, yes };

namespace Impl {
/// Assigns a value: wholly, or not at all if its copy throws.
template <class T, class V>
inline void assignWhole(T& stored, V const& v) {
   if constexpr (std::is_nothrow_assignable_v<T&, V const&> || std::is_same_v<T, Sarn::String>) {
      stored = v;
   } else {
      T fresh(v);
      stored = std::move(fresh);
   }
}
}  // namespace Impl

/// Stores a value that differs and is in range, and publishes the change.
template <Streamed streamed = Streamed::yes, class T, class V>
inline void attributeStore(Entity& owner, AttributeId id, T& stored, V const& v) {
   if (!owner.watched()) [[likely]] {
      Impl::assignWhole(stored, v);
      return;
   }
   constexpr std::size_t size = fixedEncodedSize<T>;
   if constexpr (streamed == Streamed::yes && size != 0) {
      U8* const room = owner.mayBypass() ? owner.bypass(id, size) : nullptr;
      if (room != nullptr) {
         stored = v;
         NboAttrLog::Out out(room, size);
         ValueOps<T>::encode(out, stored);
         return;
      }
   }
   if constexpr (std::is_same_v<T, Sarn::String>) {
      Impl::publishString(owner, id, stored, v);
   } else {
      T const old = stored;
      Impl::assignWhole(stored, v);
      owner.publishToWatchers(id, nullptr, &old, nullptr);
   }
}

/// The setter without bounds: compare, store, publish.
template <Streamed streamed = Streamed::yes, class T, class V>
inline void attributeIs(Entity& owner, AttributeId id, T& stored, V const& v) {
   if (!isUnchanged(stored, v)) {
      attributeStore<streamed>(owner, id, stored, v);
   }
}

// Singleton children

/// The attribute that holds a singleton child. The destructor clears the child's parent link.
template <class T>
class ChildSlot {
public:
   ChildSlot() = default;
   ChildSlot(ChildSlot const&) = delete;
   ChildSlot& operator=(ChildSlot const&) = delete;
   ~ChildSlot() {
      if (child_) {
         child_->parentIs(nullptr);
      }
   }

   Sarn::Ptr<T> const& get() const noexcept { return child_; }
   T* operator->() const noexcept { return child_.get(); }

   /// Removes the child and clears its parent link.
   Sarn::Ptr<T> take() noexcept {
      if (child_) {
         child_->parentIs(nullptr);
      }
      return std::move(child_);
   }
   void put(Entity& owner, Sarn::Ptr<T> child) noexcept {
      child->parentIs(&owner);
      child_ = std::move(child);
   }

private:
   Sarn::Ptr<T> child_;
};

/// *xIs()*: `make()` builds the child if there is none.
template <class T, class Make>
Sarn::Ptr<T> childIs(Entity& owner, AttributeId id, ChildSlot<T>& slot, Make&& make) {
   if (slot.get()) {
      return slot.get();
   }
   Sarn::Ptr<T> const child = make();
   slot.put(owner, child);
   owner.publishChangeRecursive(id, nullptr, nullptr, nullptr);
   return child;
}

/// *xIs(name)*: a child of another name is replaced.
template <class T, class Make>
Sarn::Ptr<T> namedChildIs(Entity& owner, AttributeId id, ChildSlot<T>& slot, std::string_view name,
                          Make&& make) {
   if (slot.get() && slot->nameString() == name) {
      return slot.get();
   }
   Sarn::Ptr<T> const child = make();
   Sarn::Ptr<Entity> const old = slot.take();
   slot.put(owner, child);
   owner.publishChangeRecursive(id, nullptr, old ? &old : nullptr, nullptr);
   return child;
}

/// *xDel()*: the removed child, null if there was none.
template <class T>
Sarn::Ptr<T> childDel(Entity& owner, AttributeId id, ChildSlot<T>& slot) {
   Sarn::Ptr<T> const child = slot.take();
   if (child) {
      Sarn::Ptr<Entity> const old = child;
      owner.publishChangeRecursive(id, nullptr, &old, nullptr);
   }
   return child;
}

}  // namespace Kiv
