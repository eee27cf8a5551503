// The dialogue with one ptp4l(8).
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <optional>

#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "tools/ptp4lAgent/Endpoint.h"
#include "tools/ptp4lAgent/Message.h"

namespace Ptp4lAgent {

/// Told of what a daemon says.
class DaemonListener {
public:
   /// It answers, for the first time or again.
   virtual void onUp() = 0;
   /// A data set, as the answer to a request or because it has changed.
   virtual void onData(Message const& message) = 0;
   /// All answers to a request of every port have come. `ports`: the numbers of those that
   /// answered.
   virtual void onPolled(Id id, std::vector<U16> const& ports) = 0;
   /// It refuses to tell a data set.
   virtual void onRefused(Id id) = 0;
   /// It does not answer any more.
   virtual void onGone() = 0;

protected:
   ~DaemonListener() = default;
};

/// Keeps asking one daemon for its data sets, and survives whatever it does.
///
/// A request is sent when the one before has been answered, or is given up. What does not belong to
/// the request is counted and ignored, unless it is one of the events that were subscribed to.
/// Every second, and when a port's state has changed, it asks for everything; in between, at the
/// Sync interval, for what a Sync message changes, unless the daemon tells that by itself.
///
/// A daemon that leaves three requests in a row unanswered, or whose socket is gone, is gone: its
/// listener is told once, and it is asked again after a pause that doubles up to eight seconds. A
/// daemon answers only in its domain and with its `transportSpecific`; what of these is not given
/// is tried.
///
/// Threads: belongs to the thread of its loop.
class Daemon final : public Holt::Source {
public:
   struct Options {
      /// The daemon's socket.
      Sarn::String path;
      /// For the socket of this end; see `pathBeside`.
      Sarn::String own;
      std::optional<U8> domain = std::nullopt;
      std::optional<U8> transportSpecific = std::nullopt;
      /// Gets a line when the daemon begins or ceases to answer; null for no log.
      Holt::LogOutput* log = nullptr;
      /// The clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   struct Counters {
      U64 requests = 0;
      U64 answers = 0;
      U64 events = 0;
      U64 unanswered = 0;
      /// Ignored: answers that came when nobody waited any more, or twice.
      U64 late = 0;
      /// Ignored: messages of other domains, and requests.
      U64 foreign = 0;
      /// Ignored: messages that cannot be read, whether too short, too long or otherwise wrong.
      U64 malformed = 0;
   };

   /// What a request has led to: empty, or why it was refused.
   using Done = std::function<void(Sarn::String const& refusal)>;

   Daemon(Options options, DaemonListener& listener);
   Daemon(Daemon const&) = delete;
   Daemon& operator=(Daemon const&) = delete;

   bool isUp() const noexcept { return state_ == State::up; }
   /// Whether it has been asked for everything, and has answered or failed to.
   bool hasTold() const noexcept {
      return isUp() && lastRound_ != 0 && waiting_.empty() && urgent_.empty() && !pending_;
   }
   Sarn::String const& path() const noexcept { return options_.path; }
   U8 domainNumber() const noexcept { return known_.domain; }
   U8 transportSpecific() const noexcept { return known_.transportSpecific; }
   Counters const& counters() const noexcept { return counters_; }

   /// How often a Sync message arrives, in nanoseconds; 0 if the clock follows nobody.
   void syncIntervalIs(U64 interval) noexcept { syncInterval_ = interval; }
   /// Writes a line about this daemon to the log.
   void say(Sarn::String const& what);
   /// Counts a data set that cannot be read.
   void countMalformed() noexcept { ++counters_.malformed; }

   /// Asks for a data set before the rest of a round.
   void get(Id id, Done done);
   /// Writes a data set, then asks for `readBack`, whether it was taken or not, and only then calls
   /// `done`. `port`: its number, or `everyPortNumber`.
   void set(Id id, U16 port, std::vector<U8> data, Id readBack, Done done);

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

   static constexpr U64 millisecond = 1'000'000;
   /// How long to wait for an answer.
   static constexpr U64 patience = 400 * millisecond;
   /// Requests that remain without an answer until the daemon counts as gone.
   static constexpr U32 mostUnanswered = 3;
   /// How often to ask for everything.
   static constexpr U64 roundInterval = 1000 * millisecond;
   /// The same for a port whose state changes all the time.
   static constexpr U64 shortestRoundInterval = 100 * millisecond;
   /// Between two attempts to reach a daemon that is gone.
   static constexpr U64 firstPause = 250 * millisecond;
   static constexpr U64 longestPause = 8000 * millisecond;
   static constexpr U16 everyPortNumber = 0xFFFF;

private:
   enum class State : U8 { gone, searching, up };

   struct Address {
      U8 domain = 0;
      U8 transportSpecific = 0;
   };

   struct Request {
      Id id;
      Action action = Action::get;
      U16 port = everyPortNumber;
      std::vector<U8> data = {};
      Done done = {};
   };
   struct Pending {
      Request request;
      U16 sequenceId = 0;
      U64 deadline = 0;
      /// Ports that have answered.
      std::vector<U16> ports = {};
   };
   struct Sent {
      U16 sequenceId = 0;
      Id id = Id::defaultDataSet;
      bool valid = false;
   };

   void reach();
   void search();
   void lose(Sarn::String const& why);
   void sayGone(Sarn::String const& why);
   void schedule();
   void sendNext();
   int transmit(Message& message);
   void readAll();
   void take(Message const& message);
   void takeAnswer(Message const& message);
   void found(Message const& message);
   void deliver(Message const& message);
   void complete(Sarn::String const& refusal);
   void giveUp();
   void tryLater();
   bool isEvent(Message const& message) const noexcept;
   bool wasSent(Message const& message) const noexcept;

   Options options_;
   DaemonListener& listener_;
   Endpoint endpoint_;
   State state_ = State::gone;
   /// Whether it has ever answered.
   bool met_ = false;
   /// Whether the log says that it is gone.
   bool saidGone_ = false;
   Address known_;
   /// What is still to be tried, in this order.
   std::deque<Address> candidates_;
   U64 nextTry_ = 1;
   U64 searchEnds_ = 0;
   U64 pause_ = firstPause;

   U16 sequence_ = 0;
   std::array<Sent, 64> sent_{};
   /// Of a round.
   std::deque<Request> waiting_;
   /// What somebody has asked for; goes first.
   std::deque<Request> urgent_;
   std::optional<Pending> pending_;
   U32 unanswered_ = 0;
   U16 numberPorts_ = 0;

   U64 lastRound_ = 0;
   U64 nextRound_ = 0;
   U64 nextSync_ = 0;
   U64 nextSubscription_ = 0;
   U64 lastTimeEvent_ = 0;
   U64 syncInterval_ = 0;
   /// Ids that this version of the daemon does not know.
   std::vector<Id> unknown_;
   Counters counters_;
};

}  // namespace Ptp4lAgent
