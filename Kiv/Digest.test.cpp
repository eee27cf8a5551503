#include "Kiv/Digest.h"

#include <gtest/gtest.h>

#include "KivTest/SimulationChange.h"
#include "KivTest/Stream.test.h"
#include "tests/CountedNew.h"

using namespace StreamTesting;
using Kiv::Digest;
using KivTest::hedgeFactory;
using KivTest::stemFactory;

namespace {

Sarn::Ptr<Stem> filled(bool backwards) {
   Sarn::Ptr<Stem> root = stemFactory("test");
   for (int i = 0; i != 40; ++i) {
      U32 const n = static_cast<U32>(backwards ? 39 - i : i);
      root->byNumberIs(n, "text " + std::to_string(n));
      root->byTextIs("key " + std::to_string(n), n);
      root->sortedIs(static_cast<S32>(n), "s");
      auto const leaf = root->leafIs(n, n % 2 == 0, KivTest::Opaque(n));
      leaf->twigIs(n % 3 == 0 ? KivTest::Level::low : KivTest::Level::high)->weightIs(n);
   }
   root->badgeIs("b")->brightnessIs(7);
   return root;
}

TEST(Digest, IsThirtyTwoHexadecimalDigitsAsText) {
   Digest const digest{0x0123456789abcdef, 0xfedcba9876543210};
   EXPECT_EQ(digest.text(), "0123456789abcdeffedcba9876543210");
   EXPECT_EQ(Digest::parse("0123456789ABCDEFfedcba9876543210"), digest);
   EXPECT_EQ(Digest::parse(Digest().text()), Digest());
   for (char const* const bad :
        {"", "0123456789abcdeffedcba987654321", "0123456789abcdefgedcba9876543210",
         "0123456789abcdef fedcba987654321", "0123456789abcdeffedcba98765432100",
         "`123456789abcdeffedcba9876543210"}) {
      EXPECT_EQ(Digest::parse(bad), std::nullopt) << bad;
   }
}

TEST(Digest, IsTheSameInEveryProcess) {
   // Whoever stores digests relies on these.
   EXPECT_EQ(Kiv::digest(*filled(false)).text(), "b731e2d8d3dd52584754a31f034733e1");
   EXPECT_EQ(Kiv::treeDigest(*filled(false)).text(), "c45f497cdb72a0ee415e3e9f68448376");
}

TEST(Digest, DoesNotDependOnTheOrderInWhichElementsCame) {
   Sarn::Ptr<Stem> const forth = filled(false);
   Sarn::Ptr<Stem> const back = filled(true);
   EXPECT_EQ(Kiv::digest(*forth), Kiv::digest(*back));
   EXPECT_EQ(Kiv::treeDigest(*forth), Kiv::treeDigest(*back));
}

TEST(Digest, DoesNotDependOnWhatWasThereBefore) {
   Sarn::Ptr<Stem> const before = filled(false);
   Sarn::Ptr<Stem> const after = filled(false);
   for (U32 i = 100; i != 900; ++i) {
      after->byNumberIs(i, "x");
      after->leafIs(i, true, KivTest::Opaque(1));
      after->samplesEnq(i);
   }
   EXPECT_NE(Kiv::treeDigest(*before), Kiv::treeDigest(*after));
   for (U32 i = 100; i != 900; ++i) {
      after->byNumberDel(i);
      after->leafDel(i);
      after->samplesDeq();
   }
   EXPECT_EQ(Kiv::treeDigest(*before), Kiv::treeDigest(*after));
   before->samplesEnq(1.5);
   EXPECT_NE(Kiv::treeDigest(*before), Kiv::treeDigest(*after));
   after->samplesEnq(1.5);  // under another number
   EXPECT_EQ(Kiv::treeDigest(*before), Kiv::treeDigest(*after));
}

TEST(Digest, OfAQueueDependsOnTheOrderOfItsElements) {
   Sarn::Ptr<Stem> const one = stemFactory("test");
   Sarn::Ptr<Stem> const other = stemFactory("test");
   one->samplesEnq(1);
   one->samplesEnq(2);
   other->samplesEnq(2);
   other->samplesEnq(1);
   EXPECT_NE(Kiv::digest(*one), Kiv::digest(*other));
}

TEST(Digest, TellsTheTwoZerosApart) {
   Sarn::Ptr<Stem> const one = stemFactory("test");
   Sarn::Ptr<Stem> const other = stemFactory("test");
   one->preciseIs(0.0);
   other->preciseIs(-0.0);
   EXPECT_NE(Kiv::digest(*one), Kiv::digest(*other));
}

TEST(Digest, LeavesOutWhatIsNotMirrored) {
   Sarn::Ptr<Stem> const root = stemFactory("test");
   Digest const before = Kiv::treeDigest(*root);
   root->secretIs(77);
   EXPECT_EQ(Kiv::treeDigest(*root), before);
}

TEST(Digest, OfAnEntityLeavesOutItsChildren) {
   Sarn::Ptr<Stem> const root = filled(false);
   Digest const own = Kiv::digest(*root);
   Digest const tree = Kiv::treeDigest(*root);
   root->leaf(3)->ticksInc(1);
   EXPECT_EQ(Kiv::digest(*root), own);
   EXPECT_NE(Kiv::treeDigest(*root), tree);
   root->leafDel(3);
   EXPECT_EQ(Kiv::digest(*root), own);
}

TEST(Digest, OfANodeKnowsWhichChildrenThereAreButNotWhatIsInThem) {
   Sarn::Ptr<Stem> const root = filled(false);
   Kiv::Digester digester;
   Digest const node = digester.node(*root);
   root->leaf(3)->ticksInc(1);
   root->leaf(3)->litIs(!root->leaf(3)->lit());
   root->badge()->brightnessIs(1);
   EXPECT_EQ(digester.node(*root), node);
   root->leafDel(3);
   EXPECT_NE(digester.node(*root), node);
   root->leafIs(3, true, KivTest::Opaque(99));  // with another constant argument
   EXPECT_NE(digester.node(*root), node);
   root->leafDel(3);
   root->leafIs(3, true, KivTest::Opaque(3));
   EXPECT_EQ(digester.node(*root), node);
   root->badgeIs("another");
   EXPECT_NE(digester.node(*root), node);
}

TEST(Digest, OfATreeIsRefusedBeyondABound) {
   Sarn::Ptr<Stem> const root = filled(false);
   Kiv::Digester digester;
   Digest const whole = digester.tree(*root);
   U64 const size = digester.visited();
   EXPECT_EQ(digester.treeUpTo(*root, size), whole);
   EXPECT_EQ(digester.treeUpTo(*root, size - 1), std::nullopt);
   digester.restart();
   EXPECT_EQ(digester.treeUpTo(*root, 3), std::nullopt);
   EXPECT_LT(digester.visited(), 200u) << "it stops when the bound is exceeded";
}

TEST(Digest, KnowsTheLongestValue) {
   Sarn::Ptr<Stem> const root = stemFactory("test");
   root->textIs(std::string(5000, 'x'));
   Kiv::Digester digester;
   Digest const digest = digester.own(*root);
   EXPECT_EQ(digester.longest(), 5004u);
   root->textIs(std::string(5000, 'y'));
   EXPECT_NE(digester.own(*root), digest);
}

TEST(Digest, AllocatesNothing) {
   Sarn::Ptr<Stem> const root = filled(false);
   root->samplesEnq(1);
   EXPECT_EQ(CountedNew::allocationsOf([&] { Kiv::treeDigest(*root); }), 0);
}

/// A tree of the type after random changes, and its mirror, which has a history of its own.
template <class RootType>
class RandomTrees : public StreamOf<RootType> {
protected:
   using StreamOf<RootType>::StreamOf;

