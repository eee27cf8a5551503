#include "tools/ptp4lAgent/ConfigFill.h"

#include <algorithm>
#include <string_view>
#include <type_traits>

#include "Kiv/Path.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "tools/ptp4lAgent/Numbers.h"

namespace Ptp4lAgent {

ConfigFill::ConfigFill(Sarn::Ptr<Ptp::Config> config, Daemon& daemon, Ports const& ports)
      : config_(std::move(config)), daemon_(daemon), ports_(ports) {
   config_->observerAdd(*this, Kiv::Scope::subtree);
}

ConfigFill::~ConfigFill() {
   config_->observerDel(*this, Kiv::Scope::subtree);
}

// From the daemon.

/// Makes changes that are not passed back to the daemon. What the model has no room for, it does
/// not hold.
template <class Set>
void ConfigFill::quietly(Set&& set) {
   struct Filling {
      bool& filling;
      ~Filling() { filling = false; }
   } const filling{filling_ = true};
   try {
      set();
   } catch (Kiv::RangeException const&) {
   }
}

/// Sets an attribute that only a restart changes, if the daemon tells something else than before.
template <class T, class Set>
void ConfigFill::told(Sarn::String const& what, T const& value, Set&& set) {
   S64 number = 0;
   if constexpr (std::is_enum_v<T>) {
      number = static_cast<S64>(value);
   } else {
      number += value;
   }
   auto const [at, isNew] = told_.try_emplace(what, number);
   if (isNew || at->second != number) {
      at->second = number;
      quietly([&] { set(value); });
   }
}

void ConfigFill::take(DefaultDataSet const& set) {
   default_ = set;
   told("enabled", true, [this](bool v) { config_->enabledIs(v); });
   told("managementEnabled", true, [this](bool v) { config_->managementEnabledIs(v); });
   told("domainNumber", set.domainNumber, [this](U8 v) { config_->domainNumberIs(v); });
   fill();
}

void ConfigFill::take(Ptp::Status const& status) {
   if (auto const& clock = status.defaultDS()) {
      told("ptpMode", clock->ptpMode(), [this](Ptp::PtpMode v) { config_->ptpModeIs(v); });
   }
   for (auto const& entry : ports_) {
      Port const& port = entry.second;
      told(port.name + ".transportMode", port.status->transportMode(),
           [&](Ptp::TransportMode v) { intf(port).transportModeIs(v); });
   }
}

/// Brings the attributes that can be changed live to the daemon's values, unless a change is under
/// way.
void ConfigFill::fill() {
   if (open_ != 0) {
      return;
   }
   if (default_) {
      quietly([this] {
         config_->priority1Is(default_->priority1);
         config_->priority2Is(default_->priority2);
      });
      Ptp::ClockQuality const& quality = default_->clockQuality;
      if (config_->clockQualityConfigured()) {
         quietly([&] { config_->clockQualityIs(quality); });
      } else {
         // What others store is kept until it is configured.
         U32 const number = U32{quality.clockClass()} << 24 | U32{quality.clockAccuracy()} << 16 |
                            quality.offsetScaledLogVariance().value();
         told("clockQuality", number, [&](U32) { config_->clockQualityIs(quality); });
      }
   }
   for (auto const& entry : thresholds_) {
      auto const at = ports_.find(entry.first);
      if (at != ports_.end()) {
         quietly([&] { intf(at->second).linkDelayThresholdIs(entry.second); });
      }
   }
}

Ptp::IntfConfig& ConfigFill::intf(Port const& port) {
   if (auto const found = config_->intfConfig(port.key.intf())) {
      return *found;
   }
   // If somebody has removed it, it is to be told everything again.
   std::erase_if(told_, [&](auto const& told) { return told.first.starts_with(port.name + "."); });
   return *config_->intfConfigIs(port.key.intf(), true, false);
}

void ConfigFill::take(Port const& port, PortPropertiesNp const& set) {
   told(port.name + ".enabled", true, [&](bool v) { intf(port).enabledIs(v); });
   if (auto const mode = timeStampingModeOf(set.timestamping)) {
      told(port.name + ".timeStampingMode", *mode,
           [&](Ptp::TimeStampingMode v) { intf(port).timeStampingModeIs(v); });
   }
}

void ConfigFill::take(Port const& port, PortDataSet const& set) {
   Sarn::String const& name = port.name;
   told(name + ".logMinDelayReqInterval", set.logMinDelayReqInterval,
        [&](S8 v) { intf(port).logMinDelayReqIntervalIs(v); });
   told(name + ".logAnnounceInterval", set.logAnnounceInterval,
        [&](S8 v) { intf(port).logAnnounceIntervalIs(v); });
   told(name + ".announceReceiptTimeout", set.announceReceiptTimeout,
        [&](U8 v) { intf(port).announceReceiptTimeoutIs(v); });
   told(name + ".logSyncInterval", set.logSyncInterval,
        [&](S8 v) { intf(port).logSyncIntervalIs(v); });
   told(name + ".logMinPdelayReqInterval", set.logMinPdelayReqInterval,
        [&](S8 v) { intf(port).logMinPdelayReqIntervalIs(v); });
   if (auto const mechanism = delayMechanismOf(set.delayMechanism)) {
      told(name + ".delayMechanism", *mechanism,
           [&](Ptp::DelayMechanism v) { intf(port).delayMechanismIs(v); });
   }
}

void ConfigFill::take(U16 number, Port const&, PortDataSetNp const& set) {
   thresholds_[number] = set.neighborPropDelayThresh;
   fill();
}

// To the daemon.

void ConfigFill::onChange(Kiv::Change const& change) {
   if (filling_) {
      return;
   }
   if (onChanged) {
      onChanged();
   }
   Kiv::Entity& entity = Kiv::entityOf(change);
   std::string_view const name = entity.kivType().field(change.attributeId)->name;
   Sarn::String const path = Kiv::entityPath(entity) + "." + Sarn::String(name);
   if (&entity == config_.get()) {
      if (name == "priority1") {
         pass(path,
              [this](Decided d) { writeOctet(Id::priority1, config_->priority1(), std::move(d)); });
      } else if (name == "priority2") {
         pass(path,
              [this](Decided d) { writeOctet(Id::priority2, config_->priority2(), std::move(d)); });
      } else if (config_->clockQualityConfigured() &&
                 (name == "clockQuality" || name == "clockQualityConfigured")) {
         pass(path, [this](Decided d) { writeQuality(std::move(d)); });
      }
   } else if (name == "linkDelayThreshold" && entity.kivType().isA(Ptp::IntfConfig::kivTypeImpl)) {
      auto const& changed = static_cast<Ptp::IntfConfig const&>(entity);
      pass(path, [this, &changed](Decided d) {
         writeThreshold(changed.intf(), changed.linkDelayThreshold(), std::move(d));
      });
   }
}

/// Writes a change to the daemon. The attributes follow the daemon again when it has answered.
void ConfigFill::pass(Sarn::String const& path, std::function<void(Decided)> const& write) {
   ++open_;
   auto const taken = std::make_shared<bool>(false);
   write([this, taken, path, asker = onAsked ? onAsked() : Decided(),
          alive = std::weak_ptr<bool>(alive_)](Sarn::String const& refusal) {
      if (alive.expired()) {
         return;
      }
      *taken = refusal.empty();
      --open_;
      fill();
      if (asker) {
         asker(refusal.empty() ? refusal : path + ": " + refusal);
      }
   });
   if (!*taken && onUndecided) {
      onUndecided();
   }
}

void ConfigFill::writeOctet(Id id, U8 value, Decided decided) {
   daemon_.set(id, Daemon::everyPortNumber, encode(OctetValue{value, 0}), Id::defaultDataSet,
               std::move(decided));
}

/// The daemon takes all settings at once: those that stay as they are are read first.
void ConfigFill::writeQuality(Decided decided) {
   settings_.reset();
   daemon_.get(Id::grandmasterSettingsNp,
               [this, decided = std::move(decided),
                alive = std::weak_ptr<bool>(alive_)](Sarn::String const& refusal) {
                  if (alive.expired() || !settings_) {
                     decided(refusal.empty() ? "ptp4l does not tell its settings" : refusal);
                     return;
                  }
                  settings_->clockQuality = config_->clockQuality();
                  daemon_.set(Id::grandmasterSettingsNp, Daemon::everyPortNumber,
                              encode(*settings_), Id::defaultDataSet, decided);
               });
}

void ConfigFill::writeThreshold(Dorn::IntfId const& intf, U64 threshold, Decided decided) {
   auto const at = std::find_if(ports_.begin(), ports_.end(),
                                [&](auto const& entry) { return entry.second.key.intf() == intf; });
   if (at == ports_.end()) {
      decided("");  // of an interface that is no port of this daemon
      return;
   }
   if (threshold > 0xFFFFFFFF) {
      decided(std::to_string(threshold) + " exceeds 4294967295, the most that ptp4l can hold");
      return;
   }
   PortDataSetNp set;
   set.neighborPropDelayThresh = static_cast<U32>(threshold);
   set.asCapable = at->second.status->asCapable() ? 1 : 0;  // ptp4l ignores it
   daemon_.set(Id::portDataSetNp, at->first, encode(set), Id::portDataSetNp, std::move(decided));
}

}  // namespace Ptp4lAgent
