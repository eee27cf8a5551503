// All that two ends of the attribute log which both change a small tree can do, in every order.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "Kiv/NboAttrLogSession.h"

namespace KivTest {

/// What the two ends may do.
struct ExplorationPlan {
   /// One change of a tree. `side`: 0 at the source, 1 at the writer. False if there is nothing to
   /// be done; then nothing was.
   struct Change {
      char const* name;
      bool (*make)(Kiv::NamedEntity& root, unsigned side);
   };
   /// The type of the root, by name.
   std::string type;
   std::vector<Change> changes;
   /// How many changes the two ends make at most, together.
   unsigned mostChanges = 3;
   /// How often an end falls behind at most, and how many bytes are left then.
   unsigned mostStops = 1;
   std::size_t room = 0;
   /// Places in `changes` of what both ends have from the start, and of what the mirror has then.
   std::vector<unsigned> common;
   std::vector<unsigned> ofTheMirror;
   /// Whether the mirror is complete before the first change.
   bool mounted = true;
};

/// Drives two real sessions through every order of changes at both ends, messages delivered to
/// either, and moments at which an end is blocked, up to the bounds of the plan. Wherever all has
/// been delivered, the two trees must be equal; and if one end alone made changes, they must be as
/// that end left them. (A writer may find its own change undone for a moment while the source is
/// behind; that end is not held to this then.)
///
/// Each order is run from the start. An end depends only on what it did and got itself, so that
/// two orders in which each end has the same history have come to the same state: of these one is
/// followed.
///
///    EXPECT_EQ(Exploration(plan).run(), "");
class Exploration {
public:
   explicit Exploration(ExplorationPlan plan);
   ~Exploration();
   Exploration(Exploration const&) = delete;
   Exploration& operator=(Exploration const&) = delete;

   /// What went wrong first and how it came to be; empty if nothing did.
   std::string run();

   /// Different states that were met, and orders that were run from the start to tell them.
   U64 states() const noexcept { return visited_.size(); }
   U64 runs() const noexcept { return runs_; }
   /// States in which all had been delivered, and the trees were compared.
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
