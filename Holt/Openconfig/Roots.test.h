// Roots of the module `PtpOpenConfig` for tests.
#pragma once

#include <array>
#include <limits>
#include <random>
#include <sstream>
#include <string>

#include "Holt/State/Dump.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDS.h"

namespace Holt::OpenconfigTesting {

using Openconfig::Ptp::Instance;
using Openconfig::Ptp::TransparentClockDefaultDS;

/// As text, to compare roots and to show what differs.
inline std::string dumped(Kiv::Entity const& root) {
   std::ostringstream text;
   Dump(text).entity(root, "root");
   return text.str();
}

/// An instance as an agent fills it.
inline Sarn::Ptr<Instance> usualInstance(std::string const& name = "ptp4l/instance", U32 id = 0) {
   auto instance = Openconfig::Ptp::instanceFactory(Sarn::String(name));
   instance->idIs(id);
   auto const set = instance->defaultDsIs();
   set->clockQualityIs(
         Openconfig::Ptp::ClockQuality(Openconfig::Ptp::ClockQualityState(248, 0xfe, 0xffff)));
   auto const state = set->stateIs();
   state->instanceTypeIs(Openconfig::Ptp::InstanceType::boundary);
   state->clockIdentityIs("00:1b:19:ff:fe:01:02:03");
   state->domainNumberIs(24);
   state->numberPortsIs(4);
   state->priority1Is(128);
   state->priority2Is(127);
   state->domainProfileIs(Ptp::PtpProfile::g8275_1);
   auto const current = instance->currentDsIs()->stateIs();
   current->stepsRemovedIs(1);
   current->offsetFromMasterIs(-3);
   current->meanPathDelayIs(1250);
   auto const time = instance->timePropertiesDsIs()->stateIs();
   time->ptpTimescaleIs(true);
   time->currentUtcOffsetValidIs(true);
   time->currentUtcOffsetIs(37);
   return instance;
}

/// Makes roots with values of all kinds, bounds and odd texts included, and with containers absent.
class RandomRoots {
public:
   explicit RandomRoots(U32 seed) : random_(seed) {}

   Sarn::Ptr<Instance> instance(U32 id) {
      auto instance = Openconfig::Ptp::instanceFactory("any");
      instance->idIs(id);
      if (often()) {
         auto const set = instance->defaultDsIs();
         set->clockQualityIs(Openconfig::Ptp::ClockQuality(Openconfig::Ptp::ClockQualityState(
               one<U8>({6, 7, 248, 255}), one<U8>({0x17, 0x21, 0x31, 0xfe}), number<U16>())));
         if (often()) {
            auto const state = set->stateIs();
            state->instanceTypeIs(static_cast<Openconfig::Ptp::InstanceType>(random_() % 4));
            state->clockIdentityIs(identity());
            state->domainNumberIs(number<U8>());
            state->numberPortsIs(number<U16>());
            state->priority1Is(number<U8>());
            state->priority2Is(number<U8>());
            state->domainProfileIs(static_cast<Ptp::PtpProfile>(random_() % 5));
         }
      }
      if (often()) {
         auto const set = instance->currentDsIs();
         if (often()) {
            auto const state = set->stateIs();
            state->stepsRemovedIs(number<U16>());
            state->offsetFromMasterIs(interval());
            state->meanPathDelayIs(interval());
         }
      }
      if (often()) {
         auto const set = instance->timePropertiesDsIs();
         if (often()) {
            auto const state = set->stateIs();
            state->ptpTimescaleIs(random_() % 2 == 0);
            state->currentUtcOffsetValidIs(random_() % 2 == 0);
            state->currentUtcOffsetIs(number<S16>());
         }
      }
      return instance;
   }

   Sarn::Ptr<TransparentClockDefaultDS> clock() {
      auto clock = Openconfig::Ptp::transparentClockDefaultDSFactory("any");
      if (often()) {
         auto const state = clock->stateIs();
         state->primaryDomainIs(number<U8>());
         state->twoStepFlagIs(random_() % 2 == 0);
         state->clockIdentityIs(identity());
         state->numberPortsIs(number<U16>());
      }
      return clock;
   }

   template <class T>
   T number() {
      switch (random_() % 4) {
         case 0:
            return std::numeric_limits<T>::min();
         case 1:
            return std::numeric_limits<T>::max();
         default:
            return static_cast<T>(random_());
      }
   }

private:
   bool often() { return random_() % 6 != 0; }

   /// One of these, or any.
   template <class T>
   T one(std::array<T, 4> const& usual) {
      return random_() % 2 == 0 ? usual[random_() % 4] : number<T>();
   }

   S64 interval() {
      constexpr S64 most = S64{1} << 47;
      std::array<S64, 8> const edges{0, -1, most - 1, most, most + 1, -most, -most - 1, -most + 1};
      auto const any = static_cast<S64>(U64{random_()} << 32 | random_());
      switch (random_() % 4) {
         case 0:
            return number<S64>();
         case 1:
            return edges[random_() % edges.size()];
         case 2:
            return any;
         default:
            return any % 1000000;
      }
   }

   Sarn::String identity() {
      std::array<char const*, 10> const texts{"",
                                              "00:1b:19:ff:fe:01:02:03",
                                              "ff:ff:ff:ff:ff:ff:ff:ff",
                                              "00-1B-19-FF-FE-01-02-03",
                                              "001b19.fffe.010203",
                                              " 00:1b:19:ff:fe:01:02:03",
                                              "grandmaster",
                                              "\"quoted\"",
                                              "caf\xc3\xa9 \xe2\x80\xa8 \x01\n",
                                              "\xff\xfe not UTF-8"};
      return texts[random_() % texts.size()];
   }

   std::mt19937 random_;
};

}  // namespace Holt::OpenconfigTesting
