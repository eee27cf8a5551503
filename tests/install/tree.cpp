// One file, compiled with what pkg-config says; it names no type of the library to the linker.

#include <cstdio>

#include "Kiv/Module.h"

int main() {
   bool const found = Kiv::typeByName("Ptp::Config") != nullptr;
   std::puts(found ? "Ptp::Config is there" : "Ptp::Config is missing");
   return found ? 0 : 1;
}
