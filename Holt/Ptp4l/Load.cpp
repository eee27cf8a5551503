#include "Holt/Ptp4l/Load.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "Holt/Ptp4l/Keys.h"

namespace Holt {

namespace {

using Kind = Ptp4lSection::Kind;

/// One `[unicast_master_table]`.
struct MasterTable {
   std::vector<Dorn::IpGenAddr> masters;
};

/// Applies a file to a configuration in one pass.
class Load {
public:
   Load(Ptp4lConf const& conf, Ptp::Config& config) : conf_(conf), config_(config) {
      outcome_.errors = conf.errors;
   }

   Ptp4lOutcome run() {
      tables();
      config_.enabledIs(true);
      each(Kind::global, [this](Ptp4lSection const& section) { clockSection(section); });
      portDefaults();
      each(Kind::port, [this](Ptp4lSection const& section) { portSection(section); });
      clock();
      byLine(outcome_.errors);
      byLine(outcome_.notes);
      return std::move(outcome_);
   }

private:
   template <typename Visit>
   void each(Kind kind, Visit visit) {
      for (auto const& section : conf_.sections) {
         if (section.kind == kind) {
            visit(section);
         }
      }
   }

   /// Sorts remarks by line, and drops duplicates: the clock and the ports share some settings.
   static void byLine(std::vector<Ptp4lRemark>& remarks) {
      std::stable_sort(remarks.begin(), remarks.end(),
                       [](auto const& a, auto const& b) { return a.line < b.line; });
      auto const same = [](auto const& a, auto const& b) {
         return a.line == b.line && a.key == b.key && a.message == b.message;
      };
      remarks.erase(std::unique(remarks.begin(), remarks.end(), same), remarks.end());
   }

   void error(U32 line, std::string key, std::string message) {
      outcome_.errors.push_back({line, std::move(key), std::move(message)});
   }

   /// Notes only the first occurrence of each key.
   void note(Ptp4lSetting const& setting, std::string message) {
      if (noted_.insert(setting.key).second) {
         outcome_.notes.push_back({setting.line, setting.key, std::move(message)});
      }
   }

   /// Applies a setting. Adds a note if it returns one, and an error if it throws; then returns
   /// false.
   template <typename Apply>
   bool apply(Ptp4lSetting const& setting, Apply&& meaning) {
      try {
         if (char const* const why = meaning()) {
            note(setting, why);
         }
         return true;
      } catch (Kiv::Exception const& refusal) {
         error(setting.line, setting.key, refusal.what());
         return false;
      }
   }

   // ---- Unicast masters ----

   void tables() {
      each(Kind::unicastMasterTable, [this](Ptp4lSection const& section) { table(section); });
   }

   void table(Ptp4lSection const& section) {
      MasterTable table;
      Ptp4lSetting const* number = nullptr;
      for (auto const& setting : section.settings) {
         if (setting.key == "table_id") {
            number = &setting;
         } else if (setting.key == "UDPv4" || setting.key == "UDPv6") {
            apply(setting, [&] { return master(table, setting); });
         } else {
            note(setting,
                 setting.key == "L2" ? "masters without an IP address have no place" : noPlace);
         }
      }
      if (number == nullptr) {
         error(section.line, "table_id", "the unicast_master_table has none");
         return;
      }
      apply(*number, [&]() -> char const* {
         U32 const id = ptp4lNumber<U32>(*number);
         if (id == 0) {
            Kiv::throwRangeException("0 means no table");
         }
         if (!tables_.emplace(id, std::move(table)).second) {
            Kiv::throwRangeException("there are two tables with the number " + std::to_string(id));
         }
         return nullptr;
      });
   }

   static char const* master(MasterTable& table, Ptp4lSetting const& setting) {
      if (setting.key == "UDPv4") {
         table.masters.emplace_back(Dorn::IpAddr(setting.value));
      } else {
         table.masters.emplace_back(Dorn::Ip6Addr(setting.value));
      }
      return nullptr;
   }

   // ---- The clock ----

   void clockSection(Ptp4lSection const& section) {
      for (auto const& setting : section.settings) {
         if (auto const meaning = findClockKey(setting.key)) {
            apply(setting, [&] { return meaning(config_, clock_, setting); });
         } else if (!isPortDefault(setting.key) && !isUnicastKey(setting.key)) {
            note(setting, noPlace);
         }
      }
   }

   void clock() {
      if (clock_.slaveOnly) {
         clock_.quality.clockClassIs(255);
      }
      if (clock_.qualityGiven || clock_.slaveOnly) {
         config_.clockQualityIs(clock_.quality);
         config_.clockQualityConfiguredIs(true);
      }
      config_.ptpModeIs(clock_.ptpMode(ports_.size()));
      config_.ptpProfileIs(clock_.ptpProfile());
   }

   // ---- Ports ----

   static bool isUnicastKey(std::string_view key) {
      return key == "unicast_master_table" || key == "unicast_req_duration";
   }

   static bool isRoleKey(std::string_view key) {
      return key == "slaveOnly" || key == "clientOnly" || key == "masterOnly" ||
             key == "serverOnly";
   }

