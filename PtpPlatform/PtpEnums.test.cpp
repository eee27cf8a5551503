#include <gtest/gtest.h>

#include "PtpPlatform/Enum.test.h"
#include "PtpPlatform/PtpConstants.h"
#include "PtpPlatform/PtpDataSetTypes.h"

namespace Ptp {
namespace {

TEST(MessageTypeNumber, IsTheNibbleOfTheHeader) {
   checkEnum<MessageTypeNumber>({{0, "sync"},
                                 {1, "delayReq"},
                                 {2, "pdelayReq"},
                                 {3, "pdelayResp"},
                                 {8, "followUp"},
                                 {9, "delayResp"},
                                 {10, "pdelayRespFollowUp"},
                                 {11, "announce"},
                                 {12, "signaling"},
                                 {13, "management"}},
                                MessageTypeNumber::sync, MessageTypeNumberInstance().count());
}

TEST(TransportMode, IsEthernetByDefault) {
   checkEnum<TransportMode>({{0, "layer2"}, {1, "ipv4"}, {2, "ipv6"}}, TransportMode::layer2,
                            TransportModeInstance().count());
}

TEST(PtpMode, IsDisabledByDefaultAndGeneralizedIs7) {
   checkEnum<PtpMode>({{0, "disabled"},
                       {1, "boundary"},
                       {2, "ordinary"},
                       {3, "e2eTransparent"},
                       {4, "p2pTransparent"},
                       {5, "oneStepBoundary"},
                       {6, "oneStepE2eTransparent"},
                       {7, "ptpGeneralized"}},
                      PtpMode::disabled, PtpModeInstance().count());
}

TEST(PortState, HasTheNumbersOfIeee1588) {
   checkEnum<PortState>({{1, "initializing"},
                         {2, "faulty"},
                         {3, "disabled"},
                         {4, "listening"},
                         {5, "preMaster"},
                         {6, "master"},
                         {7, "passive"},
                         {8, "uncalibrated"},
                         {9, "slave"}},
                        PortState::initializing, PortStateInstance().count());
}

TEST(DelayMechanism, HasTheNumbersOfIeee1588) {
   checkEnum<DelayMechanism>(
         {{1, "e2e"}, {2, "p2p"}, {3, "commonP2p"}, {4, "special"}, {254, "disabled"}},
         DelayMechanism::e2e, DelayMechanismInstance().count());
}

TEST(Role, IsDynamicByDefault) {
   checkEnum<Role>({{0, "dynamic"}, {1, "masterOnly"}, {2, "slaveOnly"}}, Role::dynamic,
                   RoleInstance().count());
}

TEST(SyncTestRole, IsDisabledByDefault) {
   checkEnum<SyncTestRole>({{0, "master"}, {1, "slave"}, {2, "disabled"}}, SyncTestRole::disabled,
                           SyncTestRoleInstance().count());
}

TEST(PortDisabledReason, HasAllReasons) {
   checkEnum<PortDisabledReason>({{0, "ptpDisabled"},
                                  {1, "intfDisabled"},
                                  {2, "linkDown"},
                                  {3, "vlanNotCreated"},
                                  {4, "vlanNotAllowed"},
                                  {5, "noIpAddr"},
                                  {6, "timestampingUnsupported"},
                                  {7, "delayMechanismUnsupported"},
                                  {8, "ptpModeUnsupported"},
                                  {9, "lagMemberInactive"}},
                                 PortDisabledReason::ptpDisabled,
                                 PortDisabledReasonInstance().count());
}

TEST(PtpProfile, IsThatOfIeee1588ByDefault) {
   checkEnum<PtpProfile>(
         {{0, "ptpDefault"}, {1, "g8275_1"}, {2, "g8275_2"}, {3, "g8265_1"}, {4, "gptp"}},
         PtpProfile::ptpDefault, PtpProfileInstance().count());
}

TEST(TimeStampingMode, IsInHardwareByDefault) {
   checkEnum<TimeStampingMode>(
         {{0, "hardware"}, {1, "software"}, {2, "oneStep"}, {3, "p2pOneStep"}},
         TimeStampingMode::hardware, TimeStampingModeInstance().count());
}

TEST(HoldoverState, IsNotInHoldoverByDefault) {
   checkEnum<HoldoverState>(
         {{0, "disabled"}, {1, "notInHoldover"}, {2, "holdoverInSpec"}, {3, "holdoverOutOfSpec"}},
         HoldoverState::notInHoldover, HoldoverStateInstance().count());
}

TEST(ClockStateType, HasTheNumbersOfThePtpMib) {
   checkEnum<ClockStateType>({{1, "freerun"},
                              {2, "holdover"},
                              {3, "acquiring"},
                              {4, "frequencyLocked"},
                              {5, "phaseAligned"}},
                             ClockStateType::freerun, ClockStateTypeInstance().count());
}

TEST(PtpPortDomainMode, IsThatOfTheClockByDefault) {
   checkEnum<PtpPortDomainMode>(
         {{0, "globalDomain"}, {1, "networkSideDomain"}, {2, "activeRegionDomain"}},
         PtpPortDomainMode::globalDomain, PtpPortDomainModeInstance().count());
}

}  // namespace
}  // namespace Ptp
