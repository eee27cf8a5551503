// record
#include <poll.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>

#include "Holt/StopSignals.h"
#include "Holt/Times.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using Kiv::NboAttrLog::Recorder;
using Kiv::NboAttrLog::RecordFiles;
using std::chrono::milliseconds;

struct RecordOptions : ClientOptions {
   std::string file;
   std::vector<std::string> roots;
   double seconds = 0;
   U32 ring = 0;
   U64 size = U64(64) << 20;
   bool replace = false;
   bool reconnect = false;
};

Kiv::NboAttrLog::Moment now() noexcept {
   return {steadyNow(), wallNow()};
}

/// Mirrors roots, and records what happens to the mirrors.
class Record {
public:
   explicit Record(RecordOptions const& options)
         : options_(options),
           files_(options.ring != 0
                        ? RecordFiles(options.file, options.ring)
                        : RecordFiles(options.file, options.replace
                                                          ? RecordFiles::Existing::replace
                                                          : RecordFiles::Existing::refuse)) {}

   Exit run();

private:
   void connect();
   void chooseRoots();
   void mountAll();
   /// Waits until the server is back; returns false if the command ends before that.
   bool connectAgain();
   void follow();
   void write();
   bool over() const { return end_ && Clock::now() >= *end_; }
   milliseconds left() const;

   RecordOptions const& options_;
   StopSignals stop_;
   RecordFiles files_;
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots_;
   Kiv::NboAttrLog::Hub hub_;
   std::optional<Recorder> recorder_;
   std::optional<Client> client_;
   std::optional<Clock::time_point> end_;
   Tools::Progress progress_;
   Sarn::String lostBy_;
   bool stopped_ = false;
};

void Record::connect() {
   client_.reset();
   client_.emplace(options_.socket, options_.patience());
   Tools::showWaiting(*client_);
   client_->interruptFd = stop_.fd();
}

void Record::chooseRoots() {
   std::vector<OfferedRoot> chosen;
   for (std::string const& text : options_.roots) {
      Path const path = parsePath(text, client_->roots());
      if (!path.steps.empty()) {
         throw Failure(text + ": only whole roots can be recorded; give " + path.root.name);
      }
      chosen.push_back(path.root);
   }
   for (OfferedRoot const& root : options_.roots.empty() ? client_->roots() : chosen) {
      roots_.push_back(newRoot(root.type, root.name));
   }
   if (roots_.empty()) {
      throw Failure(options_.socket + ": the server has no roots to record");
   }
}

void Record::mountAll() {
   std::vector<Mount*> mounts;
   for (Sarn::Ptr<Kiv::NamedEntity> const& root : roots_) {
      mounts.push_back(&client_->mountIs(root, MountMode::reader));
   }
   for (Mount const* const mount : mounts) {
      client_->waitComplete(*mount);
   }
}

milliseconds Record::left() const {
   auto const most = milliseconds(1000);
   if (!end_) {
      return most;
   }
   auto const left = std::chrono::duration_cast<milliseconds>(*end_ - Clock::now());
   return std::clamp(left + milliseconds(1), milliseconds::zero(), most);
}

void Record::write() {
   Kiv::NboAttrLog::Moment const moment = now();
   do {
      recorder_->turn(moment);
   } while (recorder_->waiting());
   if (recorder_->failed()) {
      throw Failure(recorder_->stats().files == 0
                          ? recorder_->reason() + "; nothing is recorded; choose another name"
                          : "the recording ends: " + recorder_->reason() +
                                  "; make room, or record elsewhere");
   }
}

bool Record::connectAgain() {
   recorder_->sourceIs(false, now());
   while (!over()) {
      pollfd polled{stop_.fd(), POLLIN, 0};
      if (::poll(&polled, 1, static_cast<int>(std::min(left(), milliseconds(200)).count())) > 0) {
         stopped_ = true;
         return false;
      }
      try {
         connect();
         mountAll();
      } catch (Failure const& failure) {
         client_.reset();
         stopped_ = stop_.taken();
         if (stopped_ || failure.status() != Exit::connection) {
            lostBy_ = failure.what();
            return false;
         }
         continue;
      }
      recorder_->sourceIs(true, now());
      return true;
   }
   return false;
}

