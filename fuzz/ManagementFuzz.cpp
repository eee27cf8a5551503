#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tools/ptp4lAgent/ClockDataSets.h"
#include "tools/ptp4lAgent/Message.h"
#include "tools/ptp4lAgent/PortDataSets.h"

// What a daemon may send: the input is a datagram. A message that can be read is written with the
// same meaning, and a data set with the same octets.

namespace {

using namespace Ptp4lAgent;

void expect(bool holds, char const* what) {
   if (!holds) {
      std::fprintf(stderr, "%s\n", what);
      std::abort();
   }
}

template <class DataSet>
void checkAs(Octets data) {
   auto const set = decode<DataSet>(data);
   if (!set) {
      return;
   }
   std::vector<U8> const again = encode(*set);
   // All but the padding.
   std::size_t const size = std::min(again.size(), data.size());
   expect(again.size() <= data.size() + 1 && again.size() + 1 >= data.size(),
          "a data set has another size");
   expect(std::equal(again.begin(), again.begin() + static_cast<std::ptrdiff_t>(size - 1),
                     data.begin()),
          "a data set has other octets");
   expect(decode<DataSet>(again).has_value(), "a data set cannot be read again");
}

template <class... DataSets>
void checkAll(Octets data) {
   (checkAs<DataSets>(data), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
   Message message;
   if (parse({data, size}, message) != Fault::none) {
      return 0;
   }
   std::vector<U8> const octets = format(message);
   Message again;
   expect(parse(octets, again) == Fault::none, "a message cannot be read again");
   expect(again.id == message.id && again.error == message.error &&
                again.source == message.source && again.target == message.target &&
                again.sequenceId == message.sequenceId && again.action == message.action &&
                std::equal(again.data.begin(), again.data.end(), message.data.begin(),
                           message.data.end()),
          "a message reads differently");
   checkAll<ClockDescription, DefaultDataSet, CurrentDataSet, ParentDataSet, TimePropertiesDataSet,
            OctetValue, TimeStatusNp, GrandmasterSettingsNp, SubscribeEventsNp, PortDataSet,
            PortDataSetNp, PortPropertiesNp, PortStatsNp, PortServiceStatsNp, UnicastMasterTableNp,
            PortHwclockNp>(message.data);
   return 0;
}
