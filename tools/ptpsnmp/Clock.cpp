#include "tools/ptpsnmp/Clock.h"

#include <algorithm>
#include <tuple>

namespace Ptpsnmp {

using Ptp::PortDS;
using Ptp::PortState;

namespace {

U16 idOf(Kiv::TypeImpl const& type, char const* member) {
   return type.field(std::string_view(member))->fieldId;
}

bool isPortNumber(U16 number) {
   return number != 0 && number != 0xFFFF;
}

}  // namespace

Clock::Clock(Sarn::Ptr<Ptp::Status> status, U32 instance)
      : status_(std::move(status)), instance_(instance) {
   status_->observerAdd(*this, Kiv::Scope::subtree);
}

Clock::~Clock() {
   status_->observerDel(*this, Kiv::Scope::subtree);
}

/// Forgets the ports at once, since those that are removed may die.
void Clock::onChange(Kiv::Change const& change) {
   static U16 const ports = idOf(Ptp::Status::kivTypeImpl, "portDS");
   static U16 const identity = idOf(PortDS::kivTypeImpl, "portIdentity");
   if (change.attributeId != ports && change.attributeId != identity) {
      return;
   }
   Kiv::TypeImpl const* const type = &Kiv::entityOf(change).kivType();
   if ((change.attributeId == ports && type == &Ptp::Status::kivTypeImpl) ||
       (change.attributeId == identity && type == &PortDS::kivTypeImpl)) {
      ports_.clear();
      ordered_ = false;
   }
}

U32 Clock::domainNumber() const {
   auto const& set = status_->defaultDS();
   return set ? set->domainNumber() : 0;
}

ClockType Clock::type() const {
   auto const& set = status_->defaultDS();
   if (!set) {
      return ClockType::none;
   }
   switch (set->ptpMode()) {
      case Ptp::PtpMode::disabled:
         return ClockType::none;
      case Ptp::PtpMode::boundary:
      case Ptp::PtpMode::oneStepBoundary:
         return ClockType::boundary;
      case Ptp::PtpMode::ordinary:
         return ClockType::ordinary;
      case Ptp::PtpMode::e2eTransparent:
      case Ptp::PtpMode::p2pTransparent:
      case Ptp::PtpMode::oneStepE2eTransparent:
         return ClockType::transparent;
      case Ptp::PtpMode::ptpGeneralized:
         // A time-aware system: an end station has one port, a relay has more.
         return set->numberPorts() > 1 ? ClockType::boundary : ClockType::ordinary;
   }
   return ClockType::none;
}

std::span<Clock::Port const> Clock::ports() const {
   if (!ordered_) {
      ports_.clear();
      for (Sarn::Ptr<PortDS> const& port : status_->portDSAll()) {
         U16 const number = port->portIdentity().portNumber();
         if (isPortNumber(number)) {
            ports_.push_back({number, port.get()});
         }
      }
      std::ranges::sort(ports_, [](Port const& a, Port const& b) {
         return std::tie(a.number, a.data->portDSKey()) < std::tie(b.number, b.data->portDSKey());
      });
      ports_.erase(std::unique(ports_.begin(), ports_.end(),
                               [](Port const& a, Port const& b) { return a.number == b.number; }),
                   ports_.end());
      ordered_ = true;
   }
   return ports_;
}

PortDS const* Clock::port(U32 number) const {
   auto const all = ports();
   auto const found = std::ranges::lower_bound(all, number, {}, &Port::number);
   return found != all.end() && found->number == number ? found->data : nullptr;
}

bool Clock::follows(PortDS const& port) const {
   auto const& current = status_->currentDS();
   return current && current->lastUpdatePortKey() == port.portDSKey() &&
          (port.portState() == PortState::slave || port.portState() == PortState::uncalibrated);
}

Associate Clock::parentOn(PortDS const& port) const {
   auto const& parent = status_->parentDS();
   if (!parent || !follows(port)) {
      return {};
   }
   auto const& source = parent->parentSourceAddrs();
   return {source.parentPortIdentity(), source.parentIpAddr(), source.parentEthAddr()};
}

std::vector<Associate> Clock::associates(PortDS const& port) const {
   std::vector<Associate> all;
   if (port.portState() != PortState::slave && port.portState() != PortState::uncalibrated) {
      return all;
   }
   Associate const parent = parentOn(port);
   if (parent.identity != Ptp::PortIdentity()) {
      all.push_back(parent);
   }
   if (auto const intf = status_->intfStatus(port.portDSKey())) {
      for (auto const& master : intf->foreignMasterDSAll()) {
         if (master->foreignMasterPortIdentity() != parent.identity) {
            all.push_back({master->foreignMasterPortIdentity(), master->foreignMasterIpAddr(), {}});
         }
      }
   }
   std::ranges::sort(all, {}, &Associate::identity);
   return all;
}

}  // namespace Ptpsnmp
