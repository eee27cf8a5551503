// What an entity and a stopped reader cost in memory.
#include <malloc.h>

#include <cstdio>

#include "Kiv/NboAttrLogSession.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "bench/Baseline.h"

namespace {

using namespace Kiv::NboAttrLog;

constexpr U32 entities = 10000;

std::size_t heap() {
   struct mallinfo2 const info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

Dorn::IntfId intf(U32 i) {
   return Dorn::IntfId("Ethernet" + std::to_string(i + 1));
}

void entity() {
   std::vector<Sarn::Ptr<Ptp::IntfConfig>> held;
   held.reserve(entities);
   std::size_t const before = heap();
   for (U32 i = 0; i != entities; ++i) {
      held.push_back(Ptp::intfConfigFactory(intf(i), true, false));
   }
   double const each = static_cast<double>(heap() - before) / entities;
   std::printf("%-58s %12zu %12.1f %-8s %7.1f  %s\n", "a Ptp::IntfConfig, nobody listening",
               sizeof(Baseline::Intf), each, "bytes", each - sizeof(Baseline::Intf), "<= 96 more");
}

void inMap() {
   Sarn::Ptr<Ptp::Config> const config = Ptp::configFactory("ptp/config");
   std::size_t const before = heap();
   for (U32 i = 0; i != entities; ++i) {
      config->intfConfigIs(intf(i), true, false);
   }
   double const each = static_cast<double>(heap() - before) / entities;
   std::printf("%-58s %12zu %12.1f %-8s %7.1f\n", "the same in its map", sizeof(Baseline::Intf),
               each, "bytes", each - sizeof(Baseline::Intf));
}

/// Brings a reader up to date, then lets it stop: what the source holds for it after so many
/// changes.
std::size_t stopped(U64 changes) {
   Hub source;
   Hub mirror;
   Sarn::Ptr<Ptp::Config> const config = Ptp::configFactory("ptp/config");
   Sarn::Ptr<Ptp::Config> const copy = Ptp::configFactory("ptp/config");
   std::vector<Ptp::IntfConfig*> intfs;
   for (U32 i = 0; i != entities; ++i) {
      intfs.push_back(config->intfConfigIs(intf(i), true, false).get());
   }
   source.rootIs(config);
   Session writer(source);
   Session reader(mirror);
   Mount const& mount = reader.mountIs(copy);
   while (!mount.complete()) {
      CircularBuffer::Piece const asked = reader.output();
      writer.received(asked.begin, asked.size);
      reader.sent(asked.size);
      CircularBuffer::Piece const told = writer.output();
      reader.received(told.begin, told.size);
      writer.sent(told.size);
   }
   std::size_t const kept = heap();
   for (U64 i = 0; i != changes; ++i) {
      Ptp::IntfConfig& intf = *intfs[i % entities];
      intf.linkDelayThresholdIs(i + 1);
   }
   return heap() - kept;
}

}  // namespace

int main() {
   std::printf("%-58s %12s %12s %-8s %7s  %s\n", "what", "baseline", "measured", "unit", "more",
               "wanted");
   entity();
   inMap();
   std::size_t const few = stopped(1000000);
   std::size_t const many = stopped(100000000);
   std::printf("%-58s %12zu %12zu %-8s %7.3f  %s\n",
               "a stopped reader of 10 000 entities, after 10^6 / 10^8", few, many, "bytes",
               static_cast<double>(many) / static_cast<double>(few), "the same");
   return 0;
}
