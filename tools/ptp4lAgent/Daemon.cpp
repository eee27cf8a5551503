#include "tools/ptp4lAgent/Daemon.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "Holt/Times.h"
#include "tools/ptp4lAgent/ClockDataSets.h"

namespace Ptp4lAgent {

namespace {

/// What a round asks for, in this order: ports get their names before anything else is told of
/// them.
constexpr Id round[] = {
      Id::defaultDataSet,       Id::portPropertiesNp, Id::portDataSet,   Id::portDataSetNp,
      Id::currentDataSet,       Id::timeStatusNp,     Id::parentDataSet, Id::timePropertiesDataSet,
      Id::portStatsNp,          Id::clockDescription, Id::masterOnly,    Id::portServiceStatsNp,
      Id::unicastMasterTableNp, Id::portHwclockNp,
};
/// What a Sync message changes.
constexpr Id onSync[] = {Id::timeStatusNp, Id::currentDataSet};

constexpr U64 second = 1000 * Daemon::millisecond;
/// Seconds until the daemon forgets a subscription, and when it is renewed.
constexpr U16 subscriptionSeconds = 60;
constexpr U64 renewal = 20 * second;

constexpr char const* noAnswer = "ptp4l does not answer";
/// While searching: requests at once, between two bursts, and in all.
constexpr std::size_t burst = 32;
constexpr U64 burstPause = 5 * Daemon::millisecond;
constexpr U64 longestSearch = 3 * second;
/// No faster than this, whatever the Sync interval is.
constexpr U64 shortestInterval = 8 * Daemon::millisecond;
/// Datagrams that one turn reads.
constexpr int turnDatagrams = 256;

constexpr U16 noSuchId = 2;
constexpr U16 notSupported = 6;

bool mayBeUnknown(Id id) {
   return id != Id::defaultDataSet && id != Id::portPropertiesNp;
}

}  // namespace

Daemon::Daemon(Options options, DaemonListener& listener)
      : options_(std::move(options)), listener_(listener), endpoint_(options_.own) {}

void Daemon::say(Sarn::String const& what) {
   if (options_.log != nullptr) {
      options_.log->line(Holt::timeText(Holt::wallNow()) + " ptp4l at " + options_.path + ": " +
                         what);
   }
}

void Daemon::sayGone(Sarn::String const& why) {
   if (!saidGone_) {
      say((met_ ? "gone: " : "not there yet: ") + why);
      saidGone_ = true;
   }
}

// Finding the daemon.

void Daemon::tryLater() {
   nextTry_ = options_.clock() + pause_;
   pause_ = std::min(2 * pause_, longestPause);
}

void Daemon::reach() {
   if (int const error = endpoint_.open(options_.path); error != 0) {
      Sarn::String const text = std::generic_category().message(error);
      sayGone(error == ECONNREFUSED ? "nobody listens at its socket"
              : error == EADDRINUSE ? options_.own + ": " + text
                                    : text);
      tryLater();
      return;
   }
   candidates_.clear();
   if (met_) {
      candidates_.push_back(known_);
   }
   for (U16 domain = 0; domain != 256; ++domain) {
      for (U8 const transport : {U8{0}, U8{1}}) {
         bool const possible = options_.domain.value_or(domain) == domain &&
                               options_.transportSpecific.value_or(transport) == transport;
         if (possible) {
            candidates_.push_back({static_cast<U8>(domain), transport});
         }
      }
   }
   if (options_.transportSpecific.value_or(0) > 1) {
      candidates_.clear();
      for (U16 domain = options_.domain.value_or(0); domain <= options_.domain.value_or(255);
           ++domain) {
         candidates_.push_back({static_cast<U8>(domain), *options_.transportSpecific});
      }
   }
   state_ = State::searching;
   searchEnds_ = options_.clock() + longestSearch;
   search();
}

void Daemon::search() {
   U64 const now = options_.clock();
   if (candidates_.empty() || now >= searchEnds_) {
      sayGone(options_.domain.has_value() && options_.transportSpecific.has_value()
                    ? "it does not answer in the given domain"
                    : "it does not answer in any domain; transparent clocks never do");
      endpoint_.close();
      state_ = State::gone;
      tryLater();
      return;
   }
   for (std::size_t i = 0; i != burst && !candidates_.empty(); ++i) {
      Message message;
      message.domainNumber = candidates_.front().domain;
      message.transportSpecific = candidates_.front().transportSpecific;
      message.id = Id::defaultDataSet;
      int const error = transmit(message);
      if (error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS) {
         break;
      }
      if (error != 0) {
         lose(std::generic_category().message(error));
         return;
      }
      candidates_.pop_front();
   }
   nextTry_ = options_.clock() + (candidates_.empty() ? patience : burstPause);
}

void Daemon::found(Message const& message) {
   known_ = {message.domainNumber, message.transportSpecific};
   candidates_.clear();
   state_ = State::up;
   met_ = true;
   saidGone_ = false;
   pause_ = firstPause;
   unanswered_ = 0;
   unknown_.clear();
   syncInterval_ = 0;
   lastTimeEvent_ = 0;
   U64 const now = options_.clock();
   nextRound_ = now;
   nextSync_ = now;
   nextSubscription_ = now;
   say("answers in domain " + std::to_string(known_.domain) + ", transportSpecific " +
       std::to_string(known_.transportSpecific));
   listener_.onUp();
}

void Daemon::lose(Sarn::String const& why) {
   bool const wasUp = state_ == State::up;
   state_ = State::gone;
   endpoint_.close();
   sayGone(why);
   std::deque<Request> dropped = std::move(urgent_);
   urgent_.clear();
   waiting_.clear();
   if (pending_) {
      dropped.push_front(std::move(pending_->request));
      pending_.reset();
   }
   tryLater();
   if (wasUp) {
      listener_.onGone();
   }
   for (Request& request : dropped) {
      if (request.done) {
         request.done("ptp4l is gone: " + why);
      }
   }
}

// Asking.

int Daemon::transmit(Message& message) {
   message.sequenceId = ++sequence_;
   message.source = Ptp::PortIdentity(Ptp::ClockIdentity(), static_cast<U16>(::getpid() & 0xFFFF));
   sent_[message.sequenceId % sent_.size()] = {message.sequenceId, message.id, true};
   int const error = endpoint_.send(format(message));
   counters_.requests += error == 0 ? 1 : 0;
   return error;
}

void Daemon::get(Id id, Done done) {
   if (state_ != State::up) {
      done("ptp4l is gone");
      return;
   }
   urgent_.push_back({.id = id, .done = std::move(done)});
}

void Daemon::set(Id id, U16 port, std::vector<U8> data, Id readBack, Done done) {
   if (state_ != State::up) {
      done("ptp4l is gone");
      return;
   }
   Done then = [this, readBack, done = std::move(done)](Sarn::String const& refusal) {
      if (state_ != State::up) {
         done(refusal);
         return;
      }
      urgent_.push_front({.id = readBack, .done = [refusal, done](Sarn::String const& unread) {
                             done(refusal.empty() ? unread : refusal);
                          }});
   };
   urgent_.push_back({.id = id,
                      .action = Action::set,
                      .port = port,
                      .data = std::move(data),
                      .done = std::move(then)});
}

/// Decides what is to be asked for next.
void Daemon::schedule() {
   if (!waiting_.empty()) {
      return;
   }
   U64 const now = options_.clock();
   if (now >= nextSubscription_) {
      SubscribeEventsNp wanted;
      wanted.duration = subscriptionSeconds;
      wanted.bits[0] = SubscribeEventsNp::portState | SubscribeEventsNp::timeSync;
      waiting_.push_back({.id = Id::subscribeEventsNp,
                          .action = Action::set,
                          .data = encode(wanted),
                          .done = [this](Sarn::String const& refusal) {
                             // Nobody would notice that there are no events.
                             if (refusal == noAnswer) {
                                nextSubscription_ = options_.clock() + roundInterval;
                             }
                          }});
      nextSubscription_ = now + renewal;
   }
   auto const askFor = [this](Id id) {
      if (std::find(unknown_.begin(), unknown_.end(), id) == unknown_.end()) {
         waiting_.push_back({.id = id});
      }
   };
   if (now >= nextRound_) {
      std::for_each(std::begin(round), std::end(round), askFor);
      lastRound_ = now;
      nextRound_ = now + roundInterval;
      nextSync_ = now + std::max(syncInterval_, shortestInterval);
   } else if (syncInterval_ != 0 && now >= nextSync_) {
      // A daemon that tells every Sync message need not be asked.
      if (lastTimeEvent_ == 0 || now - lastTimeEvent_ > 4 * syncInterval_) {
         std::for_each(std::begin(onSync), std::end(onSync), askFor);
      }
      nextSync_ = std::max(nextSync_ + syncInterval_, now + shortestInterval);
   }
}

void Daemon::sendNext() {
   std::deque<Request>& queue = urgent_.empty() ? waiting_ : urgent_;
   if (queue.empty()) {
      return;
   }
   pending_ = Pending{.request = std::move(queue.front())};
   queue.pop_front();
   Message message;
   message.domainNumber = known_.domain;
   message.transportSpecific = known_.transportSpecific;
   message.action = pending_->request.action;
   message.id = pending_->request.id;
   message.data = pending_->request.data;
   message.target = Ptp::PortIdentity(Message::everyPort().clockIdentity(), pending_->request.port);
   int const error = transmit(message);
   pending_->sequenceId = message.sequenceId;
   pending_->deadline = options_.clock() + patience;
   // A daemon whose queue is full counts as one that does not answer.
   if (error != 0 && error != EAGAIN && error != EWOULDBLOCK && error != ENOBUFS) {
      lose(error == ECONNREFUSED || error == ENOENT || error == ENOTCONN || error == ECONNRESET
                 ? "nobody listens at its socket"
                 : std::generic_category().message(error));
   }
}

/// Ends the pending request.
void Daemon::complete(Sarn::String const& refusal) {
   Pending const pending = std::move(*pending_);
   pending_.reset();
   if (!pending.ports.empty()) {
      listener_.onPolled(pending.request.id, pending.ports);
   }
   if (pending.request.done) {
      pending.request.done(refusal);
   }
}

void Daemon::giveUp() {
   ++counters_.unanswered;
   if (!pending_->ports.empty()) {
      complete({});  // some ports have answered; the others are gone
      return;
   }
   if (++unanswered_ >= mostUnanswered) {
      lose("it does not answer");
      return;
   }
   complete(noAnswer);
}

// Hearing.

bool Daemon::wasSent(Message const& message) const noexcept {
   Sent const& sent = sent_[message.sequenceId % sent_.size()];
   return sent.valid && sent.sequenceId == message.sequenceId && sent.id == message.id;
}

bool Daemon::isEvent(Message const& message) const noexcept {
   return message.error == 0 && (message.id == Id::portDataSet || message.id == Id::timeStatusNp);
}

void Daemon::deliver(Message const& message) {
   if (message.id == Id::defaultDataSet) {
      if (auto const set = decode<DefaultDataSet>(message.data)) {
         numberPorts_ = set->numberPorts;
      }
   }
   listener_.onData(message);
}

void Daemon::takeAnswer(Message const& message) {
   unanswered_ = 0;
   if (message.error != 0) {
      ++counters_.answers;
      if ((message.error == noSuchId || message.error == notSupported) &&
          mayBeUnknown(message.id) && pending_->request.action == Action::get) {
         unknown_.push_back(message.id);
      }
      if (pending_->request.action == Action::get) {
         listener_.onRefused(message.id);
      }
      complete("ptp4l refuses " + nameOf(message.id) + ": " + errorText(message.error));
      return;
   }
   bool const ofEveryPort = isOfPort(message.id) && pending_->request.port == everyPortNumber;
   if (!ofEveryPort) {
      ++counters_.answers;
      deliver(message);
      complete({});
      return;
   }
   std::vector<U16>& ports = pending_->ports;
   if (std::find(ports.begin(), ports.end(), message.source.portNumber()) != ports.end()) {
      ++counters_.late;
      return;
   }
   ++counters_.answers;
   ports.push_back(message.source.portNumber());
   deliver(message);
   if (ports.size() >= numberPorts_) {
      complete({});
   }
}

void Daemon::take(Message const& message) {
   bool const ours =
         state_ == State::searching || (message.domainNumber == known_.domain &&
                                        message.transportSpecific == known_.transportSpecific);
   if (!ours || (message.action != Action::response && message.action != Action::acknowledge)) {
      ++counters_.foreign;
      return;
   }
   if (state_ == State::searching) {
      bool const answer = wasSent(message) && message.id == Id::defaultDataSet &&
                          message.error == 0 && decode<DefaultDataSet>(message.data).has_value();
      if (!answer) {
         ++counters_.late;
         return;
      }
      ++counters_.answers;
      found(message);
      deliver(message);
      return;
   }
   if (pending_ && message.sequenceId == pending_->sequenceId &&
       message.id == pending_->request.id) {
      takeAnswer(message);
   } else if (wasSent(message) || !isEvent(message)) {
      ++counters_.late;
   } else {
      ++counters_.events;
      if (message.id == Id::timeStatusNp) {
         lastTimeEvent_ = options_.clock();
      } else {
         // With the state of a port, the clock's data sets have changed.
         nextRound_ = std::min(nextRound_, lastRound_ + shortestRoundInterval);
      }
      deliver(message);
   }
}

void Daemon::readAll() {
   std::array<U8, 2048> buffer;  // more than an Ethernet frame holds
   for (int i = 0; i != turnDatagrams && endpoint_.fd() >= 0; ++i) {
      Endpoint::Received const received = endpoint_.receive(buffer);
      if (received.error == ECONNREFUSED || received.error == ECONNRESET) {
         continue;  // the next request tells
      }
      if (received.error != 0) {
         return;
      }
      Message message;
      if (received.size > buffer.size() ||
          parse(Octets(buffer.data(), received.size), message) != Fault::none) {
         ++counters_.malformed;
         continue;
      }
      take(message);
   }
}

// `Source`:

void Daemon::appendTo(std::vector<pollfd>& polled) {
   polled.push_back({endpoint_.fd(), POLLIN, 0});
}

U64 Daemon::deadline() const {
   if (state_ != State::up) {
      return nextTry_;
   }
   if (pending_) {
      return pending_->deadline;
   }
   if (!urgent_.empty() || !waiting_.empty()) {
      return 1;
   }
   U64 const next = std::min(nextRound_, nextSubscription_);
   return syncInterval_ != 0 ? std::min(next, nextSync_) : next;
}

void Daemon::onTurn(std::span<pollfd const>) {
   readAll();
   U64 const now = options_.clock();
   if (state_ == State::gone && now >= nextTry_) {
      reach();
   } else if (state_ == State::searching && now >= nextTry_) {
      search();
   }
   if (state_ == State::up && pending_ && now >= pending_->deadline) {
      giveUp();
   }
   if (state_ == State::up && !pending_) {
      schedule();
      sendNext();
   }
}

}  // namespace Ptp4lAgent
