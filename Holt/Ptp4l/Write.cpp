#include "Holt/Ptp4l/Write.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <map>
#include <optional>
#include <span>

#include "Holt/Ptp4l/Keys.h"
#include "Holt/Ptp4l/WriteRows.h"
#include "Holt/State/Values.h"
#include "Holt/State/Walk.h"
#include "Kiv/Printable.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace Holt {

namespace {

using namespace Ptp4lRows;
using Ptp::Config;
using Ptp::IntfConfig;

/// Attributes that `Writer` treats by itself: all others have a row or no setting.
constexpr std::string_view clockSpecial[] = {"enabled",
                                             "ptpMode",
                                             "ptpProfile",
                                             "clockIdentity",
                                             "clockQuality",
                                             "intfConfig",
                                             "clockIdentityConfigured",
                                             "clockQualityConfigured",
                                             "unicastNegotiation",
                                             "ucastNegProfile"};
constexpr std::string_view portSpecial[] = {"intf",
                                            "enabled",
                                            "role",
                                            "delayMechanism",
                                            "transportMode",
                                            "timeStampingMode",
                                            "pktTxMacAddress",
                                            "dscpEvent",
                                            "dscpEventConfigured",
                                            "dscpGeneral",
                                            "dscpGeneralConfigured",
                                            "ucastNegGrantorIpToProfileMap",
                                            "domainNumber",
                                            "priority1",
                                            "priority2"};

std::string_view transportText(Ptp::TransportMode mode) {
   switch (mode) {
      case Ptp::TransportMode::layer2:
         return "L2";
      case Ptp::TransportMode::ipv4:
         return "UDPv4";
      case Ptp::TransportMode::ipv6:
         return "UDPv6";
   }
   return "";
}

std::string_view timeStampingText(Ptp::TimeStampingMode mode) {
   switch (mode) {
      case Ptp::TimeStampingMode::hardware:
         return "hardware";
      case Ptp::TimeStampingMode::software:
         return "software";
      case Ptp::TimeStampingMode::oneStep:
         return "onestep";
      case Ptp::TimeStampingMode::p2pOneStep:
         return "p2p1step";
   }
   return "";
}

std::string hex(U32 number, int digits) {
   std::array<char, 16> text;
   std::snprintf(text.data(), text.size(), "0x%0*X", digits, number);
   return text.data();
}

/// The values of an entity and below it, with their paths from it on.
class ConfigLines final : private StateLines<Kiv::Entity> {
public:
   explicit ConfigLines(Kiv::Entity const& of) { entity(of, ""); }

   std::vector<std::pair<std::string, std::string>> all;

private:
   void entityLine(Sarn::String const&, Kiv::TypeImpl const&) override {}
   void valueLine(Sarn::String const& path, Kiv::ValueRef value) override {
      all.emplace_back(path.substr(1), valueText(value));
   }
   void nextLine(Sarn::String const&, U32) override {}
   void valuesEnd() override {}
};

class Writer {
public:
   Writer(Config const& config, Ptp4lConf const* base) : config_(config), base_(base) {
      for (auto const& port : config.intfConfigAll()) {
         if (port->intf() == Dorn::IntfId()) {
            note("intfConfig[" + nameOf(*port) + "].intf", nameOf(*port),
                 "the port is left out: it has no name");
         } else if (port->enabled()) {
            ports_.push_back(port.get());
         } else {
            note("intfConfig[" + nameOf(*port) + "].enabled", "false", "the port is left out");
         }
      }
      std::sort(ports_.begin(), ports_.end(), [](IntfConfig const* a, IntfConfig const* b) {
         return naturallyLess(nameOf(*a), nameOf(*b));
      });
   }

   Ptp4lText run() {
      clock();
      for (IntfConfig const* const port : ports_) {
         this->port(*port);
      }
      masterTables();
      rest<Config>(config_, *Ptp::configFactory(""), "", clockRows, clockSpecial);
      Ptp4lText result;
      result.text = "# " + std::string(Kiv::printable(config_.name())) + ", written for ptp4l\n";
      if (!notes_.empty()) {
         result.text += "#\n# Not in this file, or in another way:\n";
      }
      for (std::string const& note : notes_) {
         result.text += "#    " + note + "\n";
      }
      result.text += "\n" + text_;
      result.notes = std::move(notes_);
      return result;
   }

private:
   static std::string nameOf(IntfConfig const& port) {
      return std::string(Kiv::strRep(port.intf()));
   }

   void note(std::string const& attribute, std::string const& value, std::string const& why) {
      notes_.emplace_back(Kiv::printable(attribute + " = " + value + ": " + why));
   }

