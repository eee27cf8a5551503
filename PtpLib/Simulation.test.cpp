// Mirrors equal their source, whatever happens along the way. PTPLIB_TEST_SEED runs one seed,
// PTPLIB_TEST_SEEDS this many of them from PTPLIB_TEST_FIRST_SEED on, each in every plan.
#include "KivTest/Simulation.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Kiv/Map/Hash.h"
#include "Kiv/Module.h"
#include "KivTest/SimulationCoverage.h"
#include "KivTest/SimulationTree.h"
#include "PtpLib/PtpStatusStatedbTypes.h"

using KivTest::Chance;
using KivTest::changeAtRandom;
using KivTest::firstDifference;
using KivTest::rootOf;
using KivTest::Simulation;
using KivTest::SimulationPlan;

namespace {

/// A seed must do the same in every run, and hash maps are iterated in the order of the hashes.
[[maybe_unused]] bool const sameHashes = [] {
   Kiv::HashHelper::hashSeed32Is(Simulation::hashSeed);
   return true;
}();

U64 number(char const* variable, U64 otherwise) {
   char const* const text = std::getenv(variable);
   return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// The requested seeds; `seeds` is their number unless the environment says otherwise.
struct Seeds {
   explicit Seeds(U64 seeds) {
      U64 const wanted = number("PTPLIB_TEST_SEED", ~U64(0));
      first = wanted != ~U64(0) ? wanted : number("PTPLIB_TEST_FIRST_SEED", 0);
      count = wanted != ~U64(0) ? 1 : number("PTPLIB_TEST_SEEDS", seeds);
   }
   U64 first;
   U64 count;
};

SimulationPlan planOf(char const* type) {
   SimulationPlan plan;
   plan.type = type;
   return plan;
}

/// Everything at once, within the widest bounds; the seed decides what is included.
SimulationPlan widePlan(U64 seed) {
   static constexpr char const* types[] = {"Ptp::SystemClockConfig", "Ptp::Config", "KivTest::Stem",
                                           "KivTest::Hedge", "Ptp::HwConfig"};
   static constexpr std::size_t elements[] = {6, 25, 125, 200};
   static constexpr std::size_t bursts[] = {1, 10, 60};
   Chance chance(~seed);
   SimulationPlan plan = planOf(types[chance.below(std::size(types))]);
   plan.writers = chance.below(4);
   plan.readers = chance.below(2) + (plan.writers == 0 ? 1 : 0);
   plan.relay = chance.oneIn(3);
   plan.writerBehindWriter = plan.writers != 0 && chance.oneIn(3);
   plan.meddlers = chance.oneIn(4);
   plan.otherType = chance.oneIn(3) ? "Ptp::HwTime" : "";
   plan.withdrawals = chance.oneIn(3);
   plan.recorder = chance.oneIn(4);
   plan.outputBuffer = chance.oneIn(8) ? std::size_t(1) << 20 : 900 + chance.below(3101);
   plan.bounds.elements = elements[chance.below(std::size(elements))];
   plan.bounds.text = chance.oneIn(2) ? 300 : 0;
   plan.burst = bursts[chance.below(std::size(bursts))];
   plan.steps = 30 + chance.below(170);
   return plan;
}

/// A plan in which a source and one writer used to diverge, before the log was fixed.
SimulationPlan oneWriterPlan(U64 seed) {
   Chance chance(~seed);
   SimulationPlan plan = planOf(chance.oneIn(2) ? "Ptp::SystemClockConfig" : "Ptp::Config");
   plan.readers = 0;
   plan.writers = 1;
   plan.outputBuffer = 900 + chance.below(3101);
   plan.bounds.elements = 1 + chance.below(125);
   plan.burst = 1 + chance.below(60);
   plan.steps = 100;
   return plan;
}

std::string textOf(SimulationPlan const& plan) {
   std::string text = plan.type + ", " + std::to_string(plan.readers) + " readers, " +
                      std::to_string(plan.writers) + " writers";
   auto const add = [&text](bool is, std::string const& what) { text += is ? ", " + what : ""; };
   add(plan.relay, "a relay");
   add(plan.writerBehindWriter, "a writer behind a writer");
   add(plan.meddlers, "meddlers");
   add(!plan.otherType.empty(), "and " + plan.otherType);
   add(plan.withdrawals, "withdrawals");
   add(plan.recorder, "a recorder");
   add(plan.comparisons, "comparisons");
   return text + ", buffers of " + std::to_string(plan.outputBuffer) + ", " +
          std::to_string(plan.bounds.elements) + " elements, bursts of " +
          std::to_string(plan.burst) + ", " + std::to_string(plan.steps) + " steps";
}

/// Simulates each seed, and reports the first 20 that fail.
template <class PlanOfSeed>
void simulateEach(PlanOfSeed&& planOfSeed, U64 seeds) {
   Seeds const wanted(seeds);
   U64 failed = 0;
   for (U64 seed = wanted.first; seed != wanted.first + wanted.count; ++seed) {
      SimulationPlan const plan = planOfSeed(seed);
      std::string const problem = Simulation(plan, seed).run();
      if (!problem.empty() && ++failed <= 20) {
         ADD_FAILURE() << problem << "\nwith " << textOf(plan) << "\nPTPLIB_TEST_SEED=" << seed;
      }
   }
   EXPECT_EQ(failed, 0u) << "of " << wanted.count;
}

void simulate(SimulationPlan const& plan, U64 seeds) {
   simulateEach([&plan](U64) { return plan; }, seeds);
}

TEST(Simulation, EverythingAtOnce) {
   simulateEach(&widePlan, 30);
}

TEST(Simulation, AWriterAndTheSourceThatFallBehindEndWithTheSame) {
   simulateEach(&oneWriterPlan, 40);
}

TEST(Simulation, AReaderEqualsTheSource) {
   simulate(planOf("KivTest::Stem"), 300);
}

TEST(Simulation, SeveralReadersEqualTheSource) {
   SimulationPlan plan = planOf("KivTest::Stem");
   plan.readers = 3;
   simulate(plan, 100);
}

TEST(Simulation, AReaderOfDerivedEntitiesEqualsTheSource) {
   simulate(planOf("KivTest::Hedge"), 300);
}

TEST(Simulation, AWriterAndAReaderEqualTheSource) {
   SimulationPlan plan = planOf("KivTest::Stem");
   plan.writers = 1;
   simulate(plan, 200);
}

TEST(Simulation, AWriterOfDerivedEntitiesEqualsTheSource) {
   SimulationPlan plan = planOf("KivTest::Hedge");
   plan.readers = 0;
   plan.writers = 1;
   simulate(plan, 300);
}

TEST(Simulation, TwoWritersThatDisagreeEndWithTheSame) {
   SimulationPlan plan = planOf("KivTest::Hedge");
   plan.writers = 2;
   simulate(plan, 200);
   plan.type = "KivTest::Stem";
   simulate(plan, 100);
}

TEST(Simulation, AMirrorOfAMirrorEqualsTheSource) {
   SimulationPlan plan = planOf("KivTest::Stem");
   plan.relay = true;
   simulate(plan, 150);
}

TEST(Simulation, ChangesFromInsideNotificationsArriveToo) {
   SimulationPlan plan = planOf("KivTest::Stem");
   plan.meddlers = true;
   simulate(plan, 150);
   plan.type = "KivTest::Hedge";
   plan.writers = 2;
   simulate(plan, 150);
}

TEST(Simulation, AComparisonFindsNothingDifferentHoweverBusyTheTreeIs) {
   SimulationPlan plan = planOf("KivTest::Stem");
   plan.comparisons = true;
   plan.readers = 2;
   plan.relay = true;
   plan.burst = 8;
   simulate(plan, 100);
   plan.withdrawals = true;
   plan.otherType = "KivTest::Hedge";
   simulate(plan, 60);
}

TEST(Simulation, AComparisonOfAWriterFindsNothingDifferentEither) {
   SimulationPlan plan = planOf("KivTest::Stem");
   plan.comparisons = true;
   plan.writers = 2;
   plan.writerBehindWriter = true;
   simulate(plan, 100);
   plan.meddlers = true;
   plan.type = "KivTest::Hedge";
   simulate(plan, 100);
   plan.type = "Ptp::Config";
   plan.burst = 30;
   simulate(plan, 60);
}

TEST(Simulation, PtpConfigEqualsTheSource) {
   SimulationPlan plan = planOf("Ptp::Config");
   plan.writers = 1;
   simulate(plan, 150);
}

TEST(Simulation, PtpStatusEqualsTheSourceWhateverIsMadeChangedDeletedAndMadeAgain) {
   KivTest::SimulationCoverage arrived;
   SimulationPlan plan = planOf("Ptp::Status");
   plan.readers = 2;
   plan.writers = 1;
   plan.witness = &arrived;
   plan.steps = 1000;  // ports must live long enough for everything to happen to them
   simulate(plan, 200);
   if (std::getenv("PTPLIB_TEST_SEED") == nullptr) {
      EXPECT_EQ(arrived.missing(Ptp::Status::kivTypeImpl), "");
   }
}

TEST(Simulation, AMirrorOfAMirrorOfPtpStatusEqualsTheSource) {
   SimulationPlan plan = planOf("Ptp::Status");
   plan.relay = true;
   simulate(plan, 60);
}

TEST(Simulation, ChangesOfPtpStatusFromInsideNotificationsArriveToo) {
   SimulationPlan plan = planOf("Ptp::Status");
   plan.meddlers = true;
   plan.writers = 2;
   simulate(plan, 60);
}

TEST(Simulation, ASeedDoesTheSameInEveryRun) {
   for (U64 seed = 0; seed != 12; ++seed) {
      SimulationPlan plan = widePlan(seed);
      plan.meddlers = true;
      Simulation first(plan, seed);
      std::string const problem = first.run();
      Simulation again(plan, seed);
      EXPECT_EQ(again.run(), problem);
      EXPECT_EQ(again.trace(), first.trace()) << "PTPLIB_TEST_SEED=" << seed;
      EXPECT_NE(first.trace(), 0u);
   }
}

class SimulationOf : public testing::TestWithParam<char const*> {};

TEST_P(SimulationOf, EveryMirrorEqualsTheSourceWhateverIsMadeChangedDeletedAndMadeAgain) {
   KivTest::SimulationCoverage arrived;
   SimulationPlan plan = planOf(GetParam());
   plan.writers = 1;
   plan.steps = 300;
   plan.witness = &arrived;
   simulate(plan, 100);
   if (std::getenv("PTPLIB_TEST_SEED") == nullptr) {
      EXPECT_EQ(arrived.missing(*Kiv::typeByName(GetParam())), "");
   }
}

INSTANTIATE_TEST_SUITE_P(EveryRoot, SimulationOf,
                         testing::Values("Ptp::HwConfig", "Ptp::HwStatus", "Ptp::HwTime",
                                         "Ptp::SystemClockConfig", "Openconfig::Ptp::Instance",
                                         "Openconfig::Ptp::TransparentClockDefaultDS"));

TEST(FirstDifference, NamesTheAttributeAndBothValues) {
   // Two trees with different random changes are found to differ, and each equals itself.
   Chance chance(1);
   auto const config = Ptp::configFactory("ptp/config");
   auto const other = Ptp::configFactory("ptp/config");
   EXPECT_EQ(firstDifference(*config, *other), "");
   other->driftLimitIs(499);
   EXPECT_EQ(firstDifference(*config, *other), "ptp/config.driftLimit: 499, not 500000000");
   auto const a = rootOf("KivTest::Stem", "a");
   auto const b = rootOf("KivTest::Stem", "b");
   for (int i = 0; i != 200; ++i) {
      changeAtRandom(*a, chance);
   }
   EXPECT_NE(firstDifference(*a, *b), "");
   EXPECT_NE(firstDifference(*b, *a), "");
   EXPECT_EQ(firstDifference(*a, *a), "");
}

}  // namespace
