// A tree that is kept equal to another, whatever happens to that one.
#include "Holt/State/Twin.h"

#include <gtest/gtest.h>

#include "Kiv/Digest.h"
#include "KivTest/SimulationChange.h"
#include "KivTest/TestTypes/Stem.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Kiv {

/// What gtest prints.
static void PrintTo(Digest const& digest, std::ostream* out) {
   *out << digest.text();
}

}  // namespace Kiv

namespace Holt {
namespace {

using Kiv::treeDigest;
using KivTest::Chance;
using KivTest::changeAtRandom;

/// Counts what is published below a tree.
class Count final : public Kiv::Observer {
public:
   explicit Count(Kiv::Entity& root) : root_(root) { root.observerAdd(*this, Kiv::Scope::subtree); }
   ~Count() { root_.observerDel(*this, Kiv::Scope::subtree); }
   void onChange(Kiv::Change const&) override { ++changes; }
   std::size_t changes = 0;

private:
   Kiv::Entity& root_;
};

template <class Factory>
void staysEqual(Factory&& factory) {
   for (U64 seed = 0; seed != 60; ++seed) {
      Chance chance(seed);
      auto const from = factory("test");
      auto const to = factory("test");
      for (int i = 0; i != 60; ++i) {
         changeAtRandom(*from, chance);
         changeAtRandom(*to, chance);
      }
      Twin const twin(from, to);
      ASSERT_EQ(treeDigest(*from), treeDigest(*to)) << "at first, seed " << seed;
      for (int i = 0; i != 200; ++i) {
         changeAtRandom(*from, chance);
         ASSERT_EQ(treeDigest(*from), treeDigest(*to)) << "change " << i << ", seed " << seed;
      }
   }
}

TEST(Twin, EqualsATreeOfEveryKindOfMemberAfterEachChange) {
   staysEqual([](char const* name) { return KivTest::stemFactory(name); });
}

TEST(Twin, EqualsAStatusAfterEachChange) {
   staysEqual([](char const* name) { return Ptp::statusFactory(name); });
}

TEST(Twin, OfWhatIsEqualAlreadyPublishesNothing) {
   Chance chance(1);
   auto const from = KivTest::stemFactory("test");
   auto const to = KivTest::stemFactory("test");
   for (int i = 0; i != 300; ++i) {
      changeAtRandom(*from, chance);
   }
   copyTree(*from, *to);
   Count const count(*to);
   copyTree(*from, *to);
   EXPECT_EQ(count.changes, 0u);
}

TEST(Twin, OfAQueueThatItsSourceNumbersAppendsOnlyWhatIsNew) {
   auto const from = KivTest::stemFactory("test");
   auto const to = KivTest::stemFactory("test");
   for (double const sample : {1, 2, 3}) {
      to->samplesEnq(sample);
   }
   to->samplesDeq();
   from->samplesEnq(2);
   from->samplesEnq(3);
   Count const count(*to);
   Twin const twin(from, to);
   EXPECT_EQ(count.changes, 0u) << "the numbers differ, the elements do not";
   from->samplesEnq(4);
   EXPECT_EQ(count.changes, 1u);
   from->samplesDeq();
   EXPECT_EQ(count.changes, 2u);
   EXPECT_EQ(treeDigest(*from), treeDigest(*to));
}

TEST(Twin, PublishesAChangeOnce) {
   auto const from = KivTest::stemFactory("test");
   auto const to = KivTest::stemFactory("test");
   Twin const twin(from, to);
   Count const count(*to);
   from->u8Is(7);
   EXPECT_EQ(to->u8(), 7);
   EXPECT_EQ(count.changes, 1u);
}

TEST(Twin, ThatHasEndedCopiesNothing) {
   auto const from = KivTest::stemFactory("test");
   auto const to = KivTest::stemFactory("test");
   to->u8Is(6);
   { Twin const twin(from, to); }
   U8 const before = to->u8();
   EXPECT_EQ(before, from->u8());
   from->u8Is(7);
   EXPECT_EQ(to->u8(), before);
}

}  // namespace
}  // namespace Holt
