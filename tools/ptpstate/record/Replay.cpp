#include "tools/ptpstate/record/Replay.h"

#include <poll.h>

#include <iostream>

#include "Holt/Failure.h"
#include "Holt/Times.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "Kiv/Printable.h"
#include "tools/shared/CommandLine.h"

namespace Ptpstate {

using namespace Holt;

using Kiv::NboAttrLog::FrameKind;
using Kiv::NboAttrLog::RecordingFile;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

namespace {

/// The files of all named recordings, those of a ring in their order.
std::vector<Sarn::String> filesOf(std::vector<std::string> const& named) {
   std::vector<Sarn::String> files;
   for (std::string const& name : named) {
      std::vector<Sarn::String> const found = Kiv::NboAttrLog::recordingFiles(name);
      if (found.empty()) {
         throw Failure(name + ": there is no such recording, nor a ring " + name + ".000001 ...");
      }
      files.insert(files.end(), found.begin(), found.end());
   }
   return files;
}

std::unique_ptr<RecordingFile> opened(Sarn::String const& file) {
   try {
      return std::make_unique<RecordingFile>(file);
   } catch (Kiv::Exception const& error) {
      throw Failure(error.what());
   }
}

Sarn::String rootsText(Kiv::NboAttrLog::RecordingReader::Frame const& snapshot) {
   Sarn::String text;
   try {
      for (OfferedRoot const& root : snapshotRoots(snapshot)) {
         text += (text.empty() ? "" : ", ") + root.name + " (" + root.type + ")";
      }
   } catch (Kiv::Exception const& error) {
      return error.what();
   }
   return text;
}

Sarn::String damageText(Sarn::String const& file, Kiv::NboAttrLog::RecordingReader const& reader) {
   return file + ": damaged at byte " + std::to_string(reader.offset()) + ": " + reader.damage();
}

Sarn::String unplayableText(Sarn::String const& file,
                            Kiv::NboAttrLog::RecordingReader::Frame const& frame,
                            Kiv::NboAttrLog::Player const& player) {
   return file + ": cannot be played after byte " + std::to_string(frame.offset) + ": " +
          player.reason();
}

constexpr char const* incomplete = ": the state is not yet complete at that time";

}  // namespace

Replay::Replay(ReplayOptions const& options, ReplayView* view)
      : options_(options),
        view_(view),
        files_(filesOf(options.files)),
        player_([this](OfferedRoot const& root) { return makeRoot(root); }) {
   pathFound_.resize(options.paths.size());
   if (!options.into.empty()) {
      client_.emplace(options.into, milliseconds(static_cast<S64>(options.timeout * 1000)));
      Tools::showWaiting(*client_);
      client_->interruptFd = stop_.fd();
   }
}

std::vector<Kiv::NamedEntity*> Replay::roots() const {
   std::vector<Kiv::NamedEntity*> roots;
   for (Sarn::Ptr<Kiv::NamedEntity> const& root : player_.roots()) {
      roots.push_back(root.get());
   }
   return roots;
}

Sarn::Ptr<Kiv::NamedEntity> Replay::makeRoot(OfferedRoot const& root) {
   if (Kiv::typeByName(root.type) == nullptr) {
      return {};
   }
   if (!client_) {
      Sarn::Ptr<Kiv::NamedEntity> made = newRoot(root.type, root.name);
      if (view_ != nullptr) {
         showFrom(made, root);
      }
      return made;
   }
   for (OfferedRoot const& offered : client_->roots()) {
      if (offered.type == root.type && offered.name == root.name) {
         client_->beginAnew();
         Mount& mount =
               client_->mountIs(root, options_.claim ? MountMode::owner : MountMode::writer);
         client_->waitComplete(mount);
         return Sarn::Ptr<Kiv::NamedEntity>(&mount.root());
      }
   }
   throw Failure(options_.into + ": the server has no root " + root.name +
                 "; serve it with --root " + root.type + "=" + root.name);
}

/// Observes a root where its changes are to be shown.
void Replay::showFrom(Sarn::Ptr<Kiv::NamedEntity> const& root, OfferedRoot const& offered) {
   std::vector<Sarn::String> below;
   for (std::size_t i = 0; i != options_.paths.size(); ++i) {
      std::optional<Path> path;
      try {
         path = parsePath(options_.paths[i], {offered});
      } catch (Failure const&) {
         continue;  // it is below another root
      }
      below.push_back(canonicalPath(root->kivType(), *path));
      pathFound_[i] = true;
   }
   if (options_.paths.empty()) {
      below.push_back(offered.name);
   }
   if (!below.empty()) {
      observers_.emplace_back(Sarn::Ptr<Kiv::Entity>(root.get()), std::move(below),
                              [this](ChangeText const& text) { view_->change(wall_, text); });
      observers_.back().tellingIs(begun_ && player_.complete());
   }
}

/// Finds a time in the recording; none if the recording cannot be read, which playing it tells.
std::optional<Replay::Moment> Replay::momentOf(std::string const& text) const {
   std::optional<U64> begin;
   for (Sarn::String const& file : files_) {
      std::unique_ptr<RecordingFile> const source = opened(file);
      Reader const reader(*source);
      if (reader.header()) {
         begin = reader.header()->begun.wall;
         break;
      }
   }
   if (!begin) {
      return std::nullopt;
   }
   U64 const wall = parseTime(text, *begin);
   for (std::size_t i = files_.size(); i-- != 0;) {
      std::unique_ptr<RecordingFile> const source = opened(files_[i]);
      Reader reader(*source);
      if (std::optional<U64> const from = reader.seek(wall)) {
         return Moment{wall, i, *from};
      }
   }
   throw Failure(timeText(wall) + " is before the beginning, " + timeText(*begin));
}

/// Waits until it is time for a frame. Returns false if interrupted.
bool Replay::pace(U64 steady) {
   if (options_.speed > 0) {
      if (!due_) {
         due_ = Clock::now();
      } else if (lastSteady_ && steady > *lastSteady_) {  // another process has another clock
         *due_ += nanoseconds(
               static_cast<S64>(static_cast<double>(steady - *lastSteady_) / options_.speed));
      }
      lastSteady_ = steady;
      while (*due_ > Clock::now()) {
         Tools::requireWritten(std::cout);
         auto const left = std::chrono::ceil<milliseconds>(*due_ - Clock::now());
         auto const wait = std::min<milliseconds>(left, milliseconds(1000));
         if (client_) {
            if (client_->turn(stop_.fd(), wait)) {
               return false;
            }
         } else {
            pollfd polled{stop_.fd(), POLLIN, 0};
            if (::poll(&polled, 1, static_cast<int>(wait.count())) > 0) {
               return false;
            }
         }
      }
   }
   return true;
}

/// Sends what has been played, and waits if the server falls behind.
void Replay::catchUp() {
   if (client_) {
      client_->turn(-1, milliseconds(0));
      if (client_->over()) {
         throw Failure(options_.into + ": the connection is lost: " + client_->closeReason(),
                       Exit::connection);
      }
      if (client_->crowded()) {
         client_->beginAnew();
         client_->sync();
      }
   }
}

bool Replay::playFrame(Sarn::String const& file, Reader::Frame const& frame) {
   wall_ = frame.at.wall;
   bool const complete = player_.complete();
   if (!player_.apply(frame)) {
      throw Failure(unplayableText(file, frame, player_));
   }
   if (view_ == nullptr) {
      catchUp();
      return true;
   }
   if (!complete && player_.complete() && begun_) {
      beginToShow(false);
   }
   if (begun_ && frame.kind == FrameKind::lost) {
      view_->lost(wall_);
   } else if (begun_ && frame.kind == FrameKind::back) {
      view_->back(wall_);
   }
   return true;
}

/// From here on, changes are shown.
void Replay::beginToShow(bool before) {
   for (ChangeObserver& observer : observers_) {
      observer.tellingIs(true);
   }
   for (Kiv::NamedEntity* const root : roots()) {
      view_->complete(wall_, *root, before);
   }
}

bool Replay::play(std::size_t index) {
   Sarn::String const& file = files_[index];
   std::unique_ptr<RecordingFile> const source = opened(file);
   Reader reader(*source);
   if (begin_ && begin_->file == index) {
      reader.seek(begin_->wall);
   }
   Reader::Frame frame;
   for (U64 count = 0; reader.next(frame); ++count) {
      if (end_ && end_->isOver(index, frame)) {
         return false;
      }
      if (!begun_ && begin_->isOver(index, frame)) {
         begun_ = true;
         if (view_ != nullptr && player_.complete()) {
            wall_ = begin_->wall;
            beginToShow(true);
         }
      }
      if (begun_ && !pace(frame.at.steady)) {
         return false;
      }
      playFrame(file, frame);
      if (count % 256 == 0) {
         pollfd polled{stop_.fd(), POLLIN, 0};
         if (::poll(&polled, 1, 0) > 0) {
            return false;
         }
         if (progress_.due()) {
            progress_.say(file + ": " + timeText(frame.at.wall) + ", " +
                          std::to_string(reader.offset() * 100 / source->size()) + " %");
         }
      }
   }
   if (reader.damaged()) {
      damage_ = damageText(file, reader) +
                (wall_ != 0 ? "; read up to there, " + timeText(wall_) : Sarn::String());
      return false;
   }
   return true;
}

void Replay::run() {
   if (!options_.at.empty()) {
      begin_ = end_ = momentOf(options_.at);
   }
   if (!options_.until.empty()) {
      end_ = momentOf(options_.until);
   }
   if (!options_.since.empty()) {
      begin_ = momentOf(options_.since);
      begun_ = !begin_;
   }
   std::size_t const first = begin_ ? begin_->file : 0;
   for (std::size_t i = first; i != files_.size() && play(i); ++i) {
      if (end_ && end_->file == i) {
         endsBefore_ = i + 1 == files_.size() && wall_ < end_->wall;
         break;  // later files begin later
      }
   }
   progress_.clear();
   if (client_ && !client_->over()) {
      stop_.taken();
      client_->beginAnew();
      client_->sync();
   }
   if (damage_.empty() && !player_.complete() && view_ == nullptr) {
      throw Failure(files_[first] + incomplete);
   }
   for (std::size_t i = 0; i != options_.paths.size() && damage_.empty(); ++i) {
      if (!pathFound_[i]) {
         throw Failure("'" + options_.paths[i] + "' is not a path below a root of the recording");
      }
   }
}

namespace {

/// What a file contains, and whether it can be played from its beginning.
struct RecordingInfo {
   U64 frames = 0;
   U64 snapshots = 0;
   U64 begin = 0;
   U64 end = 0;
   Sarn::String roots;
   bool complete = false;
   /// Why `replay` would stop; empty if it would not.
   Sarn::String fault;
};

RecordingInfo infoOf(Sarn::String const& file, Kiv::NboAttrLog::RecordingReader& reader) {
   RecordingInfo info;
   Kiv::NboAttrLog::Player player([](OfferedRoot const& root) {
      return Kiv::typeByName(root.type) != nullptr ? newRoot(root.type, root.name)
                                                   : Sarn::Ptr<Kiv::NamedEntity>();
   });
   for (Kiv::NboAttrLog::RecordingReader::Frame frame; reader.next(frame); ++info.frames) {
      info.begin = info.frames == 0 ? frame.at.wall : info.begin;
      info.end = frame.at.wall;
      if (frame.kind == FrameKind::snapshot) {
         ++info.snapshots;
         info.roots = rootsText(frame);
      }
      if (info.fault.empty() && !player.apply(frame)) {
         info.fault = unplayableText(file, frame, player);
      }
   }
   info.complete = player.complete();
   if (info.fault.empty() && reader.damaged()) {
      info.fault = damageText(file, reader);
   }
   if (info.fault.empty() && !info.complete) {
      info.fault = file + incomplete;
   }
   return info;
}

}  // namespace

void printRecordingInfo(std::ostream& out, std::vector<std::string> const& named) {
   Sarn::String fault;
   for (Sarn::String const& file : filesOf(named)) {
      std::unique_ptr<RecordingFile> const source = opened(file);
      Kiv::NboAttrLog::RecordingReader reader(*source);
      RecordingInfo const info = infoOf(file, reader);
      out << Kiv::printable(file) << '\n'
          << "   begins     " << (info.frames != 0 ? timeText(info.begin) : "-") << '\n'
          << "   ends       " << (info.frames != 0 ? timeText(info.end) : "-")
          << (reader.ended()     ? ""
              : reader.damaged() ? ", damaged"
                                 : ", not closed")
          << '\n'
          << "   roots      " << (info.roots.empty() ? "-" : Kiv::printable(info.roots)) << '\n'
          << "   size       " << source->size() << " bytes, " << info.frames << " frames, "
          << info.snapshots << (info.snapshots == 1 ? " snapshot" : " snapshots") << '\n';
      if (!info.fault.empty()) {
         out << "   fault      " << Kiv::printable(info.fault.substr(file.size() + 2)) << '\n';
         fault = fault.empty() ? info.fault : fault;
      }
   }
   if (!fault.empty()) {
      out.flush();
      throw Failure(fault);
   }
}

}  // namespace Ptpstate