   void set(std::string_view key, std::string_view value) {
      text_ += key;
      text_ += key.size() < 32 ? std::string(32 - key.size(), ' ') : " ";
      text_ += value;
      text_ += '\n';
   }

   template <class Entity>
   void numbers(Entity const& entity, std::span<NumberRow<Entity> const> rows,
                std::string const& path) {
      for (NumberRow<Entity> const& row : rows) {
         S64 const number = row.read(entity);
         if (row.least <= number && number <= row.greatest) {
            set(row.key, std::to_string(number));
         } else {
            note(path + std::string(row.attribute), std::to_string(number),
                 "ptp4l takes " + std::to_string(row.least) + " to " +
                       std::to_string(row.greatest));
         }
      }
   }

   /// Notes attributes without a setting that are not as in a new entity.
   template <class Entity>
   void rest(Entity const& entity, Entity const& fresh, std::string const& path,
             std::span<NumberRow<Entity> const> rows, std::span<std::string_view const> special) {
      auto const initial = ConfigLines(fresh).all;
      for (auto const& line : ConfigLines(entity).all) {
         std::string_view const attribute =
               std::string_view(line.first).substr(0, line.first.find_first_of(".["));
         bool const known = std::find(special.begin(), special.end(), attribute) != special.end() ||
                            std::any_of(rows.begin(), rows.end(), [&](auto const& row) {
                               return row.attribute == attribute;
                            });
         if (!known && std::find(initial.begin(), initial.end(), line) == initial.end()) {
            note(path + line.first, line.second, "ptp4l has no setting for it");
         }
      }
   }

   /// Copies settings of the base that nothing else here writes. The last one of a key counts.
   void others(Ptp4lSection::Kind kind, std::string const& name) {
      std::map<std::string, std::string> found;
      for (Ptp4lSection const& section : base_ != nullptr ? base_->sections : noSections) {
         if (section.kind == kind && section.name == name) {
            for (Ptp4lSetting const& setting : section.settings) {
               if (findClockKey(setting.key) == nullptr && findPortKey(setting.key) == nullptr &&
                   !setting.key.starts_with("unicast_")) {
                  found[setting.key] = setting.value;
               }
            }
         }
      }
      if (!found.empty()) {
         text_ += "# As in " + std::string(Kiv::printable(base_->file)) + ":\n";
      }
      for (auto const& [key, value] : found) {
         set(key, value);
      }
   }

   // ---- The clock ----

   void clock() {
      text_ += "[global]\n";
      kind();
      numbers<Config>(config_, clockRows, "");
      quality();
      if (config_.clockIdentityConfigured()) {
         set("clockIdentity", identityText());
      }
      bool const allAskMasters =
            !ports_.empty() && std::all_of(ports_.begin(), ports_.end(), hasMasters);
      set("unicast_listen", config_.unicastNegotiation() && !allAskMasters ? "1" : "0");
      if (!config_.enabled()) {
         note("enabled", "false", "ptp4l is enabled as long as it runs");
      }
      others(Ptp4lSection::Kind::global, "");
   }

   void kind() {
      using Mode = Ptp::PtpMode;
      Mode const mode = config_.ptpMode();
      Ptp::PtpProfile const profile = config_.ptpProfile();
      auto const noteMode = [&](char const* why) {
         note("ptpMode", std::string(Kiv::strRep(mode)), why);
      };
      bool const boundary = mode == Mode::boundary || mode == Mode::oneStepBoundary;
      bool const e2e = mode == Mode::e2eTransparent || mode == Mode::oneStepE2eTransparent;
      bool const p2p = mode == Mode::p2pTransparent;
      bool const generalized = mode == Mode::ptpGeneralized || profile == Ptp::PtpProfile::gptp;
      if (mode == Mode::disabled) {
         noteMode("ptp4l is enabled as long as it runs");
      } else if (mode == Mode::ordinary && ports_.size() > 1) {
         noteMode("with several ports, ptp4l is a boundary clock");
      } else if ((boundary || e2e || p2p) && ports_.size() == 1) {
         noteMode("ptp4l needs two ports for it");
      }
      if (generalized && mode != Mode::ptpGeneralized && mode != Mode::disabled) {
         noteMode("ptp4l has one setting for gptp and for the mode");
      } else if (mode == Mode::ptpGeneralized && profile != Ptp::PtpProfile::gptp) {
         note("ptpProfile", std::string(Kiv::strRep(profile)),
              "ptp4l has one setting for the profile and for ptpGeneralized");
      } else if (profile == Ptp::PtpProfile::g8265_1) {
         note("ptpProfile", std::string(Kiv::strRep(profile)), "ptp4l has no setting for it");
      }
      set("clock_type", boundary ? "BC" : e2e ? "E2E_TC" : p2p ? "P2P_TC" : "OC");
      set("twoStepFlag",
          mode == Mode::oneStepBoundary || mode == Mode::oneStepE2eTransparent ? "0" : "1");
      set("transportSpecific", generalized ? "0x1" : "0x0");
      bool const telecom =
            profile == Ptp::PtpProfile::g8275_1 || profile == Ptp::PtpProfile::g8275_2;
      set("dataset_comparison", telecom ? "G.8275.x" : "ieee1588");
      if (telecom) {
         // Tells the two profiles apart. Each port says its own, too.
         set("network_transport", profile == Ptp::PtpProfile::g8275_1 ? "L2" : "UDPv4");
      }
      set("slaveOnly", slaveOnly() ? "1" : "0");
      timeStamping();
   }

