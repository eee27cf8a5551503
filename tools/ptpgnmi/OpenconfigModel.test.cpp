// The tree of openconfig-ptp.
#include "PtpLib/PtpOpenConfig.h"
#include "tools/ptpgnmi/Engine.test.h"

namespace Ptpgnmi {
namespace {

class GnmiOpenconfig : public GnmiEngine {
protected:
   GnmiOpenconfig() {
      instance->idIs(4);
      engine->rootIs(instance);
   }
   std::string of(std::string const& path, gnmi::Encoding encoding = gnmi::PROTO,
                  gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL) {
      return get(path, encoding, "", type);
   }

   Sarn::Ptr<Openconfig::Ptp::Instance> instance = Openconfig::Ptp::instanceFactory("instance");
};

TEST_F(GnmiOpenconfig, IsTheDefaultOriginAndHasTheModelsPaths) {
   auto const current = instance->currentDsIs()->stateIs();
   current->offsetFromMasterIs(-7);
   current->stepsRemovedIs(2);
   std::string const at = "/ptp/instances/instance[id=4]/current-ds/state/";
   EXPECT_EQ(of("/ptp/instances/instance[id=4]/current-ds"),
             at + "steps-removed uint_val: 2\n" + at + "offset-from-master int_val: -458752\n" +
                   at + "mean-path-delay int_val: 0\n");
   EXPECT_EQ(of("/ptp/instances/instance/current-ds/state/offset-from-master", gnmi::JSON_IETF),
             at + "offset-from-master json_ietf_val: \"\\\"-458752\\\"\"\n");
}

TEST_F(GnmiOpenconfig, ADocumentHasTheModuleAtItsTopAndKeysAsNumbers) {
   instance->currentDsIs()->stateIs();
   EXPECT_EQ(of("/", gnmi::JSON_IETF),
             R"(/ json_ietf_val: "{\"openconfig-ptp:ptp\":{\"instances\":{\"instance\":[{)"
             R"(\"id\":4,\"config\":{\"id\":4},\"state\":{\"id\":4},\"current-ds\":{\"state\":{)"
             R"(\"steps-removed\":0,\"offset-from-master\":\"0\",\"mean-path-delay\":\"0\"}}}]}}}")"
             "\n");
}

TEST_F(GnmiOpenconfig, GetsConfigurationOrStateAlone) {
   EXPECT_EQ(of("/ptp", gnmi::PROTO, gnmi::GetRequest::CONFIG),
             "/ptp/instances/instance[id=4]/config/id uint_val: 4\n");
   EXPECT_EQ(of("/ptp", gnmi::PROTO, gnmi::GetRequest::STATE),
             "/ptp/instances/instance[id=4]/id uint_val: 4\n"
             "/ptp/instances/instance[id=4]/state/id uint_val: 4\n");
}

TEST_F(GnmiOpenconfig, ALeafThatAnotherSwitchesComesAndGoesWithIt) {
   auto const times = instance->timePropertiesDsIs()->stateIs();
   times->currentUtcOffsetIs(37);
   auto asked = request(gnmi::SubscriptionList::STREAM,
                        {"/ptp/instances/instance/time-properties-ds"}, gnmi::PROTO, "openconfig");
   auto const stream = subscribe(asked);
   read(stream);
   std::string const at = "/ptp/instances/instance[id=4]/time-properties-ds/state/";
   times->currentUtcOffsetValidIs(true);
   EXPECT_EQ(read(stream), at + "current-utc-offset-valid bool_val: true\n" + at +
                                 "current-utc-offset int_val: 37\n");
   times->currentUtcOffsetIs(38);
   EXPECT_EQ(read(stream), at + "current-utc-offset int_val: 38\n");
   times->currentUtcOffsetValidIs(false);
   EXPECT_EQ(read(stream), "delete " + at + "current-utc-offset\n" + at +
                                 "current-utc-offset-valid bool_val: false\n");
}

TEST_F(GnmiOpenconfig, AnotherIdIsAnotherEntry) {
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/ptp/instances/instance/state/id"},
                           gnmi::PROTO, "openconfig"));
   EXPECT_EQ(read(stream), "/ptp/instances/instance[id=4]/state/id uint_val: 4\nsync\n");
   instance->idIs(5);
   EXPECT_EQ(read(stream),
             "delete /ptp/instances/instance[id=4]/state/id\n"
             "/ptp/instances/instance[id=5]/state/id uint_val: 5\n");
}

TEST_F(GnmiOpenconfig, RefusesWhatTheModelDoesNotHave) {
   EXPECT_EQ(of("/ptp/instance"),
             "3 /ptp/instance: openconfig-ptp has no 'instance' there; did you mean 'instances'?");
   EXPECT_EQ(of("/ptp/instances/instance[name=4]"),
             "3 /ptp/instances/instance[name=4]: the key of instance is named 'id', not 'name'");
   EXPECT_EQ(of("/ptp/instances/instance[id=9]"),
             "5 /ptp/instances/instance[id=9]: there is nothing");
}

}  // namespace
}  // namespace Ptpgnmi
