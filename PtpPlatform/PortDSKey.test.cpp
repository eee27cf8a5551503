#include "PtpPlatform/PtpDataSetTypes/PortDSKey.h"

#include "Kiv/Map/TableHash.h"
#include "PtpPlatform/PtpDataSetTypes/ClockQuality.h"
#include "PtpPlatform/PtpDataSetTypes/PortIdentity.h"
#include "tests/ValueTypeTesting.h"

// The declared values whose keys and encodings other code relies on, with the framework's code for
// values and the platform's for their fields.

using namespace ValueTypeTesting;
using Bridging::VlanIdOrNone;
using Dorn::IntfId;
using Dorn::NetU16;
using Ptp::ClockIdentity;
using Ptp::ClockQuality;
using Ptp::PortDSKey;
using Ptp::PortIdentity;

namespace {

template <class T>
void expectComesBack(T const& v) {
   EXPECT_EQ(Kiv::fromText<T>(printed(v)), v) << printed(v);
   Bytes const bytes = encoded(v);
   EXPECT_EQ(decoded<T>(bytes), v) << printed(v);
   for (std::size_t size = 0; size < bytes.size(); ++size) {
      Bytes const cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_THROW(decoded<T>(cut), Kiv::NboAttrLog::FaultException) << size;
   }
}

TEST(PortDSKey, IsHashedByTablesAsByItsOwnHashBeforeThatIsReduced) {
   auto const expectReduced = [](auto const& key) {
      EXPECT_EQ(Kiv::Impl::hashFinish(Kiv::Impl::tableHash(9, key)), key.hash(9)) << printed(key);
   };
   expectReduced(PortDSKey(IntfId("Ethernet1"), VlanIdOrNone(2)));
   expectReduced(PortIdentity(ClockIdentity(U64{0x001122fffe334455}), 7));
   expectReduced(IntfId("Ethernet1"));
   expectReduced(VlanIdOrNone(2));
}

TEST(PortDSKey, PrintsAndReadsInterfaceAndVlan) {
   EXPECT_EQ(printed(PortDSKey()), "Ptp::PortDSKey(intf=\"\", vlanId=none)");
   EXPECT_EQ(printed(PortDSKey(IntfId("Ethernet3/1/2"), VlanIdOrNone(100))),
             "Ptp::PortDSKey(intf=Ethernet3/1/2, vlanId=100)");
   EXPECT_EQ(Kiv::fromText<PortDSKey>(" Ptp::PortDSKey ( intf = Ethernet1 , vlanId = none ) "),
             PortDSKey(IntfId("Ethernet1"), VlanIdOrNone()));
   EXPECT_EQ(Kiv::fromText<PortDSKey>("Ptp::PortDSKey(intf=bond0.100,vlanId=4094)"),
             PortDSKey(IntfId("bond0.100"), VlanIdOrNone(4094)));
}

TEST(PortDSKey, IsTenBytesInTheStream) {
   EXPECT_EQ(PortDSKey::kivMaxEncodedSize, 10u);
   PortDSKey const key(IntfId("Ethernet1"), VlanIdOrNone(0x102));
   EXPECT_EQ(encoded(key), (Bytes{0x09, 0x10, 0, 0, 0, 0, 0, 0, 1, 2}));
   expectComesBack(key);
   expectComesBack(PortDSKey());
}

TEST(PortDSKey, FieldThatDoesNotFitIsNamed) {
   EXPECT_EQ(messageOf<Kiv::RangeException>(
                   [] { Kiv::fromText<PortDSKey>("Ptp::PortDSKey(intf=Ethernet1, vlanId=4095)"); }),
             "vlanId: 4095 is not a VLAN id (1 to 4094, or none)");
   EXPECT_EQ(
         messageOf<Kiv::RangeException>(
               [] { Kiv::fromText<PortDSKey>("Ptp::PortDSKey(intf=a-very-long-name, vlanId=1)"); }),
         "intf: \"a-very-long-name\" does not fit Dorn::IntfId: it needs 96 bits, more than 64");
   EXPECT_THROW(Kiv::fromText<PortDSKey>("Ptp::PortDSKey(intf=, vlanId=1)"), Kiv::ParseException);
}

TEST(PortDSKey, OrdersByInterfaceThenVlan) {
   expectAscending<PortDSKey>({PortDSKey(), PortDSKey(IntfId("Ethernet2"), VlanIdOrNone()),
                               PortDSKey(IntfId("Ethernet2"), VlanIdOrNone(9)),
                               PortDSKey(IntfId("Ethernet2"), VlanIdOrNone(10)),
                               PortDSKey(IntfId("Ethernet10"), VlanIdOrNone())});
}

TEST(PortIdentity, IsTenBytesInTheStream) {
   PortIdentity const identity(ClockIdentity("00:11:22:ff:fe:33:44:55"), 0x0102);
   EXPECT_EQ(PortIdentity::kivMaxEncodedSize, 10u);
   EXPECT_EQ(encoded(identity), (Bytes{0, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55, 1, 2}));
   EXPECT_EQ(printed(identity),
             "Ptp::PortIdentity(clockIdentity=00:11:22:ff:fe:33:44:55, portNumber=258)");
   expectComesBack(identity);
   EXPECT_LT(PortIdentity(ClockIdentity(), 65535), PortIdentity(ClockIdentity(U64{1}), 0));
}

TEST(ClockQuality, IsFourBytesInTheStream) {
   ClockQuality const quality(248, 254, NetU16(0xfffe));
   EXPECT_EQ(ClockQuality::kivMaxEncodedSize, 4u);
   EXPECT_EQ(encoded(quality), (Bytes{248, 254, 0xff, 0xfe}));
   EXPECT_EQ(printed(quality),
             "Ptp::ClockQuality(clockClass=248, clockAccuracy=254, offsetScaledLogVariance=65534)");
   expectComesBack(quality);
}

}  // namespace
