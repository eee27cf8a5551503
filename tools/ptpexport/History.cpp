#include "tools/ptpexport/History.h"

#include <algorithm>

#include "Holt/Failure.h"
#include "Kiv/Path.h"

namespace Ptpexport {

namespace {

constexpr U64 aSecond = 1'000'000'000;

/// What becomes an event, below a clock.
constexpr char const* eventful[] = {
      ".portDS[*].portState",
      ".portDS[*].faultyFlag",
      ".parentDS.grandmasterIdentity",
      ".parentDS.grandmasterClockQuality",
      ".holdoverState",
};

}  // namespace

void HourCurve::clearUpTo(U64 second) {
   U64 const first = second - last_ >= length ? second - length + 1 : last_ + 1;
   for (U64 at = first; at < second; ++at) {
      values_[at % length] = none;
   }
}

void HourCurve::add(U64 second, S64 value) {
   clearUpTo(second);
   values_[second % length] =
         static_cast<S32>(std::clamp<S64>(value, S64(none) + 1, S64(INT32_MAX)));
   last_ = second;
}

Holt::Json HourCurve::values(U64 from, U64 to) const {
   Holt::Json all = Holt::Json::array();
   for (U64 second = from; second <= to; ++second) {
      bool const kept = second <= last_ && last_ - second < length;
      S32 const value = kept ? values_[second % length] : none;
      all.push_back(value == none ? Holt::Json(nullptr) : Holt::Json(value));
   }
   return all;
}

History::History(Feed& feed, Options options)
      : feed_(feed),
        options_(options),
        due_(options.clock() + aSecond),
        begin_(options.wallClock() / aSecond) {
   feed_.listenerAdd(*this);
}

History::~History() {
   feed_.listenerDel(*this);
}

void History::onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) {
   auto* const status = dynamic_cast<Ptp::Status*>(root.get());
   if (status == nullptr) {
      return;
   }
   Followed& followed = followed_.emplace_back();
   followed.status = Sarn::Ptr<Ptp::Status>(status);
   std::vector<Sarn::String> below;
   for (char const* const path : eventful) {
      below.push_back(status->nameString() + path);
   }
   followed.observer = std::make_unique<Holt::ChangeObserver>(
         Sarn::Ptr<Kiv::Entity>(status), std::move(below),
         [this, &followed](Holt::ChangeText const& text) { happened(followed, text); });
}

void History::onRootGone(Kiv::NamedEntity& root) {
   followed_.remove_if([&](Followed const& followed) {
      bool const gone = followed.status.get() == &root;
      curves_ -= gone ? followed.ports.size() : 0;
      return gone;
   });
}

void History::onTurn(std::span<pollfd const>) {
   U64 const now = options_.clock();
   if (now < due_) {
      return;
   }
   due_ += aSecond * ((now - due_) / aSecond + 1);
   if (!feed_.status().current) {
      return;  // what is old has no value now
   }
   for (Followed& followed : followed_) {
      sample(followed, second());
   }
}

void History::sample(Followed& followed, U64 second) {
   if (second <= followed.offset.last()) {
      return;  // somebody has set the wall clock back: what was kept stays
   }
   if (auto const& current = followed.status->currentDS()) {
      followed.offset.add(second, current->offsetFromMaster());
      followed.delay.add(second, current->meanPathDelay());
   }
   samplePorts(followed, second);
}

void History::samplePorts(Followed& followed, U64 second) {
   for (Sarn::Ptr<Ptp::PortDS> const& port : followed.status->portDSAll()) {
      if (port->delayMechanism() != Ptp::DelayMechanism::p2p) {
         continue;
      }
      auto at = followed.ports.find(port->portDSKey());
      if (at == followed.ports.end()) {
         if (curves_ == options_.ports) {
            continue;
         }
         at = followed.ports.emplace(port->portDSKey(), std::make_unique<HourCurve>()).first;
         ++curves_;
      }
      at->second->add(second, port->peerMeanPathDelay());
   }
   curves_ -= std::erase_if(followed.ports, [second](auto const& port) {
      return second - port.second->last() >= HourCurve::length;
   });
}

void History::happened(Followed& followed, Holt::ChangeText const& text) {
   Holt::Json const change = Holt::changeJson(text);
   if (change["change"] != "set") {
      return;  // a port that appears or is gone: its state has not changed
   }
   if (followed.events.size() == options_.events) {
      followed.events.pop_front();
   }
   followed.events.push_back({options_.wallClock(), text.path, change["new"]});
}

History::Followed const& History::find(std::string const& name) const {
   for (Followed const& followed : followed_) {
      if (name.empty() || followed.status->nameString() == name) {
         return followed;
      }
   }
   throw Holt::Failure(name.empty() ? "the source offers no Ptp::Status"
                                    : "the source offers no Ptp::Status named " + name);
}

/// The events of the last hour at paths that begin with `below`.
Holt::Json History::events(Followed const& followed, std::string const& below) const {
   Holt::Json all = Holt::Json::array();
   U64 const now = options_.wallClock();
   for (Event const& event : followed.events) {
      if (event.wall + HourCurve::length * aSecond > now && event.path.starts_with(below)) {
         U64 const milliseconds = event.wall / 1'000'000;
         all.push_back({{"time", static_cast<double>(milliseconds) / 1e3},
                        {"path", event.path},
                        {"value", event.value}});
      }
   }
   return all;
}

Holt::Json History::frame() const {
   U64 const now = second();
   U64 const hour = now >= HourCurve::length ? now - HourCurve::length + 1 : 0;
   return {{"start", std::min(std::max(begin_, hour), now)}, {"step", 1}};
}

Holt::Json History::clock(std::string const& name) const {
   Followed const& followed = find(name);
   Holt::Json all = frame();
   U64 const start = all["start"];
   all["offsetFromMaster"] = followed.offset.values(start, second());
   all["meanPathDelay"] = followed.delay.values(start, second());
   all["events"] = events(followed, followed.status->nameString());
   return all;
}

Holt::Json History::port(std::string const& name, std::string const& key) const {
   Followed const& followed = find(name);
   for (Sarn::Ptr<Ptp::PortDS> const& port : followed.status->portDSAll()) {
      Ptp::PortDSKey const& itsKey = port->portDSKey();
      if (Kiv::keyText(&itsKey) != key) {
         continue;
      }
      Holt::Json all = frame();
      auto const at = followed.ports.find(itsKey);
      all["peerMeanPathDelay"] = at == followed.ports.end()
                                       ? Holt::Json::array()
                                       : at->second->values(all["start"], second());
      all["events"] = events(followed, followed.status->nameString() + ".portDS[" + key + "].");
      return all;
   }
   throw Holt::Failure(followed.status->nameString() + " has no port '" + key + "'");
}

}  // namespace Ptpexport
