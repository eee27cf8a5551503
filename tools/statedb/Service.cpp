#include "tools/statedb/Service.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/StopSignals.h"
#include "Holt/Times.h"
#include "Kiv/Module.h"
#include "tools/cli/Program.h"
#include "tools/shared/Readiness.h"
#include "tools/statedb/DatabaseFile.h"
#include "tools/statedb/Log.h"
#include "tools/statedb/Modules.h"
#include "tools/statedb/Store.h"

namespace Statedb {

using Holt::Failure;
using Root = Sarn::Ptr<Kiv::NamedEntity>;

namespace {

std::string nameOf(Kiv::NamedEntity const& root) {
   return std::string(root.kivType().name) + "=" + root.nameString();
}

std::string counted(std::size_t count, std::string const& what) {
   return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// Refuses a name in --keep that is no root's.
void checkKept(ServiceOptions const& options, std::vector<Root> const& roots) {
   for (std::string const& name : options.keep) {
      bool const known = std::any_of(roots.begin(), roots.end(), [&name](Root const& root) {
         return name == root->nameString() || name == nameOf(*root);
      });
      if (!known) {
         throw Failure("--keep " + name + ": there is no such root; add --root TYPE=" + name);
      }
   }
}

class Service {
public:
   Service(ServiceOptions const& options, Holt::LogOutput& output)
         : options_(options), output_(output), log_(output, Tools::outputIsJournal()) {}

   void run();

private:
   bool isKept(Kiv::NamedEntity const& root, std::vector<StoredRoot> const& stored) const;
   void makeRoots();
   void restoreRoot(Root const& root);
   void loadInto(std::vector<Root> const& fresh, Holt::StateDoc& loaded);
   void onFailure(std::string const& failure, Tools::Readiness& readiness);
   void serve();

   ServiceOptions const& options_;
   Holt::LogOutput& output_;
   Log log_;
   std::unique_ptr<DatabaseFile> file_;
   std::vector<Root> roots_;
   /// The numbers of those that are kept, else 0.
   std::vector<S64> numbers_;
   /// When what was restored last changed, in nanoseconds since 1970; else 0.
   std::vector<U64> changed_;
   std::size_t entities_ = 0;
   std::size_t values_ = 0;
   std::size_t kept_ = 0;
};

/// Of a time as the database has it; 0 if it is none.
U64 momentOf(std::string const& universal) {
   std::tm parts{};
   bool const read = ::strptime(universal.c_str(), "%Y-%m-%dT%H:%M:%S", &parts) != nullptr;
   return read ? static_cast<U64>(::timegm(&parts)) * 1'000'000'000 : 0;
}

bool Service::isKept(Kiv::NamedEntity const& root, std::vector<StoredRoot> const& stored) const {
   bool const asked = std::any_of(
         options_.keep.begin(), options_.keep.end(),
         [&](auto const& name) { return name == root.nameString() || name == nameOf(root); });
   return asked || isConfiguration(root.kivType()) ||
          std::any_of(stored.begin(), stored.end(), [&root](StoredRoot const& each) {
             return each.type == root.kivType().name && each.name == root.nameString();
          });
}

/// Those of the database, and those that the options name.
void Service::makeRoots() {
   Holt::StateDoc loaded = Tools::readLoad(options_, "statedb");
   std::vector<StoredRoot> const stored = file_->database().roots();
   for (StoredRoot const& each : stored) {
      if (Kiv::typeByName(each.type) != nullptr) {
         roots_.push_back(Holt::newRoot(each.type, each.name));
      } else {
         log_.warning(each.type + "=" + each.name + ": kept, but not served: there is no type " +
                      each.type + "; load its library with --module");
      }
   }
   std::vector<Root> fresh;
   if (!options_.roots.empty() || !loaded.places.empty() || roots_.empty()) {
      for (Root const& root : Tools::rootsOf(options_, loaded)) {
         bool const isStored = std::any_of(roots_.begin(), roots_.end(), [&](Root const& other) {
            return nameOf(*root) == nameOf(*other);
         });
         if (!isStored) {
            fresh.push_back(root);
         }
      }
   }
   loadInto(fresh, loaded);
   roots_.insert(roots_.end(), fresh.begin(), fresh.end());
   checkKept(options_, roots_);
   for (Root const& root : roots_) {
      numbers_.push_back(0);
      changed_.push_back(0);
      if (isKept(*root, stored)) {
         restoreRoot(root);
      }
   }
}

/// What is loaded is how a root begins: it does not undo what was kept since.
void Service::loadInto(std::vector<Root> const& fresh, Holt::StateDoc& loaded) {
   auto const isFresh = [&fresh](std::string const& type, std::string const* name) {
      return std::any_of(fresh.begin(), fresh.end(), [&](Root const& root) {
         return root->kivType().name == type && (name == nullptr || root->nameString() == *name);
      });
   };
   std::erase_if(loaded.places, [&](Holt::DocPlace const& place) {
      Holt::OfferedRoot const& of = place.path.root;
      bool const kept = !isFresh(of.type, &of.name);
      if (kept) {
         log_.info(options_.load + ": " + of.type + "=" + of.name +
                   " is not loaded, since the database has it");
      }
      return kept;
   });
   if (!loaded.places.empty()) {
      Tools::loadState(options_, loaded, fresh, output_, "statedb");
   }
   bool const hasConfig = std::any_of(roots_.begin(), roots_.end(), [](Root const& root) {
      return std::string_view(root->kivType().name) == "Ptp::Config";
   });
   if (!hasConfig || isFresh("Ptp::Config", nullptr)) {
      Tools::loadConf(options_, fresh, output_, "statedb");
   } else if (!options_.ptp4lConf.empty()) {
      log_.info(options_.ptp4lConf + " is not loaded, since the database has the configuration");
   }
}

void Service::restoreRoot(Root const& root) {
   Kept const kept = file_->database().keep(*root);
   numbers_.back() = kept.number;
   changed_.back() = momentOf(kept.written);
   ++kept_;
   entities_ += kept.entities;
   values_ += kept.values;
   std::size_t const entities = kept.entities;
   log_.info(nameOf(*root) + ": " + (kept.isNew ? "kept from now on" : "restored") + ", " +
             std::to_string(entities) + (entities == 1 ? " entity, " : " entities, ") +
             counted(kept.values, "value") + (kept.isNew ? "" : ", last written " + kept.written));
   for (RejectedRow const& row : kept.rejected) {
      log_.warning(row.path + ": cannot be restored: " + row.reason + "; its value " + row.value +
                   " is in the table 'rejected'");
   }
}

void Service::onFailure(std::string const& failure, Tools::Readiness& readiness) {
   if (failure.empty()) {
      log_.info(options_.database + ": written again; everything is kept");
      readiness.statusIs("Keeps " + counted(kept_, "root"));
   } else {
      log_.error(options_.database + ": cannot be written: " + failure +
                 "; the state is served, nothing is confirmed, and writing is tried every second");
      readiness.statusIs("Cannot write " + options_.database + ": " + failure);
   }
}

void Service::serve() {
   Holt::StopSignals stop;
   Tools::Readiness readiness([] { return true; });
   Store store(file_->database(),
               {.sync = syncOf(options_.sync),
                .interval = static_cast<U64>(options_.interval * 1e9),
                .onFailure = [&](std::string const& failure) { onFailure(failure, readiness); }});
   Holt::Server::Options serving = options_.server(output_);
   serving.keeper = &store;
   serving.listening = Tools::listeningSocket();
   serving.logTimes = !Tools::outputIsJournal();
   bool const given = serving.listening >= 0;
   Holt::Server server(std::move(serving));
   store.serverIs(server);
   for (std::size_t i = 0; i != roots_.size(); ++i) {
      try {
         server.rootIs(roots_[i]);
      } catch (Kiv::Exception const& error) {
         throw Failure(error.what());
      }
      if (numbers_[i] != 0) {
         store.rootIs(roots_[i], numbers_[i]);
      }
      if (changed_[i] != 0 && !isConfiguration(roots_[i]->kivType())) {
         server.staleIs(*roots_[i], true, changed_[i]);  // until its writer claims it
      }
      log_.info("serving " + nameOf(*roots_[i]) +
                (given ? " at the socket that was given" : " at " + options_.socket));
   }
   readiness.statusIs("Keeps " + counted(kept_, "root"));
   Holt::Loop loop;
   loop.add(server);
   loop.add(store);
   loop.add(readiness);
   loop.run(stop.fd());
   readiness.stopping();
   server.closeAll("the server has ended");
   if (std::string const failure = store.finish(); !failure.empty()) {
      throw Failure(options_.database + ": ended without writing the last changes: " + failure);
   }
}

void Service::run() {
   for (std::string const& library : options_.modules) {
      std::string const names = loadModules(library);
      log_.info("loaded " + library + ": " + names);
   }
   file_ = std::make_unique<DatabaseFile>(
         DatabaseFile::Options{options_.database, syncOf(options_.sync), options_.recover});
   for (std::string const& line : file_->found()) {
      log_.info(line);
   }
   try {
      makeRoots();
   } catch (SqliteError const& error) {
      throw Failure(options_.database + ": cannot be used: " + error.what());
   }
   log_.info(options_.database + ": keeps " + counted(kept_, "root") + " with " +
             std::to_string(entities_) + (entities_ == 1 ? " entity and " : " entities and ") +
             counted(values_, "value") + ", --sync " + options_.sync);
   serve();
}

}  // namespace

Sync syncOf(std::string const& text) {
   if (text == "always") {
      return Sync::always;
   }
   if (text == "interval") {
      return Sync::interval;
   }
   if (text == "never") {
      return Sync::never;
   }
   throw Failure("--sync " + text + ": expected always, interval or never", Holt::Exit::usage);
}

bool isConfiguration(Kiv::TypeImpl const& type) {
   return std::string_view(type.name).ends_with("Config");
}

void runService(ServiceOptions const& options) {
   std::signal(SIGPIPE, SIG_IGN);  // the service outlives the reader of its log
   std::signal(SIGXFSZ, SIG_IGN);  // a limit of the size of files is a full disk
   syncOf(options.sync);           // before anything is done
   Holt::LogOutput output(STDOUT_FILENO);
   Service(options, output).run();
}

}  // namespace Statedb