   /// Checks the defaults of ports once, and keeps the valid ones for the port sections.
   void portDefaults() {
      auto const scratch = Ptp::intfConfigFactory(Dorn::IntfId(), true, false);
      bool const havePorts =
            std::any_of(conf_.sections.begin(), conf_.sections.end(),
                        [](Ptp4lSection const& section) { return section.kind == Kind::port; });
      each(Kind::global, [&](Ptp4lSection const& section) {
         for (auto const& setting : section.settings) {
            bool good = false;
            if (isUnicastKey(setting.key)) {
               good = apply(setting, [&]() -> char const* {
                  ptp4lNumber<U32>(setting);
                  return nullptr;
               });
            } else if (isPortDefault(setting.key)) {
               auto const meaning = findPortKey(setting.key);
               good = apply(setting, [&] { return meaning(*scratch, setting); });
            }
            if (good) {
               defaults_.push_back(&setting);
               if (!havePorts && findClockKey(setting.key) == nullptr) {
                  note(setting, "a default for ports, but the file has no port");
               }
            }
         }
      });
   }

   void portSection(Ptp4lSection const& section) {
      Dorn::IntfId intf;
      try {
         intf = Dorn::IntfId(section.name);
      } catch (Kiv::Exception const& refusal) {
         error(section.line, section.name, refusal.what());
         return;
      }
      auto const port = config_.intfConfigIs(intf, true, false);
      auto& unicast = ports_[section.name];
      if (!unicast.started) {
         unicast.started = true;
         // The file decides on the role: forget an earlier one.
         if (mentionsRole(section)) {
            port->roleIs(Ptp::Role::dynamic);
         }
         for (auto const* setting : defaults_) {
            if (auto const meaning = findPortKey(setting->key)) {
               meaning(*port, *setting);
            } else {
               unicast.set(*setting);
            }
         }
      }
      for (auto const& setting : section.settings) {
         if (isUnicastKey(setting.key)) {
            apply(setting, [&]() -> char const* {
               ptp4lNumber<U32>(setting);
               unicast.set(setting);
               return nullptr;
            });
         } else if (auto const meaning = findPortKey(setting.key)) {
            apply(setting, [&] { return meaning(*port, setting); });
         } else {
            note(setting,
                 findClockKey(setting.key) != nullptr ? "belongs to the global section" : noPlace);
         }
      }
      if (unicast.table != nullptr) {
         apply(*unicast.table, [&] { return grantors(section.name, *port, unicast); });
      }
   }

   bool mentionsRole(Ptp4lSection const& section) const {
      return std::any_of(defaults_.begin(), defaults_.end(),
                         [](Ptp4lSetting const* one) { return isRoleKey(one->key); }) ||
             std::any_of(section.settings.begin(), section.settings.end(),
                         [](Ptp4lSetting const& one) { return isRoleKey(one.key); });
   }

   /// The unicast settings of a port.
   struct Unicast {
      bool started = false;
      Ptp4lSetting const* table = nullptr;
      Ptp4lSetting const* duration = nullptr;

      void set(Ptp4lSetting const& setting) {
         (setting.key == "unicast_master_table" ? table : duration) = &setting;
      }
   };

   /// Creates the profile of a port from its intervals, and assigns it to each of its masters.
   char const* grantors(std::string const& name, Ptp::IntfConfig& port, Unicast const& unicast) {
      U32 const id = ptp4lNumber<U32>(*unicast.table);
      if (id == 0) {
         return nullptr;
      }
      auto const table = tables_.find(id);
      if (table == tables_.end()) {
         Kiv::throwRangeException("there is no table with the number " + std::to_string(id));
      }
      // The daemon's own default.
      U32 const duration = unicast.duration == nullptr ? 3600 : ptp4lNumber<U32>(*unicast.duration);
      auto const request = [duration](S16 interval) {
         return Ptp::UcastNegMsgProfile(static_cast<S8>(interval), duration);
      };
      auto const profile = name + "/table" + std::to_string(id);
      config_.ucastNegProfileIs(profile,
                                Ptp::UcastNegProfile(request(port.logAnnounceInterval()),
                                                     request(port.logSyncInterval()),
                                                     request(port.logMinDelayReqInterval())));
      config_.unicastNegotiationIs(true);
      for (auto const& master : table->second.masters) {
         port.ucastNegGrantorIpToProfileMapIs(master, profile);
      }
      return nullptr;
   }

   static constexpr char const* noPlace = "the model has no place for it";

   Ptp4lConf const& conf_;
   Ptp::Config& config_;
   Ptp4lOutcome outcome_;
   Ptp4lClock clock_;
   std::set<std::string> noted_;
   std::map<U32, MasterTable> tables_;
   std::vector<Ptp4lSetting const*> defaults_;
   std::map<std::string, Unicast> ports_;
};

}  // namespace

Ptp4lOutcome loadPtp4lConf(Ptp4lConf const& conf, Ptp::Config& config) {
   // A trial run on a scratch configuration finds everything that the setters refuse.
   auto const trial = Ptp::configFactory("trial");
   auto outcome = Load(conf, *trial).run();
   if (outcome.errors.empty()) {
      Load(conf, config).run();
   }
   return outcome;
}

}  // namespace Holt
