// What Get answers.
#include "tools/ptpgnmi/Engine.test.h"

namespace Ptpgnmi {
namespace {

TEST_F(GnmiEngine, GetsALeafInTheFieldOfItsType) {
   status->enabledIs(true);
   port("Ethernet1")->logSyncIntervalIs(-3);
   EXPECT_EQ(get("/tree[name=ptp/status]/enabled"),
             "/tree[name=ptp/status]/enabled bool_val: true\n");
   EXPECT_EQ(get(std::string(port1) + "/logSyncInterval"),
             std::string(port1) + "/logSyncInterval int_val: -3\n");
   EXPECT_EQ(get(std::string(port1) + "/localPriority"),
             std::string(port1) + "/localPriority uint_val: 128\n");
   EXPECT_EQ(get(std::string(port1) + "/portState"),
             std::string(port1) + "/portState string_val: \"initializing\"\n");
   EXPECT_EQ(get(std::string(port1) + "/neighborRateRatio"),
             std::string(port1) + "/neighborRateRatio double_val: 0\n");
}

TEST_F(GnmiEngine, AValueWithFieldsIsAContainer) {
   EXPECT_EQ(get("/tree[name=ptp/status]/localClockQuality"),
             "/tree[name=ptp/status]/localClockQuality/clockClass uint_val: 248\n"
             "/tree[name=ptp/status]/localClockQuality/clockAccuracy uint_val: 254\n"
             "/tree[name=ptp/status]/localClockQuality/offsetScaledLogVariance uint_val: 65535\n");
   EXPECT_EQ(get("/tree/localClockQuality/clockClass", gnmi::JSON),
             "/tree[name=ptp/status]/localClockQuality/clockClass json_val: \"248\"\n");
   EXPECT_EQ(get("/tree/localClockQuality", gnmi::JSON_IETF),
             "/tree[name=ptp/status]/localClockQuality json_ietf_val: "
             R"("{\"clockClass\":248,\"clockAccuracy\":254,\"offsetScaledLogVariance\":65535}")"
             "\n");
}

TEST_F(GnmiEngine, OnlyJsonIetfWritesWideIntegersAsStrings) {
   EXPECT_EQ(get("/tree/tcTimestampMask", gnmi::JSON),
             "/tree[name=ptp/status]/tcTimestampMask json_val: \"18446744073709551615\"\n");
   EXPECT_EQ(get("/tree/tcTimestampMask", gnmi::JSON_IETF),
             "/tree[name=ptp/status]/tcTimestampMask json_ietf_val: "
             R"("\"18446744073709551615\"")"
             "\n");
}

TEST_F(GnmiEngine, WildcardsAndMissingKeysMeanAll) {
   port("Ethernet1");
   port("Ethernet2");
   std::string const both =
         "/tree[name=ptp/status]/portDS[key=Ethernet1]/portState string_val: \"initializing\"\n"
         "/tree[name=ptp/status]/portDS[key=Ethernet2]/portState string_val: \"initializing\"\n";
   EXPECT_EQ(get("/tree[name=ptp/status]/portDS[key=*]/portState"), both);
   EXPECT_EQ(get("/tree/portDS/portState"), both);
   EXPECT_EQ(get("/*/*/portState"), both);
   EXPECT_EQ(get("/.../portState"), both);
   EXPECT_EQ(get("/tree/*[key=Ethernet2]/portState"), both.substr(both.size() / 2));
   EXPECT_EQ(get("/tree/.../nothing"), "");
}

TEST_F(GnmiEngine, AContainerInJsonHasListsWithTheirKeys) {
   port("Ethernet1");
   std::string const all = get("/tree", gnmi::JSON_IETF);
   EXPECT_NE(all.find(R"(\"portDS\":[{\"key\":\"Ethernet1\",\"portDSKey\":)"), std::string::npos)
         << all;
}

TEST_F(GnmiEngine, RefusesWhatCannotBeAndWhatIsNotThereWithThePath) {
   port("Ethernet1");
   EXPECT_EQ(get("/tree/portDS/portStat"),
             "3 /tree/portDS/portStat: Ptp::PortDS has no attribute 'portStat'; did you mean "
             "'portState'?");
   EXPECT_EQ(get("/tre"), "3 /tre: a path begins with 'tree[name=NAME]', not with 'tre'");
   EXPECT_EQ(get("/tree/portDS[name=x]"),
             "3 /tree/portDS[name=x]: the key of portDS is named 'key', not 'name'");
   EXPECT_EQ(get("/tree[name=ptp/status]/portDS[key=Ethernet9]"),
             "5 /tree[name=ptp/status]/portDS[key=Ethernet9]: there is nothing");
   EXPECT_EQ(get("/tree[name=other]"), "5 /tree[name=other]: there is nothing");
   EXPECT_EQ(get("/tree", gnmi::PROTO, "cli"),
             "3 there is no origin 'cli'; there are: 'ptplib', 'openconfig'");
   EXPECT_EQ(get("/tree", gnmi::ASCII).substr(0, 35), "12 the encoding ASCII is not implem");
}

TEST_F(GnmiEngine, BeforeTheSourceIsReachedItIsUnavailable) {
   engine->readyIs(false, "no server");
   EXPECT_EQ(get("/tree"), "14 no server");
   EXPECT_EQ(read(subscribe(request(gnmi::SubscriptionList::ONCE, {"/tree"}))),
             "finished 14 no server\n");
}

TEST_F(GnmiEngine, AnAnswerThatIsTooLongIsRefused) {
   limits.answer = 1000;
   make();
   for (int i = 1; i != 30; ++i) {
      port(("Ethernet" + std::to_string(i)).c_str());
   }
   EXPECT_EQ(get("/tree/portDS").substr(0, 40), "8 /tree/portDS: the answer would be long");
   EXPECT_EQ(get("/tree/portDS", gnmi::JSON).substr(0, 30), "8 /tree/portDS: the answer wou");
}

}  // namespace
}  // namespace Ptpgnmi
