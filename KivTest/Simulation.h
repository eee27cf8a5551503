// Mirrors in one process, joined by pipes that carry as many bytes as chance allows.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kiv/NboAttrLogSession.h"
#include "KivTest/SimulationChange.h"

namespace KivTest {

/// A new root of a registered type that is made with a name alone.
Sarn::Ptr<Kiv::NamedEntity> rootOf(std::string_view type, std::string_view name);

/// What is simulated beside changes, transport and drops.
struct SimulationPlan {
   /// The root's type, by name.
   std::string type;
   std::size_t readers = 1;
   /// Mirrors that change the tree, too.
   std::size_t writers = 0;
   /// A mirror of the first reader's mirror.
   bool relay = false;
   /// Observers that make changes while they are told of some.
   bool meddlers = false;
   /// A mirror of the last writer's mirror that changes the tree, too.
   bool writerBehindWriter = false;
   /// The type of a second root that is mirrored beside the first, or empty.
   std::string otherType;
   /// The source gives a root up now and then, and offers it again.
   bool withdrawals = false;
   /// The source is recorded; what the recording plays back must equal it at the end.
   bool recorder = false;
   /// Changes in one step at most, and how far each may go.
   std::size_t burst = 1;
   ChangeBounds bounds;
   /// Bytes that wait in a connection; 0: chance chooses.
   std::size_t outputBuffer = 0;
   std::size_t steps = 150;
   /// Watches all of the last mirror, if not null: what it is told of has come through the log.
   Kiv::Observer* witness = nullptr;
};

/// A source of a tree, and mirrors of it: random changes on every side that may make them, pipes
/// that take 0 to n bytes at a time between small output buffers, ends that stop reading,
/// connections that break at any byte and are made again. Whenever all have come to rest, every
/// mirror must equal the source, all connections must be there and all mounts complete.
///
///    EXPECT_EQ(Simulation(plan, seed).run(), "");
///
/// A seed does the same in every run, alone or behind others: each simulation begins with the same
/// hashes and orders of maps. A program that simulates therefore fixes the seed of hashes when it
/// starts, by `Kiv::HashHelper::hashSeed32Is(Simulation::hashSeed)`.
class Simulation {
public:
   static constexpr U32 hashSeed = 1;

   Simulation(SimulationPlan const& plan, U64 seed);
   ~Simulation();
   Simulation(Simulation const&) = delete;
   Simulation& operator=(Simulation const&) = delete;

   /// What went wrong first; empty if nothing did.
   std::string run();
   /// A checksum of all bytes that were carried so far: the same for the same plan and seed.
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
   /// Sites that are changed from outside.
   std::vector<Site*> writable_;
   std::unique_ptr<Recording> recording_;
};

}  // namespace KivTest
