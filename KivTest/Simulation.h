// Mirrors in one process, connected by pipes that carry a random number of bytes at a time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kiv/NboAttrLogSession.h"
#include "KivTest/SimulationChange.h"

namespace KivTest {

/// Creates a root of a registered type whose constructor takes only a name.
Sarn::Ptr<Kiv::NamedEntity> rootOf(std::string_view type, std::string_view name);

/// What is simulated in addition to changes, transport and dropped connections.
struct SimulationPlan {
   /// The root's type, by name.
   std::string type;
   std::size_t readers = 1;
   /// The number of mirrors that change the tree, too.
   std::size_t writers = 0;
   /// A mirror of the first reader's mirror.
   bool relay = false;
   /// Observers that make changes when they are notified of changes.
   bool meddlers = false;
   /// A mirror of the last writer's mirror that changes the tree, too.
   bool writerBehindWriter = false;
   /// The type of a second root that is mirrored along with the first, or empty.
   std::string otherType;
   /// From time to time, the source withdraws a root and offers it again.
   bool withdrawals = false;
   /// The source is recorded; at the end, playing back the recording must give an equal tree.
   bool recorder = false;
   /// Mirrors are compared with their sources at random moments; nothing may be found different.
   bool comparisons = false;
   /// The maximum number of changes in one step, and the bounds of each.
   std::size_t burst = 1;
   ChangeBounds bounds;
   /// The size of a connection's output buffer in bytes; 0: random.
   std::size_t outputBuffer = 0;
   std::size_t steps = 150;
   /// Observes all of the last mirror, if not null: every change it sees has come through the log.
   Kiv::Observer* witness = nullptr;
};

/// A source of a tree and its mirrors: random changes on every side that may make them, pipes that
/// carry 0 to n bytes at a time between small output buffers, ends that stop reading, connections
/// that break at any byte and are re-established. Whenever nothing is in transit, every mirror must
/// equal the source, all connections must be open and all mounts complete.
///
///    EXPECT_EQ(Simulation(plan, seed).run(), "");
///
/// A seed does the same in every run, alone or after others: each simulation begins with the same
/// hashes and orders of maps. A program that simulates must therefore fix the seed of hashes when
/// it starts, with `Kiv::HashHelper::hashSeed32Is(Simulation::hashSeed)`.
class Simulation {
public:
   static constexpr U32 hashSeed = 1;

   Simulation(SimulationPlan const& plan, U64 seed);
   ~Simulation();
   Simulation(Simulation const&) = delete;
   Simulation& operator=(Simulation const&) = delete;

   /// The first thing that went wrong; empty if nothing did.
   std::string run();
   /// A checksum of all bytes carried so far: the same for the same plan and seed.
   U32 trace() const noexcept { return trace_; }

private:
   struct Link;
   struct Site;
   struct Recording;
   class Meddler;

   void linkIs(Site& server, Site& client, Kiv::NboAttrLog::MountMode mode);
   static void offer(Site& site);
   void change(Site& site);
   void step();
   void transport(Link& link, std::size_t most);
   std::size_t carry(Kiv::NboAttrLog::Session& from, Kiv::NboAttrLog::Session& to,
                     std::size_t most);
   std::string rest();
   std::string check();

   SimulationPlan plan_;
   Chance chance_;
   U32 trace_ = 0;
   Kiv::NboAttrLog::Limits limits_;
   std::vector<std::unique_ptr<Site>> sites_;
   std::vector<std::unique_ptr<Link>> links_;
   /// Sites whose trees are changed directly.
   std::vector<Site*> writable_;
   std::unique_ptr<Recording> recording_;
};

}  // namespace KivTest
