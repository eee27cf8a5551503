#include "tools/ptpexport/OpenconfigReply.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "Holt/Failure.test.h"
#include "Holt/Server.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "tools/ptpexport/Health.h"

namespace Ptpexport {

namespace {

class RequestFor final : public Request {
public:
   explicit RequestFor(std::string const& path) {
      target.path = "/openconfig/" + path;
      rest = path;
   }
   std::string header(char const*) const override { return ""; }
};

std::string const openconfigSocket = "/tmp/openconfig." + std::to_string(::getpid()) + ".sock";

TEST(OpenconfigReplyTest, IsTheDocumentOrThePartAtAPath) {
   Feed feed(openconfigSocket);
   EXPECT_EQ(openconfigReply(feed, RequestFor("")).status, 503u) << "nothing has been mirrored";
   Sarn::Ptr<Openconfig::Ptp::Instance> const instance =
         Openconfig::Ptp::instanceFactory("ptp/instance");
   instance->idIs(3);
   instance->currentDsIs()->stateIs()->stepsRemovedIs(2);
   Holt::Server::Options options;
   options.socket = openconfigSocket;
   std::optional<Holt::Server> server(options);
   server->rootIs(instance);
   Holt::Loop loop;
   loop.add(*server);
   loop.add(feed);
   for (int i = 0; i != 200 && !feed.status().current; ++i) {
      loop.turn(-1, std::chrono::milliseconds(10));
   }
   ASSERT_TRUE(feed.status().current) << feed.status().reason;

   std::string const path = "openconfig-ptp:ptp/instances/instance=3/current-ds/state";
   Reply const part = openconfigReply(feed, RequestFor(path + "/steps-removed"));
   EXPECT_EQ(part.status, 200u);
   EXPECT_EQ(part.contentType, "application/yang-data+json");
   EXPECT_EQ(part.text, "{\n   \"openconfig-ptp:steps-removed\": 2\n}\n");
   EXPECT_EQ(part.headers, decltype(part.headers)());
   EXPECT_NE(openconfigReply(feed, RequestFor("")).text.find("\"openconfig-ptp:ptp\": {"),
             std::string::npos);
   Reply const nothing =
         openconfigReply(feed, RequestFor("openconfig-ptp:ptp/instances/instance=4"));
   EXPECT_EQ(nothing.status, 404u);
   EXPECT_EQ(nothing.text,
             "/openconfig/openconfig-ptp:ptp/instances/instance=4: nothing is there now\n");
   EXPECT_NE(Holt::failureOf([&] { openconfigReply(feed, RequestFor(path + "/step")); }), "");

   loop.remove(*server);
   server.reset();
   for (int i = 0; i != 200 && feed.status().current; ++i) {
      loop.turn(-1, std::chrono::milliseconds(10));
   }
   Reply const old = openconfigReply(feed, RequestFor(path + "/steps-removed"));
   EXPECT_EQ(old.text, part.text) << "what was known stays";
   EXPECT_EQ(old.headers, (decltype(old.headers){{"Warning", staleWarning}}));
}

}  // namespace

}  // namespace Ptpexport
