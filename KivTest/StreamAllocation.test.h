// A source and a mirror in the steady state, and what they allocate there.
#pragma once

#include "KivTest/Stream.test.h"
#include "tests/CountedNew.h"

namespace StreamTesting {

class StreamAllocation : public StreamTest {
protected:
   StreamAllocation() {
      mount();
      leaf = root->leafIs(1, true, KivTest::Opaque(1));
      for (U32 i = 0; i != 100; ++i) {
         root->byNumberIs(i, "short");
         root->sortedIs(static_cast<S32>(i), "short");
      }
      root->textIs("a text that is longer than what a string holds itself");
      deliver();
   }
   /// Carries what waits, without the copies that `carry` makes.
   void deliver() {
      while (source.session->output().size != 0) {
         auto const piece = source.session->output();
         mirror.session->received(piece.begin, piece.size);
         source.session->sent(piece.size);
      }
   }
   /// Allocations of the second of two rounds of changes, delivery included.
   template <class Change>
   long allocationsOf(Change&& change) {
      for (int round = 0; round != 2; ++round) {
         change(round);
         deliver();
      }
      long const before = CountedNew::allocations();
      for (int i = 0; i != 100; ++i) {
         change(2 + i);
         deliver();
      }
      long const count = CountedNew::allocations() - before;
      expectEqual();
      return count;
   }

   Sarn::Ptr<KivTest::Leaf> leaf;
};

}  // namespace StreamTesting
