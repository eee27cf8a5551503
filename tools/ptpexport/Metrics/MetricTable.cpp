#include "tools/ptpexport/Metrics/MetricTable.h"

#include <iterator>

namespace Ptpexport {

std::span<MetricFamily const> metricFamilies() {
   static std::vector<MetricFamily> const all = [] {
      std::vector<MetricFamily> families = Impl::clockFamilies();
      std::vector<MetricFamily> ports = Impl::portFamilies();
      families.insert(families.end(), std::make_move_iterator(ports.begin()),
                      std::make_move_iterator(ports.end()));
      return families;
   }();
   return all;
}

std::string_view unitOf(MetricFamily const& family) noexcept {
   std::string_view const name = family.name;
   for (std::string_view const unit : {"seconds", "ratio"}) {
      if (name.ends_with(unit) && name.size() > unit.size() &&
          name[name.size() - unit.size() - 1] == '_') {
         return unit;
      }
   }
   return {};
}

std::string sampleName(MetricFamily const& family) {
   switch (family.kind) {
      case MetricKind::counter:
         return std::string(family.name) + "_total";
      case MetricKind::info:
         return std::string(family.name) + "_info";
      default:
         return family.name;
   }
}

namespace {

constexpr char const* setting =
      "a setting, which says nothing about how the clock does; it is in the state";
constexpr char const* localTime =
      "a reading of the local clock, whose epoch only the agent knows; "
      "ptp_last_sync_timestamp_seconds is that of the system clock";
constexpr char const* rational = "ptp_master_rate_ratio is the quotient";
constexpr char const* progress = "how far a measurement is; it starts anew all the time";
constexpr char const* perMaster =
      "a series for each foreign master: whoever sends Announce could make any number of them; "
      "ptp_port_foreign_masters counts them";
constexpr char const* agentTime = "on a time scale that only the agent knows";

constexpr LeftOut all[] = {
      {"Ptp::Status", "tcTimestampMask", "a mask of bits, not a quantity"},
      {"Ptp::Status", "clearCountersRequestCompleted", "part of a request, not a state"},
      {"Ptp::DefaultDS", "driftLimit", setting},
      {"Ptp::DefaultDS", "ttl", setting},
      {"Ptp::CurrentDS", "lastSyncLocalTime", localTime},
      {"Ptp::CurrentDS", "realLastSyncLocalTime", localTime},
      {"Ptp::CurrentDS", "lastSyncSeqId", "an identifier, which counts nothing"},
      {"Ptp::CurrentDS", "skewNumerator", rational},
      {"Ptp::CurrentDS", "skewDenominator", rational},
      {"Ptp::CurrentDS", "gptpCumulativeRateOffset",
       "ptp_grandmaster_rate_ratio is the same, plus 1"},
      {"Ptp::TimePropertiesDS", "userHasConfiged", setting},
      {"Ptp::PortDS", "maxLostResponsesPeerDelay", setting},
      {"Ptp::PortDS", "localPriority", setting},
      {"Ptp::PortDS", "peerPathDelay",
       "a history; ptp_port_peer_mean_path_delay_seconds is the present, and the reader of metrics "
       "keeps its own history"},
      {"Ptp::PortDS", "currentPDelayReqIntervalsNRR", progress},
      {"Ptp::PortDS", "currentSimpleAverageCount", progress},
      {"Ptp::PortDS", "maxCountTillSimpleAvg", setting},
      {"Ptp::PortDS", "pDelayReqIntervalsNRR", setting},
      {"Ptp::PortDS", "dscpEvent", setting},
      {"Ptp::PortDS", "dscpGeneral", setting},
      {"Ptp::PortDS_G8275_2", "blacklistDuration", setting},
      {"Ptp::PortDS_G8275_2", "maxMissingDelayResp", setting},
      {"Ptp::IntfStatus", "maxForeignRecords", setting},
      {"Ptp::IntfStatus", "mpassSyncExpiry", agentTime},
      {"Ptp::IntfStatus", "mpassDelayReqExpiry", agentTime},
      {"Ptp::ForeignMasterDS", "foreignMasterAnnounceMessages", perMaster},
      {"Ptp::ForeignMasterDS", "foreignMasterIpAddr", perMaster},
      {"Ptp::ForeignMasterDS", "updateTime", perMaster},
      {"Ptp::DomainNumberInfo", "intfDomainNumberInfo",
       "only ports at the boundary of two domains have one; it is in the state"},
      {"Ptp::PtpMibData", "numClockPorts", "ptp_clock_ports is the same"},
      {"Acl::StatusService", "ipAclName", setting},
      {"Acl::StatusService", "ip6AclName", setting},
};

}  // namespace

std::span<LeftOut const> leftOutOfMetrics() {
   return all;
}

}  // namespace Ptpexport
