#include "tools/ptpexport/StateBody.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Holt/Client.h"
#include "Holt/State/Doc.h"
#include "PtpLib/PtpStatusStatedbTypes.h"

namespace Ptpexport {
namespace {

std::string readAll(StateBody& body, std::size_t slice) {
   std::string all;
   std::string buffer(slice, ' ');
   while (!body.ended()) {
      all.append(buffer.data(), body.read(buffer));
   }
   return all;
}

StateBody::At at(Sarn::Ptr<Kiv::NamedEntity> const& root, std::string_view steps) {
   Holt::Path path{{root->kivType().name, root->nameString()}, Holt::parseSteps(steps)};
   return {path, Holt::Place(Sarn::Ptr<Kiv::Entity>(root), root->nameString(), path.steps)};
}

std::vector<StateBody::At> placesOf(
      std::vector<std::pair<Sarn::Ptr<Kiv::NamedEntity>, std::string_view>> const& steps) {
   std::vector<StateBody::At> places;
   for (auto const& [root, path] : steps) {
      places.push_back(at(root, path));
   }
   return places;
}

/// What `ptpstate dump --json` prints.
std::string dumped(std::vector<StateBody::At> const& places) {
   Holt::StateDoc doc;
   for (auto const& [path, place] : places) {
      doc.places.push_back(Holt::docOf(place, path));
   }
   return Holt::jsonText(Holt::jsonOf(doc));
}

Sarn::Ptr<Ptp::Status> statusWithPorts(int ports) {
   auto const status = Ptp::statusFactory("ptp/\"status\"\n\xff");
   for (int i = 1; i <= ports; ++i) {
      auto const port = status->portDSIs(
            Ptp::PortDSKey(Dorn::IntfId("Ethernet" + std::to_string(i)), Bridging::VlanIdOrNone()),
            Ptp::PortIdentity(Ptp::ClockIdentity(), static_cast<U16>(i)));
      port->peerPathDelayEnq(1.5);
      port->peerMeanPathDelayIs(-i);
   }
   return status;
}

TEST(StateBody, WritesWhatADumpHasInSlicesOfAnySize) {
   Sarn::Ptr<Kiv::NamedEntity> const status = statusWithPorts(12);
   Sarn::Ptr<Kiv::NamedEntity> const config = Ptp::configFactory("ptp/config");
   static_cast<Ptp::Config&>(*config).intfConfigIs(Dorn::IntfId("Ethernet1"), true, false);
   using Steps = std::vector<std::pair<Sarn::Ptr<Kiv::NamedEntity>, std::string_view>>;
   std::vector<Steps> const choices = {
         {},
         {{status, ""}},
         {{status, ""}, {config, ""}},
         {{status, ".portDS"}, {status, ".portDS[Ethernet2]"}, {config, ".priority1"}},
         {{config, ".clockQuality"}, {config, ".missingSequenceThresholds"}},
         {{status, ".portDS[Ethernet3].peerPathDelay"}},
   };
   for (Steps const& steps : choices) {
      std::string const expected = dumped(placesOf(steps));
      for (std::size_t const slice : {1U, 7U, 100U, 4096U, 1U << 20}) {
         StateBody body(placesOf(steps));
         EXPECT_EQ(readAll(body, slice), expected);
      }
   }
}

TEST(StateBody, LeavesOutWhatIsRemovedWhileItIsRead) {
   Sarn::Ptr<Kiv::NamedEntity> const status = statusWithPorts(20);
   auto& tree = static_cast<Ptp::Status&>(*status);
   StateBody body(placesOf({{status, ""}}));
   std::string text(100, ' ');
   std::string buffer(100, ' ');
   text.resize(body.read(text));
   while (text.find("\"Ethernet5\"") == std::string::npos) {
      text.append(buffer.data(), body.read(buffer));
   }
   tree.portDSDelAll();
   while (!body.ended()) {
      text.append(buffer.data(), body.read(buffer));
   }
   Holt::Json const json = Holt::Json::parse(text);
   auto const& ports = json["places"][0]["state"]["portDS"];
   EXPECT_GE(ports.size(), 5U);
   EXPECT_LE(ports.size(), 6U);
   EXPECT_EQ(ports["Ethernet4"]["peerMeanPathDelay"], -4);
}

}  // namespace
}  // namespace Ptpexport
