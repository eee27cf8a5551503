#pragma once

#include <limits>

#include "Dorn/EthAddr.h"
#include "Dorn/IpAddr.h"
#include "Dorn/IpGenAddr.h"
#include "PtpPlatform/Ip6Groups.h"
#include "PtpPlatform/PtpConstants/MessageTypeNumber.h"
#include "PtpPlatform/PtpConstants/PtpMode.h"
#include "PtpPlatform/PtpConstants/TransportMode.h"
#include "Sarn/Types.h"

namespace Ptp {

/// Limits of the PTP configuration, and the destinations of PTP messages. All functions are pure
/// and may be called from any thread.
class Constants {
public:
   Constants() = delete;

   // ---- Limits ----

   /// Range of a DSCP.
   static constexpr U8 minDscp = 0;
   static constexpr U8 maxDscp = 63;
   /// Range of the drift that the servo may apply.
   static constexpr U32 mindriftLimit = 50;
   static constexpr U32 maxdriftLimit = 500000000;
   /// Range of the number of Sync intervals after which the MPASS peer takes over.
   static constexpr U8 mpassMinTimeout = 3;
   static constexpr U8 mpassMaxTimeout = 128;
   /// Range of the time after which the MPASS peer forgets a slave, in seconds.
   static constexpr U16 mpassMinTimeoutSec = 8;
   static constexpr U16 mpassMaxTimeoutSec = 600;
   /// Range of the number of skew samples that a port needs to leave UNCALIBRATED.
   static constexpr U32 skewMinQueueSize = 3;
   static constexpr U32 skewMaxQueueSize = 128;
   /// Range of the wait for a timestamp; only the type limits the maximum.
   static constexpr U32 delayEventMsgTimeoutMin = 5;
   static constexpr U32 delayEventMsgTimeoutMax = std::numeric_limits<U32>::max();
   /// Range of the base-2 logarithm of the Delay_Req interval in seconds.
   static constexpr S16 minlogMinDelayReqInterval = -7;
   static constexpr S16 maxlogMinDelayReqInterval = 8;
   /// Range of the number of Announce intervals before a timeout; only the type limits the maximum.
   static constexpr U8 minannounceReceiptTimeout = 2;
   static constexpr U8 maxannounceReceiptTimeout = std::numeric_limits<U8>::max();
   /// Minimum number of Sync intervals before a timeout.
   static constexpr U8 minsyncReceiptTimeout() noexcept { return 2; }

   // ---- Message types ----

   /// The UDP port: 319 for event messages, 320 for general ones (IEEE 1588-2008, D.2).
   static constexpr U16 ptpUdpPort(MessageTypeNumber messageType) noexcept {
      return isEventPtpMessage(messageType) ? 319 : 320;
   }
   /// Whether messages of the type are timestamped. Bit 3 alone decides, even for reserved types.
   static constexpr bool isEventPtpMessage(MessageTypeNumber messageType) noexcept {
      return (static_cast<U8>(messageType) & 0x08) == 0;
   }
   /// Whether messages of the type belong to the peer delay mechanism.
   static constexpr bool isPdelayMessage(MessageTypeNumber messageType) noexcept {
      return messageType == MessageTypeNumber::pdelayReq ||
             messageType == MessageTypeNumber::pdelayResp ||
             messageType == MessageTypeNumber::pdelayRespFollowUp;
   }
   /// The header's `controlField` (IEEE 1588-2008, table 23); 5 for types that have none there.
   static constexpr U8 getControlField(MessageTypeNumber messageType) noexcept {
      switch (messageType) {
         case MessageTypeNumber::sync:
            return 0;
         case MessageTypeNumber::delayReq:
            return 1;
         case MessageTypeNumber::followUp:
            return 2;
         case MessageTypeNumber::delayResp:
            return 3;
         case MessageTypeNumber::management:
            return 4;
         default:
            return 5;
      }
   }

   // ---- Groups ----

   static constexpr Dorn::IpAddr ptpMcastIp4Addr() noexcept { return {224, 0, 1, 129}; }
   static constexpr Dorn::IpAddr ptpPdelayIp4Addr() noexcept { return {224, 0, 0, 107}; }
   static constexpr Dorn::Ip6Addr ptpMcastIp6Addr() noexcept { return Ptp::ptpMcastIp6Addr(); }
   static constexpr Dorn::Ip6Addr ptpPdelayIp6Addr() noexcept { return Ptp::ptpPdelayIp6Addr(); }

   /// The IP group to which messages of the type are sent. REQUIRES: a transport over IP; anything
   /// else ends the process like a failed assertion, in every build.
   static Dorn::IpGenAddr ptpMcastIpAddr(MessageTypeNumber messageType,
                                         TransportMode transportMode);
   /// The MAC group to which messages of the type are sent; a transport that is neither Ethernet
   /// nor IPv4 is treated as IPv6. REQUIRES: in generalized mode over IP, a peer delay message;
   /// anything else ends the process like a failed assertion, in every build.
   static Dorn::EthAddr ptpMcastEthAddr(MessageTypeNumber messageType, TransportMode transportMode,
                                        PtpMode ptpMode);

   /// Whether PTP messages are sent to this IP group.
   static bool isPtpMcastIpAddr(Dorn::IpGenAddr const& address) noexcept;
   /// Whether PTP messages over Ethernet are sent to this MAC group.
   static bool isPtpL2McastEthAddr(Dorn::EthAddr const& mac) noexcept;
   /// Whether PTP messages over IP are sent to this MAC group.
   static bool isPtpL3McastEthAddr(Dorn::EthAddr const& mac) noexcept;
   /// Whether PTP messages are sent to this MAC group.
   static bool isPtpMcastEthAddr(Dorn::EthAddr const& mac) noexcept;
};

}  // namespace Ptp
