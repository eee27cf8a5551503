#include "tools/ptpports/PortTable.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Holt/Table.h"
#include "Kiv/Printable.h"
#include "tools/shared/PortRemarks.h"

namespace Ptpports {

namespace {

using Ptp::PortDS;
using Ptp::Status;

/// Shown where a port has no such value.
constexpr char const* nothing = "-";

struct Column {
   char const* heading;
   bool rightAligned;
};

constexpr Column columns[] = {
      {"port", false},  {"vlan", true},     {"state", false},  {"role", false},
      {"offset", true}, {"delay", true},    {"masters", true}, {"sync-rx", true},
      {"lost", true},   {"discards", true}, {"grants", true},  {"remarks", false},
};

std::vector<PortDS const*> portsInOrder(Status const& status) {
   std::vector<PortDS const*> ports;
   for (Sarn::Ptr<PortDS> const& port : status.portDSAll()) {
      ports.push_back(port.get());
   }
   std::sort(ports.begin(), ports.end(),
             [](PortDS const* a, PortDS const* b) { return a->portDSKey() < b->portDSKey(); });
   return ports;
}

/// What a row computes from more than one attribute.
struct Figures {
   /// Nanoseconds; only of the port that the clock follows.
   std::optional<S64> offset;
   /// Nanoseconds; of that port, and of links that measure it.
   std::optional<S64> delay;
   std::optional<std::size_t> masters;
   U64 discards = 0;
   U64 grants = 0;
};

Figures figuresOf(Status const& status, PortDS const& port) {
   Figures figures;
   Ptp::PortDSKey const& key = port.portDSKey();
   auto const& current = status.currentDS();
   if (port.portState() == Ptp::PortState::slave && current &&
       current->lastUpdatePortKey() == key) {
      figures.offset = current->offsetFromMaster();
      figures.delay = current->meanPathDelay();
   } else if (port.delayMechanism() == Ptp::DelayMechanism::p2p &&
              port.portState() != Ptp::PortState::disabled) {
      figures.delay = port.peerMeanPathDelay();
   }
   if (auto const intf = status.intfStatus(key)) {
      figures.masters = intf->foreignMasterDSCount();
   }
   figures.discards = U64(port.stpDiscardedRxMessagesCount()) + port.stpDiscardedTxMessagesCount() +
                      port.ptpDiscardedTxArpExpireCount() +
                      port.corruptedRxManagementMessagesCount();
   figures.grants = U64(port.ucastNegGrantTlvsReceived()) + port.ucastNegGrantTlvsSent();
   return figures;
}

template <class Number>
std::string textOf(std::optional<Number> const& number) {
   return number ? std::to_string(*number) : nothing;
}

std::vector<std::string> rowOf(Status const& status, PortDS const& port) {
   Figures const figures = figuresOf(status, port);
   return {
         Kiv::strRep(port.intf()),
         port.vlanId().isNone() ? "" : Kiv::strRep(port.vlanId()),
         Kiv::strRep(port.portState()),
         Kiv::strRep(port.role()),
         textOf(figures.offset),
         textOf(figures.delay),
         textOf(figures.masters),
         std::to_string(port.syncMessageReceived()),
         std::to_string(port.lostResponsesPeerDelay()),
         std::to_string(figures.discards),
         std::to_string(figures.grants),
         Tools::portRemarks(port, status.intfStatus(port.portDSKey()).get()),
   };
}

void printClock(std::ostream& out, Status const& status) {
   out << "status  " << Kiv::printable(status.nameString()) << '\n';
   if (auto const& clock = status.defaultDS()) {
      out << "clock   " << Kiv::strRep(clock->clockIdentity()) << "  domain "
          << +clock->domainNumber() << "  ports " << clock->numberPorts() << '\n';
   }
   auto const& parent = status.parentDS();
   auto const& current = status.currentDS();
   if (parent && current) {
      out << "follows " << Kiv::strRep(parent->grandmasterIdentity()) << "  class "
          << +parent->grandmasterClockQuality().clockClass() << "  steps "
          << Kiv::strRep(current->stepsRemoved()) << "  offset " << current->offsetFromMaster()
          << " ns  delay " << current->meanPathDelay() << " ns\n";
   }
}

}  // namespace

void printPorts(std::ostream& out, Status const& status) {
   printClock(out, status);
   std::vector<std::string> headings;
   for (Column const& column : columns) {
      headings.emplace_back(column.heading);
   }
   Holt::Table table(std::move(headings));
   for (std::size_t i = 0; i != std::size(columns); ++i) {
      if (columns[i].rightAligned) {
         table.rightIs(i);
      }
   }
   std::map<Ptp::PortState, std::size_t> states;
   std::vector<PortDS const*> const ports = portsInOrder(status);
   for (PortDS const* const port : ports) {
      table.row(rowOf(status, *port));
      ++states[port->portState()];
   }
   out << '\n';
   table.print(out);
   out << '\n' << ports.size() << (ports.size() == 1 ? " port" : " ports");
   char const* before = ": ";
   for (auto const& [state, number] : states) {
      out << before << number << ' ' << Kiv::strRep(state);
      before = ", ";
   }
   out << '\n';
}

namespace {

/// The number, or null.
template <class Number>
Holt::Json jsonOf(std::optional<Number> const& number) {
   return number ? Holt::Json(*number) : Holt::Json(nullptr);
}

Holt::Json jsonOf(Status const& status, PortDS const& port) {
   Figures const figures = figuresOf(status, port);
   Holt::Json reasons = Holt::Json::array();
   for (Ptp::PortDisabledReason const reason : Tools::disabledReasons(port)) {
      reasons.push_back(Kiv::strRep(reason));
   }
   return {
         {"port", Kiv::strRep(port.intf())},
         {"vlan", port.vlanId().isNone() ? Holt::Json(nullptr)
                                         : Holt::Json(std::stoul(Kiv::strRep(port.vlanId())))},
         {"portState", Kiv::strRep(port.portState())},
         {"role", Kiv::strRep(port.role())},
         {"offsetFromMaster", jsonOf(figures.offset)},
         {"meanPathDelay", jsonOf(figures.delay)},
         {"foreignMasters", jsonOf(figures.masters)},
         {"syncMessageReceived", port.syncMessageReceived()},
         {"lostResponsesPeerDelay", port.lostResponsesPeerDelay()},
         {"discards", figures.discards},
         {"grants", figures.grants},
         {"faulty", port.faultyFlag()},
         {"disabledReasons", reasons},
         {"mpassInactive", Tools::isMpassInactive(status.intfStatus(port.portDSKey()).get())},
   };
}

}  // namespace

Holt::Json portsJson(Status const& status) {
   Holt::Json json{{"status", Holt::jsonOf(status.nameString())}};
   auto const& clock = status.defaultDS();
   json["clock"] = !clock ? Holt::Json(nullptr)
                          : Holt::Json{{"clockIdentity", Kiv::strRep(clock->clockIdentity())},
                                       {"domainNumber", clock->domainNumber()},
                                       {"numberPorts", clock->numberPorts()}};
   auto const& parent = status.parentDS();
   auto const& current = status.currentDS();
   json["follows"] =
         !parent || !current
               ? Holt::Json(nullptr)
               : Holt::Json{{"grandmasterIdentity", Kiv::strRep(parent->grandmasterIdentity())},
                            {"clockClass", parent->grandmasterClockQuality().clockClass()},
                            {"stepsRemoved", std::stoul(Kiv::strRep(current->stepsRemoved()))},
                            {"offsetFromMaster", current->offsetFromMaster()},
                            {"meanPathDelay", current->meanPathDelay()}};
   json["ports"] = Holt::Json::array();
   for (PortDS const* const port : portsInOrder(status)) {
      json["ports"].push_back(jsonOf(status, *port));
   }
   return json;
}

}  // namespace Ptpports
