#include "Sarn/Ptr.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <unordered_set>

#include "Sarn/Node.h"

namespace {

/// A node that counts those alive.
class Base : public Sarn::Node {
public:
   Base() { ++alive; }
   ~Base() override { --alive; }

   static inline int alive = 0;
};
class Derived : public Base {};

using P = Sarn::Ptr<Base>;

P make() {
   return P(new Base, Sarn::adopt);
}

class Ptr : public testing::Test {
protected:
   void TearDown() override { EXPECT_EQ(Base::alive, 0); }
};

static_assert(sizeof(P) == sizeof(Base*));
static_assert(std::is_nothrow_move_constructible_v<P> && std::is_nothrow_copy_constructible_v<P>);
static_assert(std::is_convertible_v<Sarn::Ptr<Derived>, P>);
static_assert(!std::is_convertible_v<P, Sarn::Ptr<Derived>>);
static_assert(!std::is_convertible_v<P, bool>);

TEST_F(Ptr, IsNullByDefault) {
   P const null;
   EXPECT_FALSE(null);
   EXPECT_EQ(null, nullptr);
   EXPECT_EQ(null.get(), nullptr);
   EXPECT_EQ(null, P(nullptr));
}

TEST_F(Ptr, AdoptsTheFirstUserOfAFreshNode) {
   P const p = make();
   EXPECT_TRUE(p);
   EXPECT_EQ(p->userCount(), 1u);
}

TEST_F(Ptr, AddsAUserToAPlainPointer) {
   P const p = make();
   P const again(p.get());
   EXPECT_EQ(p->userCount(), 2u);
   EXPECT_EQ(p, again);
   EXPECT_EQ(p, again.get());
}

TEST_F(Ptr, CopyingCountsAndMovingDoesNot) {
   P p = make();
   P copy = p;
   EXPECT_EQ(p->userCount(), 2u);
   P const moved = std::move(copy);
   EXPECT_EQ(moved->userCount(), 2u);
   EXPECT_FALSE(copy);  // NOLINT(bugprone-use-after-move): null is what it promises
   p = moved;
   EXPECT_EQ(p->userCount(), 2u);
}

TEST_F(Ptr, AssigningReleasesWhatItHeld) {
   P p = make();
   P const other = make();
   EXPECT_EQ(Base::alive, 2);
   p = other;
   EXPECT_EQ(Base::alive, 1);
   EXPECT_EQ(other->userCount(), 2u);
   p = nullptr;
   EXPECT_EQ(other->userCount(), 1u);
}

TEST_F(Ptr, SurvivesAssigningItself) {
   P p = make();
   P& same = p;
   p = same;
   EXPECT_EQ(p->userCount(), 1u);
   p = std::move(same);
   EXPECT_EQ(p->userCount(), 1u);
}

TEST_F(Ptr, ConvertsToItsBase) {
   Sarn::Ptr<Derived> derived(new Derived, Sarn::adopt);
   P base = derived;
   EXPECT_EQ(derived->userCount(), 2u);
   EXPECT_EQ(base, derived);
   base = std::move(derived);
   EXPECT_EQ(base->userCount(), 1u);
   EXPECT_FALSE(derived);  // NOLINT(bugprone-use-after-move): null is what it promises
}

TEST_F(Ptr, ReleaseHandsTheUserOver) {
   P p = make();
   Base* const node = p.release();
   EXPECT_FALSE(p);
   EXPECT_EQ(node->userCount(), 1u);
   P const back(node, Sarn::adopt);
   EXPECT_EQ(back->userCount(), 1u);
}

TEST_F(Ptr, ResetAndSwap) {
   P a = make();
   P b;
   Base const* const node = a.get();
   a.swap(b);
   EXPECT_FALSE(a);
   EXPECT_EQ(b, node);
   b.reset();
   EXPECT_FALSE(b);
}

/// A node whose destructor looks at the pointer that held it.
TEST_F(Ptr, IsNullAlreadyWhenResettingItDestroysTheNode) {
   struct Looks : Base {
      explicit Looks(Sarn::Ptr<Looks>& holder) : holder_(holder) {}
      ~Looks() override { EXPECT_FALSE(holder_); }
      Sarn::Ptr<Looks>& holder_;
   };
   Sarn::Ptr<Looks> p;
   p = Sarn::Ptr<Looks>(new Looks(p), Sarn::adopt);
   p.reset();
}

TEST_F(Ptr, HashesByNode) {
   P const a = make();
   P const b = make();
   std::unordered_set<P> const set{a, b, P(a)};
   EXPECT_EQ(set.size(), 2u);
   EXPECT_TRUE(set.contains(b));
}

}  // namespace
