// Random changes of trees of any types, through their member tables alone.
#pragma once

#include <random>
#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/Entity.h"

namespace KivTest {

/// A source of random numbers that gives the same ones for the same seed on every machine.
class Chance {
public:
   explicit Chance(U64 seed) : engine_(seed) {}

   /// From 0 to `bound - 1`.
   std::size_t below(std::size_t bound) { return bound == 0 ? 0 : engine_() % bound; }
   /// True once in `n` times.
   bool oneIn(std::size_t n) { return below(n) == 0; }

private:
   std::mt19937_64 engine_;
};

/// How far random changes may go.
struct ChangeBounds {
   /// Elements of a collection. Above six, many are made or deleted at a time.
   std::size_t elements = 6;
   /// Bytes of a text that is not a key; the default leaves most texts empty.
   std::size_t text = 0;
};

/// The children of an entity in the order of their attributes and keys: that of a hash map differs
/// from map to map, and what chance picks must not.
std::vector<Kiv::Entity*> childrenInOrder(Kiv::Entity const& entity);

/// Makes one random change somewhere in the tree: a value of any kind, an element or a child
/// entity made, changed, deleted or made again, a queue filled, emptied or shortened. Values that
/// a setter refuses are tried as well. Trees stay small unless the bounds are wide.
void changeAtRandom(Kiv::Entity& root, Chance& chance, ChangeBounds const& bounds = {});

}  // namespace KivTest
