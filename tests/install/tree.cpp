// One file, compiled with what pkg-config says.

#include <cstdio>

#include "Kiv/Exception.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

int main() {
   auto const config = Ptp::configFactory("ptp/config");
   config->priority1Is(1);
   try {
      config->driftLimitIs(0xffffffff);
   } catch (Kiv::RangeException const& e) {
      std::printf("%u, and refused: %s\n", config->priority1(), e.what());
      return 0;
   }
   return 1;
}
