// Plays recordings into a state in memory, or into a server.
#pragma once

#include <list>
#include <optional>

#include "Holt/Client.h"
#include "Holt/State/Changes.h"
#include "Holt/StopSignals.h"
#include "Kiv/NboAttrLogPlayer.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

struct ReplayOptions {
   /// Recordings, or the names of rings.
   std::vector<std::string> files;
   std::string at;
   /// Times between which changes are shown; until the end, if there is no second.
   std::string since;
   std::string until;
   /// Where changes are shown; everywhere, if there is none.
   std::vector<std::string> paths;
   /// How many times as fast as recorded; 0: without waiting.
   double speed = 0;
   /// The socket of the server to play into.
   std::string into;
   double timeout = 10;
   bool claim = false;
   std::string dump;
   bool json = false;
   bool info = false;

   bool showsChanges() const { return into.empty() && dump.empty() && at.empty(); }
};

/// Is shown what a replay plays, in its order, from the beginning that the options ask for.
/// `wall`: when it was recorded.
class ReplayView {
public:
   /// All roots have their state; called for each, before its changes. `before`: they had it when
   /// what is shown begins.
   virtual void complete(U64 wall, Kiv::NamedEntity& root, bool before) = 0;
   virtual void change(U64 wall, Holt::ChangeText const& text) = 0;
   /// The recorder had lost the server, or had it again.
   virtual void lost(U64 wall) = 0;
   virtual void back(U64 wall) = 0;

protected:
   ~ReplayView() = default;
};

class Replay {
public:
   /// `view`: null if nothing is shown. REQUIRES: both outlive the replay.
   Replay(ReplayOptions const& options, ReplayView* view);

   /// Plays what the options ask for, up to the first damage. Throws `Failure`.
   void run();
   /// Where and how a file is damaged; empty if none is.
   Sarn::String const& damage() const noexcept { return damage_; }

   std::vector<Kiv::NamedEntity*> roots() const;
   /// Whether the recorder had lost its server at the end of what was played.
   bool sourceIsLost() const noexcept { return player_.sourceIsLost(); }
   /// Whether the recording ends before the requested time.
   bool endsBefore() const noexcept { return endsBefore_; }
   /// The time of what was played last.
   U64 wall() const noexcept { return wall_; }

private:
   using Reader = Kiv::NboAttrLog::RecordingReader;

   Sarn::Ptr<Kiv::NamedEntity> makeRoot(Holt::OfferedRoot const& root);
   /// A time in the recording: the last file that contains it, and the offset from which on a later
   /// frame ends it there.
   struct Moment {
      U64 wall;
      std::size_t file;
      U64 offset;

      bool isOver(std::size_t inFile, Reader::Frame const& frame) const {
         return inFile > file || (inFile == file && frame.at.wall > wall && frame.offset >= offset);
      }
   };

   std::optional<Moment> momentOf(std::string const& text) const;
   void showFrom(Sarn::Ptr<Kiv::NamedEntity> const& root, Holt::OfferedRoot const& offered);
   /// Plays a file; returns false if playing ends there.
   bool play(std::size_t index);
   bool playFrame(Sarn::String const& file, Reader::Frame const& frame);
   bool pace(U64 steady);
   void beginToShow(bool before);
   void catchUp();

   ReplayOptions const& options_;
   ReplayView* view_;
   Holt::StopSignals stop_;
   std::vector<Sarn::String> files_;
   std::optional<Holt::Client> client_;
   Kiv::NboAttrLog::Player player_;
   std::list<Holt::ChangeObserver> observers_;
   Tools::Progress progress_;
   std::optional<Moment> begin_;
   std::optional<Moment> end_;
   /// Whether changes are shown yet.
   bool begun_ = true;
   /// Whether a root has the path with this index.
   std::vector<bool> pathFound_;
   U64 wall_ = 0;
   std::optional<U64> lastSteady_;
   std::optional<Holt::Clock::time_point> due_;
   Sarn::String damage_;
   bool endsBefore_ = false;
};

/// Prints what recordings contain. Plays each by itself, into nothing. If one cannot be played,
/// prints why; the first such reason is the `Failure` that is thrown at the end.
void printRecordingInfo(std::ostream& out, std::vector<std::string> const& files);

}  // namespace Ptpstate
