// add, del

#include "Holt/State/Place.h"
#include "tools/ptpstate/Commands.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct WriteOptions : ClientOptions {
   std::string path;
   std::vector<std::string> args;

   std::vector<Sarn::String> plainArgs() const {
      std::vector<Sarn::String> plain;
      for (std::string const& argument : args) {
         plain.push_back(plainArgument(argument));
      }
      return plain;
   }
};

/// Mirrors the root as a writer, changes the mirror, and waits until the server has the change.
template <class Change>
Exit change(WriteOptions const& options, Change&& changeIt) {
   Opened opened(options, options.path, MountMode::writer);
   Place place(Sarn::Ptr<Kiv::Entity>(&opened.mount->root()), opened.path.root.name,
               opened.path.steps);
   changeIt(place);
   opened.client.sync();
   return Exit::ok;
}

/// A command with a path, whose callback runs `changeIt(place, options)`.
template <class Change>
Command addWriter(Command const& program, Run& run, std::shared_ptr<WriteOptions> const& options,
                  char const* name, char const* description, char const* examples,
                  Change changeIt) {
   Command const command = program.command(name, description);
   command.footerIs(examples);
   addClientOptions(command, *options);
   command.option("path", options->path).placeholder("PATH").required();
   command.onChosen([options, &run, changeIt] {
      run = [options, changeIt] {
         return change(*options, [&](Place& place) { changeIt(place, *options); });
      };
   });
   return command;
}

}  // namespace

void addAdd(Command const& program, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   Command const command = addWriter(
         program, run, options, "add",
         "Creates a child, inserts an element, or appends to a queue. A child takes the "
         "arguments of its constructor, in order and without its key; if they are missing, "
         "the message lists them.\n"
         "\n"
         "An existing child gets the given values, unless one of them is constant.",
         "Examples:\n"
         "  $ ptpstate add --socket /tmp/ptp ptp/config.intfConfig[Ethernet1] true false\n"
         "  $ ptpstate add --socket /tmp/ptp ptp/config.intfConfig[Ethernet1].vlanConfig[100]",
         [](Place& place, WriteOptions const& o) { place.add(o.plainArgs()); });
   command.option("args", options->args).placeholder("ARG");
}

void addDel(Command const& program, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   addWriter(program, run, options, "del",
             "Removes a child with all below it, an element, or the front of a queue. For a "
             "whole collection or queue, removes all elements.",
             "Examples:\n"
             "  $ ptpstate del --socket /tmp/ptp ptp/config.intfConfig[Ethernet1]",
             [](Place& place, WriteOptions const&) { place.del(); });
}

}  // namespace Ptpstate
