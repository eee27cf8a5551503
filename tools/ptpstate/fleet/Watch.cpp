// watch --fleet
#include "tools/ptpstate/FleetWatch.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "Holt/File.h"
#include "Holt/State/Changes.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Match.h"
#include "Holt/StopSignals.h"
#include "Holt/Times.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/fleet/FleetSession.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

/// Prints the changes of all switches that are mirrored.
class FleetWatch final : Fleet::Mirror::Listener {
public:
   explicit FleetWatch(WatchOptions const& options)
         : options_(options),
           session_(options.fleet, options.fleet.switches, options.patience(), stop_.fd()) {}
   ~FleetWatch() { session_.mirror().listenerDel(*this); }
   FleetWatch(FleetWatch const&) = delete;
   FleetWatch& operator=(FleetWatch const&) = delete;

   Exit run();

private:
   using Observers = std::map<Kiv::NamedEntity const*, std::unique_ptr<ChangeObserver>>;

   void onSwitch(Fleet::Switch& its) override;
   void onSwitchGone(Fleet::Switch& its) override;
   void onRoot(Fleet::Switch& its, Sarn::Ptr<Kiv::NamedEntity> const& root) override;
   void onRootGone(Fleet::Switch& its, Kiv::NamedEntity& root) override;
   void onStatus(Fleet::Switch& its) override;

   bool follow(Fleet::Switch const& its, Sarn::Ptr<Kiv::NamedEntity> const& root, bool telling);
   void onChange(std::string const& name, ChangeText const& text);
   void event(Fleet::Switch const& its, std::string const& what, Json const& more,
              char const* kind);
   void dump() const;
   std::string prefix(std::string const& name) const {
      return options_.fleet.isPattern() ? name + ":" : "";
   }
   bool enough() const { return options_.count != 0 && told_ >= options_.count; }

   WatchOptions const& options_;
   StopSignals stop_;
   FleetSession session_;
   std::map<Fleet::Switch const*, Observers> observers_;
   U64 told_ = 0;
};

/// `what` follows the name of the switch; as JSON, `kind` names the event, and `more` is added.
void FleetWatch::event(Fleet::Switch const& its, std::string const& what, Json const& more,
                       char const* kind) {
   if (options_.json) {
      Json json{{"time", timeText(wallNow(), TimeForm::universal)},
                {"event", kind},
                {"switch", jsonOf(Sarn::String(its.name()))}};
      json.update(more);
      std::cout << jsonLine(json) << '\n';
   } else {
      std::cout << timeText(wallNow(), TimeForm::time) << " -- "
                << Kiv::printable(its.name() + " " + what) << '\n';
   }
}

void FleetWatch::onSwitch(Fleet::Switch& its) {
   event(its, "is seen for the first time", Json::object(), "switch");
}

void FleetWatch::onSwitchGone(Fleet::Switch& its) {
   observers_.erase(&its);
   event(its, "is gone: the fleet has nothing of it any more", Json::object(), "gone");
}

void FleetWatch::onRoot(Fleet::Switch& its, Sarn::Ptr<Kiv::NamedEntity> const& root) {
   (void)follow(its, root, true);
}

void FleetWatch::onRootGone(Fleet::Switch& its, Kiv::NamedEntity& root) {
   if (auto const at = observers_.find(&its); at != observers_.end()) {
      at->second.erase(&root);
   }
   event(its, root.nameString() + " is gone: the switch has withdrawn it",
         Json{{"root", jsonOf(root.nameString())}}, "gone");
}

void FleetWatch::onStatus(Fleet::Switch& its) {
   if (its.status().current) {
      event(its, "is current: " + std::to_string(its.entities()) + " entities",
            Json{{"entities", its.entities()}}, "current");
   } else {
      event(its, "is not current " + troubleOf(&its),
            Json{{"since", timeText(its.status().since, TimeForm::universal)},
                 {"reason", its.status().reason}},
            "old");
   }
}

