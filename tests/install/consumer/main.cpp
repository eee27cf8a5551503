// A project outside this tree: it uses the installed PTP tree and declares a module of its own.

#include <iostream>

#include "Garden/Bed.h"
#include "Garden/Plot.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace {

class Printer : public Sarn::Observer {
public:
   void onChange(Sarn::Change const& change) override {
      std::cout << "attribute " << change.attributeId << " changed\n";
   }
};

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
   return 0;
}
