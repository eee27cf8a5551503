// The clock's data sets; those of ports are in StatusFillPorts.cpp.
#include "tools/ptp4lAgent/StatusFill.h"

#include <algorithm>
#include <cmath>

#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "tools/ptp4lAgent/Numbers.h"

namespace Ptp4lAgent {

StatusFill::StatusFill(Sarn::Ptr<Ptp::Status> status, double (*seconds)(),
                       Sarn::Ptr<Ptp::Config> conf)
      : status_(std::move(status)), seconds_(seconds), conf_(std::move(conf)) {}

void StatusFill::up(U8 transportSpecific) {
   transportSpecific_ = transportSpecific;
   status_->ptpSupportedIs(true);
   status_->enabledIs(true);
   status_->managementEnabledIs(true);  // it has just answered
}

void StatusFill::gone() {
   status_->enabledIs(false);
   status_->managementEnabledIs(false);
   status_->unicastNegotiationIs(false);
   while (!ports_.empty()) {
      drop(ports_.begin());
   }
   status_->currentDSDel();
   status_->parentDSDel();
   status_->timePropertiesDSDel();
   status_->defaultDSDel();
   status_->domainStatusDel();
   status_->ptpMibDataDel();
   status_->localClockQualityIs(Ptp::ClockQuality(248, 254, Dorn::NetU16(65535)));
   status_->parentTwoStepFlagIs(false);
   clockType_ = 0;
   endToEndDelay_ = 0;
   ingressTime_ = 0;
}

void StatusFill::take(DefaultDataSet const& set) {
   auto const clock = status_->defaultDSIs();
   clock->twoStepFlagIs((set.flags & DefaultDataSet::twoStep) != 0);
   clock->clockIdentityIs(set.clockIdentity);
   clock->numberPortsIs(set.numberPorts);
   clock->clockQualityIs(set.clockQuality);
   clock->priority1Is(set.priority1);
   clock->priority2Is(set.priority2);
   clock->domainNumberIs(set.domainNumber);
   status_->localClockQualityIs(set.clockQuality);
   status_->domainStatusIs()->globalDomainIs(set.domainNumber);
   status_->ptpMibDataIs()->numClockPortsIs(set.numberPorts);
   takeConf();
   slaveOnly_ = (set.flags & DefaultDataSet::slaveOnly) != 0;
   for (auto& [number, port] : ports_) {
      roleIs(port);
   }
   modeIs();
}

/// What only the configuration file says of the clock.
void StatusFill::takeConf() {
   if (!conf_) {
      return;
   }
   auto const& clock = status_->defaultDS();
   clock->localPriorityIs(conf_->localPriority());
   clock->driftLimitIs(conf_->driftLimit());
   clock->ttlIs(conf_->ttl());
   status_->netSyncMonitorIs(conf_->netSyncMonitor());
   status_->unicastNegotiationIs(conf_->unicastNegotiation());
   status_->g82751EnabledIs(conf_->ptpProfile() == Ptp::PtpProfile::g8275_1);
}

/// What only the configuration file says of a port.
void StatusFill::takeConf(Ptp::PortDS& port) const {
   auto const intf = conf_ ? conf_->intfConfig(port.intf()) : nullptr;
   if (intf) {
      port.syncReceiptTimeoutIs(intf->syncReceiptTimeout());
      port.localPriorityIs(intf->localPriority());
      port.dscpEventIs(intf->dscpEvent());
      port.dscpGeneralIs(intf->dscpGeneral());
   }
}

/// The mode that loading the daemon's configuration file gives.
void StatusFill::modeIs() {
   auto const& clock = status_->defaultDS();
   if (!clock || clockType_ == 0) {
      return;
   }
   using Ptp::PtpMode;
   PtpMode mode = PtpMode::ordinary;
   if (transportSpecific_ == 1) {
      mode = PtpMode::ptpGeneralized;
   } else if ((clockType_ & ClockDescription::e2eTransparentClock) != 0) {
      mode = clock->twoStepFlag() ? PtpMode::e2eTransparent : PtpMode::oneStepE2eTransparent;
   } else if ((clockType_ & ClockDescription::p2pTransparentClock) != 0) {
      mode = PtpMode::p2pTransparent;
   } else if ((clockType_ & ClockDescription::boundaryClock) != 0) {
      mode = clock->twoStepFlag() ? PtpMode::boundary : PtpMode::oneStepBoundary;
   }
   clock->ptpModeIs(mode);
}

void StatusFill::take(CurrentDataSet const& set) {
   auto const current = status_->currentDSIs();
   current->stepsRemovedIs(Dorn::NetU16(set.stepsRemoved));
   current->offsetFromMasterIs(wholeNanoseconds(set.offsetFromMaster));
   endToEndDelay_ = wholeNanoseconds(set.meanPathDelay);
   pathDelayIs();
   followedIs();
}

/// With the peer delay mechanism the clock's own delay is 0; that of the port counts.
void StatusFill::pathDelayIs() {
   if (auto const& current = status_->currentDS()) {
      Port const* const port = followed();
      bool const p2p =
            port != nullptr && port->status->delayMechanism() == Ptp::DelayMechanism::p2p;
      current->meanPathDelayIs(p2p ? port->status->peerMeanPathDelay() : endToEndDelay_);
   }
}

void StatusFill::take(TimeStatusNp const& set) {
   auto const current = status_->currentDSIs();
   current->gmPresentIs(set.gmPresent != 0);
   current->gptpCumulativeRateOffsetIs(set.cumulativeScaledRateOffset);
   current->gptpRateRatioIs(1.0 + std::ldexp(set.cumulativeScaledRateOffset, -41));
   if (auto const& parent = status_->parentDS()) {
      parent->gptpCumulativeRateOffsetIs(set.cumulativeScaledRateOffset);
   }
   if (set.ingressTime == 0 || set.ingressTime == ingressTime_) {
      return;  // no Sync message since
   }
   ingressTime_ = set.ingressTime;
   current->lastSyncLocalTimeIs(static_cast<U64>(set.ingressTime));
   current->realLastSyncLocalTimeIs(static_cast<U64>(set.ingressTime));
   current->lastSyncSystemTimeIs(seconds_());
   if (followed() != nullptr) {
      current->offsetFromMasterIs(set.masterOffset);
   }
}

void StatusFill::take(ParentDataSet const& set) {
   auto const parent = status_->parentDSIs();
   Ptp::ParentSourceAddresses addresses = parent->parentSourceAddrs();
   if (addresses.parentPortIdentity() != set.parentPortIdentity) {
      Ptp::ParentSourceAddresses const none = Ptp::ParentDS::ParentDSIs()->parentSourceAddrs();
      addresses = Ptp::ParentSourceAddresses(set.parentPortIdentity, none.parentIpAddr(),
                                             none.parentEthAddr());
      parent->parentSourceAddrsIs(addresses);
      restarted();
   }
   parent->parentStatsIs((set.parentStats & 1) != 0);
   parent->observedParentOffsetScaledLogVarianceIs(set.observedParentOffsetScaledLogVariance);
   parent->observedParentClockPhaseChangeRateIs(set.observedParentClockPhaseChangeRate);
   parent->grandmasterPriority1Is(set.grandmasterPriority1);
   parent->grandmasterClockQualityIs(set.grandmasterClockQuality);
   parent->grandmasterPriority2Is(set.grandmasterPriority2);
   parent->grandmasterIdentityIs(set.grandmasterIdentity);
}

void StatusFill::take(TimePropertiesDataSet const& set) {
   auto const properties = status_->timePropertiesDSIs();
   properties->currentUtcOffsetIs(Dorn::NetU16(static_cast<U16>(set.currentUtcOffset)));
   properties->flagFieldIs(set.flags);
   properties->timeSourceIs(set.timeSource);
}

Port const* StatusFill::followed() const noexcept {
   Port const* uncalibrated = nullptr;
   for (auto const& [number, port] : ports_) {
      if (port.status->portState() == Ptp::PortState::slave) {
         return &port;
      }
      if (port.status->portState() == Ptp::PortState::uncalibrated) {
         uncalibrated = &port;
      }
   }
   return uncalibrated;
}

U64 StatusFill::syncInterval() const {
   Port const* const port = followed();
   if (port == nullptr) {
      return 0;
   }
   int const exponent = std::clamp<int>(port->status->logSyncInterval(), -7, 4);
   return static_cast<U64>(std::ldexp(1e9, exponent));
}

/// The clock follows another parent, or through another port.
void StatusFill::restarted() {
   if (auto const& current = status_->currentDS()) {
      Brim::Generation const& now = current->genId();
      current->genIdIs(Brim::Generation(now.count() + 1, now.flag()));
   }
}

/// Tells which port the offset comes from. Without one, the data set keeps values that mean nothing
/// any more.
void StatusFill::followedIs() {
   Port const* const port = followed();
   if (auto const& current = status_->currentDS()) {
      Ptp::PortDSKey const key = port != nullptr ? port->key : Ptp::PortDSKey();
      bool const other = port != nullptr && key != current->lastUpdatePortKey();
      current->lastUpdatePortKeyIs(key);
      if (other) {
         restarted();
      }
   }
   if (auto const& mib = status_->ptpMibData()) {
      using Ptp::ClockStateType;
      mib->clockStateIs(port == nullptr ? ClockStateType::freerun
                        : port->status->portState() == Ptp::PortState::slave
                              ? ClockStateType::phaseAligned
                              : ClockStateType::acquiring);
   }
   if (port == nullptr) {
      status_->parentTwoStepFlagIs(false);
   }
   pathDelayIs();
}

}  // namespace Ptp4lAgent