   /// A setting of the clock, not of a port.
   bool slaveOnly() const {
      if (ports_.empty()) {
         return config_.clockQualityConfigured() && config_.clockQuality().clockClass() == 255;
      }
      return std::all_of(ports_.begin(), ports_.end(), [](IntfConfig const* port) {
         return port->role() == Ptp::Role::slaveOnly;
      });
   }

   /// A setting of the clock, not of a port.
   void timeStamping() {
      if (ports_.empty()) {
         return;
      }
      Ptp::TimeStampingMode const mode = ports_.front()->timeStampingMode();
      set("time_stamping", timeStampingText(mode));
      for (IntfConfig const* const port : ports_) {
         if (port->timeStampingMode() != mode) {
            note(pathOf(*port) + "timeStampingMode",
                 std::string(Kiv::strRep(port->timeStampingMode())),
                 "ptp4l has one for all ports, that of " + nameOf(*ports_.front()));
         }
      }
   }

   void quality() {
      if (config_.clockQualityConfigured()) {
         Ptp::ClockQuality const quality = config_.clockQuality();
         set("clockClass", std::to_string(quality.clockClass()));
         set("clockAccuracy", hex(quality.clockAccuracy(), 2));
         set("offsetScaledLogVariance", hex(quality.offsetScaledLogVariance().value(), 4));
      }
   }

   std::string identityText() const {
      std::string digits(Kiv::strRep(config_.clockIdentity()));
      std::erase(digits, ':');
      return digits.insert(10, ".").insert(6, ".");
   }

   // ---- Ports ----

   static std::string pathOf(IntfConfig const& port) { return "intfConfig[" + nameOf(port) + "]."; }

   void port(IntfConfig const& port) {
      std::string const path = pathOf(port);
      text_ += "\n[" + nameOf(port) + "]\n";
      numbers<IntfConfig>(port, portRows, path);
      set("network_transport", transportText(port.transportMode()));
      set("ptp_dst_mac", Kiv::strRep(port.pktTxMacAddress()));
      delayMechanism(port, path);
      set("masterOnly", port.role() == Ptp::Role::masterOnly ? "1" : "0");
      if (port.role() == Ptp::Role::slaveOnly && !slaveOnly()) {
         note(path + "role", "slaveOnly", "ptp4l can have only all ports slaves");
      }
      // What ptp4l has once for the clock.
      clockWide(path + "domainNumber", port.domainNumber(), config_.domainNumber(), 0);
      clockWide(path + "priority1", port.priority1(), config_.priority1(), 128);
      clockWide(path + "priority2", port.priority2(), config_.priority2(), 128);
      if (port.dscpEventConfigured()) {
         clockWide(path + "dscpEvent", port.dscpEvent(), config_.globalDscpEvent());
      }
      if (port.dscpGeneralConfigured()) {
         clockWide(path + "dscpGeneral", port.dscpGeneral(), config_.globalDscpGeneral());
      }
      masters(port, path);
      others(Ptp4lSection::Kind::port, nameOf(port));
      rest<IntfConfig>(port, *Ptp::intfConfigFactory(port.intf(), true, false), path, portRows,
                       portSpecial);
   }

   void clockWide(std::string const& attribute, U8 value, U8 ofClock,
                  std::optional<U8> initial = std::nullopt) {
      if (value != ofClock && value != initial) {
         note(attribute, std::to_string(value),
              "ptp4l has one for all ports, " + std::to_string(ofClock));
      }
   }

