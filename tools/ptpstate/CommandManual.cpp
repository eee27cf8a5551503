// manual: prints the man page, for `./dev docs`. It is not shown among the commands.
#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/Manual.h"

namespace Ptpstate {

using namespace Holt;

void addManual(CLI::App& app, Run& run) {
   CLI::App& command = *app.add_subcommand("manual");
   command.group("");
   command.callback([&run] {
      run = [] {
         std::cout << manPage();
         return Exit::ok;
      };
   });
}

}  // namespace Ptpstate
