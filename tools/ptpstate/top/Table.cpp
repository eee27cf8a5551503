#include "tools/ptpstate/top/Table.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "Holt/Failure.h"
#include "Holt/State/Key.h"
#include "Holt/State/Values.h"
#include "Kiv/Printable.h"
#include "Kiv/Visit.h"

namespace Ptpstate {

using namespace Holt;

using Kiv::Entity;
using Kiv::MemberKind;

Sarn::String shortText(Kiv::TypeImpl const& type, void const* value) {
   Sarn::String text;
   if (type.kind == Kiv::TypeKind::value) {
      Kiv::forEachPart(Kiv::RecordRef{{type, value}},
                       [&text](Kiv::FieldDescriptor const&, Kiv::ValueRef part) {
                          text += (text.empty() ? "" : ",") + shortText(*part.type, part.address);
                       });
   }
   return text.empty() ? Kiv::printable(type.genericIfStrRep(value)) : text;
}

TopColumn topColumn(Sarn::String const& name) {
   TopColumn column{Kiv::printable(name), TopColumn::value, {}};
   Sarn::String path = name;
   if (path.ends_with("/s")) {
      column.show = TopColumn::rate;
      path.resize(path.size() - 2);
   } else if (path.ends_with("~")) {
      column.show = TopColumn::history;
      path.resize(path.size() - 1);
   }
   column.steps = parseSteps("." + path);
   return column;
}

namespace {

struct ToNumber {
   using Result = std::optional<TopNumber>;

   Kiv::TypeImpl const& type;

