// kivc: compiles a module's declarations (*.kiv) to C++.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "Kiv/Printable.h"
#include "Kivc/Driver.h"

int main(int argc, char** argv) {
   CLI::App app{"Compiles the declarations of a module to C++."};
   app.footer("Example:\n  kivc -I . --out build/gen --depfile build/Demo.stamp.d Demo/Demo.kiv");
   Kivc::Options options;
   app.add_option(
            "-I", options.roots,
            "Include root: modules named by 'use' are searched for here and one directory below")
         ->type_name("DIR")
         ->allow_extra_args(false);
   app.add_option("--out", options.out, "Write C++ below this directory")->type_name("DIR");
   app.add_option("--manifest", options.manifest, "Write the list of ids")->type_name("FILE");
   app.add_option("--reference", options.reference, "Write the reference page, in Markdown")
         ->type_name("FILE");
   app.add_option("--depfile", options.depfile,
                  "Write the files read as a rule for make; its target is FILE without '.d'")
         ->type_name("FILE");
   app.add_option("--headers", options.headers, "Write the list of the C++ headers")
         ->type_name("FILE");
   app.add_option("--parts", options.parts,
                  "Write this many sources, MODULEPart1.cpp and so on, which together include the "
                  "sources of all types")
         ->type_name("COUNT")
         ->check(CLI::Range(0, 1000));
   app.add_option("file", options.input, "Module to compile")->required()->type_name("FILE.kiv");
   try {
      app.parse(argc, argv);
      return Kivc::run(options, std::cerr);
   } catch (CLI::ParseError const& error) {
      if (error.get_exit_code() == 0) {
         return app.exit(error);  // help was asked for
      }
      std::cerr << "kivc: " << Kiv::printable(error.what()) << "; see 'kivc --help'\n";
      return 2;
   } catch (std::exception const& error) {
      std::cerr << "kivc: internal error: " << Kiv::printable(error.what()) << "\n";
      return 2;
   }
}
