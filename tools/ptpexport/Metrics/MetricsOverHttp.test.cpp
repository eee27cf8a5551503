// Metrics as any client of HTTP reads them.
#include "tools/ptpexport/Metrics/MetricsOverHttp.test.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace Ptpexport::MetricsTest {
namespace {

TEST_F(MetricsOverHttp, AreInTheFormatThatTheClientPrefers) {
   std::string const text = "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n";
   std::string const open =
         "Content-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n";
   ASSERT_TRUE(until(10s, [&] {
      auto const answer = get(exportPort(), "/metrics");
      return answer && answer->body.find("ptp_source_connected 1\n") != std::string::npos;
   }));
   auto const plain = get(exportPort(), "/metrics");
   ASSERT_TRUE(plain);
   EXPECT_TRUE(plain->head.starts_with("HTTP/1.1 200 "));
   EXPECT_NE(plain->head.find(text), std::string::npos) << plain->head;
   EXPECT_NE(plain->head.find("Vary: Accept\r\n"), std::string::npos) << plain->head;
   EXPECT_EQ(plain->body.find("# EOF"), std::string::npos);
   auto const metrics =
         get(exportPort(), "/metrics",
             "Accept: text/plain;q=0.5, application/openmetrics-text;version=1.0.0;q=0.6\r\n");
   ASSERT_TRUE(metrics);
   EXPECT_NE(metrics->head.find(open), std::string::npos) << metrics->head;
   EXPECT_TRUE(metrics->body.ends_with("\n# EOF\n"));
   EXPECT_GT(samplesIn(metrics->body), 400u);
}

/// A source that is a process of its own.
class MetricsOfAProcess : public MetricsOverHttp {
protected:
   void serve() override {
      source = std::make_unique<Child>(
            std::vector<std::string>{PTPLIB_BIN_DIR "/ptpstate", "serve", "--socket",
                                     directory + "/socket", "--root", "Ptp::Status=ptp/status"},
            directory + "/source.log");
      ASSERT_TRUE(until(10s, [&] { return std::filesystem::exists(directory + "/socket"); }));
      ptpstate("add", "ptp/status.ptpMibData");
   }
   void stopServing() override { source.reset(); }

   void ptpstate(std::string const& command, std::string const& arguments) const {
      EXPECT_EQ(std::system((PTPLIB_BIN_DIR "/ptpstate " + command + " --socket " + directory +
                             "/socket " + arguments)
                                  .c_str()),
                0);
   }
   void sentIs(int packets) const {
      ptpstate("set", "ptp/status.ptpMibData.totalPacketsSent " + std::to_string(packets));
   }
   /// Whether there is a sample with this name and value, and the last scrape.
   bool shows(std::string const& sample) {
      auto const answer = get(exportPort(), "/metrics", "Accept: application/openmetrics-text\r\n");
      last = answer ? answer->body : "";
      return last.find("\n" + sample + "\n") != std::string::npos;
   }
   double created() const {
      std::string const name = "\nptp_packets_sent_created ";
      std::size_t const at = last.find(name);
      return at == last.npos ? 0 : std::strtod(last.c_str() + at + name.size(), nullptr);
   }

   std::unique_ptr<Child> source;
   std::string last;
};

TEST_F(MetricsOfAProcess, HaveNewCountersAfterARestartOnly) {
   sentIs(100);
   EXPECT_TRUE(until(10s, [&] { return shows("ptp_packets_sent_total 100"); })) << last;
   double const first = created();
   EXPECT_GT(first, 1.7e9);
   sentIs(40);
   EXPECT_TRUE(until(10s, [&] { return shows("ptp_packets_sent_total 140"); })) << last;
   EXPECT_EQ(created(), first);

   stopServing();
   EXPECT_TRUE(until(10s, [&] { return shows("ptp_source_connected 0"); })) << last;
   serve();
   sentIs(40);
   EXPECT_TRUE(until(10s, [&] { return shows("ptp_packets_sent_total 40"); })) << last;
   EXPECT_GT(created(), first);
}

/// 4,096 ports.
class LargeMetricsOverHttp : public MetricsOverHttp {
protected:
   LargeMetricsOverHttp() { ports = 4096; }

   static constexpr char const* offsetPath = "/state/ptp/status.currentDS.offsetFromMaster";

   /// How long it takes until a change of the source is seen over HTTP.
   std::chrono::duration<double, std::milli> change(S64 offset) {
      auto const begin = Time::now();
      status->currentDS()->offsetFromMasterIs(offset);
      std::string const expected = std::to_string(offset);
      EXPECT_TRUE(until(20s, [&] {
         auto const answer = get(exportPort(), offsetPath);
         return answer && answer->body.find(expected) != std::string::npos;
      }));
      return Time::now() - begin;
   }
   double median(int changes) {
      std::vector<double> times;
      for (int i = 0; i != changes; ++i) {
         times.push_back(change(1'000'000 + ++changes_).count());
      }
      std::sort(times.begin(), times.end());
      worst = times.back();
      return times[times.size() / 2];
   }

   double worst = 0;

private:
   S64 changes_ = 0;
};

TEST_F(LargeMetricsOverHttp, DelayTheMirrorByAPieceOnly) {
   ASSERT_TRUE(until(20s, [&] {
      auto const answer = get(exportPort(), "/healthz");
      return answer && answer->head.starts_with("HTTP/1.1 200 ");
   }));
   double const alone = median(11);
   double const worstAlone = worst;

   // Whoever scrapes all the time, each in a thread, as fast as it can.
   U16 const port = exportPort();
   std::atomic<bool> over = false;
   std::atomic<int> scrapes = 0;
   std::atomic<U64> bytes = 0;
   std::vector<std::thread> scrapers;
   auto const begin = Time::now();
   for (int i = 0; i != 2; ++i) {
      scrapers.emplace_back([&over, &scrapes, &bytes, port] {
         for (int n = 0; n != 500 && !over; ++n) {
            bytes += sizeOfMetrics(port);
            ++scrapes;
         }
      });
   }
   EXPECT_TRUE(until(30s, [&] { return scrapes >= 2; }));
   double const scraped = median(31);
   over = true;
   for (std::thread& scraper : scrapers) {
      scraper.join();
   }
   std::chrono::duration<double, std::milli> const took = Time::now() - begin;
   double const perScrape = took.count() / scrapes;
   std::printf(
         "4096 ports: %.1f MB and %.0f ms a scrape over HTTP; a change is seen after %.1f ms "
         "(at most %.1f), and while two clients scrape all the time, after %.1f ms (at most "
         "%.1f)\n",
         static_cast<double>(bytes) / scrapes / 1e6, perScrape, alone, worstAlone, scraped, worst);
   EXPECT_GT(bytes / static_cast<U64>(scrapes), 10'000'000u);
   EXPECT_LT(scraped, alone + perScrape / 2) << "the mirror has waited for whole scrapes";
}

}  // namespace
}  // namespace Ptpexport::MetricsTest