/// Observes a root, if the paths lead into it. Throws `Failure` if they lead nowhere there.
bool FleetWatch::follow(Fleet::Switch const& its, Sarn::Ptr<Kiv::NamedEntity> const& root,
                        bool telling) {
   std::vector<Sarn::String> below;
   OfferedRoot const offered{root->kivType().name, root->nameString()};
   std::optional<Failure> failed;
   for (std::string const& text : options_.paths) {
      try {
         below.push_back(canonicalPath(root->kivType(), parsePath(plainArgument(text), {offered})));
      } catch (Failure const& failure) {
         failed = failure;  // a path of another root
      }
   }
   if (options_.paths.empty()) {
      below.push_back(offered.name);
   }
   if (below.empty()) {
      if (!telling) {
         throw Failure(*failed);
      }
      return false;
   }
   auto observer = std::make_unique<ChangeObserver>(
         root, std::move(below),
         [this, name = its.name()](ChangeText const& text) { onChange(name, text); });
   observers_[&its][&*root] = std::move(observer);
   return true;
}

void FleetWatch::onChange(std::string const& name, ChangeText const& text) {
   if (enough()) {
      return;
   }
   ++told_;
   if (options_.json) {
      Json json{{"time", timeText(wallNow(), TimeForm::universal)},
                {"switch", jsonOf(Sarn::String(name))}};
      json.update(changeJson(text));
      std::cout << jsonLine(json) << '\n';
   } else {
      std::cout << timeText(wallNow(), TimeForm::time) << ' '
                << Kiv::printable(prefix(name) + text.path + text.what) << '\n';
   }
}

void FleetWatch::dump() const {
   writeWholeFile(options_.dump, [this](std::ostream& out) {
      Json switches = Json::object();
      for (auto const& [its, observers] : observers_) {
         std::vector<Kiv::NamedEntity*> roots;
         for (Kiv::NamedEntity* const root : its->roots()) {
            if (observers.contains(root)) {
               roots.push_back(root);
            }
         }
         Json json = jsonOf(docOf(roots));
         if (!options_.fleet.isPattern()) {
            out << jsonText(json);
            return;
         }
         switches[Kiv::printable(its->name())] = std::move(json);
      }
      out << jsonText(Json{{"format", "ptpstate fleet dump 1"}, {"switches", std::move(switches)}});
   });
}

Exit FleetWatch::run() {
   std::optional<Clock::time_point> end;
   if (options_.seconds > 0) {
      end = Clock::now() + milliseconds(static_cast<S64>(options_.seconds * 1000));
   }
   if (!options_.dump.empty()) {
      checkWritable(options_.dump);
   }
   session_.wait();
   bool any = false;
   std::optional<Failure> failed;
   for (std::string const& name : session_.names()) {
      Fleet::Switch& its = *session_.mirror().find(name);
      for (Kiv::NamedEntity* const root : its.roots()) {
         try {
            any = follow(its, Sarn::Ptr<Kiv::NamedEntity>(root), false) || any;
         } catch (Failure const& failure) {
            failed = failure;
         }
      }
   }
   if (!any && failed) {
      throw Failure(*failed);
   }
   for (std::string const& name : session_.names()) {
      onStatus(*session_.mirror().find(name));
   }
   session_.mirror().listenerAdd(*this);
   while (!enough() && (!end || Clock::now() < *end)) {
      Tools::requireWritten(std::cout);
      auto left = milliseconds(-1);
      if (end) {
         left = std::max(std::chrono::ceil<milliseconds>(*end - Clock::now()), milliseconds(0));
      }
      if (session_.turn(stop_.fd(), left)) {
         break;
      }
      if (options_.noReconnect && !session_.connection().status().connected) {
         Tools::requireWritten(std::cout);
         throw Failure(
               "the connection to the fleet is lost: " + session_.connection().status().reason,
               Exit::connection);
      }
   }
   Tools::requireWritten(std::cout);
   if (!options_.dump.empty()) {
      dump();
   }
   return Exit::ok;
}

}  // namespace

Exit watchFleet(WatchOptions const& options) {
   return FleetWatch(options).run();
}

}  // namespace Ptpstate
