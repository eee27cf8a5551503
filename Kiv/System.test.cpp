#include "Kiv/System.h"

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <thread>
#include <vector>

namespace Kiv {
namespace {

Seconds standIn = 0;

class SystemTest : public testing::Test {
protected:
   void useStandIn() {
      System::clockIs([] { return standIn; });
   }
   ~SystemTest() override { System::clockIs(nullptr); }
};

TEST_F(SystemTest, TimeIsThatOfTheSystem) {
   auto const before = std::chrono::system_clock::now().time_since_epoch();
   Seconds const now = System::currentTime();
   auto const after = std::chrono::system_clock::now().time_since_epoch();
   EXPECT_GE(now, std::chrono::duration<double>(before).count());
   EXPECT_LE(now, std::chrono::duration<double>(after).count() + 0.001);
}

TEST_F(SystemTest, ClockThatStandsStillGivesLaterTimesAllTheSame) {
   useStandIn();
   standIn = 100;
   Seconds const first = System::currentTime();
   EXPECT_EQ(first, 100);
   Seconds last = first;
   for (int i = 0; i < 1000; ++i) {
      Seconds const now = System::currentTime();
      EXPECT_GT(now, last);
      last = now;
   }
   EXPECT_LT(last, 100.001);
}

TEST_F(SystemTest, ClockThatIsSetBackGivesLaterTimesAllTheSame) {
   useStandIn();
   standIn = 100;
   Seconds const first = System::currentTime();
   standIn = 50;
   EXPECT_GT(System::currentTime(), first);
   standIn = 200;
   EXPECT_EQ(System::currentTime(), 200);
}

TEST_F(SystemTest, AnotherClockStartsAfresh) {
   EXPECT_GT(System::currentTime(), 1e9);
   useStandIn();
   standIn = 1;
   EXPECT_EQ(System::currentTime(), 1);
   System::clockIs(nullptr);
   EXPECT_GT(System::currentTime(), 1e9);
}

TEST_F(SystemTest, ThreadsNeverGetTheSameTime) {
   useStandIn();
   standIn = 100;
   constexpr std::size_t each = 2000;
   std::vector<std::vector<Seconds>> given(4);
   {
      std::vector<std::jthread> threads;
      for (auto& mine : given) {
         threads.emplace_back([&mine] {
            for (std::size_t i = 0; i < each; ++i) {
               mine.push_back(System::currentTime());
            }
         });
      }
   }
   std::set<Seconds> all;
   for (auto const& mine : given) {
      all.insert(mine.begin(), mine.end());
   }
   EXPECT_EQ(all.size(), each * given.size());
}

}  // namespace
}  // namespace Kiv
