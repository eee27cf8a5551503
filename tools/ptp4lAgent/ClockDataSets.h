// The data sets of a clock, and of the time that it follows: one row per field, in the order in
// which IEEE 1588-2008, 15.5.3, and linuxptp have them.
#pragma once

#include "tools/ptp4lAgent/Rows.h"

namespace Ptp4lAgent {

struct ClockDescription {
   static constexpr Id id = Id::clockDescription;
   /// Bits of `clockType`.
   static constexpr U16 ordinaryClock = 0x8000;
   static constexpr U16 boundaryClock = 0x4000;
   static constexpr U16 p2pTransparentClock = 0x2000;
   static constexpr U16 e2eTransparentClock = 0x1000;

   U16 clockType = 0;
   Text physicalLayerProtocol;
   Address physicalAddress;
   U16 networkProtocol = 0;
   Address protocolAddress;
   std::array<U8, 3> manufacturerIdentity{};
   U8 reserved = 0;
   Text productDescription;
   Text revisionData;
   Text userDescription;
   std::array<U8, 6> profileIdentity{};

   static constexpr auto rows() {
      using T = ClockDescription;
      return std::tuple(
            Row{"clockType", &T::clockType},
            Row{"physicalLayerProtocol", &T::physicalLayerProtocol},
            Row{"physicalAddress", &T::physicalAddress},
            Row{"networkProtocol", &T::networkProtocol},
            Row{"protocolAddress", &T::protocolAddress},
            Row{"manufacturerIdentity", &T::manufacturerIdentity}, Row{"reserved", &T::reserved},
            Row{"productDescription", &T::productDescription},
            Row{"revisionData", &T::revisionData}, Row{"userDescription", &T::userDescription},
            Row{"profileIdentity", &T::profileIdentity});
   }
};

struct DefaultDataSet {
   static constexpr Id id = Id::defaultDataSet;
   /// Bits of `flags`.
   static constexpr U8 twoStep = 1;
   static constexpr U8 slaveOnly = 2;

   U8 flags = 0;
   U8 reserved1 = 0;
   U16 numberPorts = 0;
   U8 priority1 = 0;
   Ptp::ClockQuality clockQuality;
   U8 priority2 = 0;
   Ptp::ClockIdentity clockIdentity;
   U8 domainNumber = 0;
   U8 reserved2 = 0;

   static constexpr auto rows() {
      using T = DefaultDataSet;
      return std::tuple(Row{"flags", &T::flags}, Row{"reserved", &T::reserved1},
                        Row{"numberPorts", &T::numberPorts}, Row{"priority1", &T::priority1},
                        Row{"clockQuality", &T::clockQuality}, Row{"priority2", &T::priority2},
                        Row{"clockIdentity", &T::clockIdentity},
                        Row{"domainNumber", &T::domainNumber}, Row{"reserved", &T::reserved2});
   }
};

struct CurrentDataSet {
   static constexpr Id id = Id::currentDataSet;

   U16 stepsRemoved = 0;
   /// Nanoseconds, times 65536.
   S64 offsetFromMaster = 0;
   S64 meanPathDelay = 0;

   static constexpr auto rows() {
      using T = CurrentDataSet;
      return std::tuple(Row{"stepsRemoved", &T::stepsRemoved},
                        Row{"offsetFromMaster", &T::offsetFromMaster},
                        Row{"meanPathDelay", &T::meanPathDelay});
   }
};

struct ParentDataSet {
   static constexpr Id id = Id::parentDataSet;

   Ptp::PortIdentity parentPortIdentity;
   U8 parentStats = 0;
   U8 reserved = 0;
   U16 observedParentOffsetScaledLogVariance = 0;
   S32 observedParentClockPhaseChangeRate = 0;
   U8 grandmasterPriority1 = 0;
   Ptp::ClockQuality grandmasterClockQuality;
   U8 grandmasterPriority2 = 0;
   Ptp::ClockIdentity grandmasterIdentity;

