// A root of this process that a server keeps, through restarts of that server.
#include "tools/shared/Contribution.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "Holt/Server.h"
#include "Kiv/Digest.h"
#include "KivTest/SimulationChange.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Tools {
namespace {

using Kiv::treeDigest;

class ContributionTest : public testing::Test {
protected:
   void serve(char const* name = "ptp/status") {
      held = Ptp::statusFactory(name);
      server.emplace(Holt::Server::Options{.socket = socket});
      server->rootIs(held);
      loop.add(*server);
   }
   void end() {
      loop.remove(*server);
      server.reset();
   }
   Contribution& contribute() {
      contribution.emplace(socket, own, Contribution::Options{.pause = 1'000'000});
      loop.add(*contribution);
      return *contribution;
   }
   /// Takes turns until `done()`; false if that takes more than ten seconds.
   template <class Done>
   bool until(Done&& done) {
      auto const end = Holt::Clock::now() + std::chrono::seconds(10);
      while (!done()) {
         if (Holt::Clock::now() > end) {
            return false;
         }
         loop.turn(-1, std::chrono::milliseconds(5));
      }
      return true;
   }
   bool becomesEqual() {
      return until(
            [&] { return contribution->current() && treeDigest(*own) == treeDigest(*held); });
   }

   Sarn::String const socket = "/tmp/contribution." + std::to_string(::getpid());
   Sarn::Ptr<Ptp::Status> own = Ptp::statusFactory("ptp/status");
   Sarn::Ptr<Ptp::Status> held;
   Holt::Loop loop;
   std::optional<Holt::Server> server;
   std::optional<Contribution> contribution;
};

TEST_F(ContributionTest, ShowsTheOwnRootAndEachChangeOfIt) {
   KivTest::Chance chance(1);
   for (int i = 0; i != 200; ++i) {
      changeAtRandom(*own, chance);
   }
   serve();
   EXPECT_TRUE(contribute().reason().ends_with(": not connected yet"));
   ASSERT_TRUE(becomesEqual()) << contribution->reason();
   EXPECT_EQ(contribution->reason(), "");
   for (int i = 0; i != 200; ++i) {
      changeAtRandom(*own, chance);
   }
   EXPECT_TRUE(becomesEqual());
}

TEST_F(ContributionTest, OverwritesWhatARestartedServerHoldsAndKeepsItsOwn) {
   KivTest::Chance chance(2);
   serve();
   contribute();
   ASSERT_TRUE(becomesEqual());
   end();
   ASSERT_TRUE(until([&] { return !contribution->current(); }));
   EXPECT_NE(contribution->reason(), "");
   auto const before = Ptp::statusFactory("ptp/status");
   for (int i = 0; i != 100; ++i) {
      changeAtRandom(*own, chance);
   }
   Holt::copyTree(*own, *before);
   serve();
   for (int i = 0; i != 100; ++i) {
      changeAtRandom(*held, chance);
   }
   ASSERT_NE(treeDigest(*own), treeDigest(*held));
   ASSERT_TRUE(becomesEqual()) << contribution->reason();
   EXPECT_EQ(treeDigest(*before), treeDigest(*own));
}

TEST_F(ContributionTest, WaitsUntilTheServerOffersItsRoot) {
   serve("other/status");
   std::size_t told = 0;
   contribute().onStatus = [&told](Contribution const&) { ++told; };
   ASSERT_TRUE(until([&] {
      return contribution->reason() == socket +
                                             ": the server refuses ptp/status: there is no "
                                             "Ptp::Status named ptp/status";
   })) << contribution->reason();
   EXPECT_NE(told, 0u);
   auto const later = Ptp::statusFactory("ptp/status");
   server->rootIs(later);
   ASSERT_TRUE(until([&] { return contribution->current(); }));
   EXPECT_EQ(treeDigest(*own), treeDigest(*later));
}

TEST_F(ContributionTest, OfARootThatAnotherProcessHasClaimedTakesOverWhenThatOneEnds) {
   serve();
   auto const others = Ptp::statusFactory("ptp/status");
   std::optional<Contribution> first;
   first.emplace(socket, others);
   loop.add(*first);
   ASSERT_TRUE(until([&] { return first->current(); }));
   contribute();
   ASSERT_TRUE(until([&] {
      return contribution->reason().find("is claimed by pid ") != std::string::npos ||
             contribution->reason().find("cannot be claimed: it is written by pid ") !=
                   std::string::npos;
   })) << contribution->reason();
   loop.remove(*first);
   first.reset();
   EXPECT_TRUE(becomesEqual());
}

}  // namespace
}  // namespace Tools
