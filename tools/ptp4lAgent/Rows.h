// Which data sets ptp4l(8) tells and takes in management messages, and how their rows are read and
// written. The rows are in `ClockDataSets.h` and `PortDataSets.h`.
#pragma once

#include <optional>
#include <tuple>

#include "tools/ptp4lAgent/Octets.h"

namespace Ptp4lAgent {

/// Ids of management messages (IEEE 1588-2008, 15.5.2.3); names that end in Np are linuxptp's own.
enum class Id : U16 {
   clockDescription = 0x0001,
   defaultDataSet = 0x2000,
   currentDataSet = 0x2001,
   parentDataSet = 0x2002,
   timePropertiesDataSet = 0x2003,
   portDataSet = 0x2004,
   priority1 = 0x2005,
   priority2 = 0x2006,
   masterOnly = 0x3001,
   timeStatusNp = 0xC000,
   grandmasterSettingsNp = 0xC001,
   portDataSetNp = 0xC002,
   subscribeEventsNp = 0xC003,
   portPropertiesNp = 0xC004,
   portStatsNp = 0xC005,
   portServiceStatsNp = 0xC007,
   unicastMasterTableNp = 0xC008,
   portHwclockNp = 0xC009,
};

/// The name of an id as the standard and linuxptp spell it; "0x1234" for any other number.
Sarn::String nameOf(Id id);
/// Whether each port answers for itself; otherwise the clock answers once.
bool isOfPort(Id id) noexcept;

/// One field of a data set. Its type decides how many octets it has.
template <class Owner, class T>
struct Row {
   char const* name;
   T Owner::*member;
};
template <class Owner, class T>
Row(char const*, T Owner::*) -> Row<Owner, T>;

/// Calls `visit(row)` for each field of a data set, in the order of their octets.
template <class DataSet, class Visit>
constexpr void forEachRow(Visit&& visit) {
   std::apply([&](auto const&... row) { (visit(row), ...); }, DataSet::rows());
}

template <class DataSet>
requires requires {
   DataSet::rows();
}
void read(OctetReader& in, DataSet& set) {
   forEachRow<DataSet>([&](auto const& row) { read(in, set.*row.member); });
}

template <class DataSet>
requires requires {
   DataSet::rows();
}
void write(OctetWriter& out, DataSet const& set) {
   forEachRow<DataSet>([&](auto const& row) { write(out, set.*row.member); });
}

/// Reads a data set from the data of a message. No value if the data are shorter, or longer by more
/// than the octet that makes their number even. Texts and addresses in it refer to `data`.
template <class DataSet>
std::optional<DataSet> decode(Octets data) {
   OctetReader in(data);
   DataSet set;
   read(in, set);
   bool const padded = in.left() == 1 && data.size() % 2 == 0;
   return in.ok() && (in.left() == 0 || padded) ? std::optional<DataSet>(set) : std::nullopt;
}

/// The data of a message with this data set, padded to an even number of octets.
template <class DataSet>
std::vector<U8> encode(DataSet const& set) {
   std::vector<U8> data;
   OctetWriter out(data);
   write(out, set);
   if (data.size() % 2 != 0) {
      data.push_back(0);
   }
   return data;
}

}  // namespace Ptp4lAgent
