// A project outside this tree: it uses the installed PTP tree and declares its own module.

#include <iostream>

#include "Garden/Bed.h"
#include "Garden/GatePort.h"
#include "Garden/Plot.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogSession.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace {

class Printer : public Sarn::Observer {
public:
   void onChange(Sarn::Change const& change) override {
      std::cout << "attribute " << change.attributeId << " changed\n";
   }
};

/// Prints what has changed in a mirror, with the type of the entity there.
class MirrorPrinter : public Kiv::Observer {
public:
   void onChange(Kiv::Change const& change) override {
      Kiv::TypeImpl const& type = Kiv::entityOf(change).kivType();
      std::cout << "mirror: " << type.name << '.' << type.field(change.attributeId)->name << ' '
                << change.attributeId << '\n';
   }
};

using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Session;

void carry(Session& from, Session& to) {
   while (from.output().size != 0) {
      auto const piece = from.output();
      to.received(piece.begin, piece.size);
      from.sent(piece.size);
   }
}

/// Mirrors a type derived from one of the library's, and accesses it by its ids.
void derive(Garden::Plot& plot) {
   auto const mirror = Garden::plotFactory("front");
   Hub sourceHub;
   Hub mirrorHub;
   sourceHub.rootIs(Sarn::Ptr<Kiv::NamedEntity>(&plot));
   Session source(sourceHub);
   Session sink(mirrorHub);
   sink.mountIs(mirror);
   for (int round = 0; round != 3; ++round) {
      carry(sink, source);
      carry(source, sink);
   }
   MirrorPrinter printer;
   mirror->observerAdd(printer, Kiv::Scope::subtree);
   Dorn::IntfId const intf("Ethernet1");
   Sarn::Ptr<Ptp::IntfConfig> const base = plot.portIs(intf, true);
   base->logSyncIntervalIs(-3);
   plot.port(intf)->openIs(true);
   carry(source, sink);
   mirror->observerDel(printer, Kiv::Scope::subtree);

   auto const port = mirror->port(intf);
   Kiv::TypeImpl const& type = port->kivType();
   S16 interval = 0;
   bool open = false;
   type.genericIfAttributeOp(&interval, port.get(), type.field(263), 0, nullptr, nullptr);
   type.genericIfAttributeOp(&open, port.get(), type.field(386), 0, nullptr, nullptr);
   std::cout << "a " << type.name << ", which is a " << type.base->name << ": " << interval << ' '
             << open << ' ' << (Kiv::typeByName("Garden::GatePort") == &type) << '\n';
}

}  // namespace

int main() {
   auto const config = Ptp::configFactory("ptp/config");
   Printer printer;
   config->observerAdd(printer, Sarn::Scope::subtree);
   config->priority1Is(100);
   Dorn::IntfId const intf("Ethernet1");
   config->intfConfigIs(intf, true, false)->logSyncIntervalIs(-3);
   config->observerDel(printer, Sarn::Scope::subtree);

   auto const plot = Garden::plotFactory("front");
   auto const bed = plot->bedIs(1, intf);
   bed->cropIs(Garden::Crop::beans);
   std::cout << "bed 1: " << stringValue(bed->crop()) << ", " << bed->litres() << " litres\n";
   try {
      bed->litresIs(81);
   } catch (Kiv::RangeException const& e) {
      std::cout << "refused: " << e.what() << '\n';
   }
   derive(*plot);
   return 0;
}
