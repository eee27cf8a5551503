// Many readers in one process: what a change costs its writer, what a reader costs that is up to
// date, and a turn of the loop.
#include <malloc.h>
#include <sys/resource.h>

#include <memory>

#include "Kiv/NboAttrLogConnection.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "bench/Baseline.h"
#include "bench/Harness.h"

namespace {

using namespace Harness;
using namespace Kiv::NboAttrLog;

constexpr U32 entities = 1000;
constexpr std::size_t many = 1000;

/// CPU seconds of this process.
double cpu() {
   timespec time{};
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
   return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::size_t heap() {
   struct mallinfo2 const info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

Limits manyAllowed() {
   Limits limits;
   limits.sessionsOfUid = many;
   return limits;
}

/// A source with a root of 1 000 interfaces, and what a reader sends to mount it.
struct Source {
   Hub hub{manyAllowed()};
   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   std::vector<Ptp::IntfConfig*> intfs;
   std::vector<U8> asked;

   Source() {
      for (U32 i = 0; i != entities; ++i) {
         Dorn::IntfId const name("Ethernet" + std::to_string(i + 1));
         intfs.push_back(config->intfConfigIs(name, true, false).get());
      }
      hub.rootIs(config);
      Hub mirror;
      Session reader(mirror);
      reader.mountIs(Ptp::configFactory("ptp/config"));
      CircularBuffer::Piece const piece = reader.output();
      asked.assign(piece.begin, piece.begin + piece.size);
   }
   /// 1 000 changes.
   void change() {
      ++value;
      for (Ptp::IntfConfig* const intf : intfs) {
         intf->linkDelayThresholdIs(value);
      }
   }
   U64 value = 0;
};

void drain(Session& session) {
   while (session.output().size != 0) {
      session.sent(session.output().size);
   }
}

/// The writer's CPU seconds for a change with this many readers.
double changeWith(std::size_t readers) {
   Source source;
   std::vector<std::unique_ptr<Session>> sessions;
   for (std::size_t i = 0; i != readers; ++i) {
      Session& session = *sessions.emplace_back(std::make_unique<Session>(source.hub));
      session.received(source.asked.data(), source.asked.size());
      drain(session);
   }
   constexpr int turns = 500;
   double seconds = 0;
   for (int i = 0; i != turns; ++i) {
      double const begin = cpu();
      source.change();
      seconds += cpu() - begin;
      for (auto const& session : sessions) {
         drain(*session);
      }
   }
   for (auto const& session : sessions) {
      if (session->stats().changesDeferred != 0) {
         std::fprintf(stderr, "changes were coalesced: the figure would not count all\n");
         std::exit(1);
      }
   }
   return seconds / (static_cast<double>(turns) * entities);
}

/// Sockets whose other ends are in this process, too.
struct Sockets {
   std::vector<int> here;
   std::vector<int> there;

   Sockets() {
      for (std::size_t i = 0; i != many; ++i) {
         int ends[2];
         if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
            die("socketpair");
         }
         here.push_back(ends[0]);
         there.push_back(ends[1]);
      }
   }
   ~Sockets() {
      for (int const fd : there) {
         close(fd);
      }
   }
   Sockets(Sockets const&) = delete;
   Sockets& operator=(Sockets const&) = delete;
   /// Returns how many bytes there were.
   static std::size_t drain(int fd) {
      static U8 bytes[1 << 16];
      std::size_t sum = 0;
      for (ssize_t count; (count = read(fd, bytes, sizeof bytes)) > 0;) {
         sum += static_cast<std::size_t>(count);
      }
      return sum;
   }
   std::size_t drain() const {
      std::size_t sum = 0;
      for (int const fd : there) {
         sum += drain(fd);
      }
      return sum;
   }
};

/// 1 000 connections that are up to date.
struct Connected : Source {
   Sockets sockets;
   std::vector<std::unique_ptr<FdConnection>> connections;
   double bytesEach;

   Connected() {
      std::size_t const before = heap();
      connections.reserve(many);
      for (std::size_t i = 0; i != many; ++i) {
         FdConnection& connection =
               *connections.emplace_back(std::make_unique<FdConnection>(hub, sockets.here[i]));
         writeAll(sockets.there[i], asked.data(), asked.size());
         do {
            connection.onReady(POLLIN | POLLOUT);
            Sockets::drain(sockets.there[i]);
         } while (connection.session().output().size != 0 || !connection.session().upToDate());
      }
      hub.expire();
      hub.expire();
      bytesEach = static_cast<double>(heap() - before) / static_cast<double>(many);
   }
   /// What a loop does for each connection in a turn.
   void turn() const {
      for (std::size_t i = 0; i != many; ++i) {
         polls[i].events = connections[i]->events();
         connections[i]->flush();
      }
   }
   mutable std::vector<pollfd> polls = std::vector<pollfd>(many);
};

/// The CPU seconds of `work`, which sends `bytes`, without what it takes to receive them.
template <class Work>
double timed(int turns, Sockets const& sockets, std::size_t bytes, Work&& work) {
   double seconds = 0;
   for (int i = 0; i != turns; ++i) {
      double const begin = cpu();
      work();
      seconds += cpu() - begin;
      if (sockets.drain() != bytes) {
         std::fprintf(stderr, "not all bytes were sent\n");
         std::exit(1);
      }
   }
   return seconds / turns;
}

double bareSend(Sockets const& sockets) {
   U8 record[18];
   Baseline::putRecord64(record, 5, 284, 7);
   return timed(20, sockets, many * sizeof record, [&] {
      for (int const fd : sockets.here) {
         writeAll(fd, record, sizeof record);
      }
   });
}

void allowManyDescriptors() {
   rlimit limit{};
   getrlimit(RLIMIT_NOFILE, &limit);
   limit.rlim_cur = limit.rlim_max;
   setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main() {
   allowManyDescriptors();
   heading();
   compare(
         "a change, 1000 per turn: with one reader and four", "ns", 1e9, "<= 1.1",
         [] { return changeWith(1); }, [] { return changeWith(4); });
   compare(
         "the same: with one reader and 100", "ns", 1e9, "<= 1.1", [] { return changeWith(1); },
         [] { return changeWith(100); });
   Connected connected;
   Sockets const bare;
   compare(
         "one change and its way into 1 000 sockets", "us", 1e6, "", [&] { return bareSend(bare); },
         [&] {
            return timed(20, connected.sockets, many * 18, [&] {
               connected.intfs[5]->linkDelayThresholdIs(++connected.value);
               connected.turn();
            });
         });
   std::printf("%-58s %12s %12.3f %s\n", "a turn without changes for 1 000 readers", "",
               timed(200, connected.sockets, 0, [&] { connected.turn(); }) * 1e6, "us");
   std::printf("%-58s %12s %12.0f %s\n", "memory of a reader of 1 000 entities, up to date", "",
               connected.bytesEach, "bytes");
}
