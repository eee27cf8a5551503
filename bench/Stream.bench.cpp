// What streaming a change costs: from the setter to the bytes, and from the bytes to the stored
// value.
#include <benchmark/benchmark.h>

#include "Kiv/NboAttrLogSession.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "bench/Baseline.h"

namespace {

using namespace Kiv::NboAttrLog;

constexpr int batch = 1000;

/// Two ends in one process, connected by copying bytes.
struct Ends {
   Hub source;
   Hub mirror;
   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   Sarn::Ptr<Ptp::Config> copy = Ptp::configFactory("ptp/config");
   Session writer{source};
   Session reader{mirror};

   Ends() {
      source.rootIs(config);
      reader.mountIs(copy);
      carry();
   }
   void carry() {
      for (bool moved = true; moved;) {
         moved = move(reader, writer);
         moved = move(writer, reader) || moved;
      }
   }
   static bool move(Session& from, Session& to) {
      CircularBuffer::Piece const piece = from.output();
      if (piece.size == 0) {
         return false;
      }
      to.received(piece.begin, piece.size);
      from.sent(piece.size);
      return true;
   }
};

void SetterToBytes_Baseline(benchmark::State& state) {
   // What any agent would have: entities that know their number and their connection.
   struct Connection {
      std::vector<U8> bytes = std::vector<U8>(1 << 20);
      std::size_t used = 0;
   } connection;
   struct Streamed : Baseline::Intf {
      U32 handle = 0x01000005;
      Connection* connection = nullptr;
   } intf;
   intf.connection = &connection;
   benchmark::DoNotOptimize(&intf);
   U64 v = 0;
   for (auto _ : state) {
      for (int i = 0; i != batch; ++i) {
         ++v;
         if (intf.linkDelayThreshold != v) {
            intf.linkDelayThreshold = v;
            Connection& to = *intf.connection;
            if (to.bytes.size() - to.used >= 18) {
               to.used += Baseline::putRecord64(to.bytes.data() + to.used, intf.handle, 284, v);
            }
         }
         benchmark::ClobberMemory();
      }
      connection.used = 0;
   }
   state.SetItemsProcessed(static_cast<S64>(state.iterations() * batch));
}
BENCHMARK(SetterToBytes_Baseline);

void SetterToBytes(benchmark::State& state) {
   Ends ends;
   Sarn::Ptr<Ptp::IntfConfig> const intf =
         ends.config->intfConfigIs(Dorn::IntfId("Ethernet1"), true, false);
   ends.carry();
   U64 v = 0;
   for (auto _ : state) {
      for (int i = 0; i != batch; ++i) {
         intf->linkDelayThresholdIs(++v);
      }
      while (ends.writer.output().size != 0) {
         ends.writer.sent(ends.writer.output().size);
      }
   }
   state.SetItemsProcessed(static_cast<S64>(state.iterations() * batch));
}
BENCHMARK(SetterToBytes);

void BytesToStored_Baseline(benchmark::State& state) {
   std::vector<Baseline::Intf> intfs(16);
   std::vector<U8> bytes(batch * 18);
   U64 v = 0;
   Baseline::Listeners listeners;
   benchmark::DoNotOptimize(&listeners);
   for (auto _ : state) {
      state.PauseTiming();
      for (int i = 0; i != batch; ++i) {
         Baseline::putRecord64(bytes.data() + i * 18, 5, 284, ++v);
      }
      state.ResumeTiming();
      for (std::size_t at = 0; at + Baseline::headerSize <= bytes.size();) {
         U32 const size = Baseline::get32(bytes.data() + at) & 0xffffff;
         U32 const handle = Baseline::get32(bytes.data() + at + 4);
         U16 const attribute = Baseline::get16(bytes.data() + at + 8);
         if (handle >= intfs.size() || at + Baseline::headerSize + size > bytes.size()) {
            break;
         }
         Baseline::Intf& intf = intfs[handle];
         if (attribute == 284 && size == 8) {
            U64 const value = Baseline::get64(bytes.data() + at + Baseline::headerSize);
            if (intf.linkDelayThreshold != value) {
               intf.linkDelayThreshold = value;
               listeners.tell(284, &value);
            }
         }
         at += Baseline::headerSize + size;
         benchmark::ClobberMemory();
      }
   }
   state.SetItemsProcessed(static_cast<S64>(state.iterations() * batch));
}
BENCHMARK(BytesToStored_Baseline);

void BytesToStored(benchmark::State& state) {
   Ends ends;
   Sarn::Ptr<Ptp::IntfConfig> const intf =
         ends.config->intfConfigIs(Dorn::IntfId("Ethernet1"), true, false);
   ends.carry();
   U64 v = 0;
   for (auto _ : state) {
      state.PauseTiming();
      for (int i = 0; i != batch; ++i) {
         intf->linkDelayThresholdIs(++v);
      }
      while (ends.writer.output().size != 0) {
         CircularBuffer::Piece const piece = ends.writer.output();
         state.ResumeTiming();
         ends.reader.received(piece.begin, piece.size);
         state.PauseTiming();
         ends.writer.sent(piece.size);
      }
      state.ResumeTiming();
   }
   if (ends.copy->intfConfig(Dorn::IntfId("Ethernet1"))->linkDelayThreshold() != v) {
      state.SkipWithError("the mirror differs");
   }
   state.SetItemsProcessed(static_cast<S64>(state.iterations() * batch));
}
BENCHMARK(BytesToStored);

}  // namespace