   void delayMechanism(IntfConfig const& port, std::string const& path) {
      auto const mechanism = port.delayMechanism();
      auto const noted = [&](char const* why) {
         note(path + "delayMechanism", std::string(Kiv::strRep(mechanism)), why);
      };
      switch (mechanism) {
         case Ptp::DelayMechanism::e2e:
            set("delay_mechanism", "E2E");
            return;
         case Ptp::DelayMechanism::p2p:
            set("delay_mechanism", "P2P");
            return;
         case Ptp::DelayMechanism::disabled:
            set("delay_mechanism", "NONE");
            noted("needs linuxptp 4.0");
            return;
         case Ptp::DelayMechanism::commonP2p:
         case Ptp::DelayMechanism::special:
            noted("ptp4l has no setting for it");
            return;
      }
   }

   // ---- Unicast masters ----

   using Addresses = std::vector<Dorn::IpGenAddr>;

   static bool hasMasters(IntfConfig const* port) {
      return !port->ucastNegGrantorIpToProfileMapAll().empty();
   }

   static std::string valueOfMasters(IntfConfig const& port) {
      std::string all;
      for (auto const& [address, profile] : port.ucastNegGrantorIpToProfileMapAll()) {
         all += (all.empty() ? "" : ", ") + std::string(Kiv::strRep(address));
      }
      return all;
   }

   /// Refers to a table with the port's masters. All of them are asked as the profile of the first
   /// says.
   void masters(IntfConfig const& port, std::string const& path) {
      if (!hasMasters(&port)) {
         return;
      }
      if (!config_.unicastNegotiation()) {
         note(path + "ucastNegGrantorIpToProfileMap", valueOfMasters(port),
              "not asked without unicastNegotiation");
         return;
      }
      Addresses addresses;
      std::string name;
      for (auto const& [address, profile] : port.ucastNegGrantorIpToProfileMapAll()) {
         if (addresses.empty()) {
            name = profile;
         } else if (name != std::string_view(profile)) {
            note(path + "ucastNegGrantorIpToProfileMap[" + std::string(Kiv::strRep(address)) + "]",
                 std::string(profile), "ptp4l has one profile for all masters of a port, " + name);
         }
         addresses.push_back(address);
      }
      set("unicast_master_table", std::to_string(tableOf(addresses, numberIn(name, port))));
      if (!config_.ucastNegProfileHas(Sarn::String(name))) {
         note(path + "ucastNegGrantorIpToProfileMap", name, "there is no such profile");
         return;
      }
      profile(port, path, config_.ucastNegProfile(Sarn::String(name)), name);
   }

   void profile(IntfConfig const& port, std::string const& path,
                Ptp::UcastNegProfile const& profile, std::string const& name) {
      U32 const duration = profile.announceProfile().duration();
      set("unicast_req_duration", std::to_string(duration));
      auto const asked = [&](Ptp::UcastNegMsgProfile const& one, S16 interval) {
         return one.duration() == duration && one.logInterval() == interval;
      };
      if (!asked(profile.announceProfile(), port.logAnnounceInterval()) ||
          !asked(profile.syncProfile(), port.logSyncInterval()) ||
          !asked(profile.delayRespProfile(), port.logMinDelayReqInterval())) {
         note(path + "ucastNegGrantorIpToProfileMap", name,
              "ptp4l asks for the port's intervals, and for one duration");
      }
   }

   /// N if the profile is named "PORT/tableN", as by loading; else 0.
   static U32 numberIn(std::string const& profile, IntfConfig const& port) {
      std::string const start = nameOf(port) + "/table";
      S64 number = 0;
      return profile.starts_with(start) &&
                         parsePtp4lNumber(std::string_view(profile).substr(start.size()), number) &&
                         number > 0 && number <= std::numeric_limits<S32>::max()
                   ? static_cast<U32>(number)
                   : 0;
   }

   /// The number of a table with these masters: the one that is wished, or the first that is free.
   U32 tableOf(Addresses const& addresses, U32 wished) {
      if (wished != 0 && tables_.try_emplace(wished, addresses).first->second == addresses) {
         return wished;
      }
      for (U32 number = 1;; ++number) {
         if (tables_.try_emplace(number, addresses).first->second == addresses) {
            return number;
         }
      }
   }

   void masterTables() {
      for (auto const& [number, addresses] : tables_) {
         text_ += "\n[unicast_master_table]\n";
         set("table_id", std::to_string(number));
         for (Dorn::IpGenAddr const& address : addresses) {
            set(address.isV6() ? "UDPv6" : "UDPv4", Kiv::strRep(address));
         }
      }
   }

   static inline std::vector<Ptp4lSection> const noSections;

   Config const& config_;
   Ptp4lConf const* const base_;
   std::vector<IntfConfig const*> ports_;
   std::map<U32, Addresses> tables_;
   std::string text_;
   std::vector<std::string> notes_;
};

}  // namespace

Ptp4lText writePtp4lConf(Config const& config, Ptp4lConf const* base) {
   return Writer(config, base).run();
}

}  // namespace Holt
