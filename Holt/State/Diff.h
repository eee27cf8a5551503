// Two documents compared, value by value.
#pragma once

#include <functional>

#include "Holt/State/Doc.h"

namespace Holt {

/// An entity or a value of a document, in the order of a text dump. The document must live as long.
struct StateLine {
   Sarn::String path;
   /// The entity's type, or the value.
   Sarn::String text;
   bool isEntity = false;
   Kiv::TypeImpl const* type = nullptr;
   /// Null for an entity, and for the number of a queue's next element.
   void const* value = nullptr;

   Json json() const;
};

std::vector<StateLine> linesOf(StateDoc const& doc);

/// Calls `tell(first, second)` for every path that both documents do not have alike; null where one
/// does not have it. Goes through both in their order. Returns how many differ.
U64 compareLines(std::vector<StateLine> const& first, std::vector<StateLine> const& second,
                 std::function<void(StateLine const* first, StateLine const* second)> const& tell);

}  // namespace Holt
