// The program with a real Prometheus, which scrapes it and evaluates the alarms.
#include <nlohmann/json.hpp>

#include "tools/ptpexport/Metrics/MetricsOverHttp.test.h"

namespace Ptpexport::MetricsTest {
namespace {

using Json = nlohmann::json;

class Prometheus : public MetricsOverHttp {
protected:
   void SetUp() override {
      if (std::system("command -v prometheus >/dev/null") != 0) {
         GTEST_SKIP() << "prometheus is not installed (Debian's package prometheus)";
      }
      MetricsOverHttp::SetUp();
   }
   void TearDown() override {
      if (HasFailure()) {
         std::cerr << log("prometheus");
      }
      prometheus.reset();
      MetricsOverHttp::TearDown();
   }

   void startPrometheus() {
      prometheusPort = freePort();
      std::ofstream(directory + "/prometheus.yml")
            << "global: {scrape_interval: 1s, scrape_timeout: 1s, evaluation_interval: 1s}\n"
               "rule_files: ['" PTPLIB_SOURCE_DIR
               "/tools/ptpexport/Metrics/ptp.rules.yml']\n"
               "scrape_configs:\n"
               "  - job_name: ptp\n"
               "    static_configs: [{targets: ['127.0.0.1:"
            << exportPort() << "']}]\n";
      prometheus = std::make_unique<Child>(
            std::vector<std::string>{
                  "prometheus", "--config.file=" + directory + "/prometheus.yml",
                  "--storage.tsdb.path=" + directory + "/data",
                  "--web.listen-address=127.0.0.1:" + std::to_string(prometheusPort),
                  "--log.level=warn"},
            directory + "/prometheus.log");
   }

   /// What Prometheus's API answers; null if it does not.
   Json api(std::string const& path) {
      auto const answer = get(prometheusPort, "/api/v1/" + path);
      Json json = answer ? Json::parse(answer->body, nullptr, false) : Json();
      return json.is_object() ? json["data"] : Json();
   }
   /// The value of an expression with one result; nothing if it has none.
   std::optional<double> value(std::string const& expression) {
      std::string path = "query?query=";
      for (char const c : expression) {
         char text[4];
         std::snprintf(text, sizeof text, "%%%02X", static_cast<unsigned>(c) & 0xFF);
         path += text;
      }
      Json const data = api(path);
      if (!data.is_object() || data["result"].empty()) {
         return std::nullopt;
      }
      return std::stod(data["result"][0]["value"][1].get<std::string>());
   }
   /// Whether an alarm fires, for this interface if one is given.
   bool fires(std::string const& alarm, std::string const& interface = "") {
      Json const data = api("alerts");
      if (data.is_object()) {
         for (Json const& one : data["alerts"]) {
            Json const& labels = one["labels"];
            if (labels["alertname"] == alarm && one["state"] == "firing" &&
                (interface.empty() || labels.value("interface", "") == interface)) {
               return true;
            }
         }
      }
      return false;
   }

   std::unique_ptr<Child> prometheus;
   U16 prometheusPort = 0;
};

TEST_F(Prometheus, SeesAPortThatIsFaultyAndASourceThatIsLost) {
   startPrometheus();
   ASSERT_TRUE(until(30s, [&] { return value("ptp_source_connected") == 1; }));
   // It takes every sample.
   auto const scraped =
         get(exportPort(), "/metrics", "Accept: application/openmetrics-text;version=1.0.0\r\n");
   ASSERT_TRUE(scraped);
   EXPECT_TRUE(until(10s,
                     [&] {
                        return value("scrape_samples_scraped") ==
                               static_cast<double>(samplesIn(scraped->body));
                     }))
         << value("scrape_samples_scraped").value_or(-1) << " of " << samplesIn(scraped->body);
   Json const target = api("targets")["activeTargets"][0];
   EXPECT_EQ(target["health"], "up");
   EXPECT_EQ(target["lastError"], "");
   // Numbers arrive as they are.
   EXPECT_EQ(value("ptp_offset_from_master_seconds"),
             static_cast<double>(status->currentDS()->offsetFromMaster()) / 1e9);
   EXPECT_EQ(value("sum(ptp_port_state)"), 4);

   auto const port = (*status->portDSAll().begin())->portDSKey();
   std::string const interface = port.intf().name();
   EXPECT_FALSE(fires("PtpPortFaulty"));
   auto const begin = Time::now();
   status->portDS(port)->portStateIs(Ptp::PortState::faulty);
   status->portDS(port)->faultyFlagIs(true);
   ASSERT_TRUE(until(40s, [&] { return fires("PtpPortFaulty", interface); }));
   std::chrono::duration<double> const delay = Time::now() - begin;
   RecordProperty("delay", std::to_string(delay.count()));
   std::printf("a port that goes faulty is an alarm after %.1f s, 10 s of them by its rule\n",
               delay.count());
   EXPECT_GE(delay, 10s) << "the rule says so";
   EXPECT_LT(delay, 20s);

   status->portDS(port)->portStateIs(Ptp::PortState::master);
   status->portDS(port)->faultyFlagIs(false);
   EXPECT_TRUE(until(20s, [&] { return !fires("PtpPortFaulty"); }));

   stopServing();
   EXPECT_TRUE(until(20s, [&] { return value("ptp_source_connected") == 0; }));
   EXPECT_FALSE(value("ptp_offset_from_master_seconds")) << "what is not known is not shown";
   serve();
   EXPECT_TRUE(until(20s, [&] { return value("ptp_source_connected") == 1; }));
   EXPECT_TRUE(until(10s, [&] { return value("ptp_offset_from_master_seconds").has_value(); }));
}

}  // namespace
}  // namespace Ptpexport::MetricsTest
