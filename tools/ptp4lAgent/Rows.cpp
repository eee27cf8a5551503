#include "tools/ptp4lAgent/Rows.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tools/ptp4lAgent/PortDataSets.h"

namespace Ptp4lAgent {

namespace {

struct Known {
   Id id;
   char const* name;
   bool ofPort;
};

constexpr Known known[] = {
      {Id::clockDescription, "CLOCK_DESCRIPTION", true},
      {Id::defaultDataSet, "DEFAULT_DATA_SET", false},
      {Id::currentDataSet, "CURRENT_DATA_SET", false},
      {Id::parentDataSet, "PARENT_DATA_SET", false},
      {Id::timePropertiesDataSet, "TIME_PROPERTIES_DATA_SET", false},
      {Id::portDataSet, "PORT_DATA_SET", true},
      {Id::priority1, "PRIORITY1", false},
      {Id::priority2, "PRIORITY2", false},
      {Id::masterOnly, "MASTER_ONLY", true},
      {Id::timeStatusNp, "TIME_STATUS_NP", false},
      {Id::grandmasterSettingsNp, "GRANDMASTER_SETTINGS_NP", false},
      {Id::portDataSetNp, "PORT_DATA_SET_NP", true},
      {Id::subscribeEventsNp, "SUBSCRIBE_EVENTS_NP", false},
      {Id::portPropertiesNp, "PORT_PROPERTIES_NP", true},
      {Id::portStatsNp, "PORT_STATS_NP", true},
      {Id::portServiceStatsNp, "PORT_SERVICE_STATS_NP", true},
      {Id::unicastMasterTableNp, "UNICAST_MASTER_TABLE_NP", true},
      {Id::portHwclockNp, "PORT_HWCLOCK_NP", true},
};

Known const* find(Id id) noexcept {
   auto const* const found = std::find_if(std::begin(known), std::end(known),
                                          [id](Known const& k) { return k.id == id; });
   return found == std::end(known) ? nullptr : found;
}

}  // namespace

Sarn::String nameOf(Id id) {
   if (Known const* const found = find(id)) {
      return found->name;
   }
   char text[8];
   std::snprintf(text, sizeof text, "0x%04x", static_cast<unsigned>(id));
   return text;
}

bool isOfPort(Id id) noexcept {
   Known const* const found = find(id);
   return found != nullptr && found->ofPort;
}

void read(OctetReader& in, UnicastMasterTableNp& table) {
   U16 const count = in.number<U16>();
   for (U16 i = 0; i != count && in.ok(); ++i) {
      table.masters.emplace_back();
      read(in, table.masters.back());
   }
}

void write(OctetWriter& out, UnicastMasterTableNp const& table) {
   out.number(static_cast<U16>(table.masters.size()));
   for (UnicastMasterNp const& master : table.masters) {
      write(out, master);
   }
}

}  // namespace Ptp4lAgent