void Record::follow() {
   while (!stopped_ && !over()) {
      stopped_ = client_->turn(stop_.fd(), left());
      write();
      if (progress_.due()) {
         progress_.say(std::to_string(recorder_->stats().changes) + " changes, " +
                       std::to_string(recorder_->stats().bytes) + " bytes in " + files_.current());
      }
      if (client_->over() && !stopped_) {
         lostBy_ = client_->closeReason();
         if (!options_.reconnect || !connectAgain()) {
            return;
         }
      }
   }
}

Exit Record::run() {
   std::error_code ignored;
   if (options_.ring == 0 && !options_.replace && std::filesystem::exists(options_.file, ignored)) {
      throw Failure(options_.file + ": already exists; choose another name, or use --replace");
   }
   connect();
   chooseRoots();
   mountAll();
   for (Sarn::Ptr<Kiv::NamedEntity> const& root : roots_) {
      hub_.rootIs(root);
   }
   Kiv::NboAttrLog::RecorderOptions recorder;
   recorder.fileSize = options_.ring != 0 ? options_.size : 0;
   try {
      recorder_.emplace(hub_, files_, recorder);
   } catch (Kiv::Exception const& error) {
      throw Failure(error.what());
   }
   write();
   std::cout << "recording " << roots_.size() << (roots_.size() == 1 ? " root" : " roots") << " to "
             << Kiv::printable(files_.current()) << std::endl;
   if (options_.seconds > 0) {
      end_ = Clock::now() + milliseconds(static_cast<S64>(options_.seconds * 1000));
   }
   follow();
   bool const lost = !client_ || client_->over();
   if (!lost) {
      stop_.taken();  // a second signal ends the wait
      client_->beginAnew();
      client_->sync();
   }
   recorder_->close(now());
   progress_.clear();
   if (recorder_->failed()) {
      throw Failure("the recording ends: " + recorder_->reason() +
                    "; make room, or record elsewhere");
   }
   Kiv::NboAttrLog::RecorderStats const& stats = recorder_->stats();
   std::cout << "recorded " << stats.changes << (stats.changes == 1 ? " change, " : " changes, ")
             << stats.bytes << " bytes" << std::endl;
   if (lost && !stopped_ && !over()) {
      throw Failure(options_.socket + ": the connection is lost: " + lostBy_ +
                          "; everything up to there is recorded; --reconnect waits for the server",
                    Exit::connection);
   }
   return Exit::ok;
}

}  // namespace

void addRecord(Command const& program, Run& run) {
   auto const options = std::make_shared<RecordOptions>();
   Command const command = program.command(
         "record",
         "Records the changes of a server's roots in a file until it is interrupted. If "
         "roots are named, records only these.\n"
         "\n"
         "Its memory does not grow with the recording. Without --reconnect it ends when the "
         "connection is lost, with status 3; the file then has everything until then.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate record --socket /tmp/ptp monday.rec\n"
         "  $ ptpstate record --socket /tmp/ptp --reconnect --ring 8 --size 64MB "
         "/var/log/ptp/flight "
         "ptp/status");
   addClientOptions(command, *options);
   command.option("file", options->file).placeholder("FILE").required();
   command.option("roots", options->roots).placeholder("ROOT");
   command.option("--for", options->seconds, "End after this time")
         .placeholder("SECONDS")
         .range(0.001, 1e9);
   Option const ring =
         command
               .option(
                     "--ring", options->ring,
                     "A flight recorder: keep only the last N files FILE.000001, FILE.000002, ..., "
                     "each of which can be replayed alone; continues after existing files")
               .placeholder("N")
               .range(2, 1'000'000);
   command
         .option("--size", options->size,
                 "Maximum size of each file of the ring (64MB); at least 14 MB")
         .bytes()
         .placeholder("BYTES")
         .needs(ring);
   command
         .flag("--replace", options->replace,
               "Overwrite an existing file, unless another recorder is writing to it")
         .excludes(ring);
   command.flag("--reconnect", options->reconnect,
                "When the connection is lost, note that in the recording, wait for the server, "
                "and continue");
   command.onChosen([options, &run] { run = [options] { return Record(*options).run(); }; });
}

}  // namespace Ptpstate
