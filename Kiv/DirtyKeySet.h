#pragma once

#include "Kiv/AttrOps.h"
#include "Kiv/Map/HSet.h"
#include "Kiv/Map/RbTreeMap.h"

/// The sets of dirty keys for hash maps and for ordered maps. See `Kiv::DirtyKeys`.
namespace Kiv::Impl {
#pragma GCC visibility push(hidden)

/// Dirty keys, and for each whether its former element was removed.
template <class K>
class DirtyKeySet final : public DirtyKeys {
public:
   void insert(void const* key, bool erased) override {
      K const& k = *static_cast<K const*>(key);
      keys_.insert(k);
      if (erased) {
         erased_.insert(k);
      }
   }
   void remove(void const* key) override {
      keys_.erase(*static_cast<K const*>(key));
      erased_.erase(*static_cast<K const*>(key));
   }
   bool has(void const* key) const override { return keys_.has(*static_cast<K const*>(key)); }
   std::size_t size() const override { return keys_.size(); }
   bool flush(void* context, DirtyKeyResult (*write)(void*, void const*, bool)) override {
      for (auto at = keys_.iterator(); at; ++at) {
         K const key = at.key();
         DirtyKeyResult const result = write(context, &key, erased_.has(key));
         if (result == DirtyKeyResult::full) {
            return false;
         }
         if (result == DirtyKeyResult::erased) {
            erased_.erase(key);
            return false;
         }
         keys_.erase(at);
         erased_.erase(key);
         if (result == DirtyKeyResult::writtenAndStop) {
            return keys_.size() == 0;
         }
      }
      return true;
   }

private:
   HSet<K> keys_;
   HSet<K> erased_;
};

/// The same in key order, for ordered maps.
template <class K>
class OrderedDirtyKeySet final : public DirtyKeys {
public:
   void insert(void const* key, bool erased) override {
      K const& k = *static_cast<K const*>(key);
      if (bool* const known = keys_.find(k)) {
         *known = *known || erased;
      } else {
         keys_.insert(k, erased);
      }
   }
   void remove(void const* key) override { keys_.erase(*static_cast<K const*>(key)); }
   bool has(void const* key) const override {
      return keys_.find(*static_cast<K const*>(key)) != nullptr;
   }
   std::size_t size() const override { return keys_.size(); }
   bool flush(void* context, DirtyKeyResult (*write)(void*, void const*, bool)) override {
      while (keys_.size() != 0) {
         auto const at = keys_.begin();
         K const key = at->key;
         DirtyKeyResult const result = write(context, &key, at->value);
         if (result == DirtyKeyResult::full) {
            return false;
         }
         if (result == DirtyKeyResult::erased) {
            *keys_.find(key) = false;
            return false;
         }
         keys_.erase(key);
         if (result == DirtyKeyResult::writtenAndStop) {
            break;
         }
      }
      return keys_.size() == 0;
   }

private:
   RbTreeMap<K, bool> keys_;
};

#pragma GCC visibility pop

}  // namespace Kiv::Impl
