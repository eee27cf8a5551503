// What a server reports about its connections.
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "Holt/Client.h"
#include "Holt/State/Place.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// A state that is mirrored for writing in this process.
class Writer {
public:
   explicit Writer(std::string const& socket)
         : client_(socket, std::chrono::seconds(20)),
           mount_(client_.mountIs({"Ptp::Config", "ptp/config"}, MountMode::writer)) {
      client_.waitComplete(mount_);
   }
   void set(char const* steps, std::string const& value) {
      Place(Sarn::Ptr<Kiv::Entity>(&mount_.root()), "ptp/config", parseSteps(steps)).set(value);
   }
   void sync() { client_.sync(); }

private:
   Client client_;
   Mount& mount_;
};

class StatusTest : public WithServer {
protected:
   void SetUp() override { serve(); }
   nlohmann::json json() const {
      Outcome const outcome = run({"status", "--socket", socket, "--json"});
      EXPECT_EQ(outcome.err, "");
      return nlohmann::json::parse(outcome.out);
   }
};

TEST_F(StatusTest, TellsWhoMirrorsWhatAndHowMuchWasSaid) {
   Program watcher({"watch", "--socket", socket});
   ASSERT_TRUE(watcher.says("is complete"));
   Writer writer(socket);
   writer.set(".priority1", "7");
   writer.sync();
   nlohmann::json const all = json();
   ASSERT_EQ(all.size(), 3U);
   EXPECT_EQ(all[0]["connection"], 1);
   EXPECT_EQ(all[0]["peer"]["pid"], watcher.pid());
   EXPECT_EQ(all[0]["peer"]["uid"], ::getuid());
   EXPECT_EQ(all[0]["peer"]["gid"], ::getgid());
   EXPECT_EQ(all[0]["peer"]["program"], "ptpstate");
   EXPECT_EQ(all[0]["roots"],
             nlohmann::json::parse(R"([{"type": "Ptp::Config", "name": "ptp/config",
                                        "mode": "reader", "leads": false,
                                        "complete": true}])"));
   EXPECT_EQ(all[0]["thisCommand"], false);
   EXPECT_EQ(all[0]["behindNs"], 0);
   EXPECT_EQ(all[0]["bufferedBytes"], 0);
   EXPECT_EQ(all[0]["changesDeferred"], 0);
   EXPECT_GT(all[0]["connectedNs"], 0);
   EXPECT_EQ(all[1]["peer"]["pid"], ::getpid());
   EXPECT_EQ(all[1]["roots"][0]["mode"], "writer");
   // The greeting, the mount, what it had seen, who is meant, the change, and the question for the
   // end.
   EXPECT_EQ(all[1]["messagesReceived"], 6);
   EXPECT_EQ(all[2]["thisCommand"], true);
   EXPECT_EQ(all[2]["roots"], nlohmann::json::array());
   EXPECT_EQ(all[2]["messagesReceived"], 2);
}

TEST_F(StatusTest, TellsHowFarBehindAReaderIsThatDoesNotRead) {
   Program watcher({"watch", "--socket", socket, "ptp/config.enabled"});
   ASSERT_TRUE(watcher.says("is complete"));
   watcher.signal(SIGSTOP);
   Writer writer(socket);
   for (int i = 0; i != 200'000; ++i) {
      writer.set(".priority1", std::to_string(i % 2));
      writer.set(".priority2", std::to_string(i % 3));
      if (i % 1000 == 0) {
         writer.sync();
      }
   }
   writer.set(".missingSequenceThresholds[sync]", "5");
   writer.set(".missingSequenceThresholds[announce]", "6");
   writer.sync();
   nlohmann::json const behind = json()[0];
   EXPECT_EQ(behind["peer"]["pid"], watcher.pid());
   EXPECT_GT(behind["behindNs"], 0);
   EXPECT_LT(behind["behindNs"], behind["connectedNs"]);
   EXPECT_EQ(behind["dirtyEntities"], 1);
   EXPECT_EQ(behind["dirtyAttributes"], 3);
   EXPECT_EQ(behind["dirtyKeys"], 2);
   EXPECT_EQ(behind["bufferBytes"], 1048576);
   EXPECT_GT(behind["bufferedBytes"], 1048000);
   EXPECT_EQ(behind["changesCoalesced"].get<U64>() + 4, behind["changesDeferred"].get<U64>());
   std::string const text = run({"status", "--socket", socket}).out;
   EXPECT_TRUE(std::regex_search(text, std::regex("   behind     for \\d+\\.\\d{3} s\n"))) << text;
   EXPECT_NE(text.find("   untold     3 attributes and 2 keys of 1 entity\n"), std::string::npos)
         << text;

   watcher.signal(SIGCONT);
   writer.set(".enabled", "true");
   writer.sync();
   EXPECT_TRUE(watcher.says("ptp/config.enabled: false -> true")) << "what is untold is not lost";
   nlohmann::json const after = json()[0];
   EXPECT_EQ(after["behindNs"], 0);
   EXPECT_EQ(after["dirtyEntities"], 0);
   EXPECT_EQ(after["bufferedBytes"], 0);
}

TEST_F(StatusTest, PrintsABlockAConnection) {
   std::string const text = run({"status", "--socket", socket}).out;
   std::regex const block(
         "connection 1: pid \\d+, uid \\d+, gid \\d+, ptpstate \\(this command\\)\n"
         "   connected  \\d+\\.\\d{3} s\n"
         "   received   2 messages, \\d+ bytes\n"
         "   sent       1 message, \\d+ bytes\n"
         "   coalesced  0 of 0 deferred changes\n"
         "   untold     0 attributes and 0 keys of 0 entities\n"
         "   buffer     \\d+ of \\d+ bytes \\(\\d+ %\\)\n"
         "   behind     no\n");
   EXPECT_TRUE(std::regex_match(text, block)) << text;
}

TEST_F(StatusTest, OfNoServerIsAnError) {
   server->signal(SIGKILL);
   server->finish();
   Outcome const outcome = run({"status", "--socket", socket});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.err.find("no server listens here any more"), std::string::npos) << outcome.err;
}

}  // namespace
}  // namespace Ptpstate
