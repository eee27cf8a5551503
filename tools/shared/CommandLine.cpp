#include "tools/shared/CommandLine.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "Holt/Failure.h"

namespace Tools {

void addSocketOption(CLI::App& command, std::string& socket, bool required) {
   command
         .add_option("--socket", socket,
                     "The server's socket; by default what the environment variable "
                     "PTPSTATE_SOCKET says")
         ->type_name("PATH")
         ->envname("PTPSTATE_SOCKET")
         ->required(required);
}

void addClientOptions(CLI::App& command, ClientOptions& options, bool required) {
   addSocketOption(command, options.socket, required);
   command
         .add_option("--timeout", options.timeout,
                     "How long to wait for the server in all, connecting included; 10 by default. "
                     "Commands that go on wait so long each time they wait for an answer")
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 1e6));
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
