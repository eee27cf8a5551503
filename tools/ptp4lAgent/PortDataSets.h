// The data sets of a port: one row per field, in the order in which IEEE 1588-2008, 15.5.3.7, and
// linuxptp have them.
#pragma once

#include "tools/ptp4lAgent/Rows.h"

namespace Ptp4lAgent {

struct PortDataSet {
   static constexpr Id id = Id::portDataSet;

   Ptp::PortIdentity portIdentity;
   U8 portState = 0;
   S8 logMinDelayReqInterval = 0;
   /// Nanoseconds, times 65536.
   S64 peerMeanPathDelay = 0;
   S8 logAnnounceInterval = 0;
   U8 announceReceiptTimeout = 0;
   S8 logSyncInterval = 0;
   U8 delayMechanism = 0;
   S8 logMinPdelayReqInterval = 0;
   U8 versionNumber = 0;

   static constexpr auto rows() {
      using T = PortDataSet;
      return std::tuple(Row{"portIdentity", &T::portIdentity}, Row{"portState", &T::portState},
                        Row{"logMinDelayReqInterval", &T::logMinDelayReqInterval},
                        Row{"peerMeanPathDelay", &T::peerMeanPathDelay},
                        Row{"logAnnounceInterval", &T::logAnnounceInterval},
                        Row{"announceReceiptTimeout", &T::announceReceiptTimeout},
                        Row{"logSyncInterval", &T::logSyncInterval},
                        Row{"delayMechanism", &T::delayMechanism},
                        Row{"logMinPdelayReqInterval", &T::logMinPdelayReqInterval},
                        Row{"versionNumber", &T::versionNumber});
   }
};

struct PortDataSetNp {
   static constexpr Id id = Id::portDataSetNp;

   /// Nanoseconds.
   U32 neighborPropDelayThresh = 0;
   S32 asCapable = 0;

   static constexpr auto rows() {
      using T = PortDataSetNp;
      return std::tuple(Row{"neighborPropDelayThresh", &T::neighborPropDelayThresh},
                        Row{"asCapable", &T::asCapable});
   }
};

struct PortPropertiesNp {
   static constexpr Id id = Id::portPropertiesNp;
   /// Values of `timestamping`.
   static constexpr U8 software = 0;
   static constexpr U8 hardware = 1;
   static constexpr U8 legacyHardware = 2;
   static constexpr U8 oneStep = 3;
   static constexpr U8 p2pOneStep = 4;

   Ptp::PortIdentity portIdentity;
   U8 portState = 0;
   U8 timestamping = 0;
   Text interface;

   static constexpr auto rows() {
      using T = PortPropertiesNp;
      return std::tuple(Row{"portIdentity", &T::portIdentity}, Row{"portState", &T::portState},
                        Row{"timestamping", &T::timestamping}, Row{"interface", &T::interface});
   }
};

/// Numbers of messages by `messageType`. Unlike everything else they are in the byte order of the
/// host.
struct PortStatsNp {
   static constexpr Id id = Id::portStatsNp;

   Ptp::PortIdentity portIdentity;
   HostCounters<16> received;
   HostCounters<16> sent;

   static constexpr auto rows() {
      using T = PortStatsNp;
      return std::tuple(Row{"portIdentity", &T::portIdentity}, Row{"rx", &T::received},
                        Row{"tx", &T::sent});
   }
};

/// linuxptp 4. Also in the byte order of the host.
struct PortServiceStatsNp {
   static constexpr Id id = Id::portServiceStatsNp;
   /// Index in `counters`.
   static constexpr std::size_t syncTimeout = 1;

   Ptp::PortIdentity portIdentity;
   /// announce_timeout, sync_timeout, delay_timeout, unicast_service_timeout,
   /// unicast_request_timeout, master_announce_timeout, master_sync_timeout, qualification_timeout,
   /// sync_mismatch, followup_mismatch.
   HostCounters<10> counters;

   static constexpr auto rows() {
      using T = PortServiceStatsNp;
      return std::tuple(Row{"portIdentity", &T::portIdentity}, Row{"counters", &T::counters});
   }
};

/// One entry of `UnicastMasterTableNp`.
struct UnicastMasterNp {
   Ptp::PortIdentity portIdentity;
   Ptp::ClockQuality clockQuality;
   U8 selected = 0;
   U8 state = 0;
   U8 priority1 = 0;
   U8 priority2 = 0;
   U16 networkProtocol = 0;
   Address address;

   static constexpr auto rows() {
      using T = UnicastMasterNp;
      return std::tuple(Row{"portIdentity", &T::portIdentity},
                        Row{"clockQuality", &T::clockQuality}, Row{"selected", &T::selected},
                        Row{"state", &T::state}, Row{"priority1", &T::priority1},
                        Row{"priority2", &T::priority2},
                        Row{"networkProtocol", &T::networkProtocol}, Row{"address", &T::address});
   }
};

/// linuxptp 4: the masters that a unicast client may ask.
struct UnicastMasterTableNp {
   static constexpr Id id = Id::unicastMasterTableNp;

   std::vector<UnicastMasterNp> masters;
};
void read(OctetReader& in, UnicastMasterTableNp& table);
void write(OctetWriter& out, UnicastMasterTableNp const& table);

/// linuxptp 4.
struct PortHwclockNp {
   static constexpr Id id = Id::portHwclockNp;

   Ptp::PortIdentity portIdentity;
   /// N of /dev/ptpN; -1 for a clock in software.
   S32 phcIndex = 0;
   U8 flags = 0;
   U8 reserved = 0;

   static constexpr auto rows() {
      using T = PortHwclockNp;
      return std::tuple(Row{"portIdentity", &T::portIdentity}, Row{"phc_index", &T::phcIndex},
                        Row{"flags", &T::flags}, Row{"reserved", &T::reserved});
   }
};

}  // namespace Ptp4lAgent
