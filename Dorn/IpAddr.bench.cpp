#include <arpa/inet.h>
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "Dorn/Ip6Addr.h"
#include "Dorn/IpAddr.h"

// Parsing and printing addresses, compared with the C library's functions.

namespace {

using Dorn::Ip6Addr;
using Dorn::IpAddr;

std::vector<Ip6Addr> addresses() {
   std::mt19937_64 random(1);
   std::vector<Ip6Addr> some;
   for (int i = 0; i < 64; ++i) {
      some.emplace_back(0x20010db8'00000000 | (random() & 0xffff), random() >> random() % 64);
   }
   return some;
}

void BM_Ip6PrintByInetNtop(benchmark::State& state) {
   auto const some = addresses();
   std::size_t i = 0;
   for (auto _ : state) {
      auto const bytes = some[i++ % some.size()].bytes();
      char text[INET6_ADDRSTRLEN];
      benchmark::DoNotOptimize(inet_ntop(AF_INET6, bytes.data(), text, sizeof text));
   }
}
BENCHMARK(BM_Ip6PrintByInetNtop);

void BM_Ip6Print(benchmark::State& state) {
   auto const some = addresses();
   Sarn::String out;
   std::size_t i = 0;
   for (auto _ : state) {
      out.clear();
      some[i++ % some.size()].print(out);
      benchmark::DoNotOptimize(out);
   }
}
BENCHMARK(BM_Ip6Print);

std::vector<Sarn::String> texts() {
   std::vector<Sarn::String> all;
   for (Ip6Addr const& address : addresses()) {
      address.print(all.emplace_back());
   }
   return all;
}

void BM_Ip6ParseByInetPton(benchmark::State& state) {
   auto const all = texts();
   std::size_t i = 0;
   for (auto _ : state) {
      in6_addr address;
      benchmark::DoNotOptimize(inet_pton(AF_INET6, all[i++ % all.size()].c_str(), &address));
   }
}
BENCHMARK(BM_Ip6ParseByInetPton);

void BM_Ip6Parse(benchmark::State& state) {
   auto const all = texts();
   std::size_t i = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(Ip6Addr(std::string_view(all[i++ % all.size()])));
   }
}
BENCHMARK(BM_Ip6Parse);

void BM_Ip4ParseByInetPton(benchmark::State& state) {
   Sarn::String const text = "224.0.1.129";
   for (auto _ : state) {
      in_addr address;
      benchmark::DoNotOptimize(inet_pton(AF_INET, text.c_str(), &address));
   }
}
BENCHMARK(BM_Ip4ParseByInetPton);

void BM_Ip4Parse(benchmark::State& state) {
   Sarn::String text = "224.0.1.129";
   for (auto _ : state) {
      benchmark::DoNotOptimize(text.data());
      benchmark::DoNotOptimize(IpAddr(std::string_view(text)));
   }
}
BENCHMARK(BM_Ip4Parse);

}  // namespace
