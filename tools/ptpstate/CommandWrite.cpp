// set, add, del
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/Place.h"

namespace Ptpstate {
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
CLI::App& addWriter(CLI::App& app, Run& run, std::shared_ptr<WriteOptions> const& options,
                    char const* name, char const* description, Change changeIt) {
   CLI::App& command = *app.add_subcommand(name, description);
   addClientOptions(command, *options);
   command.add_option("path", options->path, "What to change")->type_name("PATH")->required();
   command.callback([options, &run, changeIt] {
      run = [options, changeIt] {
         return change(*options, [&](Place& place) { changeIt(place, *options); });
      };
   });
   return command;
}

}  // namespace

void addSet(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   CLI::App& command =
         addWriter(app, run, options, "set", "Set a value, or an element of a map",
                   [](Place& place, WriteOptions const& o) { place.set(o.plainArgs()[0]); });
   command.add_option("value", options->args, "The value, in its text form")
         ->type_name("VALUE")
         ->expected(1)
         ->required();
   command.footer(
         "The value is checked before anything is sent; one out of range is refused.\n\n"
         "Example:\n"
         "  ptpstate set --socket /tmp/ptp ptp/config.priority1 100\n"
         "  ptpstate set --socket /tmp/ptp ptp/config.intfConfig[Ethernet1].logSyncInterval -4\n"
         "  ptpstate set --socket /tmp/ptp 'ptp/config.missingSequenceThresholds[sync]' 5");
}

void addAdd(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   CLI::App& command = addWriter(
         app, run, options, "add", "Create a child, insert an element, or append to a queue",
         [](Place& place, WriteOptions const& o) { place.add(o.plainArgs()); });
   command
         .add_option("args", options->args,
                     "What a child is made with besides its key, in order; an element's value")
         ->type_name("ARG");
   command.footer(
         "Without the arguments it needs, the message says which they are.\n\n"
         "Example:\n"
         "  ptpstate add --socket /tmp/ptp ptp/config.intfConfig[Ethernet1] true false\n"
         "  ptpstate add --socket /tmp/ptp ptp/config.intfConfig[Ethernet1].vlanConfig[100]");
}

void addDel(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   CLI::App& command =
         addWriter(app, run, options, "del",
                   "Remove a child, an element, a queue's front, or all of a collection",
                   [](Place& place, WriteOptions const&) { place.del(); });
   command.footer(
         "Example:\n"
         "  ptpstate del --socket /tmp/ptp ptp/config.intfConfig[Ethernet1]");
}

}  // namespace Ptpstate
