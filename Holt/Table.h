// Text in columns.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Holt {

/// Rows of cells, aligned in columns.
class Table {
public:
   explicit Table(std::vector<std::string> heads) { rows_.push_back(std::move(heads)); }

   /// Aligns a column to the right, as for numbers.
   void rightIs(std::size_t column) {
      right_.resize(std::max(right_.size(), column + 1));
      right_[column] = true;
   }
   /// Adds a row. Its cells are made printable.
   void row(std::vector<std::string> cells);
   void print(std::ostream& out) const;

private:
   std::vector<std::vector<std::string>> rows_;
   std::vector<bool> right_;
};

}  // namespace Holt
