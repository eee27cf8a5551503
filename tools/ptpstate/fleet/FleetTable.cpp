#include "tools/ptpstate/fleet/FleetTable.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "Holt/State/Values.h"
#include "Holt/Table.h"
#include "Kiv/Printable.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptpstate/fleet/FleetSession.h"
#include "tools/shared/PortRemarks.h"

namespace Ptpstate {

namespace {

/// How many ports a row names.
constexpr std::size_t portsNamed = 3;

struct BadPort {
   std::string name;
   std::string state;
   std::string remarks;
};

/// A clock of a switch, or a switch without one.
struct Row {
   std::string name;
   Fleet::Switch const* its = nullptr;
   Ptp::Status const* status = nullptr;
   std::vector<BadPort> bad;
   std::size_t ports = 0;

   std::optional<S64> offset() const {
      return status != nullptr && status->currentDS()
                   ? std::optional<S64>(status->currentDS()->offsetFromMaster())
                   : std::nullopt;
   }
   /// Its size, which has no sign even for the least number; 0 if there is none.
   U64 offsetSize() const {
      S64 const value = offset().value_or(0);
      return value < 0 ? U64{0} - static_cast<U64>(value) : static_cast<U64>(value);
   }
   auto parent() const {
      return status != nullptr ? status->parentDS() : Sarn::Ptr<Ptp::ParentDS>();
   }
};

bool isAsItShould(Ptp::PortDS const& port) {
   return port.portState() != Ptp::PortState::faulty &&
          port.portState() != Ptp::PortState::uncalibrated;
}

void findPorts(Row& row) {
   for (Sarn::Ptr<Ptp::PortDS> const& port : row.status->portDSAll()) {
      ++row.ports;
      std::string remarks =
            Tools::portRemarks(*port, row.status->intfStatus(port->portDSKey()).get());
      if (!remarks.empty() || !isAsItShould(*port)) {
         row.bad.push_back(
               {Kiv::strRep(port->intf()), Kiv::strRep(port->portState()), std::move(remarks)});
      }
   }
   std::sort(row.bad.begin(), row.bad.end(), [](BadPort const& a, BadPort const& b) {
      return Holt::naturallyLess(a.name, b.name);
   });
}

std::vector<Row> rowsOf(Fleet::Mirror const& mirror, FleetOrder order) {
   std::vector<Row> rows;
   for (auto const& [name, its] : mirror.switches()) {
      Row row;
      row.name = name;
      row.its = its.get();
      bool any = false;
      for (Kiv::NamedEntity const* const root : its->roots()) {
         if (auto const* const status = dynamic_cast<Ptp::Status const*>(root)) {
            Row& clock = rows.emplace_back(row);
            clock.status = status;
            if (status->nameString() != "ptp/status") {
               clock.name += ":" + status->nameString();
            }
            findPorts(clock);
            any = true;
         }
      }
      if (!any) {
         rows.push_back(row);
      }
   }
   std::sort(rows.begin(), rows.end(),
             [](Row const& a, Row const& b) { return Holt::naturallyLess(a.name, b.name); });
   auto const sort = [&rows](auto&& before) { std::stable_sort(rows.begin(), rows.end(), before); };
   switch (order) {
      case FleetOrder::name:
         break;
      case FleetOrder::offset:
         sort([](Row const& a, Row const& b) { return a.offsetSize() > b.offsetSize(); });
         break;
      case FleetOrder::ports:
         sort([](Row const& a, Row const& b) { return a.bad.size() > b.bad.size(); });
         break;
      case FleetOrder::age:
         sort([](Row const& a, Row const& b) {
            auto const& [x, y] = std::pair(a.its->status(), b.its->status());
            return x.current != y.current ? y.current : !x.current && x.since < y.since;
         });
         break;
   }
   return rows;
}

std::string portsText(std::vector<BadPort> const& bad) {
   std::string text;
   for (std::size_t i = 0; i != std::min(bad.size(), portsNamed); ++i) {
      text += (i == 0 ? "" : "; ") + bad[i].name + " " + bad[i].state +
              (bad[i].remarks.empty() ? "" : " (" + bad[i].remarks + ")");
   }
   if (bad.size() > portsNamed) {
      text += "; " + std::to_string(bad.size() - portsNamed) + " more";
   }
   return text;
}

std::vector<std::string> cellsOf(Row const& row) {
   std::string const nothing = "-";
   auto const parent = row.parent();
   auto const offset = row.offset();
   std::string const trouble = troubleOf(row.its);
   return {row.name,
           parent ? Kiv::strRep(parent->grandmasterIdentity()) : nothing,
           parent ? std::to_string(+parent->grandmasterClockQuality().clockClass()) : nothing,
           offset ? Kiv::strRep(row.status->currentDS()->stepsRemoved()) : nothing,
           offset ? std::to_string(*offset) : nothing,
           row.status != nullptr ? std::to_string(row.ports) : nothing,
           portsText(row.bad),
           trouble.empty() ? "current" : trouble};
}

std::string summaryOf(Fleet::Mirror const& mirror, std::vector<Row> const& rows) {
   std::size_t const total = mirror.switches().size();
   auto const current =
         std::count_if(mirror.switches().begin(), mirror.switches().end(),
                       [](auto const& each) { return each.second->status().current; });
   std::string text = std::to_string(total) + (total == 1 ? " switch, " : " switches, ") +
                      std::to_string(current) + " current";
   Row const* worst = nullptr;
   std::size_t bad = 0;
   for (Row const& row : rows) {
      bad += row.bad.size();
      if (row.offset() && (worst == nullptr || row.offsetSize() > worst->offsetSize())) {
         worst = &row;
      }
   }
   if (worst != nullptr) {
      text += "; worst offset " + std::to_string(*worst->offset()) + " ns at " +
              Kiv::printable(worst->name);
   }
   return text + "; " + std::to_string(bad) +
          (bad == 1 ? " port not as it should be" : " ports not as they should be");
}

}  // namespace

void printFleet(std::ostream& out, Fleet::Mirror const& mirror, FleetOrder order) {
   std::vector<Row> const rows = rowsOf(mirror, order);
   out << summaryOf(mirror, rows) << "\n\n";
   Holt::Table table({"switch", "grandmaster", "class", "steps", "offset", "ports",
                      "not as they should be", "state"});
   for (std::size_t const right : {2, 3, 4, 5}) {
      table.rightIs(right);
   }
   for (Row const& row : rows) {
      table.row(cellsOf(row));
   }
   table.print(out);
}

Holt::Json fleetJson(Fleet::Mirror const& mirror, FleetOrder order) {
   Holt::Json all = Holt::Json::array();
   for (Row const& row : rowsOf(mirror, order)) {
      Fleet::Switch::Status const& state = row.its->status();
      Holt::Json json{
            {"switch", Holt::jsonOf(Sarn::String(row.its->name()))},
            {"current", state.current},
            {"since", Holt::timeText(state.since, Holt::TimeForm::universal)},
            {"reason", state.current ? Holt::Json(nullptr) : Holt::Json(state.reason)},
            {"status",
             row.status != nullptr ? Holt::jsonOf(row.status->nameString()) : Holt::Json(nullptr)},
            {"grandmasterIdentity", nullptr},
            {"clockClass", nullptr},
            {"stepsRemoved", nullptr},
            {"offsetFromMaster", nullptr},
            {"ports", row.ports},
            {"badPorts", Holt::Json::array()},
      };
      if (auto const parent = row.parent()) {
         json["grandmasterIdentity"] = Kiv::strRep(parent->grandmasterIdentity());
         json["clockClass"] = +parent->grandmasterClockQuality().clockClass();
      }
      if (auto const offset = row.offset()) {
         json["stepsRemoved"] = std::stoul(Kiv::strRep(row.status->currentDS()->stepsRemoved()));
         json["offsetFromMaster"] = *offset;
      }
      for (BadPort const& port : row.bad) {
         json["badPorts"].push_back(
               {{"port", port.name}, {"portState", port.state}, {"remarks", port.remarks}});
      }
      all.push_back(std::move(json));
   }
   return all;
}

}  // namespace Ptpstate
