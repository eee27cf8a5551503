// What is one in the whole process must be so for a program that was linked with copies of the
// libraries' data. Prints what is not.

#include <iostream>
#include <set>
#include <string>
#include <string_view>

#include "Kiv/AnyValue.h"
#include "Kiv/Exception.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/Module.h"
#include "PtpLib/PtpStatusStatedbTypes.h"
#include "PtpLib/PtpStatusStatedbTypesRecord.h"
#include "PtpPlatform/PtpDataSetTypes.h"

namespace {

int failures = 0;

void expect(bool holds, std::string_view what) {
   if (!holds) {
      std::cout << what << '\n';
      ++failures;
   }
}

Kiv::TypeImpl const& typeOfField(Kiv::TypeImpl const& type, std::string_view name) {
   return *type.field(name)->type;
}

}  // namespace

int main() {
   // A word that a function of the library writes, and code in the program reads.
   Kiv::HashHelper::hashSeed32Is(7);
   expect(Kiv::HashHelper::hashSeed32() == 7, "the seed of hashes");
   expect(Kiv::Impl::hashSecret != 0, "the secret of hashes");

   auto const config = Ptp::configFactory("ptp/config");
   auto const status = Ptp::statusFactory("ptp/status");
   auto const intf = config->intfConfigIs(Dorn::IntfId("Ethernet1"), true, false);

   // Types of entities, values and enumerations have an address.
   expect(&config->kivType() == &Ptp::Config::kivTypeImpl, "an entity's type");
   expect(&typeOfField(config->kivType(), "intfConfig") == &Ptp::IntfConfig::kivTypeImpl,
          "a member's entity type");
   expect(Kiv::typeByName("Ptp::IntfConfig") == &Ptp::IntfConfig::kivTypeImpl,
          "a type found by its name");
   expect(&typeOfField(Ptp::PortDS::kivTypeImpl, "portDSKey") == &Kiv::typeOf<Ptp::PortDSKey>(),
          "a member's value type");
   expect(&typeOfField(Ptp::PortDS::kivTypeImpl, "portState") == &Kiv::typeOf<Ptp::PortState>(),
          "a member's enumeration");
   expect(Kiv::typeByName("Ptp::PortState") == &Kiv::typeOf<Ptp::PortState>(),
          "an enumeration found by its name");
   Kiv::KivModule const* const module = &_PtpStatusStatedbTypes_298ecaeb_kivModule;
   expect(Kiv::moduleByName("PtpStatusStatedbTypes") == module, "a module found by its name");
   expect(config->kivType().module() == module, "an entity's module");

   // Built-in types, optionals and types without fields are the same by name.
   Kiv::TypeImpl const& domain = typeOfField(Ptp::Config::kivTypeImpl, "domainNumber");
   expect(domain.isA(Kiv::typeOf<U8>()) && Kiv::typeOf<U8>().isA(domain), "a built-in type");
   expect(!domain.isA(Kiv::typeOf<U16>()), "another built-in type");
   U8 const number = 24;
   expect(Kiv::ValueRef(&number).isA(domain), "a value of a built-in type");
   expect(typeOfField(Ptp::IntfConfig::kivTypeImpl, "intf").isA(Kiv::typeOf<Dorn::IntfId>()),
          "a type without fields");

   // A setter called through the library's rows accepts what the program made, and the other way.
   Kiv::FieldDescriptor const& field = *Ptp::Config::kivTypeImpl.field("domainNumber");
   Kiv::AnyValue value(Kiv::typeOf<U8>());
   new (value.room()) U8(number);
   value.constructed();
   Kiv::Entity* const object = config.get();
   expect(config->kivType().genericIfAttributeOp(nullptr, object, &field,
                                                 static_cast<U8>(Kiv::AttributeOp::write), nullptr,
                                                 value.ref()) == Kiv::statusOk &&
                config->domainNumber() == number,
          "a setter of the generic interface");

   // The keys of a collection that the library filled are found by code in the program.
   Ptp::PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(2));
   expect(key.hash(1) == Ptp::PortDSKey::kivTypeImpl.genericIfHash(&key, 1), "the hash of a key");
   expect(config->intfConfig(Dorn::IntfId("Ethernet1")) == intf, "a child made by the library");

   // Both count in the same trackers: of a type, and of collections that both make.
   expect(&Ptp::Config::kivTypeImpl.tracker() == &Ptp::Config::memAllocationTracker_,
          "a type's tracker");
   auto const port = status->portDSIs(key, Ptp::PortIdentity());
   port->peerPathDelayEnq(1);
   Sarn::RQueue<double> delays;
   delays.enq(1);
   port->disabledReasonIs(Ptp::PortDisabledReason(), true);
   Kiv::HashMap2018<Ptp::PortDisabledReason, bool, 0x2CD28219> reasons;
   reasons.insert(Ptp::PortDisabledReason(), true);
   std::set<std::string> names;
   Sarn::AllocTrackRecord::forEach([&](Sarn::AllocTrackRecord const& record) {
      std::string name(record.typeName());
      expect(names.insert(name).second, "the tracker of " + name);
   });
   expect(names.contains("Ptp::Config"), "no trackers found");

   // Exceptions and entities have one type.
   try {
      intf->logSyncIntervalIs(127);
      expect(false, "no exception");
   } catch (Kiv::RangeException const&) {
   }
   Kiv::Entity* const entity = intf.get();
   expect(dynamic_cast<Ptp::IntfConfig*>(entity) == intf.get(), "an entity's class");
   return failures;
}