   Result operator()(U64 v) const { return TopNumber{static_cast<double>(v), v, type.size * 8}; }
   Result operator()(S64 v) const { return (*this)(static_cast<double>(v)); }
   Result operator()(float v) const { return (*this)(static_cast<double>(v)); }
   Result operator()(double v) const {
      return std::isfinite(v) ? Result(TopNumber{v}) : std::nullopt;
   }
   Result operator()(Kiv::OptionalRef v) const {
      return v.held.address != nullptr ? visitValue(v.held, ToNumber{*v.held.type}) : std::nullopt;
   }
   /// Its text is all that is known about it.
   Result operator()(Kiv::OpaqueRef v) const {
      Sarn::String const text = valueText(v.value);
      double number = 0;
      auto const result = std::from_chars(text.data(), text.data() + text.size(), number);
      bool const all = result.ec == std::errc() && result.ptr == text.data() + text.size();
      return all ? (*this)(number) : std::nullopt;
   }
   Result operator()(auto const&) const { return std::nullopt; }
};

}  // namespace

std::optional<TopNumber> topNumber(Kiv::AnyValue const& value) {
   return visitValue(value.ref(), ToNumber{value.type()});
}

std::optional<double> ratePerSecond(TopNumber const& before, TopNumber const& now, double seconds) {
   if (seconds <= 0) {
      return std::nullopt;
   }
   if (now.bits == 0) {
      return (now.value - before.value) / seconds;
   }
   U64 const all = now.bits >= 64 ? ~U64{0} : (U64{1} << now.bits) - 1;
   U64 const steps = (now.exact - before.exact) & all;
   // More than half of the range at once: it did not wrap, it was reset.
   return steps > all / 2 ? std::nullopt : std::optional(static_cast<double>(steps) / seconds);
}

Sarn::String historyLine(std::deque<double> const& samples, bool ascii) {
   static char const* const eighths[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
   static char const* const characters[] = {"_", "_", ".", ".", "-", "-", "=", "^"};
   if (samples.empty()) {
      return "";
   }
   auto const [least, greatest] = std::minmax_element(samples.begin(), samples.end());
   double const span = *greatest - *least;
   Sarn::String line;
   for (double const sample : samples) {
      double const height = span > 0 ? (sample - *least) / span : 0;
      auto const step = static_cast<std::size_t>(std::min(7.0, height * 8));
      line += (ascii ? characters : eighths)[step];
   }
   return line;
}

Sarn::String rateText(double rate) {
   char text[32];
   double const size = std::fabs(rate);
   std::snprintf(text, sizeof text,
                 size >= 1e6 ? "%.2e" : (size >= 100 || rate == 0 ? "%.0f" : "%.1f"), rate);
   return text;
}

void TopTable::changed() noexcept {
   ++version_;
   shown_.reset();
}

void TopTable::filterIs(Sarn::String const& text) {
   filter_ = text;
   changed();
}

void TopTable::columnsAre(std::vector<TopColumn> columns) {
   changed();
   mustSample_ = true;
   std::optional<TopColumn> sorted;
   if (sort_ >= 0) {
      sorted = columns_[static_cast<std::size_t>(sort_)];
   }
   for (auto& [key, states] : rows_) {
      std::vector<State> kept(columns.size());
      for (std::size_t i = 0; i != columns.size(); ++i) {
         auto const same = std::find(columns_.begin(), columns_.end(), columns[i]);
         if (same != columns_.end()) {
            kept[i] = std::move(states[static_cast<std::size_t>(same - columns_.begin())]);
         }
      }
      states = std::move(kept);
   }
   columns_ = std::move(columns);
   sort_ = -1;
   if (sorted) {
      auto const same = std::find(columns_.begin(), columns_.end(), *sorted);
      sort_ = same != columns_.end() ? static_cast<int>(same - columns_.begin()) : -1;
   }
}

void TopTable::sortIs(int column) {
   changed();
   reversed_ = column == sort_ && !reversed_;
   sort_ = column;
}

namespace {

/// Whether `text` contains `part`, in any case.
bool contains(std::string_view text, std::string_view part) {
   auto const same = [](char a, char b) {
      auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
      return lower(a) == lower(b);
   };
   return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end() ||
          part.empty();
}

}  // namespace

void TopTable::sample(State& state, TopColumn const& column, Entity& entity, double seconds) const {
   std::optional<TopNumber> number;
   Sarn::String text;
   bool isBool = false;
   if (column.compute != nullptr) {
      std::optional<S64> const computed = column.compute(entity);
      if (computed) {
         number.emplace(TopNumber{static_cast<double>(*computed)});
      }
      text = computed ? std::to_string(*computed) : "-";
   } else {
      try {
         auto const value = Place(Sarn::Ptr<Entity>(&entity), "", column.steps).value();
         number = topNumber(*value);
         isBool = value->type().kind == Kiv::TypeKind::boolean;
         text = shortText(value->type(), value->get());
      } catch (Failure const&) {
         text = "-";  // it does not exist now
      }
   }
   if (number && state.last && seconds > 0) {
      state.rate = ratePerSecond(*state.last, *number, seconds);
   } else if (!number) {
      state.rate.reset();
   }
   state.last = number;
   switch (column.show) {
      case TopColumn::value:
         state.cell = {text, number.has_value(), number ? number->value : 0, text != "-", isBool};
         break;
      case TopColumn::rate:
         state.cell = {state.rate ? rateText(*state.rate) : "-", true, state.rate.value_or(0),
                       state.rate.has_value()};
         break;
      case TopColumn::history:
         if (number) {
            historyIs(state, number->value);
         } else {
            state.cell = {historyLine(state.history, ascii_), false, 0, false};
         }
         break;
   }
}

/// Adds a number to a history.
void TopTable::historyIs(State& state, double number) const {
   state.history.push_back(number);
   if (state.history.size() > historyLength) {
      state.history.pop_front();
   }
   state.cell = {historyLine(state.history, ascii_), false, number};
}

bool TopTable::repeat(Time now) {
   if (!sampledAt_ || mustSample_) {
      return false;
   }
   bool const histories = std::any_of(columns_.begin(), columns_.end(), [](TopColumn const& each) {
      return each.show == TopColumn::history;
   });
   sampledAt_ = now;
   if (settled_ && !histories) {
      return true;
   }
   for (auto& [key, states] : rows_) {
      for (std::size_t i = 0; i != columns_.size(); ++i) {
         State& state = states[i];
         if (columns_[i].show == TopColumn::history && state.last) {
            historyIs(state, state.last->value);
         } else if (columns_[i].show == TopColumn::rate && state.last) {
            state.rate = 0;
            state.cell = {rateText(0), true, 0};
         }
      }
   }
   settled_ = true;
   changed();
   return true;
}

void TopTable::sample(std::vector<std::pair<Sarn::String, Entity*>> const& entities, Time now) {
   double const seconds = sampledAt_ ? std::chrono::duration<double>(now - *sampledAt_).count() : 0;
   sampledAt_ = now;
   settled_ = false;
   mustSample_ = false;
   changed();
   std::map<Sarn::String, std::vector<State>> rows;
   for (auto const& [key, entity] : entities) {
      auto const before = rows_.find(key);
      std::vector<State>& states = rows[key];
      if (before != rows_.end()) {
         states = std::move(before->second);
      }
      states.resize(columns_.size());
      for (std::size_t i = 0; i != columns_.size(); ++i) {
         sample(states[i], columns_[i], *entity, seconds);
      }
   }
   rows_ = std::move(rows);
}

std::vector<TopRow> const& TopTable::rows() const {
   if (!shown_) {
      shown_ = sorted();
   }
   return *shown_;
}

std::vector<TopRow> TopTable::sorted() const {
   std::vector<TopRow> rows;
   for (auto const& [key, states] : rows_) {
      TopRow row{key, {}};
      bool shown = contains(key, filter_);
      for (State const& state : states) {
         shown = shown || contains(state.cell.text, filter_);
         row.cells.push_back(state.cell);
      }
      if (shown) {
         rows.push_back(std::move(row));
      }
   }
   std::sort(rows.begin(), rows.end(),
             [](TopRow const& a, TopRow const& b) { return naturallyLess(a.key, b.key); });
   if (sort_ >= 0) {
      auto const column = static_cast<std::size_t>(sort_);
      bool const byNumber = columns_[column].show != TopColumn::value;
      std::stable_sort(rows.begin(), rows.end(), [&](TopRow const& a, TopRow const& b) {
         TopCell const& left = a.cells[column];
         TopCell const& right = b.cells[column];
         return byNumber || (left.isNumber && right.isNumber)
                      ? left.number < right.number
                      : naturallyLess(left.text, right.text);
      });
   }
   if (reversed_) {
      std::reverse(rows.begin(), rows.end());
   }
   return rows;
}

std::vector<std::pair<Sarn::String, Entity*>> topEntities(Sarn::Ptr<Kiv::NamedEntity> const& root,
                                                          Path const& path) {
   Destination const to = destinationOf(root->kivType(), path);
   if (to.type->kind != Kiv::TypeKind::entity) {
      throw Failure(to.path +
                    ": is neither an entity nor a collection of entities; give one as PATH");
   }
   std::vector<std::pair<Sarn::String, Entity*>> found;
   try {
      Place const place(root, path.root.name, path.steps);
      if (!place.isCollection()) {
         if (Entity* const entity = place.entity()) {
            found.emplace_back(Kiv::printable(to.path.substr(to.path.rfind('.') + 1)), entity);
         }
         return found;
      }
      for (Kiv::CollectionCursor at(place.owner(), *place.field()); at->valid(); at->next()) {
         found.emplace_back(Kiv::printable(keyText({*place.field()->keyType, at->key()})),
                            at->child());
      }
   } catch (Failure const&) {
      return {};  // the owner of the collection does not exist now
   }
   return found;
}

std::vector<TopColumn> attributeColumns(Kiv::TypeImpl const& type) {
   std::vector<TopColumn> columns;
   forEachField(type, [&](Kiv::FieldDescriptor const& field) {
      if (field.kind == MemberKind::single && field.ops->write != nullptr &&
          field.has(Kiv::FieldDescriptor::streamed)) {
         columns.push_back(topColumn(field.name));
      }
   });
   return columns;
}

}  // namespace Ptpstate
