// One entity's samples of one family.
#include <cassert>
#include <cmath>

#include "Brim/Generation.h"
#include "Dorn/NetU16.h"
#include "Kiv/Visit.h"
#include "tools/ptpexport/Metrics/MetricText.h"
#include "tools/ptpexport/Metrics/Scrape.h"

namespace Ptpexport {

namespace {

using Kiv::Entity;
using Kiv::ValueRef;

/// Calls `use(ValueRef)` with the value at the end of a path that begins at an entity or a value.
template <class Use>
void withValue(void const* object, std::span<Kiv::FieldDescriptor const* const> path, Use&& use) {
   Kiv::AnyValue value(*path.front()->type);
   value.read(object, *path.front());
   if (path.size() == 1) {
      use(value.ref());
   } else {
      withValue(value.get(), path.subspan(1), use);
   }
}

/// The number of a value without fields that has one.
U64 numberOf(Kiv::OpaqueRef const& opaque) {
   if (opaque.value.isA(Kiv::typeOf<Dorn::NetU16>())) {
      return static_cast<Dorn::NetU16 const*>(opaque.value.address)->value();
   }
   assert(opaque.value.isA(Kiv::typeOf<Brim::Generation>()));
   return static_cast<Brim::Generation const*>(opaque.value.address)->count();
}

/// Appends a value as a number in the unit of its family.
class Numbers {
public:
   Numbers(std::string& out, Scale scale) : out_(out), scale_(scale) {}

   void operator()(bool value) { appendNumber(out_, U64{value}); }
   void operator()(U64 value) { whole(value); }
   void operator()(S64 value) { whole(value); }
   void operator()(float value) { (*this)(static_cast<double>(value)); }
   void operator()(double value) {
      if (scale_ == Scale::nanoseconds) {
         appendSeconds(out_, value);
      } else {
         assert(scale_ == Scale::one);
         appendNumber(out_, value);
      }
   }
   void operator()(Kiv::OpaqueRef const& value) { whole(numberOf(value)); }
   void operator()(auto const&) { assert(false && "the value is not a number"); }

private:
   template <class Whole>
   void whole(Whole value) {
      switch (scale_) {
         case Scale::one:
            return appendNumber(out_, value);
         case Scale::nanoseconds:
            return appendSeconds(out_, value);
         case Scale::logSeconds:
            return appendNumber(out_, std::ldexp(1.0, static_cast<int>(value)));
         case Scale::scaledRate:
            // Exact: a double holds all the bits of the attribute.
            return appendNumber(out_, std::ldexp(static_cast<double>(value), -41));
      }
   }

   std::string& out_;
   Scale scale_;
};

/// What a counter shows, and its width.
struct Raw {
   U64 value = 0;
   unsigned bits = 64;
};

struct RawOf {
   Kiv::TypeImpl const& type;

