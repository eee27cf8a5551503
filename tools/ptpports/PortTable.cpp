#include "tools/ptpports/PortTable.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "Holt/Table.h"

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

/// Why the port does not work as it should, if it says so.
std::string remarks(PortDS const& port, Ptp::IntfStatus const* intf) {
   std::vector<Ptp::PortDisabledReason> reasons;
   for (auto const& [reason, holds] : port.disabledReasonAll()) {
      if (holds) {
         reasons.push_back(reason);
      }
   }
   std::sort(reasons.begin(), reasons.end());
   std::string all = port.faultyFlag() ? "fault" : "";
   for (Ptp::PortDisabledReason const reason : reasons) {
      all += (all.empty() ? "" : ", ") + Kiv::strRep(reason);
   }
   if (intf != nullptr && intf->mpassEnabled() &&
       intf->mpassStatus() == Ptp::Mpass::Status::inactive) {
      all += std::string(all.empty() ? "" : ", ") + "MPASS inactive";
   }
   return all;
}

std::vector<std::string> rowOf(Status const& status, PortDS const& port) {
   Ptp::PortDSKey const& key = port.portDSKey();
   auto const intf = status.intfStatus(key);
   auto const& current = status.currentDS();
   bool const followed = port.portState() == Ptp::PortState::slave && current &&
                         current->lastUpdatePortKey() == key;
   bool const measured = port.delayMechanism() == Ptp::DelayMechanism::p2p &&
                         port.portState() != Ptp::PortState::disabled;
   U64 const discards = U64(port.stpDiscardedRxMessagesCount()) +
                        port.stpDiscardedTxMessagesCount() + port.ptpDiscardedTxArpExpireCount() +
                        port.corruptedRxManagementMessagesCount();
   U64 const grants = U64(port.ucastNegGrantTlvsReceived()) + port.ucastNegGrantTlvsSent();
   return {
         Kiv::strRep(port.intf()),
         port.vlanId().isNone() ? "" : Kiv::strRep(port.vlanId()),
         Kiv::strRep(port.portState()),
         Kiv::strRep(port.role()),
         followed ? std::to_string(current->offsetFromMaster()) : nothing,
         followed   ? std::to_string(current->meanPathDelay())
         : measured ? std::to_string(port.peerMeanPathDelay())
                    : nothing,
         intf ? std::to_string(intf->foreignMasterDSCount()) : nothing,
         std::to_string(port.syncMessageReceived()),
         std::to_string(port.lostResponsesPeerDelay()),
         std::to_string(discards),
         std::to_string(grants),
         remarks(port, intf.get()),
   };
}

void printClock(std::ostream& out, Status const& status) {
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

}  // namespace Ptpports
