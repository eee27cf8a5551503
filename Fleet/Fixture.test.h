// Tests with a server and a loop.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "Fleet/NatsServer.test.h"
#include "Holt/Loop.h"

namespace Fleet::Test {

/// Tests with a server are skipped where there is none.
class FleetTest : public testing::Test {
protected:
   void SetUp() override {
      if (!NatsServer::isInstalled()) {
         GTEST_SKIP() << "nats-server is not installed; `./dev test --all` installs it";
      }
   }

   /// Takes turns until it is so; false after `seconds`.
   bool until(std::function<bool()> const& so, double seconds = 20) {
      auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
      while (!so()) {
         if (std::chrono::steady_clock::now() > end) {
            return false;
         }
         loop.turn(-1, std::chrono::milliseconds(20));
      }
      return true;
   }
   void wait(double seconds) {
      EXPECT_FALSE(until([] { return false; }, seconds));
   }

   Holt::Loop loop;
};

}  // namespace Fleet::Test
