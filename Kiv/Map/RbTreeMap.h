#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "Kiv/AllocTrack.h"
#include "Kiv/Map/Hash.h"
#include "Kiv/Map/RbTree.h"

namespace Kiv {

/// An ordered map: a red-black tree whose elements are visited in ascending order of their keys,
/// by `operator<`. If the order does not matter, `HashMap2018` is several times faster.
///
///     Kiv::RbTreeMap<Ptp::MessageTypeNumber, Dorn::IntfId> byType;
///     byType.insert(type, intf);
///     for (auto& [key, value] : byType) { ... }
///     for (auto at = byType.lowerBound(from); at != byType.end(); ++at) { use(at->key); }
///
/// One pointer in size, nothing allocated while empty; each element is a node from the slab of its
/// size. Elements never move: a pointer or an iterator to one stays valid until it is erased.
/// Finding, inserting and erasing take O(log n); iteration takes O(1) a step on average.
///
/// Threads: belongs to one thread; several may read while none changes it. If a constructor or an
/// allocation throws, the map is as it was.
template <class KeyType, class ValueType>
class RbTreeMap {
   template <bool isConst>
   class IteratorTo;

public:
   using Key = KeyType;
   using Value = ValueType;
   using LookupKey = Kiv::LookupKey<Key>;
   struct Entry {
      Key const key;
      Value value;
   };
   using Iterator = IteratorTo<false>;
   using ConstIterator = IteratorTo<true>;

   RbTreeMap() noexcept = default;
   RbTreeMap(RbTreeMap const&) = delete;
   RbTreeMap& operator=(RbTreeMap const&) = delete;
   RbTreeMap(RbTreeMap&& other) noexcept : root_(std::exchange(other.root_, nullptr)) {}
   RbTreeMap& operator=(RbTreeMap&& other) noexcept {
      if (this != &other) {
         clear();
         root_ = std::exchange(other.root_, nullptr);
      }
      return *this;
   }
   ~RbTreeMap() { clear(); }

   std::size_t size() const noexcept { return Impl::rbCount(root_); }
   bool empty() const noexcept { return root_ == nullptr; }
   bool has(LookupKey key) const { return findNode(key) != nullptr; }

   /// The value of `key`, or null. Allocates nothing.
   Value* find(LookupKey key) {
      Node* const node = findNode(key);
      return node != nullptr ? &node->entry.value : nullptr;
   }
   Value const* find(LookupKey key) const {
      Node const* const node = findNode(key);
      return node != nullptr ? &node->entry.value : nullptr;
   }
   /// An iterator at `key`, or the end.
   Iterator iteratorAt(LookupKey key) { return Iterator(*this, findNode(key)); }
   ConstIterator iteratorAt(LookupKey key) const { return ConstIterator(*this, findNode(key)); }

   /// Adds the element unless the key is there; then nothing changes, and `second` is false. The
   /// value is copied or moved from only if it is added.
   std::pair<Value*, bool> insert(LookupKey key, Value const& value) { return add(key, value); }
   std::pair<Value*, bool> insert(LookupKey key, Value&& value) {
      return add(key, std::move(value));
   }

   /// Removes the element and gives its value back, or nothing if there is none.
   std::optional<Value> erase(LookupKey key) {
      std::optional<Value> value;
      if (Node* const node = findNode(key); node != nullptr) {
         value.emplace(std::move(node->entry.value));
         Impl::rbErase(root_, node);
         destroy(node);
      }
      return value;
   }
   /// Removes the element and gives an iterator at the next one. REQUIRES: not the end.
   Iterator erase(ConstIterator at) {
      Iterator const next(*this, Impl::rbNeighbour(at.node_, 1));
      Impl::rbErase(root_, at.node_);
      destroy(static_cast<Node*>(at.node_));
      return next;
   }
   /// Removes every element. What their destructors see of the map is empty.
   void clear() noexcept { destroyAll(std::exchange(root_, nullptr)); }

   Iterator begin() noexcept { return Iterator(*this, Impl::rbOutermost(root_, 0)); }
   Iterator end() noexcept { return Iterator(*this, nullptr); }
   ConstIterator begin() const noexcept {
      return ConstIterator(*this, Impl::rbOutermost(root_, 0));
   }
   ConstIterator end() const noexcept { return ConstIterator(*this, nullptr); }

   /// The first element whose key is not below `key`, or the end.
   Iterator lowerBound(LookupKey key) { return Iterator(*this, lowerNode(key)); }
   ConstIterator lowerBound(LookupKey key) const { return ConstIterator(*this, lowerNode(key)); }
   /// The first element whose key is above `key`, or the end.
   Iterator upperBound(LookupKey key) { return Iterator(*this, upperNode(key)); }
   ConstIterator upperBound(LookupKey key) const { return ConstIterator(*this, upperNode(key)); }

