// set, add, del
#include <CLI/CLI.hpp>

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
CLI::App& addWriter(CLI::App& app, Run& run, std::shared_ptr<WriteOptions> const& options,
                    char const* name, Change changeIt) {
   CLI::App& command = *app.add_subcommand(name);
   addClientOptions(command, *options);
   command.add_option("path", options->path)->type_name("PATH")->required();
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
   CLI::App& command = addWriter(app, run, options, "set", [](Place& place, WriteOptions const& o) {
      place.set(o.plainArgs()[0]);
   });
   command.add_option("value", options->args)->type_name("VALUE")->expected(1)->required();
}

void addAdd(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   CLI::App& command = addWriter(app, run, options, "add", [](Place& place, WriteOptions const& o) {
      place.add(o.plainArgs());
   });
   command.add_option("args", options->args)->type_name("ARG");
}

void addDel(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WriteOptions>();
   addWriter(app, run, options, "del", [](Place& place, WriteOptions const&) { place.del(); });
}

}  // namespace Ptpstate
