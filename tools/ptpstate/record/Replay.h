// Plays recordings: into a state in memory, or into a server.
#pragma once

#include <list>
#include <optional>

#include "Holt/Client.h"
#include "Holt/Progress.h"
#include "Holt/State/Changes.h"
#include "Holt/StopSignals.h"
#include "Kiv/NboAttrLogPlayer.h"

namespace Ptpstate {

struct ReplayOptions {
   /// Recordings, or the names of rings.
   std::vector<std::string> files;
   std::string at;
   /// 0: without waiting.
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

   /// Plays what the options say, up to damage if there is any. Throws `Failure`.
   void run();
   /// Where a file is damaged, and how; empty if none is.
   Sarn::String const& damage() const noexcept { return damage_; }

   std::vector<Kiv::NamedEntity*> roots() const;
   /// Whether what was recorded had lost its source at the end of what was played.
   bool sourceIsLost() const noexcept { return player_.sourceIsLost(); }
   /// Whether there was nothing of the time that was asked for, nor after it.
   bool endsBefore() const noexcept { return endsBefore_; }
   /// When what was played last happened.
   U64 wall() const noexcept { return wall_; }

private:
   using Reader = Kiv::NboAttrLog::RecordingReader;

   Sarn::Ptr<Kiv::NamedEntity> makeRoot(Holt::OfferedRoot const& root);
   void findMoment();
   /// False when playing is over.
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
   Holt::Progress progress_;
   /// The time of day that ends it, the file where it is, and from where on there.
   std::optional<U64> end_;
   std::size_t firstFile_ = 0;
   U64 endsFrom_ = 0;
   U64 wall_ = 0;
   std::optional<U64> lastSteady_;
   std::optional<Holt::Clock::time_point> due_;
   Sarn::String damage_;
   bool endsBefore_ = false;
};

/// What is in recordings. Each is played by itself, into nothing; if one cannot be, that is told in
/// its place, and is the `Failure` that is thrown at the end.
void printRecordingInfo(std::ostream& out, std::vector<std::string> const& files);

}  // namespace Ptpstate
