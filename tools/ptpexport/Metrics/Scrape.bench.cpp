// What a scrape costs: as a whole, and a slice of it, during which a mirror waits.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>
#include <vector>

#include "tools/demoAgent/Agent.h"
#include "tools/ptpexport/Metrics/Scrape.h"

namespace {

using namespace Ptpexport;
using Time = std::chrono::steady_clock;

/// The slice of the HTTP server.
constexpr std::size_t slice = std::size_t(32) << 10;

std::vector<Sarn::Ptr<Kiv::NamedEntity>> statusWith(U32 ports) {
   auto const status = Ptp::statusFactory("ptp/status");
   DemoAgent::Agent agent(status, ports, 1);
   agent.fill();
   for (int i = 0; i != 5; ++i) {
      agent.tick();
   }
   return {status};
}

SourceHealth health() {
   return {true, 1'700'000'100, 1'700'000'000, 4711, "0.1.0", 1'700'000'200.5};
}

void scrapes(benchmark::State& state, MetricFormat format) {
   auto const roots = statusWith(static_cast<U32>(state.range(0)));
   Counters counters;
   std::vector<char> piece(slice);
   U64 bytes = 0;
   std::vector<double> longest;
   for (auto _ : state) {
      auto before = Time::now();
      double most = 0;
      auto const sliceEnds = [&] {
         auto const now = Time::now();
         most = std::max(most, std::chrono::duration<double, std::micro>(now - before).count());
         before = now;
      };
      Scrape scrape(roots, format, health(), counters);
      sliceEnds();
      bytes = 0;
      while (!scrape.ended()) {
         bytes += scrape.read(piece);
         sliceEnds();
      }
      longest.push_back(most);
      benchmark::DoNotOptimize(piece.data());
   }
   std::nth_element(longest.begin(),
                    longest.begin() + static_cast<std::ptrdiff_t>(longest.size() / 2),
                    longest.end());
   state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
   state.counters["bytes"] = static_cast<double>(bytes);
   // Of a scrape, as its median over all scrapes: the machine does other things, too.
   state.counters["longest_slice_us"] = longest[longest.size() / 2];
}

void scrapePrometheus(benchmark::State& state) {
   scrapes(state, MetricFormat::prometheus);
}
BENCHMARK(scrapePrometheus)->Arg(4)->Arg(512)->Arg(4096)->Unit(benchmark::kMillisecond);

void scrapeOpenMetrics(benchmark::State& state) {
   scrapes(state, MetricFormat::openMetrics);
}
BENCHMARK(scrapeOpenMetrics)->Arg(4)->Arg(512)->Arg(4096)->Unit(benchmark::kMillisecond);

/// The same lines from numbers that are at hand: names and labels are copied, a number is printed.
void printsBaseline(benchmark::State& state, MetricFormat format) {
   auto const roots = statusWith(static_cast<U32>(state.range(0)));
   Counters counters;
   std::string whole;
   std::vector<char> piece(slice);
   for (Scrape scrape(roots, format, health(), counters); !scrape.ended();) {
      whole.append(piece.data(), scrape.read(piece));
   }
   std::vector<std::string> lines;
   for (std::size_t at = 0; at != whole.size();) {
      std::size_t const end = whole.find('\n', at);
      std::size_t const blank = whole.rfind(' ', end);
      lines.push_back(whole.substr(at, blank + 1 - at));
      at = end + 1;
   }
   std::string out;
   for (auto _ : state) {
      out.clear();
      U64 number = 0;
      for (std::string const& line : lines) {
         char digits[20];
         out += line;
         out.append(digits, std::to_chars(digits, digits + sizeof digits, number++ % 1000).ptr);
         out += '\n';
         if (out.size() >= slice) {
            std::copy(out.begin(), out.begin() + slice, piece.begin());
            out.erase(0, slice);
         }
      }
      benchmark::DoNotOptimize(piece.data());
   }
}

void scrapePrometheus_Baseline(benchmark::State& state) {
   printsBaseline(state, MetricFormat::prometheus);
}
BENCHMARK(scrapePrometheus_Baseline)->Arg(4)->Arg(512)->Arg(4096)->Unit(benchmark::kMillisecond);

void scrapeOpenMetrics_Baseline(benchmark::State& state) {
   printsBaseline(state, MetricFormat::openMetrics);
}
BENCHMARK(scrapeOpenMetrics_Baseline)->Arg(4)->Arg(512)->Arg(4096)->Unit(benchmark::kMillisecond);

}  // namespace
