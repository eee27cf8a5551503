// watch
#include <ctime>
#include <iostream>
#include <list>
#include <optional>

#include "Kiv/Module.h"
#include "tools/ptpstate/Changes.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/Dump.h"
#include "tools/ptpstate/Signals.h"

namespace Ptpstate {
namespace {

using std::chrono::milliseconds;

struct WatchOptions : ClientOptions {
   std::string path;
   U64 count = 0;
   double seconds = 0;
   std::string dump;
};

/// "14:03:59.120"
std::string timeText() {
   auto const now = std::chrono::system_clock::now();
   std::time_t const seconds = std::chrono::system_clock::to_time_t(now);
   auto const sinceEpoch = std::chrono::duration_cast<milliseconds>(now.time_since_epoch());
   std::tm local{};
   localtime_r(&seconds, &local);
   char text[32];
   std::size_t const length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
   std::snprintf(text + length, sizeof text - length, ".%03d",
                 static_cast<int>(sinceEpoch.count() % 1000));
   return text;
}

class Watch {
public:
   explicit Watch(WatchOptions const& options)
         : options_(options), client_(options.socket, options.patience()) {
      client_.interruptFd = stop_.fd();
   }

   Exit run();

private:
   void begin();
   void rootIs(OfferedRoot const& root, Sarn::String const& below);
   void onState(Mount& mount);
   void onChange(ChangeText const& text);
   void follow();
   void finish();
   bool enough() const { return options_.count != 0 && told_ >= options_.count; }
   /// How long to wait at most; negative for ever.
   milliseconds left() const;
   void say(Sarn::String const& line) { std::cout << timeText() << ' ' << line << '\n'; }

   WatchOptions const& options_;
   StopSignals stop_;
   Client client_;
   std::vector<Mount*> mounts_;
   std::list<ChangeObserver> observers_;
   std::optional<Clock::time_point> end_;
   U64 told_ = 0;
};

void Watch::begin() {
   client_.onMountState = [this](Mount& mount) { onState(mount); };
   if (!options_.path.empty()) {
      Path const path = parsePath(options_.path, client_.roots());
      Sarn::Ptr<Kiv::NamedEntity> const probe = newRoot(path.root.type, path.root.name);
      rootIs(path.root, canonicalPath(probe->kivType(), path));
      return;
   }
   for (OfferedRoot const& root : client_.roots()) {
      if (Kiv::typeByName(root.type) == nullptr) {
         std::cerr << "ptpstate: " << root.name << " is left out: its type " << root.type
                   << " is not known here" << std::endl;
         continue;
      }
      rootIs(root, root.name);
   }
}

void Watch::rootIs(OfferedRoot const& root, Sarn::String const& below) {
   Mount& mount = client_.mountIs(root, MountMode::reader);
   mounts_.push_back(&mount);
   observers_.emplace_back(Sarn::Ptr<Kiv::Entity>(&mount.root()), below,
                           [this, &mount](ChangeText const& text) {
                              if (mount.complete()) {
                                 onChange(text);
                              }
                           });
}

void Watch::onState(Mount& mount) {
   Sarn::String const& name = mount.root().nameString();
   switch (mount.state()) {
      case Mount::State::complete: {
         Dump dump;
         dump.entity(mount.root(), name);
         say("-- " + name + " is complete: " + tallyText(dump.total()));
         break;
      }
      case Mount::State::refused:
         throw Failure(name + ": the server refuses a mirror: " + mount.reason(), Exit::connection);
      case Mount::State::gone:
         say("-- " + name + " is gone: the server has given it up");
         break;
      default:
         break;
   }
}

void Watch::onChange(ChangeText const& text) {
   if (!enough()) {
      ++told_;
      say(text.path + text.what);
   }
}

milliseconds Watch::left() const {
   if (!end_) {
      return milliseconds(-1);
   }
   auto const left = std::chrono::duration_cast<milliseconds>(*end_ - Clock::now());
   return std::max(left + milliseconds(1), milliseconds::zero());
}

/// Until it is told to stop, has told enough, or the connection is over.
void Watch::follow() {
   while (!client_.over() && !enough() && !(end_ && Clock::now() >= *end_)) {
      std::cout.flush();
      if (client_.turn(stop_.fd(), left())) {
         return;
      }
   }
}

/// Takes what the server has still to tell, so that nothing from before the end is missing.
void Watch::finish() {
   if (client_.over()) {
      say("-- connection lost: " + client_.closeReason());
   } else {
      stop_.taken();  // a second signal ends the waiting, too
      client_.sync();
   }
   std::cout.flush();
   if (!options_.dump.empty()) {
      writeFile(options_.dump, [this](std::ostream& out) {
         std::vector<Kiv::NamedEntity*> roots;
         for (Mount const* const mount : mounts_) {
            roots.push_back(&mount->root());
         }
         dumpRoots(out, roots);
      });
   }
}

Exit Watch::run() {
   if (options_.seconds > 0) {
      end_ = Clock::now() + milliseconds(static_cast<S64>(options_.seconds * 1000));
   }
   begin();
   follow();
   bool const lost = client_.over();
   finish();
   if (lost) {
      throw Failure(
            options_.socket + ": the connection is lost; watch again when the server is back",
            Exit::connection);
   }
   return Exit::ok;
}

}  // namespace

void addWatch(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WatchOptions>();
   CLI::App& command =
         *app.add_subcommand("watch", "Print every change as it comes, until interrupted");
   addClientOptions(command, *options);
   command.add_option("path", options->path, "Only changes there and below it")->type_name("PATH");
   command.add_option("--count", options->count, "End after so many changes")
         ->type_name("N")
         ->check(CLI::PositiveNumber);
   command.add_option("--for", options->seconds, "End after so many seconds")
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 1e9));
   command
         .add_option("--dump", options->dump,
                     "At the end, write a dump of the mirror; - for standard output")
         ->type_name("FILE");
   command.footer(
         "Example:\n"
         "  ptpstate watch --socket /tmp/ptp\n"
         "  ptpstate watch --socket /tmp/ptp ptp/config.intfConfig --for 60");
   command.callback([options, &run] { run = [options] { return Watch(*options).run(); }; });
}

}  // namespace Ptpstate
