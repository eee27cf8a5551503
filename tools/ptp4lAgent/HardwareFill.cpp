#include "tools/ptp4lAgent/HardwareFill.h"

#include <algorithm>
#include <vector>

#include "tools/ptp4lAgent/PortDataSets.h"

namespace Ptp4lAgent {

namespace {

constexpr U64 readInterval = 1'000'000'000;

}  // namespace

HardwareFill::HardwareFill(Sarn::Ptr<Ptp::HwStatus> status, Sarn::Ptr<Ptp::HwTime> time, Ask ask,
                           U64 (*clock)() noexcept)
      : status_(std::move(status)), time_(std::move(time)), ask_(std::move(ask)), now_(clock) {}

void HardwareFill::take(Ports const& ports, bool twoStep) {
   std::vector<Dorn::IntfId> gone;
   for (Sarn::Ptr<Ptp::HwIntfStatus> const& intf : status_->intfStatusAll()) {
      gone.push_back(intf->intf());
   }
   S32 index = -1;
   bool supported = false;
   bool oneStep = false;
   bool oneStepP2p = false;
   for (auto const& [number, port] : ports) {
      auto const [at, isNew] = known_.try_emplace(port.name);
      if (isNew) {
         at->second = ask_(port.name).value_or(Timestamping());
      }
      Timestamping const& can = at->second;
      supported = supported || can.hardware;
      oneStep = oneStep || (can.hardware && can.oneStep);
      oneStepP2p = oneStepP2p || (can.hardware && can.oneStepP2p);
      index = index >= 0 ? index : port.phcIndex >= 0 ? port.phcIndex : can.phcIndex;
      Dorn::IntfId const intf = port.key.intf();
      std::erase(gone, intf);
      Ptp::LinuxTsOptions const options(port.timestamping != PortPropertiesNp::software);
      auto const before = status_->intfStatus(intf);
      if (before && !(before->linuxTsOptions() == options)) {
         status_->intfStatusDel(intf);  // they are fixed when the child is made
      }
      status_->intfStatusIs(intf, options)->twoStepClockIs(twoStep);
   }
   for (Dorn::IntfId const& intf : gone) {
      status_->intfStatusDel(intf);
   }
   if (ports.empty()) {
      known_.clear();  // the driver may be another one next time
   }
   status_->ptpSupportedIs(supported);
   status_->ptpOneStepBoundaryClockSupportedIs(oneStep);
   status_->ptpOneStepBoundaryClockP2PSupportedIs(oneStepP2p);
   clockIs(index);
}

void HardwareFill::clockIs(S32 index) {
   if (index == index_) {
      return;
   }
   index_ = index;
   clock_ =
         index >= 0 ? std::make_unique<HardwareClock>("/dev/ptp" + std::to_string(index)) : nullptr;
   next_ = now_();
}

void HardwareFill::onTurn(std::span<pollfd const>) {
   if (clock_ == nullptr || now_() < next_) {
      return;
   }
   next_ = now_() + readInterval;
   if (auto const reading = clock_->read()) {
      time_->fpgaAndSystemTimeIs(Ptp::FpgaAndSystemTime(reading->hardware, reading->system));
   }
}

}  // namespace Ptp4lAgent
