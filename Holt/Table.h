// Text in columns.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Holt {

/// Rows whose cells stand below each other; columns of numbers are aligned to the right.
class Table {
public:
   explicit Table(std::vector<std::string> heads) { rows_.push_back(std::move(heads)); }

   void rightIs(std::size_t column) {
      right_.resize(std::max(right_.size(), column + 1));
      right_[column] = true;
   }
   /// Cells are made printable.
   void row(std::vector<std::string> cells);
   void print(std::ostream& out) const;

private:
   std::vector<std::vector<std::string>> rows_;
   std::vector<bool> right_;
};

}  // namespace Holt
