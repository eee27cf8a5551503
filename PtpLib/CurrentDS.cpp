#include "PtpLib/PtpStatusStatedbTypes/CurrentDS.h"

namespace Ptp {

U32 CurrentDS::pathTraceLen() const {
   return static_cast<U32>(pathTraceCount());
}

void CurrentDS::reset() {
   // Readers rely on this order, which is not that of the attribute ids.
   offsetFromHardwareIs(0);
   offsetFromMasterIs(0);
   lastSyncLocalTimeIs(0);
   realLastSyncLocalTimeIs(0);
   lastSyncSystemTimeIs(0.0);
   skewNumeratorIs(1);
   skewDenominatorIs(1);
   skewIs(1.0);
   meanPathDelayIs(0);
   neighborRateRatioIs(1.0);
   localClockMeanPathDelayIs(0);
   gptpRateRatioIs(1.0);
   gptpCumulativeRateOffsetIs(0);
   pathDelaySnapshotIs(0);
   // The first reset of a fresh data set makes generation 1; afterwards somebody has to ask for the
   // next one by the flag.
   if (genId().flag() || genId().count() == 0) {
      genIdIs(Brim::Generation(genId().count() + 1, false));
   }
}

}  // namespace Ptp
