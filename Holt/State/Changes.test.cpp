#include "Holt/State/Changes.h"

#include <gtest/gtest.h>

#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace Holt {
namespace {

TEST(ChangeObserver, TellsOnlyWhileItIsTelling) {
   Sarn::Ptr<Ptp::Config> const config = Ptp::configFactory("ptp/config");
   std::vector<Sarn::String> told;
   ChangeObserver observer(config, "ptp/config", [&told](ChangeText const& text) {
      told.push_back(text.path + text.what);
   });
   config->priority1Is(7);
   observer.tellingIs(false);
   config->priority1Is(8);
   config->intfConfigIs(Dorn::IntfId("Ethernet1"), true, false);
   observer.tellingIs(true);
   config->priority1Is(9);
   EXPECT_EQ(told, (std::vector<Sarn::String>{"ptp/config.priority1: 128 -> 7",
                                              "ptp/config.priority1: 8 -> 9"}));
}

}  // namespace
}  // namespace Holt
