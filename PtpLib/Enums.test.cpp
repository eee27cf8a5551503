#include <gtest/gtest.h>

#include "PtpLib/PtpMib.h"
#include "PtpLib/PtpMpassStatedbTypes.h"
#include "PtpLib/PtpOpenConfig/InstanceType.h"
#include "PtpPlatform/Enum.test.h"

namespace {

using Ptp::checkEnum;

TEST(ClockRoleType, IsMasterOrSlave) {
   checkEnum<PtpMib::ClockRoleType>({{0, "master"}, {1, "slave"}}, PtpMib::ClockRoleType::master,
                                    PtpMib::ClockRoleTypeInstance().count());
}

TEST(RxTxMode, HasAModeForBoth) {
   checkEnum<PtpMib::RxTxMode>({{0, "unicast"}, {1, "multicast"}, {2, "multicastmix"}},
                               PtpMib::RxTxMode::unicast, PtpMib::RxTxModeInstance().count());
}

TEST(MpassStatus, IsActiveWhenZeroed) {
   checkEnum<Ptp::Mpass::Status>({{0, "active"}, {1, "inactive"}}, Ptp::Mpass::Status::active,
                                 Ptp::Mpass::StatusInstance().count());
}

TEST(MpassDisabledReason, IsNotConfiguredByDefault) {
   checkEnum<Ptp::Mpass::DisabledReason>({{0, "notConfigured"},
                                          {1, "notMlagInterface"},
                                          {2, "ptpDisabledInterface"},
                                          {3, "ptpDisabledPeerLink"},
                                          {4, "notBoundaryMode"},
                                          {5, "delayMechanismNotE2e"},
                                          {6, "ucastNegEnabled"},
                                          {7, "mlagIntfDisabled"}},
                                         Ptp::Mpass::DisabledReason::notConfigured,
                                         Ptp::Mpass::DisabledReasonInstance().count());
}

TEST(InstanceType, HasTheKindsOfClock) {
   using Openconfig::Ptp::InstanceType;
   checkEnum<InstanceType>(
         {{0, "ordinary"}, {1, "boundary"}, {2, "transparentE2E"}, {3, "transparentP2P"}},
         InstanceType::ordinary, Openconfig::Ptp::InstanceTypeInstance().count());
}

}  // namespace
