// What recording costs per change, how much memory a long recording takes, and how long it takes to
// show a moment of it.
//
//     bench_recording [CHANGES]     864000000 is a day of 10 000 changes per second: 19 GB
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "bench/Harness.h"

namespace {

using namespace Kiv::NboAttrLog;

constexpr U32 ports = 1000;
constexpr U64 changesPerTurn = 10;
/// For 10 000 changes per second.
constexpr U64 turnNanoseconds = 1'000'000;

std::size_t heap() {
   struct mallinfo2 const info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

/// The peak memory of the process in kilobytes.
long peak() {
   long kilobytes = 0;
   if (std::FILE* const status = std::fopen("/proc/self/status", "r")) {
      char line[256];
      while (std::fgets(line, sizeof line, status) != nullptr) {
         std::sscanf(line, "VmHWM: %ld", &kilobytes);
      }
      std::fclose(status);
   }
   return kilobytes;
}

Moment moment(U64 turn) {
   return {turn * turnNanoseconds, 1'700'000'000'000'000'000 + turn * turnNanoseconds};
}

struct Source {
   Source() : config(Ptp::configFactory("ptp/config")) {
      for (U32 i = 0; i != ports; ++i) {
         intfs.push_back(
               config->intfConfigIs(Dorn::IntfId("Ethernet" + std::to_string(i + 1)), true, false)
                     .get());
      }
      hub.rootIs(config);
   }
   Hub hub;
   Sarn::Ptr<Ptp::Config> config;
   std::vector<Ptp::IntfConfig*> intfs;
};

/// Records this many changes; returns the seconds that it takes.
double record(Source& source, RecordSink& sink, U64 changes, std::size_t& grown, U64& bytes) {
   Recorder recorder(source.hub, sink);
   recorder.turn(moment(0));
   while (recorder.waiting()) {
      recorder.turn(moment(0));
   }
   std::size_t const before = heap();
   std::size_t most = before;
   double const begin = Harness::now();
   for (U64 i = 0; i != changes;) {
      for (U64 k = 0; k != changesPerTurn; ++k, ++i) {
         source.intfs[i % ports]->linkDelayThresholdIs(i + 1);
      }
      do {
         recorder.turn(moment(i / changesPerTurn));
      } while (recorder.waiting());
      most = i % 1'000'000 == 0 ? std::max(most, heap()) : most;
   }
   double const seconds = Harness::now() - begin;
   recorder.close(moment(changes / changesPerTurn));
   if (recorder.failed()) {
      std::fprintf(stderr, "bench_recording: %s\n", recorder.reason().c_str());
      std::exit(1);
   }
   grown = most - before;
   bytes = recorder.stats().bytes;
   return seconds;
}

/// The same by hand: a time, a port and a value, with a checksum per turn, written one turn at a
/// time.
double recordByHand(std::string const& path, U64 changes) {
   int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
   std::vector<double> values(ports);
   double const begin = Harness::now();
   U8 bytes[16 + changesPerTurn * 12];
   for (U64 i = 0; i != changes;) {
      Out out(bytes + 4, sizeof bytes - 4);
      out.writeU64(i / changesPerTurn * turnNanoseconds);
      for (U64 k = 0; k != changesPerTurn; ++k, ++i) {
         values[i % ports] = static_cast<double>(i + 1);
         out.writeU32(static_cast<U32>(i % ports));
         out.writeU64(i + 1);
      }
      Out(bytes, 4).writeU32(crc32c(bytes + 4, sizeof bytes - 8));
      if (::write(fd, bytes, sizeof bytes - 4) < 0) {
         std::exit(1);
      }
   }
   double const seconds = Harness::now() - begin;
   ::close(fd);
   return seconds;
}

/// Plays all of a file; returns the seconds that it takes.
double play(std::string const& path, U64& messages) {
   RecordingFile file(path);
   RecordingReader reader(file);
   Player player([](OfferedRoot const& root) {
      return Sarn::Ptr<Kiv::NamedEntity>(Ptp::configFactory(root.name).get());
   });
   double const begin = Harness::now();
   for (RecordingReader::Frame frame; reader.next(frame) && player.apply(frame);) {
   }
   messages = player.messages();
   return Harness::now() - begin;
}

/// Shows the state at one moment; returns the seconds that it takes.
double show(std::string const& path, U64 wall) {
   RecordingFile file(path);
   double const begin = Harness::now();
   RecordingReader reader(file);
   std::optional<U64> const from = reader.seek(wall);
   Player player([](OfferedRoot const& root) {
      return Sarn::Ptr<Kiv::NamedEntity>(Ptp::configFactory(root.name).get());
   });
   for (RecordingReader::Frame frame; from && reader.next(frame);) {
      if (frame.at.wall > wall && frame.offset >= *from) {
         break;
      }
      player.apply(frame);
   }
   if (!player.complete()) {
      std::exit(1);
   }
   return Harness::now() - begin;
}

}  // namespace

int main(int argc, char** argv) {
   U64 const changes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10'000'000;
   char directory[] = "/tmp/bench-recording-XXXXXX";
   if (::mkdtemp(directory) == nullptr) {
      return 1;
   }
   std::string const path = std::string(directory) + "/recording";
   std::string const byHand = std::string(directory) + "/by-hand";
   std::printf("%llu changes to %u ports, 10 per turn\n", static_cast<unsigned long long>(changes),
               ports);
   auto const n = static_cast<double>(changes);
   auto const source = std::make_unique<Source>();
   std::size_t grown = 0;
   U64 bytes = 0;
   RecordFiles files(path);
   double const hand = recordByHand(byHand, changes);
   std::filesystem::remove(byHand);
   double const ours = record(*source, files, changes, grown, bytes);
   std::printf("%-44s %9.1f %9.1f ns  %6.2f\n", "recording a change, by hand and measured",
               hand / n * 1e9, ours / n * 1e9, ours / hand);
   std::printf("%-44s %9.1f bytes\n", "its size in the file", static_cast<double>(bytes) / n);
   std::printf("%-44s %9zu bytes\n", "heap growth while recording", grown);
   U64 messages = 0;
   double const played = play(path, messages);
   std::printf("%-44s %9.1f ns\n", "playing a message",
               played / static_cast<double>(messages) * 1e9);
   for (U64 const part : {U64(1), U64(50), U64(99)}) {
      double const shown = show(path, moment(changes / changesPerTurn / 100 * part).wall);
      std::printf("%s %2llu %%%27s %9.1f ms\n", "the state at",
                  static_cast<unsigned long long>(part), "", shown * 1e3);
   }
   std::printf("%-44s %9ld kB\n", "peak memory of the process", peak());
   std::filesystem::remove_all(directory);
   return 0;
}
