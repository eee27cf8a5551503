#pragma once

#include <optional>

#include "Kiv/Map/RbTreeMap.h"

/// `Kiv::checkedIterator(map)`: an iterator over a keyed collection of any kind that may be kept
/// while the collection changes.
namespace Kiv {

/// A hash map's iterator that survives changes: the map's own.
template <class Map>
requires requires(Map& map) {
   map.iterator();
}
auto checkedIterator(Map& map) {
   return map.iterator();
}

/// The same for an ordered map. It keeps the current key and finds its position again by it: an
/// element inserted after that key is visited, one inserted before it is not.
template <class Map>
class OrderedMapIterator {
public:
   using Key = typename Map::Key;
   using Value = typename Map::Value;

   explicit OrderedMapIterator(Map& map) : map_(map) { take(map.begin()); }
   explicit operator bool() const noexcept { return key_.has_value(); }
   Key const& key() const noexcept { return *key_; }
   /// REQUIRES: the element has not been erased.
   Value& value() const noexcept { return *map_.find(*key_); }
   bool markedForDeletion() const noexcept { return map_.find(*key_) == nullptr; }
   OrderedMapIterator& operator++() {
      take(map_.upperBound(*key_));
      return *this;
   }

private:
   void take(typename Map::Iterator at) {
      if (at == map_.end()) {
         key_.reset();
      } else {
         key_ = at->key;
      }
   }

   Map& map_;
   std::optional<Key> key_;
};

template <class K, class V>
auto checkedIterator(RbTreeMap<K, V>& map) {
   return OrderedMapIterator<RbTreeMap<K, V>>(map);
}

}  // namespace Kiv
