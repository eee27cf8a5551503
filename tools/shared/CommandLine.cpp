#include "tools/shared/CommandLine.h"

#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Kiv/Printable.h"
#include "tools/shared/Socket.h"

namespace Tools {

namespace {

/// "found no server at A or B; ..."
std::string noServerText() {
   std::string places;
   for (std::string const& path : usualSockets()) {
      places += (places.empty() ? "" : " or ") + path;
   }
   return "found no server at " + places +
          "; name its socket with --socket or in the environment variable PTPSTATE_SOCKET";
}

/// Parses the command line and calls `run`, or prints the help that was asked for.
void runOrHelp(Program& program, int argc, char const* const* argv,
               std::function<void()> const& run) {
   try {
      program.parse(argc, argv);
      run();
   } catch (HelpAsked const& help) {
      std::cout << help.what();
   }
   requireWritten(std::cout);
}

}  // namespace

void addSocketOption(Command const& command, std::string& socket, bool required) {
   socket = usualSocketOfServer();
   command
         .option("--socket", socket,
                 "The server's socket; by default the value of the environment variable "
                 "PTPSTATE_SOCKET, $XDG_RUNTIME_DIR/ptpstate.sock or /run/ptpstate.sock")
         .placeholder("PATH")
         .environment("PTPSTATE_SOCKET")
         .required(required && socket.empty());
}

void addListenOption(Command const& command, std::string& socket) {
   socket = usualSocketToServe();
   command
         .option("--socket", socket,
                 "The socket to listen at; by default the value of the environment variable "
                 "PTPSTATE_SOCKET, $XDG_RUNTIME_DIR/ptpstate.sock or /run/ptpstate.sock")
         .placeholder("PATH")
         .environment("PTPSTATE_SOCKET");
}

void addClientOptions(Command const& command, ClientOptions& options, bool required) {
   addSocketOption(command, options.socket, required);
   command
         .option("--timeout", options.timeout,
                 "Total time to wait for the server, including connecting; 10 by default. "
                 "Commands that keep running wait this long for each answer")
         .placeholder("SECONDS")
         .range(0.001, 1e6);
}

std::string fileOf(char const* option, std::string const& path) {
   if (path.empty()) {
      return {};
   }
   std::ifstream file(path, std::ios::binary);
   std::ostringstream text;
   if (!(text << file.rdbuf())) {
      throw Holt::Failure(std::string(option) + " " + path + ": cannot be read, or is empty");
   }
   return text.str();
}

Holt::Exit refuse(Program const& program, std::string const& message, std::ostream& errors) {
   errors << program.command().name() << ": ";
   if (message == "--socket is required") {
      errors << Kiv::printable(noServerText()) << std::endl;
      return Holt::Exit::connection;
   }
   errors << Kiv::printable(message) << "; see '" << program.chosen() << " --help'" << std::endl;
   return Holt::Exit::usage;
}

void requireWritten(std::ostream& out) {
   if (!out.flush()) {
      throw Holt::Failure("the output cannot be written");
   }
}

int runProgram(Program& program, int argc, char const* const* argv,
               std::function<void()> const& run) {
   std::string const name = program.command().name() + ": ";
   try {
      runOrHelp(program, argc, argv, run);
      return 0;
   } catch (UsageError const& error) {
      return static_cast<int>(refuse(program, error.what(), std::cerr));
   } catch (Holt::Failure const& error) {
      std::cerr << name << error.what() << std::endl;
      return static_cast<int>(error.status());
   } catch (std::exception const& error) {
      std::cerr << name << "internal error: " << Kiv::printable(error.what()) << std::endl;
      return 4;
   }
}

}  // namespace Tools
