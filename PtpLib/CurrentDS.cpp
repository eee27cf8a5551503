#include "PtpLib/PtpStatusStatedbTypes/CurrentDS.h"

#include "Kiv/Glue/AllSteps.h"

namespace Ptp {

U32 CurrentDS::pathTraceLen() const {
   return static_cast<U32>(pathTraceCount());
}

void CurrentDS::reset() {
   // Readers rely on this order, which differs from that of the attribute ids.
   Kiv::AllSteps steps(*this);
   steps.take([&] { offsetFromHardwareIs(0); });
   steps.take([&] { offsetFromMasterIs(0); });
   steps.take([&] { lastSyncLocalTimeIs(0); });
   steps.take([&] { realLastSyncLocalTimeIs(0); });
   steps.take([&] { lastSyncSystemTimeIs(0.0); });
   steps.take([&] { skewNumeratorIs(1); });
   steps.take([&] { skewDenominatorIs(1); });
   steps.take([&] { skewIs(1.0); });
   steps.take([&] { meanPathDelayIs(0); });
   steps.take([&] { neighborRateRatioIs(1.0); });
   steps.take([&] { localClockMeanPathDelayIs(0); });
   steps.take([&] { gptpRateRatioIs(1.0); });
   steps.take([&] { gptpCumulativeRateOffsetIs(0); });
   steps.take([&] { pathDelaySnapshotIs(0); });
   steps.take([&] {
      // The first reset of a new data set starts generation 1; after that, the flag must request
      // the next one.
      if (genId().flag() || genId().count() == 0) {
         genIdIs(Brim::Generation(genId().count() + 1, false));
      }
   });
   steps.finish();
}

}  // namespace Ptp
