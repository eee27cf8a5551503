#include "PtpLib/PtpUcastNegConfig/UcastNegProfile.h"

#include <gtest/gtest.h>

#include <vector>

#include "Kiv/NboAttrLog.h"
#include "KivTest/ValueStream.test.h"

namespace Ptp {
namespace {

using KivTest::encoded;
using KivTest::throughTheStream;

UcastNegProfile sample() {
   return {UcastNegMsgProfile(1, 300), UcastNegMsgProfile(-3, 60),
           UcastNegMsgProfile(-128, 4294967295)};
}

TEST(UcastNegMsgProfile, DefaultIsOneSecondForAMinute) {
   UcastNegMsgProfile const profile;
   EXPECT_EQ(profile.logInterval(), 0);
   EXPECT_EQ(profile.duration(), 60u);
   EXPECT_EQ(profile, UcastNegMsgProfile(0, 60));
}

TEST(UcastNegMsgProfile, EqualityTakesBothFields) {
   EXPECT_FALSE(UcastNegMsgProfile(0, 60).isEq(UcastNegMsgProfile(1, 60)));
   EXPECT_FALSE(UcastNegMsgProfile(0, 60).isEq(UcastNegMsgProfile(0, 61)));
   EXPECT_TRUE(UcastNegMsgProfile(-3, 61).isEq(UcastNegMsgProfile(-3, 61)));
}

TEST(UcastNegMsgProfile, SettersTakeEveryValueOfTheirType) {
   UcastNegMsgProfile profile;
   profile.logIntervalIs(-128);
   profile.durationIs(4294967295);
   EXPECT_EQ(profile, UcastNegMsgProfile(-128, 4294967295));
}

TEST(UcastNegMsgProfile, IsDefaultOnlyWith0And60) {
   EXPECT_TRUE(UcastNegMsgProfile().isDefault());
   EXPECT_FALSE(UcastNegMsgProfile(0, 61).isDefault());
   EXPECT_FALSE(UcastNegMsgProfile(1, 60).isDefault());
   EXPECT_FALSE(UcastNegMsgProfile(0, 0).isDefault());
}

TEST(UcastNegMsgProfile, TravelsAsASignedByteAndAU32) {
   EXPECT_EQ(encoded(UcastNegMsgProfile(-3, 0x01020304)),
             (std::vector<int>{0xfd, 0x01, 0x02, 0x03, 0x04}));
   EXPECT_EQ(throughTheStream(UcastNegMsgProfile(-3, 60)), UcastNegMsgProfile(-3, 60));
}

TEST(UcastNegMsgProfile, TextKeepsTheSign) {
   auto const* text = "Ptp::UcastNegMsgProfile(logInterval=-3, duration=60)";
   EXPECT_EQ(Kiv::strRep(UcastNegMsgProfile(-3, 60)), text);
   EXPECT_EQ(Kiv::fromText<UcastNegMsgProfile>(text), UcastNegMsgProfile(-3, 60));
}

TEST(UcastNegMsgProfile, FieldsMustBeNamedAndInOrder) {
   for (auto const* text :
        {"Ptp::UcastNegMsgProfile(-3, 60)", "Ptp::UcastNegMsgProfile(duration=60, logInterval=-3)",
         "Ptp::UcastNegMsgProfile(logInterval=-3)",
         "Ptp::UcastNegProfile(logInterval=-3, duration=60)",
         "UcastNegMsgProfile(logInterval=-3, duration=60)",
         "Ptp::UcastNegMsgProfile(logInterval=-3, duration=60"}) {
      EXPECT_THROW(Kiv::fromText<UcastNegMsgProfile>(text), Kiv::ParseException) << text;
   }
}

TEST(UcastNegProfile, DefaultIsThreeDefaultRequests) {
   UcastNegMsgProfile const request(0, 60);
   EXPECT_EQ(UcastNegProfile(), UcastNegProfile(request, request, request));
   EXPECT_TRUE(UcastNegProfile().isDefault());
}

TEST(UcastNegProfile, EqualityAndHashTakeAllThreeRequests) {
   UcastNegMsgProfile const other(1, 60);
   for (int place = 0; place < 3; ++place) {
      UcastNegProfile profile;
      place == 0   ? profile.announceProfileIs(other)
      : place == 1 ? profile.syncProfileIs(other)
                   : profile.delayRespProfileIs(other);
      EXPECT_FALSE(profile == UcastNegProfile()) << place;
      EXPECT_NE(profile.hash(1), UcastNegProfile().hash(1)) << place;
      EXPECT_FALSE(profile.isDefault()) << place;
   }
   EXPECT_EQ(sample().hash(7), sample().hash(7));
}

TEST(UcastNegProfile, TravelsAsItsThreeRequestsInOrder) {
   EXPECT_EQ(encoded(sample()), (std::vector<int>{0x01, 0, 0, 0x01, 0x2c, 0xfd, 0, 0, 0, 60, 0x80,
                                                  0xff, 0xff, 0xff, 0xff}));
   EXPECT_EQ(throughTheStream(sample()), sample());
}

TEST(UcastNegProfile, TextNestsTheRequests) {
   auto const text = Kiv::strRep(sample());
   EXPECT_EQ(text,
             "Ptp::UcastNegProfile("
             "announceProfile=Ptp::UcastNegMsgProfile(logInterval=1, duration=300), "
             "syncProfile=Ptp::UcastNegMsgProfile(logInterval=-3, duration=60), "
             "delayRespProfile=Ptp::UcastNegMsgProfile(logInterval=-128, duration=4294967295))");
   EXPECT_EQ(Kiv::fromText<UcastNegProfile>(text), sample());
   EXPECT_EQ(Kiv::fromText<UcastNegProfile>(
                   " Ptp::UcastNegProfile ( announceProfile = Ptp::UcastNegMsgProfile("
                   "logInterval=1,duration=300),syncProfile=Ptp::UcastNegMsgProfile( logInterval "
                   "=-3 ,duration=60 ), delayRespProfile=Ptp::UcastNegMsgProfile(logInterval="
                   "-128, duration=4294967295) ) "),
             sample());
}

TEST(UcastNegProfile, NumberThatDoesNotFitNamesThePathOfFields) {
   try {
      Kiv::fromText<UcastNegProfile>(
            "Ptp::UcastNegProfile("
            "announceProfile=Ptp::UcastNegMsgProfile(logInterval=1, duration=300), "
            "syncProfile=Ptp::UcastNegMsgProfile(logInterval=128, duration=60), "
            "delayRespProfile=Ptp::UcastNegMsgProfile(logInterval=0, duration=60))");
      FAIL() << "parsed";
   } catch (Kiv::RangeException const& error) {
      EXPECT_EQ(std::string(error.what()).rfind("syncProfile: logInterval: ", 0), 0u)
            << error.what();
   }
}

TEST(UcastNegProfile, CutEncodingIsAFault) {
   std::vector<U8> bytes(14);
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   EXPECT_THROW(UcastNegProfile(&in, Kiv::StreamBogon{}), Kiv::NboAttrLog::FaultException);
}

}  // namespace
}  // namespace Ptp
