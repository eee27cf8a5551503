#include "tools/ptpstate/Commands.h"

#include <algorithm>
#include <iostream>

#include "Holt/State/Match.h"
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

/// Whether the user names a fleet for a command that does not read one.
bool asksForFleet(std::vector<std::string> const& args, Tools::Program const& program) {
   auto const isFleet = [](std::string const& word) {
      return word == "--fleet" || word.starts_with("--fleet=");
   };
   if (std::none_of(args.begin(), args.end(), isFleet)) {
      return false;
   }
   for (Command const& each : program.command().commands()) {
      if ("ptpstate " + each.name() == program.chosen()) {
         std::vector<Option> const options = each.options();
         return std::none_of(options.begin(), options.end(),
                             [](Option const& option) { return option.isNamed("--fleet"); });
      }
   }
   return false;
}

}  // namespace

std::string plainArgument(std::string const& argument) {
   return !argument.empty() && argument[0] == guard ? argument.substr(1) : argument;
}

void addCommands(Command const& program, Run& run) {
   program.requireCommand();
   addServe(program, run);
   addStatus(program, run);
   addWatch(program, run);
   addTop(program, run);
   addRecord(program, run);
   addReplay(program, run);
   addPlot(program, run);
   addDump(program, run);
   addGet(program, run);
   addSet(program, run);
   addWait(program, run);
   addAdd(program, run);
   addDel(program, run);
   addLoad(program, run);
   addDiff(program, run);
   addDigest(program, run);
   addExport(program, run);
   addFleet(program, run);
   addTypes(program, run);
   addComplete(program, run);
}

Exit runCommandLine(std::vector<std::string> const& args, std::ostream& out, std::ostream& errors) {
   Tools::Program program(
         "ptpstate",
         "Holds, shows and changes the state of a PTP agent over a UNIX socket. One "
         "process serves roots such as the configuration tree. Others mirror them, and a "
         "change made anywhere reaches all of them through the attribute log. Only "
         "'serve --ptp4l-conf', 'export', 'load --openconfig' and the first columns of 'top' "
         "depend on types of the model.\n"
         "\n"
         "'ptpstate help COMMAND' describes the options of a command and gives examples.");
   program.command().footerIs(
         "Exit status:\n"
         "  0  done\n"
         "  1  refused: something does not exist or is not allowed; nothing was changed.\n"
         "     For diff: there are differences. For wait: the time is over\n"
         "  2  the command line is wrong. For diff: any error\n"
         "  3  no server, no answer, a lost connection, or the socket cannot be created\n"
         "  5  the fleet has no such switch\n"
         "\n"
         "An error is one line on standard error that begins with the program's name and\n"
         "says what to do.");
   Run run;
   addCommands(program.command(), run);
   std::vector<std::string> guarded;
   for (std::string const& argument : args) {
      guarded.push_back(isNegativeNumber(argument) ? guard + argument : argument);
   }
   try {
      Exit status = Exit::ok;
      try {
         program.parse(guarded);
         status = run();
      } catch (Tools::HelpAsked const& help) {
         out << help.what();
      }
      Tools::requireWritten(out);
      return status;
   } catch (Tools::UsageError const& error) {
      std::string message = error.what();
      std::erase(message, guard);
      if (asksForFleet(args, program)) {
         message =
               "a fleet can only be read, with get, dump, watch, top, diff and fleet; connect "
               "to the switch's own server with --socket";
      }
      return Tools::refuse(program, message, errors);
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

OpenedPlaces::OpenedPlaces(RootSource& state, std::vector<std::string> const& texts)
      : single_(texts.size() == 1) {
   std::vector<OfferedRoot> const offered = state.roots();
   for (std::string const& text : texts) {
      Path const path = parsePath(plainArgument(text), offered);
      Sarn::Ptr<Kiv::Entity> const root = state.mirror(path.root);
      state.waitComplete();
      bool const pattern = isPattern(path);
      single_ = single_ && !pattern;
      for (Path const& match : matchesOf(root, path)) {
         Place place(root, path.root.name, match.steps);
         // An absent child is nothing to show, but no error either.
         if (!pattern || place.exists()) {
            if (!place.isCollection() && place.entity() == nullptr) {
               place.value();  // throws if there is none
            }
            places_.emplace_back(match, std::move(place));
         }
      }
   }
}

}  // namespace Ptpstate
