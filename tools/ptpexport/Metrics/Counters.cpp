#include "tools/ptpexport/Metrics/Counters.h"

namespace Ptpexport {

namespace {

constexpr U64 greatest(unsigned bits) noexcept {
   return bits >= 64 ? ~U64{0} : (U64{1} << bits) - 1;
}

/// Whether a counter of this width that went from `last` to less has wrapped around rather than
/// been set back.
constexpr bool hasWrapped(U64 last, U64 raw, unsigned bits) noexcept {
   U64 const eighth = greatest(bits) / 8;
   return last >= greatest(bits) - eighth && raw <= eighth;
}

}  // namespace

double Counters::begin(double start, double now) {
   bool const isNew = !begun_ || start != start_;
   if (isNew) {
      entities_.clear();
      start_ = start;
      begun_ = true;
   } else {
      std::erase_if(entities_,
                    [](auto const& entry) { return entry.second.entity->parent() == nullptr; });
   }
   return isNew && start > 0 ? start : now;
}

Counters::Value Counters::take(Kiv::Entity const& entity, std::size_t slot, std::size_t slots,
                               U64 raw, unsigned bits, double cleared, double created) {
   auto const [at, isNew] = entities_.try_emplace(&entity);
   Counted& counted = at->second;
   if (isNew) {
      counted.entity = Sarn::Ptr<Kiv::Entity>(const_cast<Kiv::Entity*>(&entity));
      counted.created = created;
      counted.counters.resize(slots);
   }
   Counter& counter = counted.counters[slot];
   if (!counter.met) {
      counter.total = raw;
   } else if (cleared != counter.cleared) {
      counter.total += raw;
   } else if (raw >= counter.last) {
      counter.total += raw - counter.last;
   } else if (hasWrapped(counter.last, raw, bits)) {
      counter.total += (raw - counter.last) & greatest(bits);
   } else {
      counter.total += raw;
   }
   counter.last = raw;
   counter.cleared = cleared;
   counter.met = true;
   return {counter.total, counted.created};
}

}  // namespace Ptpexport
