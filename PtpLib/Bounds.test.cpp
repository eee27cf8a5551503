// The bounds of the library's attributes: as the types tell of them, and as the setters keep to
// them.
#include <gtest/gtest.h>

#include "Kiv/Module.h"
#include "KivTest/Bounds.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace {

using Names = std::vector<std::string>;

Names boundsOf(char const* type) {
   return KivTest::boundsOf(*Kiv::typeByName(type));
}

TEST(Bounds, AreToldByTheTypes) {
   EXPECT_STREQ(Ptp::Config::kivTypeImpl.name, "Ptp::Config") << "the library is loaded";
   EXPECT_EQ(boundsOf("Ptp::Config"),
             (Names{"driftLimit 50..500000000", "globalDscpEvent 0..63", "globalDscpGeneral 0..63",
                    "mpassSyncTimeout 3..128", "mpassDelayReqTimeout 8..600",
                    "numSkewSamplesToCalibrated 3..128", "delayEventMsgTimeout 5..4294967295"}));
   EXPECT_EQ(boundsOf("Ptp::IntfConfig"),
             (Names{"logSyncInterval -7..17", "syncReceiptTimeout 2..255",
                    "logMinDelayReqInterval -7..8", "logAnnounceInterval -3..17",
                    "announceReceiptTimeout 2..255", "logMinPdelayReqInterval -3..17",
                    "dscpEvent 0..63", "dscpGeneral 0..63"}));
   EXPECT_EQ(boundsOf("Ptp::ManagementIntfConfig"), boundsOf("Ptp::IntfConfig"))
         << "they are inherited";
   EXPECT_EQ(boundsOf("Ptp::PortDS"), Names());
}

TEST(Bounds, AreThoseThatTheSettersKeepTo) {
   EXPECT_EQ(KivTest::wrongBounds(), Names());
}

}  // namespace
