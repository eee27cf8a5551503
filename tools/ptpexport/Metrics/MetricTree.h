// The table of metrics, bound to the types of a status.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Kiv/TypeImpl.h"
#include "tools/ptpexport/Metrics/MetricTable.h"

namespace Ptpexport {

/// Rows to follow, one after the other.
using MemberPath = std::vector<Kiv::FieldDescriptor const*>;

/// How to get from a status to the entities of one type.
struct MetricPlace {
   Kiv::TypeImpl const* type;
   /// Singleton children and at most one collection.
   MemberPath path;
   /// How many rows of the path lead to the collection, itself included; 0 if there is none.
   std::size_t toCollection = 0;
   /// Counters of an entity.
   std::size_t counters = 0;
};

/// A family with the rows of its members.
struct BoundFamily {
   MetricFamily const* family;
   MetricPlace const* place;
   std::string sampleName;
   /// What each value comes from: the attribute, then fields within it. One for each label of an
   /// info, otherwise a single one.
   std::vector<MemberPath> members;
   /// Of a counter, or null.
   Kiv::FieldDescriptor const* clearedAt = nullptr;
   std::size_t slot = 0;
   /// Of states: each value with its label, such as `state="slave"`.
   std::vector<std::pair<U8, std::string>> states;
};

/// All families, in the order of the table. Built at the first call. Throws `std::logic_error` if
/// the table names what no status has: a mistake in the table, which its tests find.
std::vector<BoundFamily> const& boundFamilies();

/// The types of entities below and including `type`, in the order in which they are declared.
std::vector<Kiv::TypeImpl const*> typesBelow(Kiv::TypeImpl const& type);

}  // namespace Ptpexport
