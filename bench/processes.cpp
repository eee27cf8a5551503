// Updates from process to process through a socket, compared with the bare mirror: the same records
// through the same kind of socket into plain structs.
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "bench/BareMirror.h"
#include "bench/Readers.h"

namespace {

using namespace Harness;
using namespace Kiv::NboAttrLog;

constexpr U32 entities = 10000;
constexpr int batch = 1000;

// The bare mirror

double bareUpdates(U64 updates, int changesAWrite, int readers) {
   std::vector<Child> children;
   std::vector<int> fds;
   for (int i = 0; i != readers; ++i) {
      children.emplace_back([&fds](int fd) {
         for (int const other : fds) {
            close(other);
         }
         Baseline::mirror(fd, entities);
      });
      fds.push_back(children.back().fd);
   }
   Baseline::Writer writer(entities);
   double const begin = now();
   U32 next = 0;
   for (U64 i = 0; i != updates;) {
      for (int k = 0; k != changesAWrite; ++k, ++i) {
         writer.linkDelayThresholdIs(next, i + 1);
         next = next + 1 == entities ? 0 : next + 1;
      }
      writer.flush(fds);
   }
   writer.mark();
   writer.flush(fds);
   for (int const fd : fds) {
      U8 mark;
      readAll(fd, &mark, 1);
   }
   double const seconds = now() - begin;
   for (int const fd : fds) {
      close(fd);
   }
   return static_cast<double>(updates) / seconds;
}

// The library
Sarn::Ptr<Ptp::Config> makeConfig(U32 count) {
   Sarn::Ptr<Ptp::Config> const config = Ptp::configFactory("ptp/config");
   for (U32 i = 0; i != count; ++i) {
      config->intfConfigIs(Dorn::IntfId("Ethernet" + std::to_string(i + 1)), true, false);
   }
   return config;
}

/// Mirrors the configuration until the source closes the connection.
void mirrorConfig(int fd) {
   mirror(fd, Ptp::configFactory("ptp/config"));
}

/// A source whose readers are all up to date.
struct Source : Readers {
   Sarn::Ptr<Ptp::Config> config;
   std::vector<Ptp::IntfConfig*> intfs;

