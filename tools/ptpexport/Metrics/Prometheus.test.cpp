// The program's metrics over HTTP: as any client reads them, and as a real Prometheus does, which
// also evaluates the alarms.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <thread>

#include "Holt/Server.h"
#include "tools/demoAgent/Agent.h"

namespace Ptpexport::MetricsTest {
namespace {

using Time = std::chrono::steady_clock;
using namespace std::chrono_literals;
using Json = nlohmann::json;

/// A process that ends with the test, whatever happens, and writes its output to a file.
class Child {
public:
   Child(std::vector<std::string> const& command, std::string const& output) {
      std::vector<char*> arguments;
      for (std::string const& word : command) {
         arguments.push_back(const_cast<char*>(word.c_str()));
      }
      arguments.push_back(nullptr);
      pid_ = ::fork();
      if (pid_ == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);
         int const fd = ::open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
         ::dup2(fd, STDOUT_FILENO);
         ::dup2(fd, STDERR_FILENO);
         ::execvp(arguments[0], arguments.data());
         ::_exit(127);
      }
   }
   /// Gives it five seconds to end.
   ~Child() {
      ::kill(pid_, SIGTERM);
      for (int i = 0; i != 100; ++i) {
         if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
            return;
         }
         ::usleep(50'000);
      }
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
   }
   Child(Child const&) = delete;
   Child& operator=(Child const&) = delete;

private:
   pid_t pid_;
};

sockaddr_in loopback(U16 port) {
   sockaddr_in address{};
   address.sin_family = AF_INET;
   address.sin_port = htons(port);
   address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   return address;
}

/// A port that nobody uses at the moment.
U16 freePort() {
   int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_in address = loopback(0);
   socklen_t size = sizeof address;
   ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
   ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
   ::close(fd);
   return ntohs(address.sin_port);
}

/// Bytes of the answer to GET /metrics.
U64 sizeOfMetrics(U16 port) {
   int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   timeval const most{10, 0};
   ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof most);
   sockaddr_in const address = loopback(port);
   std::string const request =
         "GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
   U64 size = 0;
   if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 &&
       ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
      std::vector<char> piece(1 << 18);
      for (ssize_t count = 0; (count = ::recv(fd, piece.data(), piece.size(), 0)) > 0;) {
         size += static_cast<U64>(count);
      }
   }
   ::close(fd);
   return size;
}

struct Answer {
   std::string head;
   std::string body;
};

std::string readFile(std::string const& path) {
   std::stringstream text;
   text << std::ifstream(path).rdbuf();
   return text.str();
}

/// A status that is served here, and the program, which shows it.
class MetricsOverHttp : public testing::Test {
protected:
   void SetUp() override {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptpexport.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      DemoAgent::Agent agent(status, ports, 1);
      agent.fill();
      agent.tick();
      serve();
      exporter = std::make_unique<Child>(
            std::vector<std::string>{PTPLIB_BIN_DIR "/ptpexport", "--socket", directory + "/socket",
                                     "--listen", "127.0.0.1:0"},
            directory + "/ptpexport.log");
      ASSERT_TRUE(until(10s, [&] { return exportPort() != 0; })) << log("ptpexport");
   }
   void TearDown() override {
      if (HasFailure()) {
         std::cerr << log("ptpexport");
      }
      exporter.reset();
      stopServing();
      std::filesystem::remove_all(directory);
   }

   void serve() {
      Holt::Server::Options options;
      options.socket = directory + "/socket";
      server = std::make_unique<Holt::Server>(options);
      server->rootIs(status);
      loop.add(*server);
   }
   void stopServing() {
      if (server) {
         loop.remove(*server);
         server.reset();
      }
   }
   /// The port that the program says it listens on; 0 if it has not said so yet.
   U16 exportPort() const {
      std::string const said = log("ptpexport");
      std::string const before = "http://127.0.0.1:";
      std::size_t const at = said.find(before);
      return at == said.npos
                   ? U16{0}
                   : static_cast<U16>(std::strtoul(said.c_str() + at + before.size(), nullptr, 10));
   }
   std::string log(std::string const& name) const {
      return readFile(directory + "/" + name + ".log");
   }

   /// Serves until the condition holds, for this long at most. Returns whether it does.
   bool until(std::chrono::seconds most, std::function<bool()> const& holds) {
      for (auto const end = Time::now() + most; Time::now() < end;) {
         if (holds()) {
            return true;
         }
         loop.turn(-1, 2ms);
      }
      return false;
   }
   /// Asks over HTTP, and serves meanwhile. Nothing if that takes more than five seconds.
   std::optional<Answer> get(U16 port, std::string const& path, std::string const& headers = "") {
      int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_in const address = loopback(port);
      std::string all;
      std::string const request = "GET " + path +
                                  " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" +
                                  headers + "\r\n";
      bool whole = false;
      if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 &&
          ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
         ::fcntl(fd, F_SETFL, O_NONBLOCK);
         whole = until(5s, [&] {
            char piece[65'536];
            ssize_t count = 0;
            while ((count = ::recv(fd, piece, sizeof piece, 0)) > 0) {
               all.append(piece, static_cast<std::size_t>(count));
            }
            return count == 0;
         });
      }
      ::close(fd);
      std::size_t const blank = all.find("\r\n\r\n");
      if (!whole || blank == all.npos) {
         return std::nullopt;
      }
      Answer answer{all.substr(0, blank + 2), all.substr(blank + 4)};
      if (answer.head.find("hunked") != answer.head.npos) {
         answer.body = unchunked(answer.body);
      }
      return answer;
   }
   static std::string unchunked(std::string const& body) {
      std::string whole;
      for (std::size_t at = 0; at < body.size();) {
         std::size_t const size = std::strtoul(body.c_str() + at, nullptr, 16);
         at = body.find("\r\n", at) + 2;
         whole.append(body, at, size);
         at += size + 2;
         if (size == 0) {
            break;
         }
      }
      return whole;
   }

   static std::size_t samplesIn(std::string const& text) {
      std::size_t samples = 0;
      std::istringstream in(text);
      for (std::string line; std::getline(in, line);) {
         samples += !line.empty() && line[0] != '#' ? 1u : 0u;
      }
      return samples;
   }

   std::string directory;
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   U32 ports = 4;
   std::unique_ptr<Holt::Server> server;
   Holt::Loop loop;
   std::unique_ptr<Child> exporter;
};

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
