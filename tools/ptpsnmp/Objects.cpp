#include "tools/ptpsnmp/Objects.h"

#include <net/if.h>

#include <algorithm>
#include <set>

namespace Ptpsnmp {

using Ptp::CurrentDS;
using Ptp::DefaultDS;
using Ptp::ParentDS;
using Ptp::PortDS;
using Ptp::PtpMibData;
using Ptp::PtpMibPortData;
using Ptp::Status;
using Ptp::TimePropertiesDS;

namespace {

//--- Where values are ---------------------------------------------------------------------------

/// An attribute of a child of the status.
template <auto Child, auto Member>
Cell of(Row const& row) {
   auto const& child = (row.clock->status().*Child)();
   return child ? cell(((*child).*Member)()) : nothing();
}

template <auto Child, auto Member>
Cell intervalOf(Row const& row) {
   auto const& child = (row.clock->status().*Child)();
   return child ? Cell(timeInterval(((*child).*Member)())) : nothing();
}

/// A part of an attribute that is a clock's quality.
template <auto Child, auto Member, auto Part>
Cell qualityOf(Row const& row) {
   auto const& child = (row.clock->status().*Child)();
   return child ? cell((((*child).*Member)().*Part)()) : nothing();
}

template <auto Member>
Cell ofPort(Row const& row) {
   return cell((row.port->*Member)());
}

template <auto Member>
Cell ofMibPort(Row const& row) {
   auto const& mib = row.clock->status().ptpMibData();
   auto const port = mib ? mib->ptpMibPortData(row.port->portDSKey()) : nullptr;
   return port ? cell(((*port).*Member)()) : nothing();
}

Cell currentUtcOffset(Row const& row) {
   auto const& set = row.clock->status().timePropertiesDS();
   // Integer16 in the standard.
   return set ? cell(static_cast<S16>(set->currentUtcOffset().value())) : nothing();
}

Cell timeSource(Row const& row) {
   auto const& set = row.clock->status().timePropertiesDS();
   return set && set->timeSource() != 0 ? cell(set->timeSource()) : nothing();
}

/// The base-2 logarithm, rounded down, of which the data set has 256 times and 32768 more.
Cell parentVariance(Row const& row) {
   auto const& set = row.clock->status().parentDS();
   if (!set || !set->parentStats() || set->observedParentOffsetScaledLogVariance() == 0xFFFF) {
      return nothing();
   }
   return cell((S32{set->observedParentOffsetScaledLogVariance()} - 0x8000) >> 8);
}

Cell parentPort(Row const& row) {
   auto const& set = row.clock->status().parentDS();
   return set ? cell(set->parentSourceAddrs().parentPortIdentity()) : nothing();
}

Cell domainTotal(Row const& row) {
   std::set<U32> domains;
   for (Clock const* const clock : row.clocks) {
      auto const& mib = clock->status().ptpMibData();
      if (clock->type() == row.clock->type() && mib && mib->domainTotal() != 0) {
         domains.insert(clock->domainNumber());
      }
   }
   return cell(domains.size());
}

Cell profile(Row const& row) {
   if (row.clock == nullptr || row.clock->type() == ClockType::none) {
      return nothing();
   }
   Status const& status = row.clock->status();
   constexpr U32 standard = 1;
   constexpr U32 telecom = 2;
   constexpr U32 vendorSpecific = 3;
   return cell(status.g82751Enabled()                                          ? telecom
               : status.defaultDS()->ptpMode() == Ptp::PtpMode::ptpGeneralized ? vendorSpecific
                                                                               : standard);
}

Cell transparentDelay(Row const& row) {
   auto const& set = row.clock->status().defaultDS();
   return cell(set->ptpMode() == Ptp::PtpMode::p2pTransparent ? Ptp::DelayMechanism::p2p
                                                              : Ptp::DelayMechanism::e2e);
}

/// A port in a VLAN is named as Linux names such a device: "Ethernet8.100".
Cell portName(Row const& row) {
   std::string name = Kiv::strRep(row.port->intf());
   if (!row.port->vlanId().isNone()) {
      name += '.' + Kiv::strRep(row.port->vlanId());
   }
   name.resize(std::min<std::size_t>(name.size(), 64));
   return name.empty() ? nothing() : Cell(std::move(name));
}

Cell peerAddressType(Row const& row) {
   return addressType(row.clock->parentOn(*row.port));
}

Cell peerAddress(Row const& row) {
   return address(row.clock->parentOn(*row.port));
}

Cell peerDelay(Row const& row) {
   return timeInterval(row.port->peerMeanPathDelay());
}

Cell ownIdentity(Row const& row) {
   return cell(row.port->portIdentity().clockIdentity());
}

/// 0 if this system has no interface of that name.
Cell interfaceIndex(Row const& row) {
   return cell(::if_nametoindex(Kiv::strRep(row.port->intf()).c_str()));
}

Cell portEncapsulation(Row const& row) {
   return encapsulation(!row.port->vlanId().isNone());
}

/// Null identity and addresses if there is none of this number any more.
Associate associateOf(Row const& row) {
   auto const all = row.clock->associates(*row.port);
   return row.associate <= all.size() ? all[row.associate - 1] : Associate{};
}

Cell associateAddressType(Row const& row) {
   return addressType(associateOf(row));
}

Cell associateAddress(Row const& row) {
   return address(associateOf(row));
}

//--- The tables ----------------------------------------------------------------------------------

using enum Syntax;

constexpr char const* uncounted = "no source: messages are not counted by peer";

Column const systemColumns[] = {
      {"ptpDomainIndex", unsigned32},
      {"ptpInstanceIndex", unsigned32},
      {"ptpDomainClockPortsTotal", gauge32, of<&Status::ptpMibData, &PtpMibData::numClockPorts>,
       "ptpMibData.numClockPorts"},
};

Column const systemDomainColumns[] = {
      {"ptpbaseSystemDomainClockTypeIndex", integer32},
      {"ptpbaseSystemDomainTotals", unsigned32, domainTotal,
       "ptpMibData.domainTotal; clocks of one type in the same domain count once"},
};

Column const systemProfileColumns[] = {
      {"ptpbaseSystemProfile", integer32, profile,
       "first clock: telecom if g82751Enabled, vendorspecific if defaultDS.ptpMode is "
       "ptpGeneralized, otherwise default"},
};

Column const currentSetColumns[] = {
      {"ptpbaseClockCurrentDSDomainIndex", unsigned32},
      {"ptpbaseClockCurrentDSClockTypeIndex", integer32},
      {"ptpbaseClockCurrentDSInstanceIndex", unsigned32},
      {"ptpbaseClockCurrentDSStepsRemoved", unsigned32,
       of<&Status::currentDS, &CurrentDS::stepsRemoved>, "currentDS.stepsRemoved"},
      {"ptpbaseClockCurrentDSOffsetFromMaster", octetString,
       intervalOf<&Status::currentDS, &CurrentDS::offsetFromMaster>, "currentDS.offsetFromMaster"},
      {"ptpbaseClockCurrentDSMeanPathDelay", octetString,
       intervalOf<&Status::currentDS, &CurrentDS::meanPathDelay>, "currentDS.meanPathDelay"},
};

Column const parentSetColumns[] = {
      {"ptpbaseClockParentDSDomainIndex", unsigned32},
      {"ptpbaseClockParentDSClockTypeIndex", integer32},
      {"ptpbaseClockParentDSInstanceIndex", unsigned32},
      {"ptpbaseClockParentDSParentPortIdentity", octetString, parentPort,
       "parentDS.parentSourceAddrs.parentPortIdentity"},
      {"ptpbaseClockParentDSParentStats", integer32, of<&Status::parentDS, &ParentDS::parentStats>,
       "parentDS.parentStats"},
      {"ptpbaseClockParentDSOffset", integer32, parentVariance,
       "parentDS.observedParentOffsetScaledLogVariance as a base-2 logarithm, rounded down; if "
       "parentDS.parentStats"},
      {"ptpbaseClockParentDSClockPhChRate", integer32,
       of<&Status::parentDS, &ParentDS::observedParentClockPhaseChangeRate>,
       "parentDS.observedParentClockPhaseChangeRate"},
      {"ptpbaseClockParentDSGMClockIdentity", octetString,
       of<&Status::parentDS, &ParentDS::grandmasterIdentity>, "parentDS.grandmasterIdentity"},
      {"ptpbaseClockParentDSGMClockPriority1", unsigned32,
       of<&Status::parentDS, &ParentDS::grandmasterPriority1>, "parentDS.grandmasterPriority1"},
      {"ptpbaseClockParentDSGMClockPriority2", unsigned32,
       of<&Status::parentDS, &ParentDS::grandmasterPriority2>, "parentDS.grandmasterPriority2"},
      {"ptpbaseClockParentDSGMClockQualityClass", integer32,
       qualityOf<&Status::parentDS, &ParentDS::grandmasterClockQuality,
                 &Ptp::ClockQuality::clockClass>,
       "parentDS.grandmasterClockQuality.clockClass"},
      {"ptpbaseClockParentDSGMClockQualityAccuracy", integer32,
       qualityOf<&Status::parentDS, &ParentDS::grandmasterClockQuality,
                 &Ptp::ClockQuality::clockAccuracy>,
       "parentDS.grandmasterClockQuality.clockAccuracy"},
      {"ptpbaseClockParentDSGMClockQualityOffset", unsigned32,
       qualityOf<&Status::parentDS, &ParentDS::grandmasterClockQuality,
                 &Ptp::ClockQuality::offsetScaledLogVariance>,
       "parentDS.grandmasterClockQuality.offsetScaledLogVariance"},
};

Column const defaultSetColumns[] = {
      {"ptpbaseClockDefaultDSDomainIndex", unsigned32},
      {"ptpbaseClockDefaultDSClockTypeIndex", integer32},
      {"ptpbaseClockDefaultDSInstanceIndex", unsigned32},
      {"ptpbaseClockDefaultDSTwoStepFlag", integer32,
       of<&Status::defaultDS, &DefaultDS::twoStepFlag>, "defaultDS.twoStepFlag"},
      {"ptpbaseClockDefaultDSClockIdentity", octetString,
       of<&Status::defaultDS, &DefaultDS::clockIdentity>, "defaultDS.clockIdentity"},
      {"ptpbaseClockDefaultDSPriority1", unsigned32, of<&Status::defaultDS, &DefaultDS::priority1>,
       "defaultDS.priority1"},
      {"ptpbaseClockDefaultDSPriority2", unsigned32, of<&Status::defaultDS, &DefaultDS::priority2>,
       "defaultDS.priority2"},
      {"ptpbaseClockDefaultDSSlaveOnly", integer32, of<&Status::defaultDS, &DefaultDS::slaveOnly>,
       "defaultDS.slaveOnly"},
      {"ptpbaseClockDefaultDSQualityClass", integer32,
       qualityOf<&Status::defaultDS, &DefaultDS::clockQuality, &Ptp::ClockQuality::clockClass>,
       "defaultDS.clockQuality.clockClass"},
      {"ptpbaseClockDefaultDSQualityAccuracy", integer32,
       qualityOf<&Status::defaultDS, &DefaultDS::clockQuality, &Ptp::ClockQuality::clockAccuracy>,
       "defaultDS.clockQuality.clockAccuracy"},
      {"ptpbaseClockDefaultDSQualityOffset", integer32,
       qualityOf<&Status::defaultDS, &DefaultDS::clockQuality,
                 &Ptp::ClockQuality::offsetScaledLogVariance>,
       "defaultDS.clockQuality.offsetScaledLogVariance"},
};

Column const runningColumns[] = {
      {"ptpbaseClockRunningDomainIndex", unsigned32},
      {"ptpbaseClockRunningClockTypeIndex", integer32},
      {"ptpbaseClockRunningInstanceIndex", unsigned32},
      {"ptpbaseClockRunningState", integer32, of<&Status::ptpMibData, &PtpMibData::clockState>,
       "ptpMibData.clockState"},
      {"ptpbaseClockRunningPacketsSent", counter64,
       of<&Status::ptpMibData, &PtpMibData::totalPacketsSent>, "ptpMibData.totalPacketsSent"},
      {"ptpbaseClockRunningPacketsReceived", counter64,
       of<&Status::ptpMibData, &PtpMibData::totalPacketsReceived>,
       "ptpMibData.totalPacketsReceived"},
};

Column const timePropertiesColumns[] = {
      {"ptpbaseClockTimePropertiesDSDomainIndex", unsigned32},
      {"ptpbaseClockTimePropertiesDSClockTypeIndex", integer32},
      {"ptpbaseClockTimePropertiesDSInstanceIndex", unsigned32},
      {"ptpbaseClockTimePropertiesDSCurrentUTCOffsetValid", integer32,
       of<&Status::timePropertiesDS, &TimePropertiesDS::currentUtcOffsetValid>,
       "timePropertiesDS.currentUtcOffsetValid"},
      {"ptpbaseClockTimePropertiesDSCurrentUTCOffset", integer32, currentUtcOffset,
       "timePropertiesDS.currentUtcOffset"},
      {"ptpbaseClockTimePropertiesDSLeap59", integer32,
       of<&Status::timePropertiesDS, &TimePropertiesDS::leap59>, "timePropertiesDS.leap59"},
      {"ptpbaseClockTimePropertiesDSLeap61", integer32,
       of<&Status::timePropertiesDS, &TimePropertiesDS::leap61>, "timePropertiesDS.leap61"},
      {"ptpbaseClockTimePropertiesDSTimeTraceable", integer32,
       of<&Status::timePropertiesDS, &TimePropertiesDS::timeTraceable>,
       "timePropertiesDS.timeTraceable"},
      {"ptpbaseClockTimePropertiesDSFreqTraceable", integer32,
       of<&Status::timePropertiesDS, &TimePropertiesDS::frequencyTraceable>,
       "timePropertiesDS.frequencyTraceable"},
      {"ptpbaseClockTimePropertiesDSPTPTimescale", integer32,
       of<&Status::timePropertiesDS, &TimePropertiesDS::ptpTimescale>,
       "timePropertiesDS.ptpTimescale"},
      {"ptpbaseClockTimePropertiesDSSource", integer32, timeSource,
       "timePropertiesDS.timeSource, if it is not 0"},
};

Column const transparentSetColumns[] = {
      {"ptpbaseClockTransDefaultDSDomainIndex", unsigned32},
      {"ptpbaseClockTransDefaultDSInstanceIndex", unsigned32},
      {"ptpbaseClockTransDefaultDSClockIdentity", octetString,
       of<&Status::defaultDS, &DefaultDS::clockIdentity>, "defaultDS.clockIdentity"},
      {"ptpbaseClockTransDefaultDSNumOfPorts", counter32,
       of<&Status::defaultDS, &DefaultDS::numberPorts>, "defaultDS.numberPorts"},
      {"ptpbaseClockTransDefaultDSDelay", integer32, transparentDelay, "defaultDS.ptpMode"},
      {"ptpbaseClockTransDefaultDSPrimaryDomain", unsigned32,
       of<&Status::defaultDS, &DefaultDS::domainNumber>, "defaultDS.domainNumber"},
};

Column const portColumns[] = {
      {"ptpbaseClockPortDomainIndex", unsigned32},
      {"ptpbaseClockPortClockTypeIndex", integer32},
      {"ptpbaseClockPortClockInstanceIndex", unsigned32},
      {"ptpbaseClockPortTablePortNumberIndex", unsigned32},
      {"ptpbaseClockPortName", octetString, portName, "portDS.portDSKey"},
      {"ptpbaseClockPortRole", integer32, ofMibPort<&PtpMibPortData::clockRoleType>,
       "ptpMibPortData.clockRoleType"},
      {"ptpbaseClockPortSyncTwoStep", integer32, of<&Status::defaultDS, &DefaultDS::twoStepFlag>,
       "defaultDS.twoStepFlag"},
      {"ptpbaseClockPortCurrentPeerAddressType", objectId, peerAddressType,
       "parentDS.parentSourceAddrs; of the port that the clock follows"},
      {"ptpbaseClockPortCurrentPeerAddress", octetString, peerAddress,
       "parentDS.parentSourceAddrs; of the port that the clock follows"},
      {"ptpbaseClockPortNumOfAssociatedPorts", gauge32,
       ofMibPort<&PtpMibPortData::numAssociatedPorts>, "ptpMibPortData.numAssociatedPorts"},
};

Column const portSetColumns[] = {
      {"ptpbaseClockPortDSDomainIndex", unsigned32},
      {"ptpbaseClockPortDSClockTypeIndex", integer32},
      {"ptpbaseClockPortDSClockInstanceIndex", unsigned32},
      {"ptpbaseClockPortDSPortNumberIndex", unsigned32},
      {"ptpbaseClockPortDSName", octetString, portName, "portDS.portDSKey"},
      {"ptpbaseClockPortDSPortIdentity", octetString, ofPort<&PortDS::portIdentity>,
       "portDS.portIdentity"},
      {"ptpbaseClockPortDSlogAnnouncementInterval", integer32, ofPort<&PortDS::logAnnounceInterval>,
       "portDS.logAnnounceInterval"},
      {"ptpbaseClockPortDSAnnounceRctTimeout", integer32, ofPort<&PortDS::announceReceiptTimeout>,
       "portDS.announceReceiptTimeout"},
      {"ptpbaseClockPortDSlogSyncInterval", integer32, ofPort<&PortDS::logSyncInterval>,
       "portDS.logSyncInterval"},
      {"ptpbaseClockPortDSMinDelayReqInterval", integer32, ofPort<&PortDS::logMinDelayReqInterval>,
       "portDS.logMinDelayReqInterval"},
      {"ptpbaseClockPortDSPeerDelayReqInterval", integer32,
       ofPort<&PortDS::logMinPdelayReqInterval>, "portDS.logMinPdelayReqInterval"},
      {"ptpbaseClockPortDSDelayMech", integer32, ofPort<&PortDS::delayMechanism>,
       "portDS.delayMechanism; commonP2p is p2p, special has no number"},
      {"ptpbaseClockPortDSPeerMeanPathDelay", octetString, peerDelay, "portDS.peerMeanPathDelay"},
      {"ptpbaseClockPortDSGrantDuration", unsigned32, nullptr,
       "no source: the status has no duration of grants"},
      {"ptpbaseClockPortDSPTPVersion", unsigned32, ofPort<&PortDS::versionNumber>,
       "portDS.versionNumber"},
};

Column const portRunningColumns[] = {
      {"ptpbaseClockPortRunningDomainIndex", unsigned32},
      {"ptpbaseClockPortRunningClockTypeIndex", integer32},
      {"ptpbaseClockPortRunningClockInstanceIndex", unsigned32},
      {"ptpbaseClockPortRunningPortNumberIndex", unsigned32},
      {"ptpbaseClockPortRunningName", octetString, portName, "portDS.portDSKey"},
      {"ptpbaseClockPortRunningState", integer32, ofPort<&PortDS::portState>, "portDS.portState"},
      {"ptpbaseClockPortRunningRole", integer32, ofMibPort<&PtpMibPortData::clockRoleType>,
       "ptpMibPortData.clockRoleType"},
      {"ptpbaseClockPortRunningInterfaceIndex", integer32, interfaceIndex,
       "the kernel, by portDS.intf; 0 if it has no such interface"},
      {"ptpbaseClockPortRunningTransport", objectId, ofPort<&PortDS::transportMode>,
       "portDS.transportMode"},
      {"ptpbaseClockPortRunningEncapsulationType", objectId, portEncapsulation,
       "portDS.vlanId: VLAN if there is one, otherwise Ethernet"},
      {"ptpbaseClockPortRunningTxMode", integer32, ofMibPort<&PtpMibPortData::txMode>,
       "ptpMibPortData.txMode"},
      {"ptpbaseClockPortRunningRxMode", integer32, ofMibPort<&PtpMibPortData::rxMode>,
       "ptpMibPortData.rxMode"},
      {"ptpbaseClockPortRunningPacketsReceived", counter64,
       ofMibPort<&PtpMibPortData::totalPacketsReceived>, "ptpMibPortData.totalPacketsReceived"},
      {"ptpbaseClockPortRunningPacketsSent", counter64,
       ofMibPort<&PtpMibPortData::totalPacketsSent>, "ptpMibPortData.totalPacketsSent"},
};

Column const transparentPortColumns[] = {
      {"ptpbaseClockPortTransDSDomainIndex", unsigned32},
      {"ptpbaseClockPortTransDSInstanceIndex", unsigned32},
      {"ptpbaseClockPortTransDSPortNumberIndex", unsigned32},
      {"ptpbaseClockPortTransDSPortIdentity", octetString, ownIdentity,
       "portDS.portIdentity.clockIdentity"},
      {"ptpbaseClockPortTransDSlogMinPdelayReqInt", integer32,
       ofPort<&PortDS::logMinPdelayReqInterval>, "portDS.logMinPdelayReqInterval"},
      {"ptpbaseClockPortTransDSFaultyFlag", integer32, ofPort<&PortDS::faultyFlag>,
       "portDS.faultyFlag"},
      {"ptpbaseClockPortTransDSPeerMeanPathDelay", octetString, peerDelay,
       "portDS.peerMeanPathDelay"},
};

Column const associatesColumns[] = {
      {"ptpClockPortCurrentDomainIndex", unsigned32},
      {"ptpClockPortCurrentClockTypeIndex", integer32},
      {"ptpClockPortCurrentClockInstanceIndex", unsigned32},
      {"ptpClockPortCurrentPortNumberIndex", unsigned32},
      {"ptpbaseClockPortAssociatePortIndex", unsigned32},
      {"ptpbaseClockPortAssociateAddressType", objectId, associateAddressType,
       "parentDS.parentSourceAddrs, intfStatus.foreignMasterDS.foreignMasterIpAddr"},
      {"ptpbaseClockPortAssociateAddress", octetString, associateAddress,
       "parentDS.parentSourceAddrs, intfStatus.foreignMasterDS.foreignMasterIpAddr"},
      {"ptpbaseClockPortAssociatePacketsSent", counter64, nullptr, uncounted},
      {"ptpbaseClockPortAssociatePacketsReceived", counter64, nullptr, uncounted},
      {"ptpbaseClockPortAssociateInErrors", counter64, nullptr, uncounted},
      {"ptpbaseClockPortAssociateOutErrors", counter64, nullptr, uncounted},
};

Table const allTables[] = {
      {1, 1, "ptpbaseSystemTable", Index::domain, systemColumns},
      {1, 2, "ptpbaseSystemDomainTable", Index::clockType, systemDomainColumns},
      {1, 3, "ptpbaseSystemProfile", Index::none, systemProfileColumns},
      {2, 1, "ptpbaseClockCurrentDSTable", Index::clock, currentSetColumns},
      {2, 2, "ptpbaseClockParentDSTable", Index::clock, parentSetColumns},
      {2, 3, "ptpbaseClockDefaultDSTable", Index::clock, defaultSetColumns},
      {2, 4, "ptpbaseClockRunningTable", Index::clock, runningColumns},
      {2, 5, "ptpbaseClockTimePropertiesDSTable", Index::clock, timePropertiesColumns},
      {2, 6, "ptpbaseClockTransDefaultDSTable", Index::transparent, transparentSetColumns},
      {2, 7, "ptpbaseClockPortTable", Index::port, portColumns},
      {2, 8, "ptpbaseClockPortDSTable", Index::port, portSetColumns},
      {2, 9, "ptpbaseClockPortRunningTable", Index::port, portRunningColumns},
      {2, 10, "ptpbaseClockPortTransDSTable", Index::transparentPort, transparentPortColumns},
      {2, 11, "ptpbaseClockPortAssociateTable", Index::associate, associatesColumns},
};

}  // namespace

std::span<Table const> tables() {
   return allTables;
}

}  // namespace Ptpsnmp
