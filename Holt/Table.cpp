#include "Holt/Table.h"

#include <algorithm>

#include "Kiv/Printable.h"

namespace Holt {

void Table::row(std::vector<std::string> cells) {
   for (std::string& cell : cells) {
      cell = Kiv::printable(std::move(cell));
   }
   rows_.push_back(std::move(cells));
}

void Table::print(std::ostream& out) const {
   std::vector<std::size_t> widths;
   for (auto const& row : rows_) {
      widths.resize(std::max(widths.size(), row.size()));
      for (std::size_t i = 0; i != row.size(); ++i) {
         widths[i] = std::max(widths[i], row[i].size());
      }
   }
   for (auto const& row : rows_) {
      std::string line;
      for (std::size_t i = 0; i != row.size(); ++i) {
         std::string const room(widths[i] - row[i].size(), ' ');
         bool const right = i < right_.size() && right_[i];
         line += (i == 0 ? "" : "  ") + (right ? room + row[i] : row[i] + room);
      }
      line.erase(line.find_last_not_of(' ') + 1);
      out << line << '\n';
   }
}

}  // namespace Holt
