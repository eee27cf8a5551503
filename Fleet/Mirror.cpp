#include "Fleet/Mirror.h"

#include <algorithm>

#include "Fleet/Names.h"
#include "Holt/Failure.h"
#include "Holt/State/Match.h"
#include "Kiv/Printable.h"

namespace Fleet {

namespace {

constexpr U64 reviewEvery = 500'000'000;
constexpr U64 shortestRepair = 1'000'000'000;
constexpr U64 longestRepair = 60'000'000'000;

bool isPatternOfNames(std::string const& switches) {
   return switches.find('*') != std::string::npos;
}

std::string filterOf(Mirror::Options const& options) {
   std::string filter = options.prefix + ".";
   if (!isPatternOfNames(options.switches)) {
      appendToken(filter, options.switches);
      filter += '.';
   }
   return filter + ">";
}

}  // namespace

Mirror::Mirror(Connection& connection, Options options)
      : connection_(connection), options_(std::move(options)) {
   if (options_.switches.empty()) {
      throw Holt::Failure("no switch is named; '*' stands for all", Holt::Exit::usage);
   }
   status_.since = Holt::wallNow();
   consumer_ = std::make_unique<Consumer>(
         connection_,
         Consumer::Options{
               .stream = options_.stream, .prefix = options_.prefix, .filter = filterOf(options_)},
         static_cast<Consumer::Reader&>(*this));
   reviewAt_ = connection_.now() + reviewEvery;
}

Mirror::~Mirror() = default;

Switch* Mirror::find(std::string_view name) const {
   auto const at = switches_.find(name);
   return at != switches_.end() ? at->second.get() : nullptr;
}

void Mirror::listenerDel(Listener const& listener) noexcept {
   std::erase(listeners_, &listener);
}

void Mirror::malformed(std::string_view subject, std::string_view what) {
   ++status_.malformed;
   status_.lastMalformed =
         Kiv::printable(Sarn::String(subject)) + ": " + Kiv::printable(Sarn::String(what));
}

void Mirror::onEntry(Consumer::Entry const& entry) {
   ++status_.messages;
   std::string_view rest = entry.subject;
   std::size_t const begin = options_.prefix.size() + 1;
   std::size_t const dot = rest.find('.', std::min(begin, rest.size()));
   if (!rest.starts_with(options_.prefix) || dot == std::string_view::npos) {
      malformed(entry.subject, "the subject has no place in a switch");
      return;
   }
   std::string const token(rest.substr(begin, dot - begin));
   std::string_view const place = rest.substr(dot + 1);
   auto const known = byToken_.find(token);
   Switch* its = known != byToken_.end() ? known->second : nullptr;
   std::string name;
   if (its == nullptr) {
      std::optional<std::string> const text = tokenText(token);
      if (!text || text->empty()) {
         malformed(entry.subject, "the subject names no switch");
         return;
      }
      name = *text;
      if (isPatternOfNames(options_.switches) && !Holt::keyFits(options_.switches, name)) {
         return;
      }
   }
   try {
      if (place == metaToken) {
         (void)(its == nullptr ? readMeta(entry.data) : Meta());
         (its != nullptr ? *its : switchOf(name)).onMeta(entry.data, entry.time);
         return;
      }
      EntityMessage message;
      if (std::string_view const wrong = readMessage(entry.data, message); !wrong.empty()) {
         malformed(entry.subject, wrong);
         return;
      }
      if (its == nullptr && message.isDeleted()) {
         return;
      }
      (its != nullptr ? *its : switchOf(name)).onMessage(entry.subject, place, message);
   } catch (Holt::Failure const& failure) {
      malformed(entry.subject, failure.what());
   }
}

Switch& Mirror::switchOf(std::string_view name) {
   auto& its = switches_[std::string(name)];
   if (its == nullptr) {
      its = std::make_unique<Switch>(*this, std::string(name));
      std::string token;
      appendToken(token, name);
      byToken_.emplace(std::move(token), its.get());
      tell([&](Listener& listener) { listener.onSwitch(*its); });
   }
   return *its;
}

void Mirror::onBegin() {
   ++reading_;
   for (auto const& [name, its] : switches_) {
      its->onBegin();
   }
}

void Mirror::onCaughtUp() {
   statusIs(consumer_ != nullptr ? consumer_->why() : std::string());
   std::vector<std::string> gone;
   for (auto const& [name, its] : switches_) {
      its->onCaughtUp();
      if (its->isEmpty()) {
         gone.push_back(name);
      }
   }
   for (std::string const& name : gone) {
      std::string token;
      appendToken(token, name);
      byToken_.erase(token);
      std::unique_ptr<Switch> const its = std::move(switches_.find(name)->second);
      switches_.erase(name);
      tell([&](Listener& listener) { listener.onSwitchGone(*its); });
   }
}

void Mirror::onReading(std::string const& why) {
   statusIs(why);
}

void Mirror::statusIs(std::string const& why) {
   bool const caughtUp = consumer_ != nullptr && consumer_->caughtUp();
   bool const current = why.empty() && caughtUp;
   std::string const reason = !why.empty() ? why : caughtUp ? "" : "reading what the fleet has";
   if (current == status_.current && reason == status_.reason) {
      return;
   }
   if (current != status_.current) {
      status_.since = Holt::wallNow();
   }
   status_.current = current;
   status_.reason = Kiv::printable(reason);
   review();
}

void Mirror::review() {
   for (auto const& [name, its] : switches_) {
      its->review();
   }
}

U64 Mirror::deadline() const {
   U64 due = reviewAt_;
   for (U64 const other : {consumer_->deadline(), repairAt_}) {
      due = other != 0 ? std::min(due, other) : due;
   }
   return due;
}

void Mirror::onTurn(std::span<pollfd const> polled) {
   consumer_->onTurn(polled);
   U64 const now = connection_.now();
   if (repairAt_ != 0 && now >= repairAt_) {
      repairAt_ = 0;
      repairPause_ = std::clamp(2 * repairPause_, shortestRepair, longestRepair);
      ++status_.repairs;
      consumer_->restart();
   }
   if (now < reviewAt_) {
      return;
   }
   reviewAt_ = now + reviewEvery;
   if (!connection_.status().connected) {
      statusIs(connection_.status().reason);
   }
   review();
   bool const differs = std::any_of(switches_.begin(), switches_.end(),
                                    [](auto const& each) { return each.second->differed_ != 0; });
   if (!differs && status_.current) {
      repairPause_ = 0;
   }
}

/// Calls those that are listeners by then: one may remove another.
void Mirror::tell(std::function<void(Listener&)> const& call) {
   for (Listener* const listener : std::vector(listeners_)) {
      if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) {
         call(*listener);
      }
   }
}

}  // namespace Fleet
