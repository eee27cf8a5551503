// In the steady state a change allocates nothing at either end.
#include <cstddef>

#include "KivTest/StreamAllocation.test.h"
#include "Sarn/Slab.h"

using namespace StreamTesting;
using CountedNew::allocations;

namespace {

TEST_F(StreamAllocation, TheCounterCounts) {
   long const before = allocations();
   std::string const text(100, 'x');
   EXPECT_EQ(allocations(), before + 1);
}

TEST_F(StreamAllocation, OfScalarsIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) {
                root->u32Is(static_cast<U32>(i));
                root->preciseIs(i);
                root->colourIs(static_cast<KivTest::Colour>(i));
                root->markIs(static_cast<U8>(i));
                leaf->ticksInc(1);
             }),
             0);
}

TEST_F(StreamAllocation, OfValueTypesIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) { root->pairIs(KivTest::Pair(static_cast<U32>(i), 1)); }), 0);
}

TEST_F(StreamAllocation, OfStringsOfOneSizeIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) {
                char text[] = "a text that is longer than what a string holds itself";
                text[0] = static_cast<char>('a' + i % 26);
                root->textIs(text);
             }),
             0);
}

TEST_F(StreamAllocation, OfElementsThatAreThereIsNone) {
   EXPECT_EQ(allocationsOf([&](int i) {
                char const text[] = {static_cast<char>('a' + i % 26), '\0'};
                root->byNumberIs(static_cast<U32>(i % 100), text);
                root->sortedIs(i % 100, text);
                EXPECT_TRUE(root->byNumberHas(static_cast<U32>(i % 100)));
             }),
             0);
}

TEST_F(StreamAllocation, OfAnEntityThatManyReadIsNone) {
   End other;
   auto const third = KivTest::stemFactory("test");
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
             0);
   flow();
   EXPECT_EQ(third->u32(), root->u32());
   other.session.reset();
}

/// Messages that insert a key and erase it again, a new key each time.
std::vector<Bytes> passingKeys(U32 handle) {
   U16 const id = Stem::kivTypeImpl.field("byNumber")->fieldId;
   std::vector<Bytes> all;
   for (U32 key = 1000; key != 1102; ++key) {
      all.push_back(concat(message(Opcode::element, handle, id, concat(u32(key), text("x"))),
                           message(Opcode::erase, handle, id, u32(key))));
   }
   return all;
}

Bytes beginOfNumbers(U32 handle) {
   return message(Opcode::collectionBegin, handle, Stem::kivTypeImpl.field("byNumber")->fieldId,
                  {});
}

TEST_F(StreamAllocation, OfKeysThatAReplayNamesAndErasesIsNone) {
   if (Sarn::slabPassesThrough) {
      GTEST_SKIP() << "the nodes of sets come from the allocator under a sanitizer";
   }
   std::vector<Bytes> const keys = passingKeys(root->streamHandle());
   mirror.receive(beginOfNumbers(root->streamHandle()));
   EXPECT_EQ(allocationsOf([&](int i) { mirror.receive(keys.at(static_cast<std::size_t>(i))); }),
             0);
}

class StreamWriterAllocation : public StreamTest {
protected:
   StreamWriterAllocation() {
      for (U32 i = 0; i != 100; ++i) {
         root->byNumberIs(i, "short");
      }
      mount(MountMode::writer);
   }
};

TEST_F(StreamWriterAllocation, OfKeysThatComeAndGoHereDuringAReplayIsNone) {
   if (Sarn::slabPassesThrough) {
      GTEST_SKIP() << "the nodes of sets come from the allocator under a sanitizer";
   }
   mirror.receive(beginOfNumbers(root->streamHandle()));
   long before = 0;
   for (U32 i = 0; i != 102; ++i) {
      before = i == 2 ? allocations() : before;
      copy->byNumberIs(1000 + i, "x");
      copy->byNumberDel(1000 + i);
      while (mirror.session->output().size != 0) {
         auto const piece = mirror.session->output();
         source.session->received(piece.begin, piece.size);
         mirror.session->sent(piece.size);
      }
   }
   EXPECT_EQ(allocations(), before);
   expectEqual();
}

}  // namespace
