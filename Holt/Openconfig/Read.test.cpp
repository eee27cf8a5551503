#include "Holt/Openconfig/Read.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/Failure.test.h"
#include "Holt/Openconfig/Roots.test.h"
#include "Holt/Openconfig/Write.h"
#include "Holt/State/Load.h"

namespace Holt {
namespace {

using namespace OpenconfigTesting;
using testing::ElementsAre;
using testing::IsEmpty;

/// A document with one instance, whose id is 0, and these members.
Json withInstance(std::string const& members) {
   return Json::parse(R"({"openconfig-ptp:ptp":{"instances":{"instance":[{"id":0)" +
                      (members.empty() ? "" : "," + members) + "}]}}}");
}

struct ReadDocument {
   DocErrors errors;
   OpenconfigData data;

   explicit ReadDocument(Json const& json) { data = readOpenconfig(json, "a.json", errors); }
};

/// The errors, without the path of the only instance.
std::vector<std::string> errorsOf(std::string const& members) {
   std::vector<std::string> errors;
   std::string const start = "/openconfig-ptp:ptp/instances/instance=0/";
   for (Sarn::String const& error : ReadDocument(withInstance(members)).errors) {
      errors.push_back(error.starts_with(start) ? error.substr(start.size()) : error);
   }
   return errors;
}

/// Applies the only part to a root.
void loadInto(Json const& json, Sarn::Ptr<Kiv::NamedEntity> const& root) {
   ReadDocument read(json);
   ASSERT_THAT(read.errors, IsEmpty()) << json.dump(3);
   ASSERT_THAT(read.data.notes, IsEmpty()) << json.dump(3);
   ASSERT_EQ(read.data.parts.size(), 1U);
   DocPlace& place = read.data.parts[0].state;
   place.path.root.name = root->nameString();
   loadPlace(root, place, read.errors);
   EXPECT_THAT(read.errors, IsEmpty()) << json.dump(3);
}

void expectComesBack(Sarn::Ptr<Kiv::NamedEntity> const& root,
                     Sarn::Ptr<Kiv::NamedEntity> const& fresh, U32 seed) {
   // Through text, as between processes.
   std::string const text = openconfigText(openconfigJson({root.get()}));
   loadInto(parseJson(text, "text"), fresh);
   ASSERT_EQ(dumped(*fresh), dumped(*root)) << "PTPLIB_TEST_SEED=" << seed << '\n' << text;
}

TEST(OpenconfigRead, WhatIsWrittenIsReadBackEqual) {
   char const* const given = std::getenv("PTPLIB_TEST_SEED");
   U32 const first = given != nullptr ? static_cast<U32>(std::atoi(given)) : 1;
   for (U32 seed = first; seed != first + (given != nullptr ? 1 : 2000); ++seed) {
      RandomRoots random(seed);
      expectComesBack(random.instance(random.number<U32>()), Openconfig::Ptp::instanceFactory("b"),
                      seed);
      expectComesBack(random.clock(), Openconfig::Ptp::transparentClockDefaultDSFactory("b"), seed);
   }
}

TEST(OpenconfigRead, OverAnotherStateItLeavesNothingOfWhatIsWritten) {
   // All containers exist on both sides, so every attribute is in the document.
   auto const source = usualInstance("a", 3);
   auto const target = usualInstance("a", 4);
   target->defaultDs()->state()->clockIdentityIs("another");
   target->timePropertiesDs()->state()->currentUtcOffsetIs(12);
   source->defaultDs()->state()->clockIdentityIs("");
   source->timePropertiesDs()->state()->currentUtcOffsetValidIs(false);
   loadInto(openconfigJson({source.get()}), target);
   EXPECT_EQ(dumped(*target), dumped(*source));
}

TEST(OpenconfigRead, WhatTheDocumentLeavesOutStays) {
   auto const instance = usualInstance();
   loadInto(withInstance(R"("default-ds":{"state":{"priority1":7}})"), instance);
   auto const expected = usualInstance();
   expected->defaultDs()->state()->priority1Is(7);
   EXPECT_EQ(dumped(*instance), dumped(*expected));
}

TEST(OpenconfigRead, NamesMayHaveTheirModule) {
   auto const instance = Openconfig::Ptp::instanceFactory("a");
   loadInto(Json::parse(R"({"openconfig-ptp:ptp":{"openconfig-ptp:instances":)"
                        R"({"openconfig-ptp:instance":[{"openconfig-ptp:id":5,)"
                        R"("openconfig-ptp:current-ds":{"openconfig-ptp:state":)"
                        R"({"openconfig-ptp:steps-removed":9}}}]}}})"),
            instance);
   EXPECT_EQ(instance->id(), 5U);
   EXPECT_EQ(instance->currentDs()->state()->stepsRemoved(), 9U);
}

TEST(OpenconfigRead, AnUnknownMemberIsRefusedWithTheOneThatMayHaveBeenMeant) {
   EXPECT_THAT(errorsOf(R"("default-ds":{"state":{"priority3":1}},"curent-ds":{},"xyzzy":1)"),
               ElementsAre("default-ds/state/priority3: openconfig-ptp has no such member; did you "
                           "mean 'priority1'?",
                           "curent-ds: openconfig-ptp has no such member; did you mean "
                           "'current-ds'?",
                           "xyzzy: openconfig-ptp has no such member"));
   EXPECT_THAT(
         errorsOf(R"("default-ds":{"state":{"ptplib-openconfig-ptp:clock-identity-tex":""}})"),
         ElementsAre("default-ds/state/ptplib-openconfig-ptp:clock-identity-tex: "
                     "ptplib-openconfig-ptp has no such member; did you mean "
                     "'clock-identity-text'?"));
}

TEST(OpenconfigRead, WhatHasNoAttributeIsNoted) {
   Json json = withInstance(
         R"("default-ds":{"config":{"priority1":1},"state":{"slave-only":true,"acme:x":1}},)"
         R"("ports":{"port":[{"port-index":1}]})");
   json["acme:clock"] = 1;
   ReadDocument const read(json);
   EXPECT_THAT(read.errors, IsEmpty());
   std::string const at = "/openconfig-ptp:ptp/instances/instance=0/";
   EXPECT_THAT(read.data.notes,
               ElementsAre(at + "default-ds/config/priority1: not loaded: the entities hold the "
                                "operational state only",
                           at + "default-ds/state/slave-only: not loaded: the entity has no such "
                                "attribute",
                           at + "default-ds/state/acme:x: belongs to another module",
                           at + "ports/port[0]/port-index: not loaded: an instance has no ports",
                           "/acme:clock: belongs to another module"));
}

TEST(OpenconfigRead, ABadNumberIsRefusedWithItsRange) {
   EXPECT_THAT(
         errorsOf(R"("default-ds":{"state":{"priority1":256,"priority2":-1,"domain-number":"7",)"
                  R"("number-ports":1.5}},)"
                  R"("time-properties-ds":{"state":{"current-utc-offset-valid":1}})"),
         ElementsAre(
               "default-ds/state/priority1: 256: is not allowed; the range is 0 to 255",
               "default-ds/state/priority2: -1: is not allowed; the range is 0 to 255",
               "default-ds/state/domain-number: \"7\": must be a number from 0 to 255",
               "default-ds/state/number-ports: 1.5: must be a number from 0 to 65535",
               "time-properties-ds/state/current-utc-offset-valid: 1: must be true or false"));
   EXPECT_THAT(
         errorsOf(R"("time-properties-ds":{"state":{"current-utc-offset":-32769,)"
                  R"("current-utc-offset-valid":true}},)"
                  R"("default-ds":{"state":{"priority1":18446744073709551615}})"),
         ElementsAre("time-properties-ds/state/current-utc-offset: -32769: is not allowed; the "
                     "range is -32768 to 32767",
                     "default-ds/state/priority1: 18446744073709551615: is not allowed; the range "
                     "is 0 to 255"));
}

TEST(OpenconfigRead, ATimeIntervalIsAStringOfScaledNanoseconds) {
   auto const instance = Openconfig::Ptp::instanceFactory("a");
   auto const offsetOf = [&](std::string const& scaled) {
      loadInto(withInstance(R"("current-ds":{"state":{"offset-from-master":")" + scaled + "\"}}"),
               instance);
      return instance->currentDs()->state()->offsetFromMaster();
   };
   EXPECT_EQ(offsetOf("65536"), 1);
   EXPECT_EQ(offsetOf("32767"), 0);
   EXPECT_EQ(offsetOf("32768"), 1);
   EXPECT_EQ(offsetOf("-32767"), 0);
   EXPECT_EQ(offsetOf("-32768"), -1);
   EXPECT_EQ(offsetOf("9223372036854775807"), S64{1} << 47);
   EXPECT_EQ(offsetOf("-9223372036854775808"), -(S64{1} << 47));
   EXPECT_THAT(errorsOf(R"("current-ds":{"state":{"offset-from-master":65536,)"
                        R"("mean-path-delay":"9223372036854775808"}})"),
               ElementsAre("current-ds/state/offset-from-master: 65536: must be a string with a "
                           "whole number, such as \"-65536\"",
                           "current-ds/state/mean-path-delay: \"9223372036854775808\": is not "
                           "allowed; the range is -9223372036854775808 to 9223372036854775807"));
}

TEST(OpenconfigRead, ABadNameIsRefusedWithThoseThatThereAre) {
   EXPECT_THAT(
         errorsOf(R"("default-ds":{"state":{"instance-type":"P2P-TC","domain-profile":1,)"
                  R"("clock-identity":"00-1b-19-ff-fe-01-02-03",)"
                  R"("ptplib-openconfig-ptp:domain-profile-name":"gtp"}})"),
         ElementsAre("default-ds/state/instance-type: \"P2P-TC\": must be OC, BC, P2P_TC or "
                     "E2E_TC; did you mean 'P2P_TC'?",
                     "default-ds/state/domain-profile: 1: must be IEEE1588, G8275.1 or G8275.2",
                     "default-ds/state/clock-identity: \"00-1b-19-ff-fe-01-02-03\": must be eight "
                     "octets in upper case, such as \"00-1B-19-FF-FE-01-02-03\"",
                     testing::HasSubstr("domain-profile-name: ")));
}

TEST(OpenconfigRead, AnIdentityNeedsItsModule) {
   auto const quality = [](std::string const& theClass) {
      return errorsOf(R"("default-ds":{"clock-quality":{"state":{"clock-class":)" + theClass +
                      R"(,"clock-accuracy":"ptplib-openconfig-ptp:CA_UNKNOWN",)"
                      R"("offset-scaled-log-variance":1}}})");
   };
   std::string const at = "default-ds/clock-quality/state/clock-class: ";
   EXPECT_THAT(quality(R"("ptplib-openconfig-ptp:CC_DEFAULT")"), IsEmpty());
   EXPECT_THAT(quality(R"("CC_DEFAULT")"),
               ElementsAre(at + R"("CC_DEFAULT": must be named with its module, )"
                                R"("ptplib-openconfig-ptp:CC_DEFAULT")"));
   EXPECT_THAT(quality(R"("ptplib-openconfig-ptp:CC_DEFAUT")"),
               ElementsAre(at + R"("ptplib-openconfig-ptp:CC_DEFAUT": is no identity of )"
                                R"(ptplib-openconfig-ptp; did you mean 'CC_DEFAULT'?)"));
   EXPECT_THAT(quality("248"), ElementsAre(at + R"(248: must be an identity, such as )"
                                                R"("ptplib-openconfig-ptp:CC_PRIMARY_SYNC")"));
}

TEST(OpenconfigRead, TheClockQualityIsReadWhole) {
   EXPECT_THAT(
         errorsOf(R"("default-ds":{"clock-quality":{"state":)"
                  R"({"ptplib-openconfig-ptp:clock-class-number":135}}})"),
         ElementsAre("default-ds/clock-quality/state: 'clock-accuracy' is missing: its leaves "
                     "are one value",
                     "default-ds/clock-quality/state: 'offset-scaled-log-variance' is "
                     "missing: its leaves are one value"));
}

TEST(OpenconfigRead, TheUtcOffsetIsOnlyAllowedIfItIsValid) {
   EXPECT_THAT(errorsOf(R"("time-properties-ds":{"state":{"current-utc-offset":37}})"),
               ElementsAre("time-properties-ds/state/current-utc-offset: is only allowed if "
                           "current-utc-offset-valid is true"));
   EXPECT_THAT(errorsOf(R"("time-properties-ds":{"state":{"current-utc-offset":37,)"
                        R"("current-utc-offset-valid":true}})"),
               IsEmpty());
}

TEST(OpenconfigRead, OurOwnLeafCountsWhereverItIs) {
   auto const instance = Openconfig::Ptp::instanceFactory("a");
   loadInto(withInstance(R"("current-ds":{"state":{)"
                         R"("ptplib-openconfig-ptp:offset-from-master-nanoseconds":"5",)"
                         R"("offset-from-master":"65536","mean-path-delay":"65536",)"
                         R"("ptplib-openconfig-ptp:mean-path-delay-nanoseconds":"6"}})"),
            instance);
   EXPECT_EQ(instance->currentDs()->state()->offsetFromMaster(), 5);
   EXPECT_EQ(instance->currentDs()->state()->meanPathDelay(), 6);
}

TEST(OpenconfigRead, AnInstanceHasOneId) {
   EXPECT_THAT(errorsOf(R"("config":{"id":1},"state":{"id":0})"),
               ElementsAre("config/id: 1 contradicts 0"));
   auto const errors = [](std::string const& instances) {
      return ReadDocument(Json::parse(R"({"openconfig-ptp:ptp":{"instances":{"instance":)" +
                                      instances + "}}}"))
            .errors;
   };
   std::string const at = "/openconfig-ptp:ptp/instances/instance";
   EXPECT_THAT(errors("[{}]"), ElementsAre(at + "[0]: 'id' is missing"));
   EXPECT_THAT(errors(R"([{"id":1},{"id":"2"},{"id":1}])"),
               ElementsAre(at + "[1]/id: \"2\": must be a number from 0 to 4294967295",
                           at + "=1: occurs twice"));
   EXPECT_THAT(errors("{}"), ElementsAre(at + ": must be a list"));
   EXPECT_THAT(errors("[7]"), ElementsAre(at + "[0]: must be an object"));
}

TEST(OpenconfigRead, AnotherDocumentIsRefusedAsAWhole) {
   for (char const* const text : {"[]", "null", "{}", R"({"ptp":{}})"}) {
      EXPECT_EQ(failureOf([&] { ReadDocument(Json::parse(text)); }),
                "a.json: has no \"openconfig-ptp:ptp\" at its top; 'ptpstate export openconfig' "
                "writes the expected format");
   }
   EXPECT_THAT(ReadDocument(Json::parse(R"({"openconfig-ptp:ptp":[]})")).errors,
               ElementsAre("/openconfig-ptp:ptp: must be an object"));
}

}  // namespace
}  // namespace Holt
