#include "tools/demoAgent/Agent.h"

namespace DemoAgent {

using Ptp::PortDS;
using Ptp::PortDSKey;
using Ptp::PortState;

namespace {

/// Ports that could be followed.
constexpr U32 uplinks = 2;

Ptp::ClockIdentity clock(U64 number) {
   return Ptp::ClockIdentity(0x020011fffe000000u + number);
}

constexpr U64 ownClock = 1;
constexpr U64 grandmasters = 0xaa00;
constexpr U64 neighbours = 0xbb00;

}  // namespace

Agent::Agent(Sarn::Ptr<Ptp::Status> status, U32 ports, U32 seed)
      : status_(std::move(status)), portCount_(ports), random_(seed) {}

void Agent::fill() {
   status_->ptpSupportedIs(true);
   status_->enabledIs(true);
   auto const clockData = status_->defaultDSIs();
   clockData->clockIdentityIs(clock(ownClock));
   clockData->numberPortsIs(portCount_);
   clockData->priority1Is(128);
   clockData->priority2Is(128);
   clockData->domainNumberIs(24);
   clockData->ptpModeIs(Ptp::PtpMode::boundary);
   status_->currentDSIs();
   status_->parentDSIs();
   status_->timePropertiesDSIs()->currentUtcOffsetIs(Dorn::NetU16(37));
   status_->domainStatusIs()->globalDomainIs(24);
   status_->ptpMibDataIs()->numClockPortsIs(static_cast<U16>(portCount_));
   status_->aclStatusServiceIs("ptp")->ipAclNameIs("default", "default-control-plane-acl");
   for (U32 i = 0; i != portCount_; ++i) {
      addPort(i);
   }
   follow(0);
}

void Agent::addPort(U32 index) {
   // Every eighth port runs PTP in a VLAN.
   Bridging::VlanIdOrNone const vlan =
         index % 8 == 7 ? Bridging::VlanIdOrNone(100) : Bridging::VlanIdOrNone();
   PortDSKey const key(Dorn::IntfId("Ethernet" + std::to_string(index + 1)), vlan);
   keys_.push_back(key);
   auto const port =
         status_->portDSIs(key, Ptp::PortIdentity(clock(ownClock), static_cast<U16>(index + 1)));
   auto const intf = status_->intfStatusIs(key);
   intf->maxForeignRecordsIs(5);
   if (!vlan.isNone()) {
      status_->vlanStatusIs(key, true, true);
      status_->domainStatus()->intfDomainNumberInfoIs(Ptp::IntfDomainNumberInfo(key, U8{24}));
   }
   status_->ptpMibData()->ptpMibPortDataIs(key)->txModeIs(PtpMib::RxTxMode::multicast);
   port->initializedIs(true);
   port->adminDisabledIs(false);
   port->transportModeIs(Ptp::TransportMode::ipv4);
   port->logSyncIntervalIs(-3);
   port->logAnnounceIntervalIs(1);
   port->announceReceiptTimeoutIs(3);
   if (index >= uplinks) {
      port->roleIs(Ptp::Role::masterOnly);
      port->delayMechanismIs(index % 2 == 0 ? Ptp::DelayMechanism::p2p : Ptp::DelayMechanism::e2e);
   }
   linkUp(*port);
}

void Agent::linkUp(PortDS& port) {
   port.enabledIs(true);
   port.disabledReasonDelAll();
   port.portStateIs(PortState::listening);
   port.portStateIs(port.role() == Ptp::Role::masterOnly ? PortState::master : PortState::passive);
   if (port.delayMechanism() == Ptp::DelayMechanism::e2e) {
      port.g8275_2Is()->maxMissingDelayRespIs(10);
   }
}

void Agent::linkDown(PortDS& port) {
   port.enabledIs(false);
   port.disabledReasonIs(Ptp::PortDisabledReason::linkDown, true);
   port.portStateIs(PortState::disabled);
   port.peerPathDelayDelAll();
   port.peerMeanPathDelayIs(0);
   port.asCapableIs(false);
   port.g8275_2Del();
   status_->intfStatus(port.portDSKey())->foreignMasterDSDelAll();
}

void Agent::follow(U32 index) {
   followed_ = index;
   for (U32 i = 0; i != uplinks; ++i) {
      auto const port = status_->portDS(keys_[i]);
      port->portStateIs(i == index ? PortState::uncalibrated : PortState::passive);
   }
   auto const current = status_->currentDS();
   current->reset();
   current->genIdIs(Brim::Generation(current->genId().count(), true));
   current->lastUpdatePortKeyIs(keys_[index]);
   current->gmPresentIs(true);
   current->pathTraceDelAll();
   auto const hops = static_cast<U8>(2 + below(3));
   current->stepsRemovedIs(Dorn::NetU16(hops));
   current->pathTraceIs(0, clock(grandmasters + index));
   for (U8 hop = 1; hop != hops; ++hop) {
      current->pathTraceIs(hop, clock(neighbours + below(0x100)));
   }
   auto const parent = status_->parentDS();
   parent->grandmasterIdentityIs(clock(grandmasters + index));
   parent->grandmasterClockQualityIs(Ptp::ClockQuality(6, 0x21, Dorn::NetU16(20061)));
   parent->grandmasterPriority1Is(128);
   parent->parentSourceAddrsIs(Ptp::ParentSourceAddresses(
         Ptp::PortIdentity(clock(neighbours + index), 1),
         Dorn::IpGenAddr("192.0.2." + std::to_string(index + 1)), Dorn::EthAddr()));
   status_->timePropertiesDS()->flagFieldIs(0x3c);
   status_->ptpMibData()->clockStateIs(Ptp::ClockStateType::acquiring);
   status_->portDS(keys_[index])->portStateIs(PortState::slave);
}

/// Applies eight Sync messages of the master that the clock follows.
void Agent::synchronise() {
   auto const current = status_->currentDS();
   auto const port = status_->portDS(keys_[followed_]);
   if (port->portState() != PortState::slave) {
      return;
   }
   wander_ += noise(6) - wander_ / 8;
   for (int i = 0; i != 8; ++i) {
      port->receiveSyncMessage();
      current->lastSyncSeqIdIs(static_cast<U16>(current->lastSyncSeqId() + 1));
      current->offsetFromMasterIs(wander_ + noise(8));
      current->lastSyncLocalTimeIs(static_cast<U64>(now_) * 1000000000 + U64(i) * 125000000);
   }
   current->lastSyncSystemTimeIs(now_);
   current->meanPathDelayIs(212 + noise(6));
   current->skewIs(1.0 + static_cast<double>(noise(100)) * 1e-10);
   status_->ptpMibData()->clockStateIs(Ptp::ClockStateType::phaseAligned);
}

void Agent::measureDelay(PortDS& port) {
   if (oneIn(50)) {
      port.lostResponsesPeerDelayInc(1);
      return;
   }
   double const delay = 480.0 + static_cast<double>(noise(40)) / 8;
   port.peerPathDelayEnq(delay);
   while (port.peerPathDelayAll().size() > 8) {
      port.peerPathDelayDeq();
   }
   double sum = 0;
   for (auto const& [sequence, value] : port.peerPathDelayAll()) {
      sum += value;
   }
   double const mean = sum / static_cast<double>(port.peerPathDelayAll().size());
   port.precisePeerMeanPathDelayIs(mean);
   port.peerMeanPathDelayIs(static_cast<S64>(mean));
   port.neighborRateRatioIs(1.0 + static_cast<double>(noise(50)) * 1e-9);
   port.asCapableIs(true);
   port.lastUpdateTimeAsCapableIs(now_);
}

void Agent::serve(PortDS& port) {
   if (port.delayMechanism() == Ptp::DelayMechanism::p2p) {
      measureDelay(port);
   } else {
      port.ucastNegRequestTlvsReceivedInc(below(3));
      port.ucastNegGrantTlvsSentInc(below(3));
      port.netSyncMonitorSyncMessagesSentInc(below(9));
      if (oneIn(10)) {
         auto const child = port.g8275_2Is();
         Dorn::IpGenAddr const master("198.51.100." + std::to_string(below(4)));
         if (oneIn(2)) {
            child->signalFailIs(master, now_ + child->blacklistDuration());
         } else {
            child->signalFailDel(master);
         }
         child->announceTxSmCountInc(1);
      }
   }
   if (oneIn(40)) {
      port.stpDiscardedRxMessagesCountInc(1 + below(5));
   }
   if (oneIn(80)) {
      port.corruptedRxManagementMessagesCountInc(1);
   }
}

void Agent::hearMasters(PortDSKey const& key) {
   auto const intf = status_->intfStatus(key);
   Ptp::PortIdentity const heard(clock(neighbours + key.intf().bits() % 7 + below(5)), 1);
   if (oneIn(20)) {
      intf->foreignMasterDSDel(heard);
      return;
   }
   bool const known = intf->foreignMasterDSHas(heard);
   auto const master = intf->foreignMasterDSIs(heard);
   if (known) {
      master->foreignMasterAnnounceMessagesInc(1);
   }
   master->updateTimeIs(now_);
}

/// Updates the MIB's counters of all ports.
void Agent::count() {
   auto const mib = status_->ptpMibData();
   U64 sent = 0;
   U64 received = 0;
   for (PortDSKey const& key : keys_) {
      auto const port = status_->portDS(key);
      auto const data = mib->ptpMibPortData(key);
      data->totalPacketsReceivedIs(data->totalPacketsReceived() + port->syncMessageReceived() % 9);
      data->totalPacketsSentIs(data->totalPacketsSent() +
                               (port->portState() == PortState::master ? 9 : 0));
      sent += data->totalPacketsSent();
      received += data->totalPacketsReceived();
   }
   mib->totalPacketsSentIs(sent);
   mib->totalPacketsReceivedIs(received);
}

void Agent::tick() {
   now_ += 1;
   synchronise();
   for (PortDSKey const& key : keys_) {
      auto const port = status_->portDS(key);
      if (port->portState() == PortState::disabled) {
         if (oneIn(40)) {
            linkUp(*port);
         }
         continue;
      }
      if (port->role() == Ptp::Role::masterOnly) {
         serve(*port);
         if (oneIn(300)) {
            linkDown(*port);
         }
      }
      if (port->role() != Ptp::Role::masterOnly || oneIn(16)) {
         hearMasters(key);
      }
   }
   if (oneIn(20)) {
      auto const port = status_->portDS(keys_[below(portCount_)]);
      port->updateClearCountersRequestTime();
      port->maybeClearCounters();
   }
   if (oneIn(60)) {
      follow(1 - followed_);
   }
   count();
}

}  // namespace DemoAgent
