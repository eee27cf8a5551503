// What the digest of a clock's status costs, compared with a walk that only encodes the same
// values.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "Kiv/Digest.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/NboAttrLog.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace {

constexpr U32 ports = 4096;

Ptp::PortDSKey keyOf(U32 port) {
   return {Dorn::IntfId("Ethernet" + std::to_string(port + 1)), Bridging::VlanIdOrNone()};
}

Sarn::Ptr<Ptp::Status> makeStatus() {
   auto const status = Ptp::statusFactory("ptp/status");
   for (U32 i = 0; i != ports; ++i) {
      Ptp::PortIdentity const identity(Ptp::ClockIdentity(0x020011fffe000001u),
                                       static_cast<U16>(i + 1));
      status->intfStatusIs(keyOf(i));
      status->portDSIs(keyOf(i), identity);
   }
   return status;
}

/// Encodes every value of a tree, one after another, and keeps nothing.
class PlainWalk {
public:
   U64 entities = 0;
   U64 bytes = 0;

   void tree(Kiv::Entity const& entity) {
      ++entities;
      Kiv::forEachField(entity.kivType(), [&](Kiv::FieldDescriptor const& field) {
         if (field.ops == nullptr || !(field.has(Kiv::FieldDescriptor::streamed) ||
                                       field.has(Kiv::FieldDescriptor::constant))) {
            return;
         }
         Kiv::AttrOps const& ops = *field.ops;
         if (field.kind == Kiv::MemberKind::single) {
            std::size_t const size = ops.fixedSize != 0 ? ops.fixedSize : ops.encodedSize(entity);
            Kiv::NboAttrLog::Out out(room(size), size);
            ops.encode(entity, out);
         } else if (field.kind == Kiv::MemberKind::child) {
            if (Kiv::Entity const* const child = ops.child->get(entity)) {
               tree(*child);
            }
         } else {
            elements(entity, field);
         }
      });
   }

private:
   void elements(Kiv::Entity const& entity, Kiv::FieldDescriptor const& field) {
      bool const any = field.ops->queue != nullptr ? field.ops->queue->size(entity) != 0
                                                   : field.ops->collection->size(entity) != 0;
      if (!any) {
         return;
      }
      Kiv::CollectionCursor at(const_cast<Kiv::Entity&>(entity), field);
      for (; at->valid(); at->next()) {
         if (field.kind == Kiv::MemberKind::children) {
            tree(*at->child());
         } else if (field.ops->queue != nullptr) {
            std::size_t const size = field.ops->queue->elementSize(at->value());
            Kiv::NboAttrLog::Out out(room(size), size);
            field.ops->queue->encodeElement(out, at->value());
         } else {
            std::size_t const size = field.ops->collection->elementSize(at->key(), at->value());
            Kiv::NboAttrLog::Out out(room(size), size);
            field.ops->collection->encodeElement(out, at->key(), at->value());
         }
      }
   }
   U8* room(std::size_t size) {
      bytes += size;
      if (size > sizeof room_) {
         std::abort();
      }
      return room_;
   }

   U8 room_[4096];
};

void TreeDigest_Baseline(benchmark::State& state) {
   auto const status = makeStatus();
   PlainWalk walk;
   for (auto _ : state) {
      walk.entities = walk.bytes = 0;
      walk.tree(*status);
      benchmark::ClobberMemory();
   }
   state.counters["entities"] = static_cast<double>(walk.entities);
   state.counters["bytes"] = static_cast<double>(walk.bytes);
   state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * walk.entities));
}
BENCHMARK(TreeDigest_Baseline)->Unit(benchmark::kMillisecond);

void TreeDigest(benchmark::State& state) {
   auto const status = makeStatus();
   Kiv::Digester digester;
   for (auto _ : state) {
      digester.restart();
      benchmark::DoNotOptimize(digester.tree(*status));
   }
   state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * digester.entities()));
}
BENCHMARK(TreeDigest)->Unit(benchmark::kMillisecond);

/// The digests that comparisons use, which include the identities of children.
void NodeDigests(benchmark::State& state) {
   auto const status = makeStatus();
   Kiv::Digester digester;
   auto const visit = [&](auto const& self, Kiv::Entity const& entity) -> void {
      benchmark::DoNotOptimize(digester.node(entity));
      Kiv::forEachChild(entity, [&](Kiv::Entity& child, Kiv::FieldDescriptor const&, void const*) {
         self(self, child);
      });
   };
   for (auto _ : state) {
      digester.restart();
      visit(visit, *status);
   }
   state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * digester.entities()));
}
BENCHMARK(NodeDigests)->Unit(benchmark::kMillisecond);

}  // namespace
