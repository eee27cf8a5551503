// The status of a clock with many ports: running counters, and a new reader. Each figure is
// compared with plain code that does the same: hand-written code that writes the records of the
// attribute log from structs and reads them into structs, and whole structs copied as they are in
// memory.
#include <malloc.h>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "bench/BarePortMirror.h"
#include "bench/Readers.h"

namespace {

using namespace Harness;
using namespace Kiv::NboAttrLog;
using BarePorts::Port;
using BarePorts::PortStatus;

constexpr U32 counterPorts = 1000;
constexpr U32 increments = 1000000;
constexpr U32 readerPorts = 4096;

Ptp::PortDSKey keyOf(U32 port) {
   return {Dorn::IntfId("Ethernet" + std::to_string(port + 1)), Bridging::VlanIdOrNone()};
}
Ptp::PortIdentity portIdentity(U32 port) {
   return {Ptp::ClockIdentity(0x020011fffe000001u), static_cast<U16>(port + 1)};
}
Ptp::PortIdentity masterIdentity(U32 master) {
   return {Ptp::ClockIdentity(0x020011fffe00aa00u + master), 1};
}

/// Creates ports with their status and four foreign masters each, in the order of the bare handles.
void fillStatus(Ptp::Status& status, U32 ports) {
   for (U32 i = 0; i != ports; ++i) {
      auto const intf = status.intfStatusIs(keyOf(i));
      for (U32 k = 0; k != PortStatus::masterCount; ++k) {
         intf->foreignMasterDSIs(masterIdentity(k));
      }
      status.portDSIs(keyOf(i), portIdentity(i));
   }
}

Sarn::Ptr<Ptp::Status> makeStatus(U32 ports) {
   auto const status = Ptp::statusFactory("ptp/status");
   fillStatus(*status, ports);
   return status;
}

template <class T>
BarePorts::Raw<10> raw(T const& v) {
   BarePorts::Raw<10> bytes;
   Out out(bytes.data(), bytes.size());
   out << v;
   return bytes;
}

struct Bare {
   std::vector<PortStatus> statuses;
   std::vector<Port> ports;

