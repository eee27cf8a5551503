// Random changes to trees of any type, using only their member tables.
#pragma once

#include <random>
#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/Entity.h"

namespace KivTest {

/// A source of random numbers that are the same for the same seed on every machine.
class Chance {
public:
   explicit Chance(U64 seed) : engine_(seed) {}

   /// From 0 to `bound - 1`.
   std::size_t below(std::size_t bound) { return bound == 0 ? 0 : engine_() % bound; }
   /// True with a probability of 1 in `n`.
   bool oneIn(std::size_t n) { return below(n) == 0; }

private:
   std::mt19937_64 engine_;
};

/// Bounds of random changes.
struct ChangeBounds {
   /// Maximum number of elements in a collection. Above six, many are changed at a time.
   std::size_t elements = 6;
   /// Maximum length in bytes of a text that is not a key; the default leaves most texts empty.
   std::size_t text = 0;
};

/// The children of an entity in the order of their attributes and keys. The order of a hash map
/// differs from map to map, and random choices must not depend on it.
std::vector<Kiv::Entity*> childrenInOrder(Kiv::Entity const& entity);

/// Makes one random change somewhere in the tree: sets a value of any kind; creates, changes,
/// deletes or recreates an element or a child entity; fills, empties or shortens a queue. Values
/// that a setter refuses are tried, too. Trees stay small unless the bounds are wide.
void changeAtRandom(Kiv::Entity& root, Chance& chance, ChangeBounds const& bounds = {});

}  // namespace KivTest
