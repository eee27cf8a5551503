// Trees of entities compared with each other, of any types, through their member tables alone.
#pragma once

#include <string>

#include "Kiv/Entity.h"

namespace KivTest {

/// Where the second tree differs from the first, and how: "root.leaf[3].ticks: 5, not 7". Looks at
/// all that is streamed: attributes, constructor arguments, keys, child entities, and the elements
/// and sequence numbers of queues. Empty if nothing differs. The roots' names are not compared.
std::string firstDifference(Kiv::Entity& expected, Kiv::Entity& actual);

/// The number of entities in a tree, its root included.
std::size_t entityCount(Kiv::Entity& root);

}  // namespace KivTest