   /// Whether the tree is a red-black tree; O(n), for tests.
   bool isValid() const noexcept { return Impl::rbIsValid(root_); }

private:
   struct Node : Impl::RbNode {
      template <class V>
      Node(LookupKey key, V&& value) : entry{Key(key), std::forward<V>(value)} {}
      Entry entry;
   };

   template <class V>
   std::pair<Value*, bool> add(LookupKey key, V&& value);

   static AllocTrackTypeInfo& tracker() noexcept { return allocTrackerOf<RbTreeMap>; }
   static Node* nodeOf(Impl::RbNode* node) noexcept { return static_cast<Node*>(node); }
   static Key const& keyOf(Impl::RbNode const* node) noexcept {
      return static_cast<Node const*>(node)->entry.key;
   }

   Impl::RbNode* lowerNode(LookupKey key) const {
      Impl::RbNode* found = nullptr;
      for (Impl::RbNode* node = root_; node != nullptr;) {
         // No branch on the comparison: for keys in random order, half would be mispredicted.
         bool const below = keyOf(node) < key;
         found = below ? found : node;
         node = node->child[below];
      }
      return found;
   }
   Impl::RbNode* upperNode(LookupKey key) const {
      Impl::RbNode* found = nullptr;
      for (Impl::RbNode* node = root_; node != nullptr;) {
         bool const above = key < keyOf(node);
         found = above ? node : found;
         node = node->child[!above];
      }
      return found;
   }
   Node* findNode(LookupKey key) const {
      Impl::RbNode* const node = lowerNode(key);
      return node != nullptr && !(key < keyOf(node)) ? nodeOf(node) : nullptr;
   }

   static void destroy(Node* node) noexcept {
      std::destroy_at(node);
      deallocateTracked(tracker(), node, sizeof(Node), alignof(Node));
   }
   static void destroyAll(Impl::RbNode* node) noexcept {
      while (node != nullptr) {
         destroyAll(node->child[1]);
         Impl::RbNode* const left = node->child[0];
         destroy(nodeOf(node));
         node = left;
      }
   }

   Impl::RbNode* root_ = nullptr;
};

template <class Key, class Value>
template <class V>
std::pair<Value*, bool> RbTreeMap<Key, Value>::add(LookupKey key, V&& value) {
   Impl::RbNode* parent = nullptr;
   Impl::RbNode* notBelow = nullptr;
   bool below = false;
   for (Impl::RbNode* node = root_; node != nullptr;) {
      parent = node;
      below = keyOf(node) < key;
      notBelow = below ? notBelow : node;
      node = node->child[below];
   }
   if (notBelow != nullptr && !(key < keyOf(notBelow))) {
      return {&nodeOf(notBelow)->entry.value, false};
   }
   void* const memory = allocateTracked(tracker(), sizeof(Node), alignof(Node));
   Node* node;
   try {
      node = new (memory) Node(key, std::forward<V>(value));
   } catch (...) {
      deallocateTracked(tracker(), memory, sizeof(Node), alignof(Node));
      throw;
   }
   Impl::rbInsert(root_, node, parent, below);
   return {&node->entry.value, true};
}

/// Walks a map in order, in both directions. Valid until its element is erased, whatever happens to
/// the others.
template <class Key, class Value>
template <bool isConst>
class RbTreeMap<Key, Value>::IteratorTo {
public:
   using iterator_category = std::bidirectional_iterator_tag;
   using value_type = Entry;
   using difference_type = std::ptrdiff_t;
   using reference = std::conditional_t<isConst, Entry const&, Entry&>;
   using pointer = std::conditional_t<isConst, Entry const*, Entry*>;

   IteratorTo() noexcept = default;
   /// Converts an iterator to a const iterator.
   template <bool fromConst>
   requires(isConst && !fromConst) IteratorTo(IteratorTo<fromConst> const& other)
   noexcept : map_(other.map_), node_(other.node_) {}

   reference operator*() const noexcept { return nodeOf(node_)->entry; }
   pointer operator->() const noexcept { return &**this; }

   IteratorTo& operator++() noexcept {
      node_ = Impl::rbNeighbour(node_, 1);
      return *this;
   }
   /// From the end it goes to the last element.
   IteratorTo& operator--() noexcept {
      node_ = node_ != nullptr ? Impl::rbNeighbour(node_, 0) : Impl::rbOutermost(map_->root_, 1);
      return *this;
   }
   IteratorTo operator++(int) noexcept { return std::exchange(*this, std::next(*this)); }
   IteratorTo operator--(int) noexcept { return std::exchange(*this, std::prev(*this)); }

   bool operator==(IteratorTo const& other) const noexcept { return node_ == other.node_; }

private:
   friend RbTreeMap;
   template <bool>
   friend class IteratorTo;

   IteratorTo(RbTreeMap const& map, Impl::RbNode* node) noexcept : map_(&map), node_(node) {}

   RbTreeMap const* map_ = nullptr;
   Impl::RbNode* node_ = nullptr;
};

}  // namespace Kiv