   explicit Source(std::vector<Child> const& children) : config(makeConfig(entities)) {
      hub.rootIs(config);
      for (U32 i = 0; i != entities; ++i) {
         intfs.push_back(
               config->intfConfig(Dorn::IntfId("Ethernet" + std::to_string(i + 1))).get());
      }
      connect(children, entities);
   }
};

double ourUpdates(U64 updates, int changesAWrite, int readers) {
   std::vector<Child> children;
   for (int i = 0; i != readers; ++i) {
      children.emplace_back([&children](int fd) {
         for (Child const& other : children) {
            close(other.fd);
         }
         mirrorConfig(fd);
      });
   }
   Source source(children);
   double const begin = now();
   U32 next = 0;
   for (U64 i = 0; i != updates;) {
      for (int k = 0; k != changesAWrite; ++k, ++i) {
         source.intfs[next]->linkDelayThresholdIs(i + 1);
         next = next + 1 == entities ? 0 : next + 1;
      }
      source.flush();
   }
   source.sync();
   double const seconds = now() - begin;
   source.expectNothingDeferred();
   return static_cast<double>(updates) / seconds;
}

// Latency of one change: the value is the time at which it was set.

U64 nanoseconds() {
   return static_cast<U64>(now() * 1e9);
}

/// `polls`: as a loop does, which has more than one descriptor to wait for.
double bareLatency(int rounds, bool polls) {
   Child const child([polls](int fd) {
      for (;;) {
         U8 record[18];
         if (polls) {
            waitFor(fd, POLLIN);
         }
         ssize_t const count = read(fd, record, sizeof record);
         if (count != sizeof record) {
            return;
         }
         U64 const late = nanoseconds() - Baseline::get64(record + 10);
         writeAll(fd, &late, sizeof late);
      }
   });
   std::vector<double> times;
   for (int i = 0; i != rounds; ++i) {
      U8 record[18];
      Baseline::putRecord64(record, 5, 284, nanoseconds());
      writeAll(child.fd, record, sizeof record);
      U64 late;
      readAll(child.fd, &late, sizeof late);
      times.push_back(static_cast<double>(late) * 1e-9);
   }
   close(child.fd);
   return median(times);
}

class Lateness final : public Kiv::Observer {
public:
   explicit Lateness(int fd) : fd_(fd) {}
   void onChange(Kiv::Change const& change) override {
      if (change.attributeId == 284) {
         auto const& intf = static_cast<Ptp::IntfConfig const&>(Kiv::entityOf(change));
         U64 const late = nanoseconds() - intf.linkDelayThreshold();
         writeAll(fd_, &late, sizeof late);
      }
   }

private:
   int fd_;
};

double ourLatency(int rounds) {
   int answers[2];
   if (socketpair(AF_UNIX, SOCK_STREAM, 0, answers) != 0) {
      die("socketpair");
   }
   std::vector<Child> children;
   children.emplace_back([&answers](int fd) {
      Hub hub;
      FdConnection connection(hub, fd);
      Sarn::Ptr<Ptp::Config> const config = Ptp::configFactory("ptp/config");
      Mount const& mount = connection.session().mountIs(config);
      Lateness lateness(answers[1]);
      bool watching = false;
      while (!connection.done()) {
         turn(connection);
         if (mount.complete() && !watching) {
            watching = true;
            config->observerAdd(lateness, Kiv::Scope::subtree);
         }
      }
      config->observerDel(lateness, Kiv::Scope::subtree);
   });
   Source source(children);
   std::vector<double> times;
   for (int i = 0; i != rounds; ++i) {
      source.intfs[5]->linkDelayThresholdIs(nanoseconds());
      source.flush();
      U64 late;
      readAll(answers[0], &late, sizeof late);
      times.push_back(static_cast<double>(late) * 1e-9);
   }
   close(answers[0]);
   close(answers[1]);
   return median(times);
}

// A new reader brought up to date.

double bareCatchUp() {
   Child const child([](int fd) { Baseline::mirror(fd, entities); });
   Baseline::Writer writer(entities);
   double const begin = now();
   writer.replay(child.fd);
   writer.mark();
   writer.flush({child.fd});
   U8 mark;
   readAll(child.fd, &mark, 1);
   double const seconds = now() - begin;
   close(child.fd);
   return seconds;
}

/// The bare mirror is a fair baseline only if its records are identical to those of the log.
void verifyBareMirror() {
   Hub source;
   Hub mirrored;
   Sarn::Ptr<Ptp::Config> const config = makeConfig(1);
   source.rootIs(config);
   Session writer(source);
   Session reader(mirrored);
   reader.mountIs(Ptp::configFactory("ptp/config"));
   CircularBuffer::Piece const asked = reader.output();
   writer.received(asked.begin, asked.size);
   CircularBuffer::Piece const told = writer.output();
   Baseline::Intf intf;
   intf.intf = Dorn::IntfId("Ethernet1").bits();
   intf.enabled = true;
   U8 room[1024];
   U8 const* const bytes = room;
   U8 const* const end = Baseline::putIntf(room, Baseline::handleOf(0), intf);
   if (std::search(told.begin, told.begin + told.size, bytes, end) == told.begin + told.size) {
      std::fprintf(stderr, "the bare mirror's records are not those of the attribute log\n");
      std::exit(1);
   }
}

double ourCatchUp(Source& source) {
   std::vector<Child> children;
   children.emplace_back(mirrorConfig);
   double const begin = now();
   Syncs syncs;
   FdConnection connection(source.hub, children[0].fd, &syncs);
   while (connection.session().stats().messagesOut < 10 || !connection.session().upToDate()) {
      turn(connection);
   }
   connection.session().syncIs(1);
   while (syncs.count == 0) {
      turn(connection);
   }
   return now() - begin;
}

void all(char const* where) {
   std::printf("%s\n", where);
   heading();
   compare(
         "updates per second, 1000 per turn, one reader", "M/s", 1e-6, ">= 0.45",
         [] { return bareUpdates(10000000, batch, 1); },
         [] { return ourUpdates(10000000, batch, 1); });
   compare(
         "updates per second, 1000 per turn, four readers", "M/s", 1e-6, ">= 0.5",
         [] { return bareUpdates(2000000, batch, 4); },
         [] { return ourUpdates(2000000, batch, 4); });
   compare(
         "the same: one reader and four, both with the library", "M/s", 1e-6, "",
         [] { return ourUpdates(2000000, batch, 1); },
         [] { return ourUpdates(2000000, batch, 4); });
   compare(
         "updates per second, one change per write", "M/s", 1e-6, ">= 0.8",
         [] { return bareUpdates(300000, 1, 1); }, [] { return ourUpdates(300000, 1, 1); });
   compare(
         "latency of one change, median", "us", 1e6, "<= 1.15",
         [] { return bareLatency(20000, false); }, [] { return ourLatency(20000); });
   compare(
         "the same; a bare mirror that polls before it reads", "us", 1e6, "",
         [] { return bareLatency(20000, true); }, [] { return ourLatency(20000); });
   Source source({});
   compare("a new reader of 10 000 interfaces up to date", "ms", 1e3, "<= 2.5", bareCatchUp,
           [&source] { return ourCatchUp(source); });
}

}  // namespace

int main() {
   verifyBareMirror();
   cpu_set_t everywhere;
   if (sched_getaffinity(0, sizeof everywhere, &everywhere) != 0) {
      die("sched_getaffinity");
   }
   pin(firstCpu(everywhere));
   all("One CPU");
   pin(everywhere);
   std::printf("\n");
   all("All CPUs");
}
