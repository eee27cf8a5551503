#include "tools/ptp4lAgent/InstanceFill.h"

namespace Ptp4lAgent {

namespace {

using Openconfig::Ptp::InstanceType;

InstanceType instanceTypeOf(Ptp::PtpMode mode) {
   switch (mode) {
      case Ptp::PtpMode::boundary:
      case Ptp::PtpMode::oneStepBoundary:
         return InstanceType::boundary;
      case Ptp::PtpMode::e2eTransparent:
      case Ptp::PtpMode::oneStepE2eTransparent:
         return InstanceType::transparentE2E;
      case Ptp::PtpMode::p2pTransparent:
         return InstanceType::transparentP2P;
      case Ptp::PtpMode::ordinary:
      case Ptp::PtpMode::ptpGeneralized:
      case Ptp::PtpMode::disabled:
         break;
   }
   return InstanceType::ordinary;
}

void fillDefault(Openconfig::Ptp::Instance& instance, Ptp::DefaultDS const& from) {
   auto const set = instance.defaultDsIs();
   auto const state = set->stateIs();
   state->instanceTypeIs(instanceTypeOf(from.ptpMode()));
   state->clockIdentityIs(Kiv::strRep(from.clockIdentity()));
   state->domainNumberIs(from.domainNumber());
   state->numberPortsIs(static_cast<U16>(from.numberPorts()));
   state->priority1Is(from.priority1());
   state->priority2Is(from.priority2());
   state->domainProfileIs(from.ptpMode() == Ptp::PtpMode::ptpGeneralized
                                ? Ptp::PtpProfile::gptp
                                : Ptp::PtpProfile::ptpDefault);
   Ptp::ClockQuality const& quality = from.clockQuality();
   set->clockQualityIs(Openconfig::Ptp::ClockQuality(
         Openconfig::Ptp::ClockQualityState(quality.clockClass(), quality.clockAccuracy(),
                                            quality.offsetScaledLogVariance().value())));
}

}  // namespace

void fillInstance(Openconfig::Ptp::Instance& instance, Ptp::Status const& status) {
   if (auto const& from = status.defaultDS()) {
      fillDefault(instance, *from);
   } else {
      instance.defaultDsDel();
   }
   if (auto const& from = status.currentDS()) {
      auto const state = instance.currentDsIs()->stateIs();
      state->stepsRemovedIs(from->stepsRemoved().value());
      state->offsetFromMasterIs(from->offsetFromMaster());
      state->meanPathDelayIs(from->meanPathDelay());
   } else {
      instance.currentDsDel();
   }
   if (auto const& from = status.timePropertiesDS()) {
      auto const state = instance.timePropertiesDsIs()->stateIs();
      state->ptpTimescaleIs(from->ptpTimescale());
      state->currentUtcOffsetValidIs(from->currentUtcOffsetValid());
      state->currentUtcOffsetIs(static_cast<S16>(from->currentUtcOffset().value()));
   } else {
      instance.timePropertiesDsDel();
   }
}

}  // namespace Ptp4lAgent
