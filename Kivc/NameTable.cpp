#include "Kivc/NameTable.h"

#include <algorithm>
#include <stdexcept>

#include "Kivc/Layout.h"

namespace Kivc {

std::size_t NameTable::add(std::string const& name) {
   auto const found = std::find_if(entries_.begin(), entries_.end(),
                                   [&](Entry const& entry) { return entry.name == name; });
   if (found != entries_.end()) {
      return found->offset;
   }
   entries_.push_back({name, size_});
   size_ += name.size() + 1;
   return entries_.back().offset;
}

std::size_t NameTable::offset(std::string const& name) const {
   auto const found = std::find_if(entries_.begin(), entries_.end(),
                                   [&](Entry const& entry) { return entry.name == name; });
   if (found == entries_.end()) {
      throw std::logic_error("no name '" + name + "' in the table");
   }
   return found->offset;
}

std::string NameTable::literals() const {
   std::string out;
   for (auto const& entry : entries_) {
      bool const isLast = &entry == &entries_.back();
      out += "\"" + entry.name + "\\0\"" + (isLast ? ";" : "") + "  // " +
             std::to_string(entry.offset) + "\n";
   }
   return alignRemarks(out);
}

}  // namespace Kivc
