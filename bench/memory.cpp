// The memory cost of an entity, of a stopped reader, and of peers that only hold connections.
#include <malloc.h>

#include <cstdio>
#include <memory>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogConnection.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "bench/Baseline.h"
#include "bench/Harness.h"

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
   std::printf("%-58s %12zu %12.1f %-8s %7.1f  %s\n", "a Ptp::IntfConfig without observers",
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

/// The resident memory of the process in bytes.
std::size_t resident() {
   std::size_t pages = 0;
   if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
      if (std::fscanf(file, "%*u %zu", &pages) != 1) {
         pages = 0;
      }
      std::fclose(file);
   }
   return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Brings a reader up to date, stops it, and calls `measure(config, intfs)`.
template <class Measure>
void withStoppedReader(Measure&& measure) {
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
   measure(*config, intfs);
}

/// The memory that the source holds for a stopped reader after this many changes.
std::size_t stopped(U64 changes) {
   std::size_t held = 0;
   withStoppedReader([&](Ptp::Config&, std::vector<Ptp::IntfConfig*> const& intfs) {
      std::size_t const kept = heap();
      for (U64 i = 0; i != changes; ++i) {
         intfs[i % entities]->linkDelayThresholdIs(i + 1);
      }
      held = heap() - kept;
   });
   return held;
}

/// Creates and deletes interfaces with ever new keys while the reader is stopped, and prints by how
/// much the process has grown after a tenth of them and after all.
void churned(U64 keys) {
   withStoppedReader([&](Ptp::Config& config, std::vector<Ptp::IntfConfig*> const&) {
      std::size_t const before = resident();
      std::size_t few = 0;
      for (U64 i = 0; i != keys; ++i) {
         Dorn::IntfId const name = intf(static_cast<U32>(entities + i));
         config.intfConfigIs(name, true, false);
         config.intfConfigDel(name);
         if (i + 1 == keys / 10) {
            few = resident() - before;
         }
      }
      std::size_t const many = resident() - before;
      std::printf("%-58s %12zu %12zu %-8s %7.3f  %s\n",
                  "the same, 10^6 / 10^7 keys that come and go", few, many, "resident",
                  static_cast<double>(many) / static_cast<double>(few), "the same");
   });
}

U64 steadyNanoseconds() noexcept {
   return static_cast<U64>(Harness::now() * 1e9);
}

/// A message that the library would not send.
std::vector<U8> forged(Opcode opcode, std::size_t claimed, std::size_t sent) {
   std::vector<U8> bytes(headerSize + sent);
   Out out(bytes.data(), headerSize);
   writeHeader(out, {opcode, static_cast<U32>(claimed), 0, 0});
   return bytes;
}

/// Lets `count` peers greet, send requests without reading the answers, leave half a message, and
/// disconnect. Prints how much more memory the server has meanwhile and afterwards.
void peers(int count, std::size_t claimed, char const* what) {
   Limits limits;
   limits.sessionsOfUid = static_cast<U32>(count);  // all of them belong to this process
   Hub hub(limits);
   hub.clockIs(&steadyNanoseconds);
   hub.rootIs(Ptp::configFactory("ptp/config"));
   Hub theirs;
   Session speaker(theirs);
   CircularBuffer::Piece const greeting = speaker.output();
   std::vector<U8> said(greeting.begin, greeting.begin + greeting.size);
   for (int i = 0; i != 60; ++i) {
      std::vector<U8> const question = forged(Opcode::listSessions, 0, 0);
      said.insert(said.end(), question.begin(), question.end());
   }
   std::vector<U8> const half = forged(Opcode::bye, claimed, claimed - 1);
   said.insert(said.end(), half.begin(), half.end());
   std::size_t const before = resident();
   std::vector<int> ends;
   std::vector<std::unique_ptr<FdConnection>> connections;
   for (int i = 0; i != count; ++i) {
      int pair[2];
      if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
         Harness::die("socketpair");
      }
      connections.push_back(std::make_unique<FdConnection>(hub, pair[1]));
      ends.push_back(pair[0]);
      for (std::size_t at = 0; at < said.size();) {
         ssize_t const sent =
               send(pair[0], said.data() + at, said.size() - at, MSG_DONTWAIT | MSG_NOSIGNAL);
         at += sent > 0 ? static_cast<std::size_t>(sent) : 0;
         connections.back()->onReady(POLLIN | POLLOUT);
         if (sent < 0 && connections.back()->done()) {
            break;
         }
      }
   }
   std::size_t const with = resident() - before;
   for (int const end : ends) {
      close(end);
   }
   connections.clear();
   std::size_t const after = resident() - std::min(before, resident());
   std::printf("%-58s %12zu %12zu %-8s\n", what, with, after, "resident");
}

/// Runs `body` in a separate process, since memory freed to the heap stays resident.
template <class Body>
void apart(Body&& body) {
   Harness::Child const child([&body](int) {
      body();
      std::fflush(stdout);
   });
}

}  // namespace

int main() {
   std::printf("%-58s %12s %12s %-8s %7s  %s\n", "what", "baseline", "measured", "unit", "more",
               "target");
   entity();
   inMap();
   std::size_t const few = stopped(1000000);
   std::size_t const many = stopped(100000000);
   std::printf("%-58s %12zu %12zu %-8s %7.3f  %s\n",
               "a stopped reader of 10 000 entities, after 10^6 / 10^8", few, many, "bytes",
               static_cast<double>(many) / static_cast<double>(few), "the same");
   apart([] { churned(10'000'000); });
   apart([] {
      peers(500, std::size_t(1) << 14, "500 peers that mount nothing: with them / after");
   });
   apart([] {
      peers(500, std::size_t(1) << 18, "the same, each announcing a message of 256 KiB");
   });
   return 0;
}
