#include "tools/ptpstate/top/Preset.h"

#include <algorithm>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using Number = std::optional<S64>;

/// A port, and the status that it belongs to.
struct PortOf {
   Ptp::PortDS const& port;
   Ptp::Status const* status;

   explicit PortOf(Kiv::Entity const& entity)
         : port(static_cast<Ptp::PortDS const&>(entity)),
           status(entity.parent() != nullptr &&
                              entity.parent()->kivType().isA(Ptp::Status::kivTypeImpl)
                        ? static_cast<Ptp::Status const*>(entity.parent())
                        : nullptr) {}

   bool isFollowed() const {
      return port.portState() == Ptp::PortState::slave && status != nullptr &&
             status->currentDS() && status->currentDS()->lastUpdatePortKey() == port.portDSKey();
   }
};

Number offset(Kiv::Entity const& entity) {
   PortOf const of(entity);
   return of.isFollowed() ? Number(of.status->currentDS()->offsetFromMaster()) : std::nullopt;
}

Number delay(Kiv::Entity const& entity) {
   PortOf const of(entity);
   if (of.isFollowed()) {
      return of.status->currentDS()->meanPathDelay();
   }
   bool const measured = of.port.delayMechanism() == Ptp::DelayMechanism::p2p &&
                         of.port.portState() != Ptp::PortState::disabled;
   return measured ? Number(of.port.peerMeanPathDelay()) : std::nullopt;
}

Number masters(Kiv::Entity const& entity) {
   PortOf const of(entity);
   auto const intf = of.status != nullptr ? of.status->intfStatus(of.port.portDSKey())
                                          : Sarn::Ptr<Ptp::IntfStatus>();
   return intf ? Number(static_cast<S64>(intf->foreignMasterDSCount())) : std::nullopt;
}

struct Computed {
   char const* name;
   TopColumn::Compute compute;
};

/// Of a port, as in `ptpports`; nanoseconds.
constexpr Computed computedOfPorts[] = {{"offset", offset}, {"delay", delay}, {"masters", masters}};

constexpr char const* firstOfPorts[] = {"portState",
                                        "role",
                                        "offset",
                                        "delay",
                                        "masters",
                                        "syncMessageReceived/s",
                                        "lostResponsesPeerDelay"};

bool isPort(Kiv::TypeImpl const& type) {
   return type.isA(Ptp::PortDS::kivTypeImpl);
}

}  // namespace

TopColumn columnOf(Kiv::TypeImpl const& type, Sarn::String const& name) {
   TopColumn column = topColumn(name);
   if (isPort(type) && column.steps.size() == 1) {
      for (Computed const& computed : computedOfPorts) {
         if (column.steps[0].name == computed.name) {
            column.compute = computed.compute;
            return column;
         }
      }
   }
   destinationOf(type, {{type.name, type.name}, column.steps});
   return column;
}

std::vector<TopColumn> firstColumns(Kiv::TypeImpl const& type) {
   if (!isPort(type)) {
      return attributeColumns(type);
   }
   std::vector<TopColumn> columns;
   for (char const* const name : firstOfPorts) {
      columns.push_back(columnOf(type, name));
   }
   return columns;
}

std::vector<TopColumn> choiceOf(Kiv::TypeImpl const& type) {
   std::vector<TopColumn> all;
   auto const add = [&all](TopColumn column) {
      if (column.show == TopColumn::rate) {
         column = topColumn(column.steps.back().name);
      }
      bool const known = std::any_of(all.begin(), all.end(), [&column](TopColumn const& each) {
         return each.name == column.name;
      });
      if (!known) {
         all.push_back(std::move(column));
      }
   };
   for (TopColumn const& column : firstColumns(type)) {
      add(column);
   }
   for (TopColumn const& column : attributeColumns(type)) {
      add(column);
   }
   return all;
}

}  // namespace Ptpstate
