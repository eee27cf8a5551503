// Everything that two ends of the attribute log can do when both change a small tree, in every
// order.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogSession.h"

namespace KivTest {

/// What the two ends may do.
struct ExplorationPlan {
   /// One change of a tree. `side`: 0 at the source, 1 at the writer. Returns false if there was
   /// nothing to do.
   struct Change {
      char const* name;
      bool (*make)(Kiv::NamedEntity& root, unsigned side);
   };
   /// The type of the root, by name.
   std::string type;
   std::vector<Change> changes;
   /// The maximum number of changes that both ends make together.
   unsigned mostChanges = 3;
   /// How often the ends fall behind at most, and how many bytes of output are left then.
   unsigned mostStops = 1;
   std::size_t room = 0;
   /// Indices in `changes`: what both ends have from the start, and what the mirror also has.
   std::vector<unsigned> common;
   std::vector<unsigned> ofTheMirror;
   /// Whether the mirror is complete before the first change.
   bool mounted = true;
};

/// Drives two real sessions through every order of changes at both ends, messages delivered to
/// either end, and moments at which an end is blocked, up to the bounds of the plan. Whenever
/// everything has been delivered, the two trees must be equal; if only one end made changes, they
/// must be as that end left them. (While the source is behind, a writer's change may be undone for
/// a moment; the second requirement is then not checked for the writer.)
///
/// Each order is run from the start. The state of an end depends only on what it did and received,
/// so two orders in which each end has the same history lead to the same state; only one of them is
/// followed.
///
///    EXPECT_EQ(Exploration(plan).run(), "");
class Exploration {
public:
   explicit Exploration(ExplorationPlan plan);
   ~Exploration();
   Exploration(Exploration const&) = delete;
   Exploration& operator=(Exploration const&) = delete;

   /// The first thing that went wrong and the steps that led to it; empty if nothing did.
   std::string run();

   /// The number of different states.
   U64 states() const noexcept { return visited_.size(); }
   U64 runs() const noexcept { return runs_; }
   /// The number of states in which everything had been delivered and the trees were compared.
   U64 compared() const noexcept { return compared_; }

private:
   class World;
   using Step = std::uint16_t;

   bool follow(std::unique_ptr<World>& world);
   std::unique_ptr<World> replayed();
   std::string described(std::string const& problem) const;

   ExplorationPlan plan_;
   std::vector<Step> path_;
   std::unordered_set<U64> visited_;
   std::string problem_;
   U64 runs_ = 0;
   U64 compared_ = 0;
};

}  // namespace KivTest
