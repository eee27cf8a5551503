#include "tools/ptpstate/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "tools/shared/Help.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

constexpr char guard = '\x01';

/// "-3" and "-inf" are values, not options: they are marked so that the parser does not see the
/// sign first.
bool isNegativeNumber(std::string const& argument) {
   return argument.size() > 1 && argument[0] == '-' &&
          ((argument[1] >= '0' && argument[1] <= '9') || argument[1] == '.' ||
           argument.compare(1, std::string::npos, "inf") == 0);
}

}  // namespace

std::string plainArgument(std::string const& argument) {
   return !argument.empty() && argument[0] == guard ? argument.substr(1) : argument;
}

void addCommands(CLI::App& app, Run& run) {
   app.require_subcommand(1);
   addServe(app, run);
   addStatus(app, run);
   addWatch(app, run);
   addTop(app, run);
   addRecord(app, run);
   addReplay(app, run);
   addDump(app, run);
   addGet(app, run);
   addSet(app, run);
   addAdd(app, run);
   addDel(app, run);
   addLoad(app, run);
   addDiff(app, run);
   addTypes(app, run);
   addComplete(app, run);
}

Exit runCommandLine(std::vector<std::string> const& args, std::ostream& out, std::ostream& errors) {
   CLI::App app(
         "Holds, shows and changes the state of a PTP agent over a UNIX socket. One "
         "process serves roots such as the configuration tree. Others mirror them, and a "
         "change made anywhere reaches all of them through the attribute log. Only "
         "'serve --ptp4l-conf' depends on types of the model.\n"
         "\n"
         "'ptpstate COMMAND --help' describes the options of a command and gives examples.",
         "ptpstate");
   Tools::helpLayoutIs(app);
   app.footer(
         "Exit status:\n"
         "  0  done\n"
         "  1  refused: something does not exist or is not allowed; nothing was changed.\n"
         "     For diff: there are differences\n"
         "  2  the command line is wrong. For diff: any error\n"
         "  3  no server, no answer, a lost connection, or the socket cannot be created\n"
         "\n"
         "An error is one line on standard error that begins with the program's name and\n"
         "says what to do.");
   Run run;
   addCommands(app, run);
   std::vector<std::string> reversed;
   for (std::string const& argument : args) {
      reversed.push_back(isNegativeNumber(argument) ? guard + argument : argument);
   }
   std::reverse(reversed.begin(), reversed.end());
   try {
      app.parse(std::move(reversed));
      Exit const status = run();
      out.flush();
      if (!out) {
         throw Failure("the output cannot be written");
      }
      return status;
   } catch (CLI::ParseError const& error) {
      std::string message = error.what();
      std::erase(message, guard);
      auto const commands = app.get_subcommands();
      if (commands.empty() && !args.empty() && !args[0].starts_with("-")) {
         message = "there is no command '" + args[0] + "'";
      } else if (commands.empty() && args.empty()) {
         message = "missing command";
      }
      return Tools::endWith(app, error, out, errors, message);
   } catch (Failure const& error) {
      errors << "ptpstate: " << error.what() << std::endl;
      return error.status();
   }
}

Opened::Opened(ClientOptions const& options, std::string const& text, MountMode mode)
      : client(options.socket, options.patience()) {
   Tools::showWaiting(client);
   path = parsePath(text, client.roots());
   mount = &client.mountIs(path.root, mode);
   client.waitComplete(*mount);
}

}  // namespace Ptpstate
