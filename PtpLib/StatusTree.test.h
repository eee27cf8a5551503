// A status tree with one entity of each of its types, and a mirror of it, for tests.
#pragma once

#include "KivTest/Stream.test.h"
#include "PtpLib/PtpStatusStatedbTypes.h"

namespace Ptp {

inline PortDSKey portKey() {
   return {Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10)};
}
inline PortIdentity portIdentity(U16 number) {
   return {Kiv::fromText<ClockIdentity>("00:11:22:ff:fe:33:44:55"), number};
}

/// Creates one child of each kind below a status.
inline void fillStatus(Status& status) {
   status.defaultDSIs();
   status.currentDSIs();
   status.parentDSIs();
   status.timePropertiesDSIs();
   status.domainStatusIs();
   status.ptpMibDataIs()->ptpMibPortDataIs(portKey());
   status.aclStatusServiceIs("ptp");
   status.vlanStatusIs(portKey(), true, false);
   status.intfStatusIs(portKey())->foreignMasterDSIs(portIdentity(7));
   status.portDSIs(portKey(), portIdentity(1))->g8275_2Is();
}

/// A status, and its mirror as another process would have it.
class MirroredStatus : public StreamTesting::StreamOf<Status> {
protected:
   MirroredStatus() : StreamOf(statusFactory, "ptp") {}

   /// Brings the mirror up to date, from the first call on.
   void carry() {
      if (!mounted_) {
         mounted_ = true;
         mirror.session->mountIs(copy);
      }
      StreamOf::carry();
      ASSERT_EQ(mirror.session->closeReason(), "");
   }
   /// The messages that a change writes, as text; they reach the mirror, too.
   template <class Change>
   std::string written(Change&& change) {
      carry();
      change();
      StreamTesting::Bytes const bytes = source.take();
      mirror.receive(bytes);
      EXPECT_EQ(mirror.session->closeReason(), "");
      return StreamTesting::joined(StreamTesting::lines(bytes));
   }

   Sarn::Ptr<Status> const status = root;

private:
   bool mounted_ = false;
};

}  // namespace Ptp
