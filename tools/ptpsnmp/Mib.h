// The MIB as a manager sees it: values by object identifier, in their order.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "tools/ptpsnmp/Objects.h"

namespace Ptpsnmp {

/// Answers questions straight from the mirrored statuses. O(log ports) each, as long as values are
/// there.
///
/// Threads: belongs to the thread of the statuses.
class Mib {
public:
   struct Answer {
      Oid oid;
      Syntax syntax;
      Value value;
   };
   enum class Found : U8 { value, noSuchObject, noSuchInstance };
   struct Got {
      Found found = Found::noSuchObject;
      /// If one was found.
      Syntax syntax = Syntax::integer32;
      Value value = {};
   };

   Mib();

   /// The clocks to tell of; the instances 1, 2, ... in this order. At most 255: of more, the
   /// others are left out.
   void statusesAre(std::vector<Sarn::Ptr<Ptp::Status>> const& statuses);
   std::size_t clockCount() const noexcept { return clocks_.size(); }

   /// The value with this identifier.
   Got get(OidView oid) const;
   /// The first value behind this identifier, which need not exist; nothing at the end.
   std::optional<Answer> next(OidView oid) const;

private:
   /// An object that can be read.
   struct Object {
      Oid oid;
      Index index;
      Column const* column;
   };

   Row row(Clock const& clock) const;
   std::optional<Row> find(Index index, OidView suffix) const;
   std::optional<Row> findBehind(Index index, OidView suffix) const;
   std::optional<Row> firstIn(Clock const& clock, Index index, OidView tail) const;

   std::vector<Object> objects_;
   std::vector<std::unique_ptr<Clock>> owned_;
   std::vector<Clock const*> clocks_;
};

}  // namespace Ptpsnmp
