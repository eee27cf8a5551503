// kivc: compiles a module's declarations (*.kiv) to C++, and compares two versions of them.
#include <exception>
#include <iostream>
#include <string_view>

#include "Kiv/Printable.h"
#include "Kivc/DiffRun.h"
#include "Kivc/Driver.h"
#include "tools/cli/Program.h"

namespace {

int compile(int argc, char** argv) {
   Tools::Program program("kivc",
                          "Compiles the declarations of a module to C++. 'kivc diff' compares two "
                          "versions of them.");
   Tools::Command const& command = program.command();
   command.footerIs(
         "Examples:\n  kivc -I . --out build/gen --depfile build/Demo.stamp.d Demo/Demo.kiv\n"
         "  kivc diff old/Demo/Demo.kiv Demo/Demo.kiv");
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
   program.parse(argc, argv);
   return Kivc::run(options, std::cerr);
}

int diff(int argc, char** argv) {
   Tools::Program program(
         "kivc diff",
         "Compares two versions of modules, of which peers or stored states may have either: two "
         "files with the modules that they use, or all modules of two directories and of those "
         "directly below.\n"
         "\n"
         "Prints one line for each difference. Compatible ones are what was added at the end or in "
         "a "
         "reserved place, types and enumerators that were added, wider ranges, and other defaults. "
         "A module that differs in more than its documentation needs another hash.\n"
         "\n"
         "Exit status: 0 if nothing differs or all differences are compatible, 1 if a file cannot "
         "be "
         "read or has errors, 2 for a wrong command line, 3 if a difference is incompatible, 4 if "
         "a "
         "module has changed compatibly but kept its hash.");
   Tools::Command const& command = program.command();
   command.footerIs(
         "Examples:\n"
         "  kivc diff old/Demo/Demo.kiv Demo/Demo.kiv\n"
         "  mkdir old && git archive origin/main | tar -x -C old && kivc diff old .");
   Kivc::DiffOptions options;
   command
         .option("-I", options.roots,
                 "Where modules are searched for that neither version contains, as for kivc")
         .placeholder("DIR");
   command.option("old", options.before, "The older version").required().placeholder("OLD");
   command.option("new", options.after, "The newer version").required().placeholder("NEW");
   program.parse(argc, argv);
   auto const status = Kivc::diff(options, std::cout, std::cerr);
   if (!std::cout.flush()) {
      std::cerr << "kivc: the output cannot be written\n";
      return static_cast<int>(Kivc::DiffExit::unreadable);
   }
   return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
   bool const isDiff = argc > 1 && std::string_view(argv[1]) == "diff";
   try {
      return isDiff ? diff(argc - 1, argv + 1) : compile(argc, argv);
   } catch (Tools::HelpAsked const& help) {
      if (!(std::cout << help.what()).flush()) {
         std::cerr << "kivc: the output cannot be written\n";
         return 1;
      }
      return 0;
   } catch (Tools::UsageError const& error) {
      std::cerr << "kivc: " << Kiv::printable(error.what()) << "; see 'kivc"
                << (isDiff ? " diff" : "") << " --help'\n";
      return 2;
   } catch (std::exception const& error) {
      std::cerr << "kivc: internal error: " << Kiv::printable(error.what()) << "\n";
      return 2;
   }
}
