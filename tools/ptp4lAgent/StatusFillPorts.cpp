// What each port tells; the clock's data sets are in StatusFill.cpp.
#include <algorithm>
#include <numeric>

#include "tools/ptp4lAgent/Numbers.h"
#include "tools/ptp4lAgent/StatusFill.h"

namespace Ptp4lAgent {

namespace {

// Indices of counters: `messageType` (IEEE 1588-2008, 13.3.2.2).
constexpr std::size_t sync = 0;
constexpr std::size_t pdelayReq = 2;
constexpr std::size_t pdelayResp = 3;
constexpr std::size_t followUp = 8;

/// Peer delays that are kept for readers.
constexpr std::size_t keptDelays = 8;
/// Seconds without an answer after which link delay is not being measured.
constexpr double measuring = 5;

U64 sum(HostCounters<16> const& counters) {
   return std::accumulate(counters.values.begin(), counters.values.end(), U64{0});
}

}  // namespace

Port* StatusFill::port(U16 number) noexcept {
   auto const at = ports_.find(number);
   return at == ports_.end() ? nullptr : &at->second;
}

void StatusFill::drop(Ports::iterator at) {
   Ptp::PortDSKey const key = at->second.key;
   ports_.erase(at);
   status_->portDSDel(key);
   status_->intfStatusDel(key);
   if (auto const& mib = status_->ptpMibData()) {
      mib->ptpMibPortDataDel(key);
   }
}

void StatusFill::keepOnly(std::vector<U16> const& numbers) {
   for (auto at = ports_.begin(); at != ports_.end();) {
      auto const here = at++;
      if (std::find(numbers.begin(), numbers.end(), here->first) == numbers.end()) {
         drop(here);
      }
   }
   followedIs();
}

void StatusFill::take(U16 number, PortPropertiesNp const& set) {
   auto const at = ports_.find(number);
   if (at != ports_.end() && at->second.name != set.interface.text) {
      drop(at);
   }
   auto const same = std::find_if(ports_.begin(), ports_.end(), [&](auto const& entry) {
      return entry.first != number && entry.second.name == set.interface.text;
   });
   if (same != ports_.end()) {
      drop(same);  // the interface has another number now
   }
   Ptp::PortDSKey const key(Dorn::IntfId(set.interface.text), Bridging::VlanIdOrNone());
   Port& port = ports_[number];
   port.timestamping = set.timestamping;
   bool const isNew = !port.status;
   if (isNew) {
      port.name = set.interface.text;
      port.key = key;
   }
   port.status = status_->portDSIs(key, set.portIdentity);
   status_->intfStatusIs(key);
   port.mib = status_->ptpMibDataIs()->ptpMibPortDataIs(key);
   if (isNew) {
      port.status->adminDisabledIs(false);
      takeConf(*port.status);
      roleIs(port);
   }
   stateIs(port, set.portState);
}

void StatusFill::stateIs(Port& port, U8 number) {
   auto const state = portStateOf(number);
   if (!state) {
      return;
   }
   using Ptp::PortState;
   port.status->portStateIs(*state);
   port.status->faultyFlagIs(*state == PortState::faulty);
   port.status->initializedIs(*state != PortState::initializing);
   port.status->enabledIs(*state != PortState::disabled);
   bool const slave = *state == PortState::slave || *state == PortState::uncalibrated ||
                      *state == PortState::passive;
   if (*state == PortState::slave) {
      port.mib->numAssociatedPortsIs(1);  // its master
   } else {
      port.mib->numAssociatedPortsIs(port.status->numPotentialMasters());
   }
   port.mib->clockRoleTypeIs(slave ? PtpMib::ClockRoleType::slave : PtpMib::ClockRoleType::master);
   // Nothing but a link that is down is known to stop a port.
   auto const link = links_.find(port.name);
   bool const down = link != links_.end() && !link->second;
   if (down) {
      port.status->disabledReasonIs(Ptp::PortDisabledReason::linkDown, true);
   } else {
      port.status->disabledReasonDel(Ptp::PortDisabledReason::linkDown);
   }
   followedIs();
}

void StatusFill::linkIs(std::string const& interface, bool up) {
   links_[interface] = up;
   for (auto& [number, port] : ports_) {
      if (port.name == interface) {
         stateIs(port, static_cast<U8>(port.status->portState()));
      }
   }
}

void StatusFill::roleIs(Port& port) {
   port.status->roleIs(port.masterOnly ? Ptp::Role::masterOnly
                       : slaveOnly_    ? Ptp::Role::slaveOnly
                                       : Ptp::Role::dynamic);
}

void StatusFill::takeMasterOnly(Port& port, bool masterOnly) {
   port.masterOnly = masterOnly;
   roleIs(port);
}

void StatusFill::take(Port& port, ClockDescription const& set) {
   clockType_ = set.clockType;
   modeIs();
   if (auto const mode = transportModeOf(set.networkProtocol)) {
      port.status->transportModeIs(*mode);
   }
   // Each port has an address of its own; the model has one for the clock.
   bool const first = &port == &ports_.begin()->second;
   Dorn::IpGenAddr const address = ipAddressOf(set.protocolAddress.octets);
   auto const& clock = status_->defaultDS();
   if (!clock || !first) {
      return;
   }
   if (address.isV4()) {
      clock->srcIp4Is(address.v4());
   } else if (address.isV6()) {
      clock->srcIp6Is(address.v6());
   }
}

void StatusFill::take(Port& port, PortDataSet const& set) {
   Ptp::PortDS& data = *port.status;
   data.portIdentityIs(set.portIdentity);
   data.logMinDelayReqIntervalIs(set.logMinDelayReqInterval);
   data.logAnnounceIntervalIs(set.logAnnounceInterval);
   data.announceReceiptTimeoutIs(set.announceReceiptTimeout);
   data.logSyncIntervalIs(set.logSyncInterval);
   data.logMinPdelayReqIntervalIs(set.logMinPdelayReqInterval);
   if (auto const mechanism = delayMechanismOf(set.delayMechanism)) {
      data.delayMechanismIs(*mechanism);
   }
   double const delay = nanoseconds(set.peerMeanPathDelay);
   if (delay != 0 && delay != data.precisePeerMeanPathDelay()) {
      data.peerPathDelayEnq(delay);
      while (data.peerPathDelayCount() > keptDelays) {
         data.peerPathDelayDeq();
      }
      if (data.firstSuccessfulPdelayTransactionTime() == 0) {
         data.firstSuccessfulPdelayTransactionTimeIs(seconds_());
      }
   }
   data.precisePeerMeanPathDelayIs(delay);
   data.peerMeanPathDelayIs(wholeNanoseconds(set.peerMeanPathDelay));
   stateIs(port, set.portState);
}

void StatusFill::take(Port& port, PortDataSetNp const& set) {
   bool const capable = set.asCapable != 0;
   if (port.status->asCapable() != capable) {
      port.status->asCapableIs(capable);
      port.status->lastUpdateTimeAsCapableIs(seconds_());
   }
   port.status->linkDelayThresholdIs(set.neighborPropDelayThresh);
}

void StatusFill::take(Port& port, PortStatsNp const& set) {
   auto const& received = set.received.values;
   port.status->syncMessageReceivedIs(static_cast<U32>(received[sync]));
   port.mib->totalPacketsReceivedIs(sum(set.received));
   port.mib->totalPacketsSentIs(sum(set.sent));
   sumUp();
   countLost(port, set);
   bool const more = port.counted && received[sync] > port.syncs;
   if (more && &port == followed()) {
      status_->parentTwoStepFlagIs(received[followUp] > port.followUps);
   }
   port.syncs = received[sync];
   port.followUps = received[followUp];
   port.counted = true;
}

/// Counts Pdelay_Req messages since the last answer.
void StatusFill::countLost(Port& port, PortStatsNp const& set) {
   U64 const requests = set.sent.values[pdelayReq];
   U64 const answers = set.received.values[pdelayResp];
   bool const p2p = port.status->delayMechanism() == Ptp::DelayMechanism::p2p;
   bool const answered = port.counted && answers > port.pdelayResps;
   // The counters begin anew when the daemon does.
   if (!port.counted || answered || requests < port.pdelayReqs) {
      port.pdelayReqs = requests;
   }
   if (answered) {
      port.lastPdelayResp = seconds_();
   }
   port.pdelayResps = answers;
   port.status->lostResponsesPeerDelayIs(p2p ? static_cast<U32>(requests - port.pdelayReqs)
                                             : U32{0});
   port.status->isMeasuringLinkDelayIs(p2p && port.lastPdelayResp != 0 &&
                                       seconds_() - port.lastPdelayResp < measuring);
}

void StatusFill::sumUp() {
   auto const mib = status_->ptpMibDataIs();
   U64 sent = 0;
   U64 received = 0;
   for (auto const& [number, port] : ports_) {
      sent += port.mib->totalPacketsSent();
      received += port.mib->totalPacketsReceived();
   }
   mib->totalPacketsSentIs(sent);
   mib->totalPacketsReceivedIs(received);
}

void StatusFill::take(Port& port, PortServiceStatsNp const& set) {
   U64 const syncTimeouts = set.counters.values[PortServiceStatsNp::syncTimeout];
   if (port.serviceCounted && syncTimeouts > port.syncTimeouts) {
      port.status->lastSyncReceiptTimeoutIs(seconds_());
   }
   port.syncTimeouts = syncTimeouts;
   port.serviceCounted = true;
}

void StatusFill::take(Port& port, UnicastMasterTableNp const& set) {
   port.status->numPotentialMastersIs(static_cast<U32>(set.masters.size()));
   if (!conf_) {
      status_->unicastNegotiationIs(std::any_of(
            ports_.begin(), ports_.end(),
            [](auto const& entry) { return entry.second.status->numPotentialMasters() != 0; }));
   }
   auto const intf = status_->intfStatusIs(port.key);
   std::vector<Ptp::PortIdentity> heard;
   for (UnicastMasterNp const& master : set.masters) {
      if (master.portIdentity.clockIdentity().value() == ~U64{0}) {
         continue;  // has not answered yet
      }
      heard.push_back(master.portIdentity);
      Dorn::IpGenAddr const address = ipAddressOf(master.address.octets);
      auto const foreign = intf->foreignMasterDSIs(master.portIdentity);
      if (address.isSet()) {
         foreign->foreignMasterIpAddrIs(address);
      }
      auto const& parent = status_->parentDS();
      if (parent && master.selected != 0 &&
          parent->parentSourceAddrs().parentPortIdentity() == master.portIdentity) {
         Dorn::EthAddr mac;
         if (master.address.octets.size() == mac.bytes().size()) {
            Dorn::EthAddr::Bytes bytes{};
            std::copy(master.address.octets.begin(), master.address.octets.end(), bytes.begin());
            mac = Dorn::EthAddr(bytes);
         }
         parent->parentSourceAddrsIs(Ptp::ParentSourceAddresses(master.portIdentity, address, mac));
      }
   }
   std::vector<Ptp::PortIdentity> silent;
   for (Sarn::Ptr<Ptp::ForeignMasterDS> const& foreign : intf->foreignMasterDSAll()) {
      if (std::find(heard.begin(), heard.end(), foreign->foreignMasterPortIdentity()) ==
          heard.end()) {
         silent.push_back(foreign->foreignMasterPortIdentity());
      }
   }
   for (Ptp::PortIdentity const& identity : silent) {
      intf->foreignMasterDSDel(identity);
   }
}

}  // namespace Ptp4lAgent
