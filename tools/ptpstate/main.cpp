// ptpstate: holds, shows and changes the state of a PTP agent over a UNIX socket.
#include <exception>
#include <iostream>

#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"

int main(int argc, char** argv) {
   try {
      return static_cast<int>(
            Ptpstate::runCommandLine({argv + 1, argv + argc}, std::cout, std::cerr));
   } catch (std::exception const& error) {
      std::cerr << "ptpstate: internal error: " << Kiv::printable(error.what()) << std::endl;
      return 4;
   }
}