   static constexpr auto rows() {
      using T = ParentDataSet;
      return std::tuple(
            Row{"parentPortIdentity", &T::parentPortIdentity}, Row{"parentStats", &T::parentStats},
            Row{"reserved", &T::reserved},
            Row{"observedParentOffsetScaledLogVariance", &T::observedParentOffsetScaledLogVariance},
            Row{"observedParentClockPhaseChangeRate", &T::observedParentClockPhaseChangeRate},
            Row{"grandmasterPriority1", &T::grandmasterPriority1},
            Row{"grandmasterClockQuality", &T::grandmasterClockQuality},
            Row{"grandmasterPriority2", &T::grandmasterPriority2},
            Row{"grandmasterIdentity", &T::grandmasterIdentity});
   }
};

struct TimePropertiesDataSet {
   static constexpr Id id = Id::timePropertiesDataSet;

   S16 currentUtcOffset = 0;
   /// From bit 0: leap61, leap59, currentUtcOffsetValid, ptpTimescale, timeTraceable,
   /// frequencyTraceable.
   U8 flags = 0;
   U8 timeSource = 0;

   static constexpr auto rows() {
      using T = TimePropertiesDataSet;
      return std::tuple(Row{"currentUtcOffset", &T::currentUtcOffset}, Row{"flags", &T::flags},
                        Row{"timeSource", &T::timeSource});
   }
};

/// A single octet with a reserved one behind it: PRIORITY1, PRIORITY2, MASTER_ONLY.
struct OctetValue {
   U8 value = 0;
   U8 reserved = 0;

   static constexpr auto rows() {
      return std::tuple(Row{"value", &OctetValue::value}, Row{"reserved", &OctetValue::reserved});
   }
};

struct TimeStatusNp {
   static constexpr Id id = Id::timeStatusNp;

   /// Nanoseconds.
   S64 masterOffset = 0;
   /// When the last Sync message was received, in nanoseconds of the clock; 0 before the first.
   S64 ingressTime = 0;
   /// Scaled by 2 to the power of 41.
   S32 cumulativeScaledRateOffset = 0;
   S32 scaledLastGmPhaseChange = 0;
   U16 gmTimeBaseIndicator = 0;
   std::array<U8, 12> lastGmPhaseChange{};
   S32 gmPresent = 0;
   Ptp::ClockIdentity gmIdentity;

   static constexpr auto rows() {
      using T = TimeStatusNp;
      return std::tuple(Row{"master_offset", &T::masterOffset},
                        Row{"ingress_time", &T::ingressTime},
                        Row{"cumulativeScaledRateOffset", &T::cumulativeScaledRateOffset},
                        Row{"scaledLastGmPhaseChange", &T::scaledLastGmPhaseChange},
                        Row{"gmTimeBaseIndicator", &T::gmTimeBaseIndicator},
                        Row{"lastGmPhaseChange", &T::lastGmPhaseChange},
                        Row{"gmPresent", &T::gmPresent}, Row{"gmIdentity", &T::gmIdentity});
   }
};

/// What the clock announces as a grandmaster. All values are set at once.
struct GrandmasterSettingsNp {
   static constexpr Id id = Id::grandmasterSettingsNp;

   Ptp::ClockQuality clockQuality;
   S16 utcOffset = 0;
   U8 flags = 0;
   U8 timeSource = 0;

   static constexpr auto rows() {
      using T = GrandmasterSettingsNp;
      return std::tuple(Row{"clockQuality", &T::clockQuality}, Row{"utcOffset", &T::utcOffset},
                        Row{"flags", &T::flags}, Row{"timeSource", &T::timeSource});
   }
};

/// Asks for events, or tells which were asked for.
struct SubscribeEventsNp {
   static constexpr Id id = Id::subscribeEventsNp;
   /// Bits of the first octet of `bits`. linuxptp 3 ignores `timeSync`.
   static constexpr U8 portState = 1;
   static constexpr U8 timeSync = 2;

   /// Seconds.
   U16 duration = 0;
   std::array<U8, 64> bits{};

   static constexpr auto rows() {
      using T = SubscribeEventsNp;
      return std::tuple(Row{"duration", &T::duration}, Row{"bits", &T::bits});
   }
};

}  // namespace Ptp4lAgent
