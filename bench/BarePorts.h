#pragma once

#include <array>
#include <type_traits>

#include "bench/Baseline.h"

/// A clock's ports as plain structs. Each member is listed once; `BarePortRecords.h` derives the
/// code that encodes and decodes them from these lists.
namespace BarePorts {

using namespace Baseline;

/// An enumeration: a byte in memory, four on the wire.
struct Ordinal {
   U8 value;
};
/// Bytes that are the same in memory and on the wire.
template <std::size_t size>
using Raw = std::array<U8, size>;

// X(id, type, name, initial value)
#define BARE_FOREIGN_MASTER(X)           \
   X(259, U32, announceMessages, 1)      \
   X(260, Raw<8>, ip4Addr, {0, 0, 0, 4}) \
   X(261, double, updateTime, 0)

#define BARE_PORT_STATUS(X)          \
   X(260, U8, maxForeignRecords, 0)  \
   X(261, bool, mpassEnabled, false) \
   X(262, Ordinal, mpassStatus, {0}) \
   X(263, Ordinal, mpassReason, {0}) \
   X(265, float, mpassSyncExpiry, 0) \
   X(266, float, mpassDelayReqExpiry, 0)

#define BARE_PORT_BEFORE_CHILD(X)                          \
   X(259, Raw<10>, portIdentity, {})                       \
   X(262, Ordinal, portState, {1})                         \
   X(263, S16, logMinDelayReqInterval, 0)                  \
   X(264, S64, peerMeanPathDelay, 0)                       \
   X(265, S8, logAnnounceInterval, 0)                      \
   X(266, U8, announceReceiptTimeout, 0)                   \
   X(267, S16, logSyncInterval, 0)                         \
   X(268, Ordinal, delayMechanism, {1})                    \
   X(269, S8, logMinPdelayReqInterval, 0)                  \
   X(271, bool, asCapable, false)                          \
   X(272, double, neighborRateRatio, 0)                    \
   X(273, U8, syncReceiptTimeout, 0)                       \
   X(274, double, lastSyncReceiptTimeout, __builtin_inf()) \
   X(275, U8, maxLostResponsesPeerDelay, 3)

#define BARE_PORT_BEFORE_QUEUE(X)                 \
   X(277, U8, localPriority, 128)                 \
   X(278, U32, numSlaveSessions, 0)               \
   X(279, U32, numPotentialMasters, 0)            \
   X(280, U32, syncMessageReceived, 0)            \
   X(282, U32, gptpFollowUpMessagesSentMissed, 0) \
   X(283, U32, lostResponsesPeerDelay, 0)         \
   X(284, U32, stpDiscardedRx, 0)                 \
   X(285, U32, stpDiscardedTx, 0)                 \
   X(286, U32, requestsReceived, 0)               \
   X(287, U32, requestsSent, 0)                   \
   X(288, U32, grantsReceived, 0)                 \
   X(289, U32, grantsSent, 0)                     \
   X(290, U32, cancelsReceived, 0)                \
   X(291, U32, cancelsSent, 0)                    \
   X(292, U32, ackCancelsReceived, 0)             \
   X(293, U32, ackCancelsSent, 0)                 \
   X(294, U32, discardedTxArpExpire, 0)           \
   X(295, U32, corruptedRxManagement, 0)          \
   X(296, U32, monitorDelayReqReceived, 0)        \
   X(297, U32, monitorDelayRespSent, 0)           \
   X(298, U32, monitorSyncSent, 0)                \
   X(299, U32, monitorFollowUpSent, 0)

#define BARE_PORT_BEFORE_MAP(X)                \
   X(303, Ordinal, transportMode, {0})         \
   X(305, double, precisePeerMeanPathDelay, 0) \
   X(306, double, lastUpdateTimeAsCapable, 0)  \
   X(307, U8, currentPDelayReqIntervals, 0)    \
   X(308, U8, currentSimpleAverageCount, 0)    \
   X(309, double, firstSuccessfulPdelay, 0)    \
   X(310, U8, maxCountTillSimpleAvg, 20)       \
   X(311, bool, isMeasuringLinkDelay, false)   \
   X(312, U8, pDelayReqIntervalsNRR, 10)       \
   X(313, U64, linkDelayThreshold, 100000)     \
   X(314, bool, nrrValid, false)               \
   X(315, U64, minGptpResidenceTime, 0)        \
   X(316, U64, maxGptpResidenceTime, 0)        \
   X(317, U64, lastGptpResidenceTime, 0)       \
   X(319, double, lastClearTime, 0)            \
   X(322, Ordinal, role, {0})                  \
   X(323, Ordinal, syncTestRole, {2})          \
   X(324, U8, dscpEvent, 0)                    \
   X(325, U8, dscpGeneral, 0)                  \
   X(326, bool, faultyFlag, false)             \
   X(327, U64, txLagMember, 0)                 \
   X(328, bool, enabled, false)                \
   X(329, bool, adminDisabled, true)

#define BARE_MEMBER_LIST(id, type, name, ...) type name = __VA_ARGS__;

struct ForeignMaster {
   Raw<10> identity{};
   BARE_FOREIGN_MASTER(BARE_MEMBER_LIST)
};

struct PortStatus {
   static constexpr U32 masterCount = 4;

   Raw<10> key{};
   BARE_PORT_STATUS(BARE_MEMBER_LIST)
   std::array<ForeignMaster, masterCount> masters{};
};

struct Port {
   Raw<10> key{};
   BARE_PORT_BEFORE_CHILD(BARE_MEMBER_LIST)
   void* g82752 = nullptr;
   BARE_PORT_BEFORE_QUEUE(BARE_MEMBER_LIST)
   void* peerPathDelay = nullptr;
   BARE_PORT_BEFORE_MAP(BARE_MEMBER_LIST)
   void* disabledReason = nullptr;
   bool initialized = false;
};

#undef BARE_MEMBER_LIST

}  // namespace BarePorts
