#include "PtpLib/PtpStatusStatedbTypes/TimePropertiesDS.h"

#include "Kiv/Glue/AllSteps.h"

namespace Ptp {

namespace {

// Bits of the second octet of the header's flagField (IEEE 1588-2008, table 20).
constexpr U8 leap61Bit = 0x01;
constexpr U8 leap59Bit = 0x02;
constexpr U8 currentUtcOffsetValidBit = 0x04;
constexpr U8 ptpTimescaleBit = 0x08;
constexpr U8 timeTraceableBit = 0x10;
constexpr U8 frequencyTraceableBit = 0x20;

}  // namespace

U8 TimePropertiesDS::flagField() const {
   unsigned flags = 0;
   flags |= leap61() ? leap61Bit : 0u;
   flags |= leap59() ? leap59Bit : 0u;
   flags |= currentUtcOffsetValid() ? currentUtcOffsetValidBit : 0u;
   flags |= ptpTimescale() ? ptpTimescaleBit : 0u;
   flags |= timeTraceable() ? timeTraceableBit : 0u;
   flags |= frequencyTraceable() ? frequencyTraceableBit : 0u;
   return static_cast<U8>(flags);
}

void TimePropertiesDS::flagFieldIs(U8 flags) {
   // Readers rely on the order of the bits, which differs from that of the attribute ids.
   Kiv::AllSteps steps(*this);
   steps.take([&] { leap61Is((flags & leap61Bit) != 0); });
   steps.take([&] { leap59Is((flags & leap59Bit) != 0); });
   steps.take([&] { currentUtcOffsetValidIs((flags & currentUtcOffsetValidBit) != 0); });
   steps.take([&] { ptpTimescaleIs((flags & ptpTimescaleBit) != 0); });
   steps.take([&] { timeTraceableIs((flags & timeTraceableBit) != 0); });
   steps.take([&] { frequencyTraceableIs((flags & frequencyTraceableBit) != 0); });
   steps.finish();
}

}  // namespace Ptp
