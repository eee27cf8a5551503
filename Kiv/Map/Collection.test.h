#pragma once

#include <utility>

#include "Kiv/Map/Hash.h"
#include "Sarn/Node.h"
#include "Sarn/Ptr.h"

/// What the tests of the collections share.
namespace CollectionTest {

/// A value whose instances are counted, and which knows whether it is one: reading a destroyed or
/// moved-from value gives a wrong number, destroying one twice a wrong count.
class Tracked {
public:
   static inline int live = 0;

   Tracked(U64 v = 0) : v_(v) { ++live; }
   Tracked(Tracked const& other) : v_(other.v_) { ++live; }
   Tracked(Tracked&& other) noexcept : v_(std::exchange(other.v_, movedFrom)) { ++live; }
   Tracked& operator=(Tracked const&) = default;
   Tracked& operator=(Tracked&& other) noexcept {
      v_ = std::exchange(other.v_, movedFrom);
      return *this;
   }
   ~Tracked() {
      --live;
      v_ = destroyed;
   }

   U64 v() const { return v_; }
   bool operator==(Tracked const&) const = default;
   auto operator<=>(Tracked const&) const = default;
   U32 hash(U32 seed) const { return Kiv::hashSingleAttr(seed, v_); }

private:
   static constexpr U64 movedFrom = 0xdeadbeef00000001;
   static constexpr U64 destroyed = 0xdeadbeef00000002;

   U64 v_;
};

/// A child entity's stand-in: holds its key.
class Child : public Sarn::Node {
public:
   static inline int live = 0;

   Child(U64 key, U64 value) : key_(key), value_(value) { ++live; }
   ~Child() override { --live; }
   U64 const& key() const { return key_; }
   U64 value() const { return value_; }

private:
   U64 key_;
   U64 value_;
};
using ChildPtr = Sarn::Ptr<Child>;

struct ChildKeyFunktor {
   U64 const& operator()(ChildPtr const& child) const { return child->key(); }
};

/// A value with its key inside.
struct Record {
   Tracked key;
   U64 value = 0;
};
struct RecordKeyFunktor {
   Tracked const& operator()(Record const& record) const { return record.key; }
};

/// A key of which many have the same hash, and all are near each other.
struct PoorKey {
   U32 v = 0;
   bool operator==(PoorKey const&) const = default;
   U32 hash(U32) const { return v % 4 + 0xfffffffc; }
};

}  // namespace CollectionTest