   /// Each change makes the digest another one, if and only if it makes the tree another one.
   void explore(U64 seed) {
      KivTest::Chance chance(seed);
      this->mount();
      for (int i = 0; i != 40; ++i) {
         KivTest::changeAtRandom(*this->root, chance);
         std::string const difference = this->difference();
         bool const renumbered = difference.find(": from ") != std::string::npos;
         if (!renumbered) {
            EXPECT_EQ(Kiv::treeDigest(*this->root) == Kiv::treeDigest(*this->copy),
                      difference.empty())
                  << difference << ", seed " << seed;
         }
         this->carry();
         ASSERT_EQ(this->difference(), "") << "seed " << seed;
         EXPECT_EQ(Kiv::treeDigest(*this->root), Kiv::treeDigest(*this->copy)) << "seed " << seed;
      }
   }
};

class RandomStems : public RandomTrees<Stem> {
protected:
   RandomStems() : RandomTrees(stemFactory, "test") {}
};

class RandomHedges : public RandomTrees<KivTest::Hedge> {
protected:
   RandomHedges() : RandomTrees(hedgeFactory, "test") {}
};

TEST_F(RandomStems, DifferInTheirDigestsIfTheyDiffer) {
   for (U64 seed = 1; seed != 101; ++seed) {
      explore(seed);
      mirror.connect();
      source.connect();
   }
}

TEST_F(RandomHedges, DifferInTheirDigestsIfTheyDiffer) {
   for (U64 seed = 1; seed != 101; ++seed) {
      explore(seed);
      mirror.connect();
      source.connect();
   }
}

}  // namespace
