#include "tools/ptpsnmp/Mib.h"

#include <algorithm>

namespace Ptpsnmp {

namespace {

constexpr std::size_t mostClocks = 255;

bool hasRows(Clock const& clock, Index index) {
   ClockType const type = clock.type();
   return index == Index::transparent || index == Index::transparentPort
                ? type == ClockType::transparent
                : type != ClockType::none;
}

/// What of the index is the clock's.
Oid clockIndex(Clock const& clock, Index index) {
   switch (index) {
      case Index::none:
         return {};
      case Index::clockType:
         return {static_cast<U32>(clock.type())};
      case Index::domain:
      case Index::transparent:
      case Index::transparentPort:
         return {clock.domainNumber(), clock.instance()};
      case Index::clock:
      case Index::port:
      case Index::associate:
         break;
   }
   return {clock.domainNumber(), static_cast<U32>(clock.type()), clock.instance()};
}

bool isOfPorts(Index index) {
   return index == Index::port || index == Index::transparentPort || index == Index::associate;
}

Oid suffixOf(Row const& row, Index index) {
   if (index == Index::none) {
      return {0};
   }
   Oid suffix = clockIndex(*row.clock, index);
   if (isOfPorts(index)) {
      suffix.add(row.port->portIdentity().portNumber());
   }
   if (index == Index::associate) {
      suffix.add(row.associate);
   }
   return suffix;
}

}  // namespace

Mib::Mib() {
   for (Table const& table : tables()) {
      Oid oid = mibObjects;
      oid.add(table.group);
      oid.add(table.number);
      if (table.index == Index::none) {
         objects_.push_back({oid, table.index, &table.columns.front()});
         continue;
      }
      oid.add(1);  // its entry
      for (std::size_t i = 0; i != table.columns.size(); ++i) {
         if (!table.columns[i].isIndex()) {
            Oid column = oid;
            column.add(static_cast<U32>(i + 1));
            objects_.push_back({column, table.index, &table.columns[i]});
         }
      }
   }
}

void Mib::statusesAre(std::vector<Sarn::Ptr<Ptp::Status>> const& statuses) {
   clocks_.clear();
   owned_.clear();
   for (Sarn::Ptr<Ptp::Status> const& status : statuses) {
      if (owned_.size() != mostClocks) {
         owned_.push_back(std::make_unique<Clock>(status, static_cast<U32>(owned_.size() + 1)));
         clocks_.push_back(owned_.back().get());
      }
   }
}

Row Mib::row(Clock const& clock) const {
   return {.clock = &clock, .clocks = clocks_};
}

/// The row with this index.
std::optional<Row> Mib::find(Index index, OidView suffix) const {
   if (index == Index::none) {
      return suffix.size() == 1 && suffix[0] == 0 && !clocks_.empty()
                   ? std::optional(row(*clocks_.front()))
                   : std::nullopt;
   }
   for (Clock const* const clock : clocks_) {
      Oid const head = clockIndex(*clock, index);
      if (!hasRows(*clock, index) || !beginsWith(suffix, head.view())) {
         continue;
      }
      OidView const tail = suffix.subspan(head.size());
      std::size_t const more = index == Index::associate ? 2 : isOfPorts(index) ? 1 : 0;
      if (tail.size() != more) {
         return std::nullopt;
      }
      Row found = row(*clock);
      if (more != 0) {
         found.port = clock->port(tail[0]);
         if (found.port == nullptr) {
            return std::nullopt;
         }
      }
      if (more == 2) {
         found.associate = tail[1];
         if (tail[1] == 0 || tail[1] > clock->associates(*found.port).size()) {
            return std::nullopt;
         }
      }
      return found;
   }
   return std::nullopt;
}

/// The first row of a clock whose index continues that of the clock with something behind `tail`.
std::optional<Row> Mib::firstIn(Clock const& clock, Index index, OidView tail) const {
   Row found = row(clock);
   auto const ports = clock.ports();
   U32 const from = tail.empty() ? 0 : tail[0];
   auto port = std::ranges::lower_bound(ports, from, {}, &Clock::Port::number);
   if (index != Index::associate) {
      if (port != ports.end() && !tail.empty() && port->number == from) {
         ++port;
      }
      if (port == ports.end()) {
         return std::nullopt;
      }
      found.port = port->data;
      return found;
   }
   for (; port != ports.end(); ++port) {
      U32 const last = port->number == from && tail.size() > 1 ? tail[1] : 0;
      if (last < clock.associates(*port->data).size()) {
         found.port = port->data;
         found.associate = last + 1;
         return found;
      }
   }
   return std::nullopt;
}

/// The row with the lowest index behind this one.
std::optional<Row> Mib::findBehind(Index index, OidView suffix) const {
   if (index == Index::none) {
      return suffix.empty() && !clocks_.empty() ? std::optional(row(*clocks_.front()))
                                                : std::nullopt;
   }
   std::optional<Row> best;
   Oid bestSuffix;
   for (Clock const* const clock : clocks_) {
      if (!hasRows(*clock, index)) {
         continue;
      }
      Oid const head = clockIndex(*clock, index);
      bool const inside = beginsWith(suffix, head.view());
      if (!inside && compare(suffix, head.view()) > 0) {
         continue;
      }
      std::optional<Row> found;
      if (isOfPorts(index)) {
         found = firstIn(*clock, index, inside ? suffix.subspan(head.size()) : OidView());
      } else if (!inside) {
         found = row(*clock);
      }
      if (found) {
         Oid const its = suffixOf(*found, index);
         if (!best || its < bestSuffix) {
            best = found;
            bestSuffix = its;
         }
      }
   }
   return best;
}

Mib::Got Mib::get(OidView oid) const {
   auto const object = std::ranges::find_if(
         objects_, [oid](Object const& each) { return beginsWith(oid, each.oid.view()); });
   if (object == objects_.end()) {
      return {};
   }
   if (object->column->read != nullptr) {
      if (auto const found = find(object->index, oid.subspan(object->oid.size()))) {
         if (auto value = object->column->read(*found)) {
            return {Found::value, object->column->syntax, std::move(*value)};
         }
      }
   }
   return {.found = Found::noSuchInstance};
}

std::optional<Mib::Answer> Mib::next(OidView oid) const {
   // The last object that is not behind the identifier may have more values.
   auto object = std::ranges::upper_bound(
         objects_, oid, [](OidView a, OidView b) { return compare(a, b) < 0; },
         [](Object const& each) { return each.oid.view(); });
   if (object != objects_.begin() && beginsWith(oid, std::prev(object)->oid.view())) {
      --object;
   }
   for (; object != objects_.end(); ++object) {
      if (object->column->read == nullptr) {
         continue;
      }
      Oid suffix;
      OidView behind;
      if (beginsWith(oid, object->oid.view())) {
         behind = oid.subspan(object->oid.size());
      }
      while (auto const found = findBehind(object->index, behind)) {
         suffix = suffixOf(*found, object->index);
         if (auto value = object->column->read(*found)) {
            Answer answer{object->oid, object->column->syntax, std::move(*value)};
            answer.oid.add(suffix.view());
            return answer;
         }
         behind = suffix.view();
      }
   }
   return std::nullopt;
}

}  // namespace Ptpsnmp
