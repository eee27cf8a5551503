// In the steady state a change costs no allocation on either side.
#include <atomic>
#include <cstdlib>
#include <new>

#include "Kiv/NboAttrLogRecorder.h"
#include "KivTest/StreamTestSupport.h"

using namespace StreamTesting;

namespace {

/// How often this program has allocated.
std::atomic<std::size_t> allocations = 0;

void* allocate(std::size_t size) {
   ++allocations;
   void* const memory = std::malloc(size != 0 ? size : 1);
   if (memory == nullptr) {
      throw std::bad_alloc();
   }
   return memory;
}

}  // namespace

// NOLINTBEGIN(misc-new-delete-overloads): the sized and aligned forms end up here as well
// Not inlined: the compiler would take the pairs for mismatched.
[[gnu::noinline]] void* operator new(std::size_t size) {
   return allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
   std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
   std::free(memory);
}
// NOLINTEND(misc-new-delete-overloads)

namespace {

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
   std::size_t allocationsOf(Change&& change) {
      for (int round = 0; round != 2; ++round) {
         change(round);
         deliver();
      }
      std::size_t const before = allocations;
      for (int i = 0; i != 100; ++i) {
         change(2 + i);
         deliver();
      }
      std::size_t const count = allocations - before;
      expectEqual();
      return count;
   }

   Sarn::Ptr<KivTest::Leaf> leaf;
};

TEST_F(StreamAllocation, TheCounterCounts) {
   std::size_t const before = allocations;
   std::string const text(100, 'x');
   EXPECT_EQ(allocations, before + 1);
}

TEST_F(StreamAllocation, OfScalarsIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) {
                root->u32Is(static_cast<U32>(i));
                root->preciseIs(i);
                root->colourIs(static_cast<KivTest::Colour>(i));
                root->markIs(static_cast<U8>(i));
                leaf->ticksInc(1);
             }),
             0u);
}

struct Nowhere final : Kiv::NboAttrLog::RecordSink {
   U64 begin() override { return 1; }
   bool write(U8 const*, std::size_t) override { return true; }
   Sarn::String reason() const override { return {}; }
};

TEST_F(StreamAllocation, OfRecordingIsNone) {
   Nowhere nowhere;
   Kiv::NboAttrLog::Recorder recorder(source.hub, nowhere);
   U64 now = 0;
   EXPECT_EQ(allocationsOf([&](int i) {
                root->u32Is(static_cast<U32>(i));
                root->byNumberIs(static_cast<U32>(i % 2), i % 4 < 2 ? "a" : "b");
                ++now;
                recorder.turn({now, now});
             }),
             0u);
   EXPECT_GT(recorder.stats().changes, 100u);
   EXPECT_TRUE(recorder.complete());
}

TEST_F(StreamAllocation, OfValueTypesIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) { root->pairIs(KivTest::Pair(static_cast<U32>(i), 1)); }),
             0u);
}

TEST_F(StreamAllocation, OfStringsOfOneSizeIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) {
                char text[] = "a text that is longer than what a string holds itself";
                text[0] = static_cast<char>('a' + i % 26);
                root->textIs(text);
             }),
             0u);
}

TEST_F(StreamAllocation, OfElementsThatAreThereIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) {
                char const text[] = {static_cast<char>('a' + i % 26), '\0'};
                root->byNumberIs(static_cast<U32>(i % 100), text);
                root->sortedIs(i % 100, text);
                EXPECT_TRUE(root->byNumberHas(static_cast<U32>(i % 100)));
             }),
             0u);
}

TEST_F(StreamAllocation, OfAnEntityThatManyReadIsNone) {
   End other;
   auto const third = KivTest::rootFactory("test");
   other.session->mountIs(third);
   Session more(source.hub);
   Bytes const asked = other.take();
   more.received(asked.data(), asked.size());
   auto const flow = [&] {
      while (more.output().size != 0) {
         auto const piece = more.output();
         other.session->received(piece.begin, piece.size);
         more.sent(piece.size);
      }
   };
   flow();
   EXPECT_EQ(allocationsOf([&](int i) {
                root->u32Is(static_cast<U32>(i));
                flow();
             }),
             0u);
   flow();
   EXPECT_EQ(third->u32(), root->u32());
   other.session.reset();
}

}  // namespace