   explicit Bare(U32 count) : statuses(count), ports(count) {
      for (U32 i = 0; i != count; ++i) {
         ports[i].key = statuses[i].key = raw(keyOf(i));
         ports[i].portIdentity = raw(portIdentity(i));
         for (U32 k = 0; k != PortStatus::masterCount; ++k) {
            statuses[i].masters[k].identity = raw(masterIdentity(k));
         }
      }
   }
};

// ---- Counters ----

[[gnu::noinline]] void bareIncrement(Port* port) {
   U32 const sum = port->syncMessageReceived + 1;
   if (sum != port->syncMessageReceived) {
      port->syncMessageReceived = sum;
   }
}

double bareLocal() {
   std::vector<Port> ports(counterPorts);
   double const begin = now();
   for (U32 i = 0; i != increments / counterPorts; ++i) {
      for (Port& port : ports) {
         bareIncrement(&port);
      }
   }
   return now() - begin;
}

std::vector<Ptp::PortDS*> plainPorts(Ptp::Status const& status, U32 count) {
   std::vector<Ptp::PortDS*> ports;
   for (U32 i = 0; i != count; ++i) {
      ports.push_back(status.portDS(keyOf(i)).get());
   }
   return ports;
}

[[gnu::noinline]] void ourIncrement(Ptp::PortDS* port) {
   port->syncMessageReceivedInc(1);
}

double ourLocal() {
   auto const status = makeStatus(counterPorts);
   auto const ports = plainPorts(*status, counterPorts);
   double const begin = now();
   for (U32 i = 0; i != increments / counterPorts; ++i) {
      for (Ptp::PortDS* const port : ports) {
         ourIncrement(port);
      }
   }
   return now() - begin;
}

/// One record for each increment, a thousand per write.
double bareMirrored() {
   Child const child([](int fd) { BarePorts::mirror(fd, counterPorts); });
   Bare bare(counterPorts);
   BarePorts::Output out{child.fd};
   double const begin = now();
   for (U32 i = 0; i != increments / counterPorts; ++i) {
      for (U32 port = 0; port != counterPorts; ++port) {
         bareIncrement(&bare.ports[port]);
         out.endIs(BarePorts::putSet(out.end(), BarePorts::portHandle(port), 280,
                                     bare.ports[port].syncMessageReceived));
      }
      out.flush();
   }
   out.sync();
   double const seconds = now() - begin;
   close(child.fd);
   return seconds;
}

/// Copies all thousand structs as they are after every thousand increments.
double copiedMirrored() {
   Child const child([](int fd) {
      std::vector<Port> ports(counterPorts);
      for (U32 i = 0; i != increments / counterPorts; ++i) {
         readAll(fd, ports.data(), ports.size() * sizeof(Port));
      }
      U8 const mark = 1;
      writeAll(fd, &mark, 1);
   });
   std::vector<Port> ports(counterPorts);
   double const begin = now();
   for (U32 i = 0; i != increments / counterPorts; ++i) {
      for (Port& port : ports) {
         bareIncrement(&port);
      }
      writeAll(child.fd, ports.data(), ports.size() * sizeof(Port));
   }
   U8 mark;
   readAll(child.fd, &mark, 1);
   double const seconds = now() - begin;
   close(child.fd);
   return seconds;
}

double ourMirrored() {
   std::vector<Child> children;
   children.emplace_back([](int fd) { mirror(fd, Ptp::statusFactory("ptp/status")); });
   auto const status = makeStatus(counterPorts);
   auto const ports = plainPorts(*status, counterPorts);
   Readers readers;
   readers.hub.rootIs(status);
   readers.connect(children, counterPorts);
   double const begin = now();
   for (U32 i = 0; i != increments / counterPorts; ++i) {
      for (Ptp::PortDS* const port : ports) {
         ourIncrement(port);
      }
      readers.flush();
   }
   readers.sync();
   double const seconds = now() - begin;
   readers.expectNothingDeferred();
   return seconds;
}

// ---- A fresh reader ----

struct Caught {
   double seconds;
   U64 bytes;
};

Caught bareReader() {
   Child const child([](int fd) { BarePorts::mirror(fd, readerPorts); });
   Bare const bare(readerPorts);
   BarePorts::Output out{child.fd};
   double const begin = now();
   for (U32 i = 0; i != readerPorts; ++i) {
      out.endIs(BarePorts::putStatus(out.end(), i, bare.statuses[i]));
      if (out.room() < 8192) {
         out.flush();
      }
   }
   for (U32 i = 0; i != readerPorts; ++i) {
      out.endIs(BarePorts::putPort(out.end(), i, bare.ports[i]));
      if (out.room() < 8192) {
         out.flush();
      }
   }
   out.sync();
   Caught const caught{now() - begin, out.total - Baseline::headerSize};
   close(child.fd);
   return caught;
}

Caught copiedReader() {
   Child const child([](int fd) {
      Bare bare(0);
      bare.statuses.resize(readerPorts);
      bare.ports.resize(readerPorts);
      readAll(fd, bare.statuses.data(), readerPorts * sizeof(PortStatus));
      readAll(fd, bare.ports.data(), readerPorts * sizeof(Port));
      U8 const mark = 1;
      writeAll(fd, &mark, 1);
   });
   Bare const bare(readerPorts);
   double const begin = now();
   writeAll(child.fd, bare.statuses.data(), readerPorts * sizeof(PortStatus));
   writeAll(child.fd, bare.ports.data(), readerPorts * sizeof(Port));
   U8 mark;
   readAll(child.fd, &mark, 1);
   Caught const caught{now() - begin, readerPorts * (sizeof(PortStatus) + sizeof(Port))};
   close(child.fd);
   return caught;
}

Caught ourReader(Sarn::Ptr<Ptp::Status> const& status) {
   std::vector<Child> children;
   children.emplace_back([](int fd) { mirror(fd, Ptp::statusFactory("ptp/status")); });
   Readers readers;
   readers.hub.rootIs(status);
   double const begin = now();
   readers.connect(children, readerPorts);
   return {now() - begin, readers.connections[0]->session().stats().bytesOut};
}

// ---- Memory ----

double heap() {
   struct mallinfo2 const info = mallinfo2();
   return static_cast<double>(info.uordblks + info.hblkhd);
}

void memoryLine(char const* what, double bytes) {
   double const bare = sizeof(Port) + sizeof(PortStatus);
   double const each = bytes / readerPorts;
   std::printf("%-58s %12.0f %12.1f %-8s %7.3f\n", what, bare, each, "bytes", each / bare);
}

/// Both ends are in this process, connected without a socket.
void memory() {
   // Takes what earlier measurements have freed and the slabs have kept.
   auto const other = makeStatus(readerPorts);
   double const empty = heap();
   auto const status = makeStatus(readerPorts);
   double const filled = heap();
   memoryLine("memory per port, without observers", filled - empty);
   Hub source;
   Hub mirrored;
   source.rootIs(status);
   Session writer(source);
   Session reader(mirrored);
   double const before = heap();
   auto const copy = Ptp::statusFactory("ptp/status");
   Mount const& mount = reader.mountIs(copy);
   while (!mount.complete()) {
      CircularBuffer::Piece const asked = reader.output();
      writer.received(asked.begin, asked.size);
      reader.sent(asked.size);
      CircularBuffer::Piece const told = writer.output();
      reader.received(told.begin, told.size);
      writer.sent(told.size);
   }
   memoryLine("the same, a mirror with both ends' tables", heap() - before);
   if (copy->portDSCount() != readerPorts) {
      std::fprintf(stderr, "the mirror is not complete\n");
      std::exit(1);
   }
}

/// The bare mirror is a fair baseline only if its records are identical to those of the log.
void verify() {
   Hub source;
   Hub mirrored;
   auto const status = Ptp::statusFactory("ptp/status");
   source.rootIs(status);  // first, so that handles are assigned as the entities are created
   fillStatus(*status, 1);
   Session writer(source);
   Session reader(mirrored);
   reader.mountIs(Ptp::statusFactory("ptp/status"));
   CircularBuffer::Piece const asked = reader.output();
   writer.received(asked.begin, asked.size);
   CircularBuffer::Piece const told = writer.output();
   Bare const bare(1);
   std::vector<U8> bytes(8192);
   auto const expect = [&](U8 const* begin, U8 const* end) {
      if (std::search(told.begin, told.begin + told.size, begin, end) == told.begin + told.size) {
         std::fprintf(stderr, "the bare mirror's records are not those of the attribute log\n");
         std::exit(1);
      }
   };
   U8* const begin = bytes.data();
   expect(begin, BarePorts::putPort(begin, 0, bare.ports[0]));
   for (U32 k = 0; k != PortStatus::masterCount; ++k) {
      expect(begin,
             BarePorts::putMaster(begin, BarePorts::statusHandle(0), BarePorts::masterHandle(0, k),
                                  bare.statuses[0].masters[k]));
   }
   // The masters are in the order of their hashes; the sizes, and everything after the masters,
   // must match.
   U8* const end = BarePorts::putStatus(begin, 0, bare.statuses[0]);
   constexpr std::size_t behind = 10 + 11 + 11 + 14 + 14 + 14 + 14;
   expect(end - behind, end);
   expect(begin, begin + Baseline::headerSize + 14 + Baseline::headerSize);
}

void all(char const* where, Sarn::Ptr<Ptp::Status> const& status) {
   std::printf("%s\n", where);
   heading();
   compare("10^6 increments over 1 000 ports, without observers", "ms", 1e3, "", bareLocal,
           ourLocal);
   compare("the same, mirrored; structs and records by hand", "ms", 1e3, "", bareMirrored,
           ourMirrored);
   compare("the same; all structs by memcpy once in 1 000", "ms", 1e3, "", copiedMirrored,
           ourMirrored);
   auto const ours = [&status] { return ourReader(status).seconds; };
   compare(
         "a new reader of 4 096 ports; structs by hand", "ms", 1e3, "",
         [] { return bareReader().seconds; }, ours);
   compare(
         "the same; structs by memcpy", "ms", 1e3, "", [] { return copiedReader().seconds; }, ours);
}

void bytesLine(char const* what, U64 bare, U64 ours) {
   std::printf("%-58s %12.3f %12.3f %-8s %7.3f\n", what, static_cast<double>(bare) * 1e-6,
               static_cast<double>(ours) * 1e-6, "MB",
               static_cast<double>(ours) / static_cast<double>(bare));
}

}  // namespace

int main() {
   verify();
   cpu_set_t everywhere;
   if (sched_getaffinity(0, sizeof everywhere, &everywhere) != 0) {
      die("sched_getaffinity");
   }
   auto const status = makeStatus(readerPorts);
   pin(firstCpu(everywhere));
   all("One CPU", status);
   pin(everywhere);
   std::printf("\n");
   all("All CPUs", status);
   std::printf("\nA new reader of 4 096 ports with 4 foreign masters each\n");
   heading();
   U64 const ours = ourReader(status).bytes;
   bytesLine("bytes; structs by hand", bareReader().bytes, ours);
   bytesLine("bytes; structs by memcpy", copiedReader().bytes, ours);
   memory();
   return 0;
}
