// kivc: compiles a module's declarations (*.kiv) to C++.
#include <exception>
#include <iostream>

#include "Kiv/Printable.h"
#include "Kivc/Driver.h"
#include "tools/cli/Program.h"

int main(int argc, char** argv) {
   Tools::Program program("kivc", "Compiles the declarations of a module to C++.");
   Tools::Command const& command = program.command();
   command.footerIs(
         "Example:\n  kivc -I . --out build/gen --depfile build/Demo.stamp.d Demo/Demo.kiv");
   Kivc::Options options;
   command
         .option("-I", options.roots,
                 "Include root: modules named by 'use' are searched for here and one directory "
                 "below")
         .placeholder("DIR");
   command.option("--out", options.out, "Write C++ below this directory").placeholder("DIR");
   command.option("--manifest", options.manifest, "Write the list of ids").placeholder("FILE");
   command.option("--reference", options.reference, "Write the reference page, in Markdown")
         .placeholder("FILE");
   command
         .option("--depfile", options.depfile,
                 "Write the files read as a rule for make; its target is FILE without '.d'")
         .placeholder("FILE");
   command.option("--headers", options.headers, "Write the list of the C++ headers")
         .placeholder("FILE");
   command
         .option("--parts", options.parts,
                 "Write this many sources, MODULEPart1.cpp and so on, which together include the "
                 "sources of all types")
         .placeholder("COUNT")
         .range(0, 1000);
   command.option("file", options.input, "Module to compile").required().placeholder("FILE.kiv");
   try {
      program.parse(argc, argv);
      return Kivc::run(options, std::cerr);
   } catch (Tools::HelpAsked const& help) {
      if (!(std::cout << help.what()).flush()) {
         std::cerr << "kivc: the output cannot be written\n";
         return 1;
      }
      return 0;
   } catch (Tools::UsageError const& error) {
      std::cerr << "kivc: " << Kiv::printable(error.what()) << "; see 'kivc --help'\n";
      return 2;
   } catch (std::exception const& error) {
      std::cerr << "kivc: internal error: " << Kiv::printable(error.what()) << "\n";
      return 2;
   }
}
