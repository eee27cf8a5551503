// A consumer of every module, built and linked with the flags from CMake or pkg-config.

#include <iostream>

#include "Acl/Acl.h"
#include "Bridging/Bridging.h"
#include "Brim/Brim.h"
#include "Dorn/Dorn.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogConnection.h"
#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "Kiv/Path.h"
#include "PtpLib/Constants.h"
#include "PtpLib/PtpMib.h"
#include "PtpLib/PtpMpassStatedbTypes.h"
#include "PtpLib/PtpOpenConfig.h"
#include "PtpLib/PtpStatusStatedbTypes.h"
#include "PtpLib/PtpUcastNegConfig.h"
#include "PtpPlatform/PtpConstants.h"
#include "PtpPlatform/PtpDataSetTypes.h"
#include "PtpPlatform/PtpDebugCounterClearList.h"
#include "PtpPlatform/PtpLibStatedbTypes.h"

namespace {

/// Creates an entity of a type that this file does not name.
Sarn::String madeOf(Kiv::TypeImpl const& type) {
   Sarn::String const name = "made";
   std::vector<std::unique_ptr<Kiv::AnyValue>> values;
   std::vector<Kiv::ValueRef> args;
   for (Kiv::AttributeId const id : type.ctorArgs) {
      if (id == Kiv::nameFieldId) {
         args.push_back(&name);
         continue;
      }
      values.push_back(std::make_unique<Kiv::AnyValue>(*type.field(id)->type));
      values.back()->type().support->construct(values.back()->room());
      values.back()->constructed();
      args.push_back(values.back()->ref());
   }
   return type.entity->genericIfConstructFromCtorArgs(args)->kivType().name;
}

}  // namespace

int main() {
   for (auto const* module = Kiv::firstModule(); module != nullptr; module = module->data->next) {
      U32 entities = 0;
      for (U32 i = 0; i != module->typeCount; ++i) {
         Kiv::TypeImpl const& type = *module->data->types[i];
         entities += type.kind == Kiv::TypeKind::entity && madeOf(type) == type.name ? 1 : 0;
      }
      std::cout << module->name() << ": " << module->typeCount << " types, " << entities
                << " entities\n";
   }

   // One item from each module, linked by name.
   std::cout << stringValue(PtpMib::RxTxMode::multicastmix) << ' '
             << stringValue(Ptp::Mpass::Status::active) << ' ' << stringValue(Ptp::SyncTestRole())
             << ' ' << Kiv::strRep(Openconfig::Ptp::ClockQuality()) << '\n'
             << Kiv::strRep(Ptp::PortDSKey(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(2)))
             << '\n'
             << Kiv::strRep(Ptp::UcastNegProfile()) << '\n'
             << Kiv::strRep(Brim::Generation(1, true)) << '\n';
   auto const status = Ptp::statusFactory("ptp");
   std::cout << status->aclStatusServiceIs("acl")->nameString() << '\n'
             << Kiv::entityPath(*status->portDSIs(Ptp::PortDSKey(), Ptp::PortIdentity())) << '\n';

   Kiv::NboAttrLog::Hub hub;
   hub.rootIs(status);
   Kiv::NboAttrLog::Session session(hub);
   return session.closed() ? 1 : 0;
}
