#include "Holt/Loop.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace Holt {
namespace {

U64 loopNow = 0;
U64 loopClock() noexcept {
   return loopNow;
}

/// A source that waits for given events and records its calls.
class Noted final : public Source {
public:
   explicit Noted(std::size_t count) {
      for (std::size_t i = 0; i != count; ++i) {
         fds.push_back(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
      }
   }
   ~Noted() {
      for (int const fd : fds) {
         ::close(fd);
      }
   }
   Noted(Noted const&) = delete;
   Noted& operator=(Noted const&) = delete;

   void raise(std::size_t i) const { (void)!::eventfd_write(fds[i], 1); }

   void appendTo(std::vector<pollfd>& polled) override {
      for (int const fd : fds) {
         polled.push_back({fd, POLLIN, 0});
      }
   }
   U64 deadline() const override { return at; }
   void onTurn(std::span<pollfd const> polled) override {
      said += '(';
      for (pollfd const& each : polled) {
         said += each.revents != 0 ? '1' : '0';
      }
      said += ')';
      if (doIt) {
         doIt();
      }
   }

   std::vector<int> fds;
   U64 at = 0;
   std::string said;
   std::function<void()> doIt;
};

constexpr std::chrono::milliseconds atOnce{0};

TEST(Loop, TellsEachSourceOfItsOwnDescriptors) {
   Noted one(2);
   Noted none(0);
   Noted other(3);
   Loop loop;
   loop.add(one);
   loop.add(none);
   loop.add(other);
   one.raise(1);
   other.raise(0);
   EXPECT_FALSE(loop.turn(-1));
   EXPECT_EQ(one.said, "(01)");
   EXPECT_EQ(none.said, "()");
   EXPECT_EQ(other.said, "(100)");
}

TEST(Loop, ServesNothingMoreOnceItIsToStop) {
   Noted source(1);
   Noted const stop(1);
   Loop loop;
   loop.add(source);
   source.raise(0);
   stop.raise(0);
   EXPECT_TRUE(loop.turn(stop.fds[0]));
   EXPECT_EQ(source.said, "");
   loop.run(stop.fds[0]);
   EXPECT_EQ(source.said, "");
}

TEST(Loop, WaitsUntilTheFirstDeadline) {
   Noted soon(0);
   Noted late(0);
   Loop loop(&loopClock);
   loop.add(late);
   loop.add(soon);
   loopNow = 1'000'000'000;
   soon.at = loopNow + 20'000'000;
   late.at = loopNow + 3'600'000'000'000;
   U64 const begin = steadyNow();
   EXPECT_FALSE(loop.turn(-1));
   EXPECT_GE(steadyNow() - begin, 20'000'000U);
   soon.at = loopNow - 1;  // it has come already
   EXPECT_FALSE(loop.turn(-1));
   EXPECT_EQ(soon.said, "()()");
   EXPECT_EQ(late.said, "()()");
}

TEST(Loop, ASourceMayRemoveAnotherInItsTurn) {
   Noted first(1);
   Noted second(1);
   Noted third(1);
   Loop loop;
   loop.add(first);
   loop.add(second);
   loop.add(third);
   third.raise(0);
   first.doIt = [&] {
      loop.remove(second);
      loop.remove(first);
   };
   EXPECT_FALSE(loop.turn(-1, atOnce));
   EXPECT_FALSE(loop.turn(-1, atOnce));
   EXPECT_EQ(first.said, "(0)");
   EXPECT_EQ(second.said, "");
   EXPECT_EQ(third.said, "(1)(1)");
}

TEST(Loop, ASourceThatIsAddedInATurnIsServedFromTheNextOn) {
   Noted first(1);
   Noted second(1);
   second.raise(0);
   Loop loop;
   loop.add(first);
   first.doIt = [&] { loop.add(second); };
   EXPECT_FALSE(loop.turn(-1, atOnce));
   EXPECT_EQ(second.said, "");
   first.doIt = nullptr;
   EXPECT_FALSE(loop.turn(-1, atOnce));
   EXPECT_EQ(second.said, "(1)");
}

}  // namespace
}  // namespace Holt
