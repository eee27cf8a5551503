// The contents of `top`: entities as rows, their attributes as columns, sampled repeatedly.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>

#include "Holt/State/Place.h"

namespace Ptpstate {

/// A value in few characters; if it has fields, only these: "Ethernet1,100".
Sarn::String shortText(Kiv::TypeImpl const& type, void const* value);

/// An attribute of the entity of a row, or what a path below it leads to.
struct TopColumn {
   enum Show {
      /// As it is.
      value,
      /// Its change per second between the last two samples.
      rate,
      /// Its last samples as a small graph.
      history,
   };
   /// "portState", "syncMessageReceived/s", "peerMeanPathDelay~"; printable.
   Sarn::String name;
   Show show = value;
   std::vector<Holt::PathStep> steps;
   /// A number that is computed from more than one attribute, instead of what `steps` lead to.
   using Compute = std::optional<S64> (*)(Kiv::Entity const&);
   Compute compute = nullptr;

   bool operator==(TopColumn const&) const = default;
};

/// Reads the name of a column, followed by "/s" for a rate or "~" for a history. Throws `Failure`.
TopColumn topColumn(Sarn::String const& name);

/// A sample of a number, with what is needed to recognise a counter that was reset.
struct TopNumber {
   double value = 0;
   /// For an unsigned integer, its exact value and its width in bits; else 0 bits.
   U64 exact = 0;
   unsigned bits = 0;
};

/// The value as a number; none for text, and for a number that is not finite.
std::optional<TopNumber> topNumber(Kiv::AnyValue const& value);

/// The change per second. An unsigned counter may wrap; a counter that was reset has no rate.
std::optional<double> ratePerSecond(TopNumber const& before, TopNumber const& now, double seconds);

/// Samples as a graph of one line, the newest on the right: bars in eighths of a character's height
/// from the least to the greatest. `ascii`: for terminals without these characters.
Sarn::String historyLine(std::deque<double> const& samples, bool ascii);

/// "1.2", "345", "0", "1.2e+09".
Sarn::String rateText(double rate);

struct TopCell {
   Sarn::String text;
   /// Whether to align it to the right.
   bool isNumber = false;
   /// What it is sorted by if it is a number.
   double number = 0;
   /// Whether there is such a value now.
   bool exists = true;
   bool isBool = false;
};

struct TopRow {
   Sarn::String key;
   std::vector<TopCell> cells;
};

class TopTable {
public:
   using Time = std::chrono::steady_clock::time_point;

   /// How many samples a history keeps.
   static constexpr std::size_t historyLength = 16;

   explicit TopTable(bool ascii = false) : ascii_(ascii) {}

   std::vector<TopColumn> const& columns() const noexcept { return columns_; }
   /// Sets the columns. Those that stay keep their histories and rates.
   void columnsAre(std::vector<TopColumn> columns);

   /// Sorts by a column; -1 for the key. The same column again reverses the order.
   void sortIs(int column);
   int sortedBy() const noexcept { return sort_; }
   bool reversed() const noexcept { return reversed_; }

   /// Leaves out rows of which neither the key nor a cell contains the text, in any case; empty:
   /// none.
   void filterIs(Sarn::String const& text);
   Sarn::String const& filter() const noexcept { return filter_; }

   /// Samples the rows, given as key and entity. Other rows are forgotten.
   void sample(std::vector<std::pair<Sarn::String, Kiv::Entity*>> const& entities, Time now);
   /// The same if nothing has changed since the last sample; costs little. Returns false if the
   /// rows must be sampled nevertheless.
   bool repeat(Time now);
   /// The rows at the last sample, in order.
   std::vector<TopRow> const& rows() const;
   /// Another number whenever `rows()` may differ.
   U64 version() const noexcept { return version_; }

private:
   struct State {
      TopCell cell;
      std::optional<TopNumber> last;
      std::optional<double> rate;
      std::deque<double> history;
   };

   void sample(State& state, TopColumn const& column, Kiv::Entity& entity, double seconds) const;
   void historyIs(State& state, double number) const;
   std::vector<TopRow> sorted() const;
   void changed() noexcept;

   bool ascii_;
   std::vector<TopColumn> columns_;
   std::map<Sarn::String, std::vector<State>> rows_;
   std::optional<Time> sampledAt_;
   int sort_ = -1;
   bool reversed_ = false;
   Sarn::String filter_;
   /// Whether all rates are 0 because nothing has changed for two samples.
   bool settled_ = false;
   /// Whether there are columns that have never been sampled.
   bool mustSample_ = false;
   U64 version_ = 0;
   mutable std::optional<std::vector<TopRow>> shown_;
};

/// The entities that a path leads to, with their keys: those of a collection, or a single one. None
/// if nothing exists there now. Throws `Failure` if the path is not one of entities.
std::vector<std::pair<Sarn::String, Kiv::Entity*>> topEntities(
      Sarn::Ptr<Kiv::NamedEntity> const& root, Holt::Path const& path);

/// The settable attributes of a type, as columns.
std::vector<TopColumn> attributeColumns(Kiv::TypeImpl const& type);

}  // namespace Ptpstate
