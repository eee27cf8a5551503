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

class Replay {
public:
   explicit Replay(ReplayOptions const& options);

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
   void findMoment();
   /// Plays a file; returns false if playing ends there.
   bool play(Sarn::String const& file, bool first);
   bool playFrame(Sarn::String const& file, Reader::Frame const& frame);
   bool pace(U64 steady);
   void catchUp();
   void tell(Sarn::String const& line) const;

   ReplayOptions const& options_;
   Holt::StopSignals stop_;
   std::vector<Sarn::String> files_;
   std::optional<Holt::Client> client_;
   Kiv::NboAttrLog::Player player_;
   std::list<Holt::ChangeObserver> observers_;
   Tools::Progress progress_;
   /// The time at which to end, the file that contains it, and the offset of that time there.
   std::optional<U64> end_;
   std::size_t firstFile_ = 0;
   U64 endsFrom_ = 0;
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
