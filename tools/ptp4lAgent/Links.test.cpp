#include "tools/ptp4lAgent/Links.h"

#include <gtest/gtest.h>

#include <map>

namespace {

TEST(Links, TellsOfEveryInterfaceAtFirst) {
   std::map<std::string, bool> up;
   Ptp4lAgent::Links links([&up](std::string const& name, bool isUp) { up[name] = isUp; });
   Holt::Loop loop;
   loop.add(links);
   for (int i = 0; i != 50 && !up.contains("lo"); ++i) {
      loop.turn(-1, std::chrono::milliseconds(20));
   }
   EXPECT_TRUE(up.contains("lo")) << "every network namespace has it";
}

}  // namespace