   Raw operator()(U64 number) const { return {number, 8 * type.size}; }
   Raw operator()(Kiv::OpaqueRef const& opaque) const { return {numberOf(opaque), 32}; }
   Raw operator()(auto const&) const {
      assert(false && "the value is not a counter");
      return {};
   }
};

/// The text of a label; empty if the value says nothing, such as an identity of zeros.
Sarn::String textOf(ValueRef value) {
   switch (value.type->kind) {
      case Kiv::TypeKind::string:
         return *static_cast<Sarn::String const*>(value.address);
      case Kiv::TypeKind::opaque:
         return value.type->support->differsFromDefault(value.address)
                      ? value.type->genericIfStrRep(value.address)
                      : Sarn::String();
      default:
         return value.type->genericIfStrRep(value.address);
   }
}

char const* typeName(MetricKind kind, MetricFormat format) {
   switch (kind) {
      case MetricKind::counter:
         return "counter";
      case MetricKind::info:
         return format == MetricFormat::openMetrics ? "info" : "gauge";
      default:
         return "gauge";
   }
}

}  // namespace

void Scrape::header(std::string_view name, MetricKind kind, std::string_view unit,
                    char const* help) {
   std::string full(name);
   if (format_ == MetricFormat::prometheus) {
      full += kind == MetricKind::counter ? "_total" : kind == MetricKind::info ? "_info" : "";
   }
   text_ +=
         "# HELP " + full + ' ' + help + "\n# TYPE " + full + ' ' + typeName(kind, format_) + '\n';
   if (format_ == MetricFormat::openMetrics && !unit.empty()) {
      text_ += "# UNIT " + full + ' ' + std::string(unit) + '\n';
   }
}

/// Appends a sample up to its value, after the header if it is the first of its family.
void Scrape::begin(BoundFamily const& family, std::string_view more, char const* suffix) {
   if (!headed_) {
      MetricFamily const& row = *family.family;
      header(row.name, row.kind, unitOf(row), row.help);
      headed_ = true;
   }
   if (*suffix == '\0') {
      text_ += family.sampleName;
   } else {
      text_ += family.family->name;
      text_ += suffix;
   }
   if (!itemLabels_.empty() || !more.empty()) {
      text_ += '{';
      text_ += itemLabels_;
      if (!itemLabels_.empty() && !more.empty()) {
         text_ += ',';
      }
      text_ += more;
      text_ += '}';
   }
   text_ += ' ';
}

void Scrape::render(BoundFamily const& family, Entity const& entity) {
   MetricFamily const& row = *family.family;
   switch (row.kind) {
      case MetricKind::gauge:
         return withValue(&entity, family.members.front(), [&](ValueRef value) {
            begin(family);
            visitValue(value, Numbers(text_, row.scale));
            text_ += '\n';
         });
      case MetricKind::counter:
         return withValue(&entity, family.members.front(),
                          [&](ValueRef value) { renderCounter(family, entity, value); });
      case MetricKind::info:
         return renderInfo(family, entity);
      case MetricKind::states:
         return withValue(&entity, family.members.front(),
                          [&](ValueRef value) { renderStates(family, value); });
      case MetricKind::flags:
         return renderFlags(family, entity);
      case MetricKind::size: {
         Kiv::FieldDescriptor const& field = *family.members.front().front();
         begin(family);
         appendNumber(text_, U64{field.ops->collection->size(entity)});
         text_ += '\n';
      }
   }
}

void Scrape::renderInfo(BoundFamily const& family, Entity const& entity) {
   more_.clear();
   for (std::size_t i = 0; i != family.members.size(); ++i) {
      withValue(&entity, family.members[i], [&](ValueRef value) {
         Sarn::String const text = textOf(value);
         if (!text.empty()) {
            appendLabel(more_, family.family->labels[i].name, text);
         }
      });
   }
   if (!more_.empty()) {
      begin(family, more_);
      text_ += "1\n";
   }
}

void Scrape::renderStates(BoundFamily const& family, ValueRef value) {
   U8 const present = *static_cast<U8 const*>(value.address);
   bool named = false;
   for (auto const& [state, label] : family.states) {
      begin(family, label);
      text_ += state == present ? "1\n" : "0\n";
      named = named || state == present;
   }
   if (!named) {
      more_.clear();
      appendLabel(more_, family.family->labels.front().name, std::to_string(present));
      begin(family, more_);
      text_ += "1\n";
   }
}

void Scrape::renderFlags(BoundFamily const& family, Entity const& entity) {
   Kiv::FieldDescriptor const& field = *family.members.front().front();
   // In the order of the numbers, whatever that of the map.
   bool present[256] = {};
   bool set[256] = {};
   Kiv::CollectionCursor at(const_cast<Entity&>(entity), field);
   for (; at->valid(); at->next()) {
      U8 const key = *static_cast<U8 const*>(at->key());
      present[key] = true;
      set[key] = *static_cast<bool const*>(at->value());
   }
   for (unsigned key = 0; key != 256; ++key) {
      if (present[key]) {
         U8 const number = static_cast<U8>(key);
         more_.clear();
         appendLabel(more_, family.family->labels.front().name,
                     field.keyType->genericIfStrRep(&number));
         begin(family, more_);
         text_ += set[key] ? "1\n" : "0\n";
      }
   }
}

void Scrape::renderCounter(BoundFamily const& family, Entity const& entity, ValueRef value) {
   double cleared = 0;
   if (family.clearedAt != nullptr) {
      family.clearedAt->ops->read(&entity, &cleared);
   }
   Raw const raw = visitValue(value, RawOf{*value.type});
   Counters::Value const counter = counters_.take(entity, family.slot, family.place->counters,
                                                  raw.value, raw.bits, cleared, created_);
   begin(family);
   appendNumber(text_, counter.total);
   text_ += '\n';
   if (format_ == MetricFormat::openMetrics) {
      begin(family, {}, "_created");
      appendNumber(text_, counter.created);
      text_ += '\n';
   }
}

namespace {

using Value = void (*)(std::string& out, SourceHealth const& health);

constexpr Value healthValues[] = {
      [](std::string& out, SourceHealth const& health) {
         std::string label;
         appendLabel(label, "version", health.version);
         out += '{' + label + "} 1";
      },
      [](std::string& out, SourceHealth const& health) { out += health.connected ? " 1" : " 0"; },
      [](std::string& out, SourceHealth const& health) { appendNumber(out += ' ', health.since); },
      [](std::string& out, SourceHealth const& health) { appendNumber(out += ' ', health.start); },
      [](std::string& out, SourceHealth const& health) {
         appendNumber(out += ' ', health.changesReceived);
      },
};

}  // namespace

std::span<MetricFamily const> healthFamilies() {
   using enum MetricKind;
   static std::vector<MetricFamily> const all{
         {"ptp_build", info, "", "", "The program.", Scale::one, {{"version"}}},
         {"ptp_source_connected", gauge, "", "",
          "Whether the source of the state is connected; without it, there are no other metrics."},
         {"ptp_source_since_timestamp_seconds", gauge, "", "",
          "When the connection to the source was made or lost, since 1970."},
         {"ptp_source_start_timestamp_seconds", gauge, "", "",
          "When the source has started, since 1970; 0 if that is not known."},
         {"ptp_source_changes_received", counter, "", "",
          "Changes received from the source since this program was started."},
   };
   return all;
}

void Scrape::headerOfHealth(std::size_t family) {
   MetricFamily const& row = healthFamilies()[family];
   header(row.name, row.kind, unitOf(row), row.help);
}

void Scrape::renderHealth(SourceHealth const& health) {
   static_assert(std::size(healthValues) == 5);
   for (std::size_t i = 0; i != std::size(healthValues); ++i) {
      headerOfHealth(i);
      text_ += sampleName(healthFamilies()[i]);
      healthValues[i](text_, health);
      text_ += '\n';
   }
}

/// Of each switch, whether it is current and since when; the rest as of a single source, except
/// its start, which nobody knows.
void Scrape::renderHealth(std::span<ScrapedSwitch const> switches, SourceHealth const& health) {
   constexpr std::size_t connected = 1;
   constexpr std::size_t since = 2;
   constexpr std::size_t start = 3;
   for (std::size_t i = 0; i != std::size(healthValues); ++i) {
      if (i == start || ((i == connected || i == since) && switches.empty())) {
         continue;
      }
      headerOfHealth(i);
      std::string const name = sampleName(healthFamilies()[i]);
      if (i != connected && i != since) {
         text_ += name;
         healthValues[i](text_, health);
         text_ += '\n';
         continue;
      }
      for (ScrapedSwitch const& each : switches) {
         more_.clear();
         appendLabel(more_, "switch", each.name);
         text_ += name + '{' + more_ + '}';
         healthValues[i](text_, {.connected = each.current, .since = each.since});
         text_ += '\n';
      }
   }
}

}  // namespace Ptpexport
