// The last hour of a clock, for curves.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Holt/Loop.h"
#include "Holt/State/Changes.h"
#include "Holt/Times.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/shared/Feed.h"

namespace Ptpexport {

using Tools::Feed;

/// A value for each second of the last hour. The seconds are those since 1970; seconds that were
/// left out have no value.
///
///     second  ...  3599  3600  3601  ...      the value of a second is at second % 3600,
///     index   ...  3599     0     1  ...      and overwrites that of the hour before
class HourCurve {
public:
   static constexpr std::size_t length = 3600;

   HourCurve() { values_.fill(none); }

   /// Sets the value of a second, which must not be before the last one. A value beyond what a
   /// curve holds, 2.1 s in nanoseconds, becomes the nearest that it holds.
   void add(U64 second, S64 value);
   /// The value, or null, of each second from `from` to `to`. REQUIRES: they are at most an hour
   /// apart.
   Holt::Json values(U64 from, U64 to) const;
   /// The last second with a value; 0 if there is none.
   U64 last() const noexcept { return last_; }

private:
   static constexpr S32 none = INT32_MIN;

   void clearUpTo(U64 second);

   std::array<S32, length> values_;
   U64 last_ = 0;
};

/// Samples every clock of a feed once a second, and keeps what happened at its ports.
///
/// Memory: 29 kB for a clock, 14 kB for each port that measures the delay of its link, and the last
/// `Options::events` events of each clock. Beyond `Options::ports` ports, more have no curve.
///
/// Threads: belongs to the thread of its loop.
class History final : public Holt::Source, Feed::Listener {
public:
   struct Options {
      /// Ports with a curve, of all clocks together.
      std::size_t ports = 4096;
      /// Events of each clock.
      std::size_t events = 2000;
      U64 (*clock)() noexcept = &Holt::steadyNow;
      U64 (*wallClock)() noexcept = &Holt::wallNow;
   };

   explicit History(Feed& feed) : History(feed, Options()) {}
   History(Feed& feed, Options options);
   ~History();
   History(History const&) = delete;
   History& operator=(History const&) = delete;

   /// The last hour of the clock with this name, or of the first clock if the name is empty: an
   /// object with "start" (seconds since 1970), "step" (1), "offsetFromMaster" and "meanPathDelay"
   /// (arrays of nanoseconds or null), and "events". Throws `Holt::Failure` if there is no such
   /// clock.
   Holt::Json clock(std::string const& name) const;
   /// The same of a port, by its key as in paths: "peerMeanPathDelay" and its own events. A port
   /// that measures no delay has an empty curve. Throws `Holt::Failure` if there is no such port.
   Holt::Json port(std::string const& name, std::string const& key) const;

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override { return due_; }
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Event {
      /// Nanoseconds since 1970.
      U64 wall;
      std::string path;
      Holt::Json value;
   };
   struct Followed {
      Sarn::Ptr<Ptp::Status> status;
      HourCurve offset;
      HourCurve delay;
      std::map<Ptp::PortDSKey, std::unique_ptr<HourCurve>> ports;
      std::deque<Event> events;
      std::unique_ptr<Holt::ChangeObserver> observer;
   };

   void onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) override;
   void onRootGone(Kiv::NamedEntity& root) override;
   Followed const& find(std::string const& name) const;
   void sample(Followed& followed, U64 second);
   void samplePorts(Followed& followed, U64 second);
   void happened(Followed& followed, Holt::ChangeText const& text);
   Holt::Json events(Followed const& followed, std::string const& below) const;
   Holt::Json frame() const;
   U64 second() const noexcept { return options_.wallClock() / 1'000'000'000; }

   Feed& feed_;
   Options options_;
   std::list<Followed> followed_;
   std::size_t curves_ = 0;
   /// When the next sample is due, by the loop's clock.
   U64 due_;
   /// The first second that was sampled, since 1970.
   U64 begin_;
};

}  // namespace Ptpexport
