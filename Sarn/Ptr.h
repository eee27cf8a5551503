#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace Sarn {

/// Tag: the new pointer takes over a user that is already counted.
struct Adopt {};
inline constexpr Adopt adopt{};

/// Whether a pointer to a `U` is one to a `T`.
template <class U, class T>
concept PointsToA = std::is_convertible_v<U*, T*>;

/// The pointer by which nodes are held: a user of its node, or null. Copying costs one count.
template <class T>
class Ptr {
public:
   using element_type = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr(std::nullptr_t) noexcept {}
   /// Adds a user.
   Ptr(T* node) noexcept : node_(node) { inc(); }
   /// Takes over the user that the caller holds, such as the first one of a fresh node.
   Ptr(T* node, Adopt) noexcept : node_(node) {}
   Ptr(Ptr const& other) noexcept : node_(other.node_) { inc(); }
   Ptr(Ptr&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
   template <PointsToA<T> U>
   Ptr(Ptr<U> const& other) noexcept : node_(other.get()) {
      inc();
   }
   template <PointsToA<T> U>
   Ptr(Ptr<U>&& other) noexcept : node_(other.release()) {}
   ~Ptr() { dec(); }

   Ptr& operator=(Ptr other) noexcept {
      swap(other);
      return *this;
   }

   T* get() const noexcept { return node_; }
   T& operator*() const noexcept { return *node_; }
   T* operator->() const noexcept { return node_; }
   explicit operator bool() const noexcept { return node_ != nullptr; }

   /// Gives the node up without taking the user away; the caller owns it then.
   [[nodiscard]] T* release() noexcept { return std::exchange(node_, nullptr); }
   void reset() noexcept { Ptr().swap(*this); }
   void swap(Ptr& other) noexcept { std::swap(node_, other.node_); }

   friend bool operator==(Ptr const& a, Ptr const& b) noexcept { return a.node_ == b.node_; }
   friend bool operator==(Ptr const& a, T const* b) noexcept { return a.node_ == b; }
   friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.node_ == nullptr; }

private:
   void inc() const noexcept {
      if (node_ != nullptr) {
         node_->userInc();
      }
   }
   void dec() const noexcept {
      if (node_ != nullptr) {
         node_->userDec();
      }
   }

   T* node_ = nullptr;
};

}  // namespace Sarn

template <class T>
struct std::hash<Sarn::Ptr<T>> {
   std::size_t operator()(Sarn::Ptr<T> const& p) const noexcept { return hash<T*>()(p.get()); }
};
