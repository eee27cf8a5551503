// The objects of the PTP MIB (RFC 8173), and where the value of each comes from.
#pragma once

#include <span>

#include "tools/ptpsnmp/Cell.h"

namespace Ptpsnmp {

/// How a value is sent.
enum class Syntax : U8 {
   integer32,
   unsigned32,
   gauge32,
   counter32,
   counter64,
   octetString,
   objectId,
};

/// Of which rows a table consists, and which numbers identify one.
enum class Index : U8 {
   /// No table: an object alone, with the index 0.
   none,
   /// The type of a clock. A row for each type that there is.
   clockType,
   /// Domain, instance. A row for each clock.
   domain,
   /// Domain, instance. A row for each transparent clock.
   transparent,
   /// Domain, type of the clock, instance. A row for each clock.
   clock,
   /// Domain, type of the clock, instance, port number. A row for each port.
   port,
   /// Domain, instance, port number. A row for each port of a transparent clock.
   transparentPort,
   /// Domain, type of the clock, instance, port number, number of the associate from 1.
   associate,
};

/// A row of a table: what its index identifies.
struct Row {
   /// Null for an object alone if there is no clock.
   Clock const* clock = nullptr;
   /// Of a port and of an associate.
   Ptp::PortDS const* port = nullptr;
   /// Of an associate; from 1.
   U32 associate = 0;
   /// Every clock.
   std::span<Clock const* const> clocks = {};
};

/// Takes a value from the mirror; nothing if there is none in this row.
using Read = Cell (*)(Row const& row);

struct Column {
   char const* name;
   Syntax syntax;
   /// Null for an index, and for what has no source.
   Read read = nullptr;
   /// Where the value comes from, or why it comes from nowhere. Null for an index.
   char const* source = nullptr;

   /// An index has no value of its own.
   bool isIndex() const noexcept { return source == nullptr; }
};

/// Its columns have the numbers from 1 on. An object alone has one, itself.
struct Table {
   /// Below `mibObjects`.
   U32 group;
   U32 number;
   char const* name;
   Index index;
   std::span<Column const> columns;
};

/// In the order of their object identifiers.
std::span<Table const> tables();

}  // namespace Ptpsnmp
