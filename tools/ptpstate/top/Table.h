// What `top` shows: entities as rows, their attributes as columns, sampled again and again.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>

#include "Holt/State/Place.h"

namespace Ptpstate {

/// A value in few characters: of one with fields, these alone: "Ethernet1,100".
Sarn::String shortText(Kiv::TypeImpl const& type, void const* value);

/// An attribute of a row's entity, or what a path below it leads to.
struct TopColumn {
   enum Show {
      value,    ///< as it is
      rate,     ///< its change per second, between the last two samples
      history,  ///< its last samples, as a line
   };
   /// "portState", "syncMessageReceived/s", "peerMeanPathDelay~"; printable.
   Sarn::String name;
   Show show = value;
   std::vector<Holt::PathStep> steps;

   bool operator==(TopColumn const&) const = default;
};

/// Reads a column's name: "/s" behind it for a rate, "~" for a history. Throws `Failure`.
TopColumn topColumn(Sarn::String const& name);

/// A number as a sample, with what is to be known of it to tell a counter that began anew.
struct TopNumber {
   double value = 0;
   /// Of an unsigned integer, its exact value and how many bits it has; else 0 bits.
   U64 exact = 0;
   unsigned bits = 0;
};

/// The number that a value is; none for text, for what is not finite, and for what is not there.
std::optional<TopNumber> topNumber(Kiv::AnyValue const& value);

/// The change per second. Of an unsigned counter, also over its wrap; a counter that was set back
/// has none.
std::optional<double> ratePerSecond(TopNumber const& before, TopNumber const& now, double seconds);

/// How samples look as a line, the newest on the right: eighths of a character's height between the
/// least and the greatest. `ascii`: for terminals without these characters.
Sarn::String historyLine(std::deque<double> const& samples, bool ascii);

/// "1.2", "345", "0", "1.2e+09".
Sarn::String rateText(double rate);

struct TopCell {
   Sarn::String text;
   /// To be aligned to the right.
   bool isNumber = false;
   /// What it is sorted by, where it is a number.
   double number = 0;
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
   /// Histories and rates of columns that stay are kept.
   void columnsAre(std::vector<TopColumn> columns);

   /// Sorts by a column; -1 for the key. The same one again reverses the order.
   void sortIs(int column);
   int sortedBy() const noexcept { return sort_; }
   bool reversed() const noexcept { return reversed_; }

   /// Takes a sample of each row: `key` and entity. Rows that are not among them are forgotten.
   void sample(std::vector<std::pair<Sarn::String, Kiv::Entity*>> const& entities, Time now);
   /// As of the last sample, in order.
   std::vector<TopRow> rows() const;

private:
   struct State {
      TopCell cell;
      std::optional<TopNumber> last;
      std::optional<double> rate;
      std::deque<double> history;
   };

   void sample(State& state, TopColumn const& column, Kiv::Entity& entity, double seconds) const;

   bool ascii_;
   std::vector<TopColumn> columns_;
   std::map<Sarn::String, std::vector<State>> rows_;
   std::optional<Time> sampledAt_;
   int sort_ = -1;
   bool reversed_ = false;
};

/// The entities that a path leads to, with their keys: all of a collection in natural order, or the
/// one that is there. None where there is nothing now. Throws `Failure` if the path leads to what
/// can be no entities.
std::vector<std::pair<Sarn::String, Kiv::Entity*>> topEntities(
      Sarn::Ptr<Kiv::NamedEntity> const& root, Holt::Path const& path);

/// The settable attributes of a type, as columns.
std::vector<TopColumn> attributeColumns(Kiv::TypeImpl const& type);

}  // namespace Ptpstate
