#include "tools/shared/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "Kiv/Printable.h"

namespace Tools {

void addSocketOption(CLI::App& command, std::string& socket, bool required) {
   command
         .add_option("--socket", socket,
                     "The server's socket; by default the value of the environment variable "
                     "PTPSTATE_SOCKET")
         ->type_name("PATH")
         ->envname("PTPSTATE_SOCKET")
         ->required(required);
}

void addClientOptions(CLI::App& command, ClientOptions& options, bool required) {
   addSocketOption(command, options.socket, required);
   command
         .add_option("--timeout", options.timeout,
                     "Total time to wait for the server, including connecting; 10 by default. "
                     "Commands that keep running wait this long for each answer")
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 1e6));
}

Holt::Exit endWith(CLI::App const& app, CLI::ParseError const& error, std::ostream& out,
                   std::ostream& errors, std::string const& message) {
   if (error.get_exit_code() == 0) {
      app.exit(error, out, errors);  // help was asked for
      return Holt::Exit::ok;
   }
   auto const commands = app.get_subcommands();
   errors << app.get_name() << ": " << Kiv::printable(message.empty() ? error.what() : message)
          << "; see '" << app.get_name() << " "
          << (commands.empty() ? "" : commands[0]->get_name() + " ") << "--help'" << std::endl;
   return Holt::Exit::usage;
}

void writeFile(std::string const& path, std::function<void(std::ostream&)> const& write) {
   if (path == "-") {
      write(std::cout);
      std::cout.flush();
      return;
   }
   std::ofstream file(path, std::ios::binary | std::ios::trunc);
   if (file) {
      write(file);
      file.close();
   }
   if (!file) {
      throw Holt::Failure(path + ": cannot be written");
   }
}

}  // namespace Tools
