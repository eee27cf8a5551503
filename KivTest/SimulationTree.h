// Compares trees of entities of any type, using only their member tables.
#pragma once

#include <string>
#include <vector>

#include "Kiv/Entity.h"

namespace KivTest {

/// Where and how the second tree differs from the first: "root.leaf[3].ticks: 5, not 7". Compares
/// everything that is streamed: attributes, constructor arguments, keys, child entities, and the
/// elements and sequence numbers of queues. Empty if nothing differs. The roots' names are ignored.
/// `ignored`: members that are not compared, with all that they contain.
std::string firstDifference(Kiv::Entity& expected, Kiv::Entity& actual,
                            std::vector<Kiv::FieldDescriptor const*> const& ignored = {});

/// The number of entities in a tree, including its root.
std::size_t entityCount(Kiv::Entity& root);

}  // namespace KivTest
