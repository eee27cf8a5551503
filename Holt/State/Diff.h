// Compares two documents value by value.
#pragma once

#include <functional>

#include "Holt/State/Doc.h"

namespace Holt {

/// An entity or a value of a document, in the order of a text dump. The document must outlive it.
/// Not escaped: see `Kiv::printable`.
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

/// Calls `tell(first, second)` for every path at which the documents differ, in their order; null
/// for a document that lacks the path. Returns the number of differences.
U64 compareLines(std::vector<StateLine> const& first, std::vector<StateLine> const& second,
                 std::function<void(StateLine const* first, StateLine const* second)> const& tell);

}  // namespace Holt
