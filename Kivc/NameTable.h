// Names one behind the other, closed by NULs, found by offset: as module records hold them.
#pragma once

#include <string>
#include <vector>

namespace Kivc {

class NameTable {
public:
   /// Adds a name unless it is there; returns its offset.
   std::size_t add(std::string const& name);
   /// REQUIRES: the name is there.
   std::size_t offset(std::string const& name) const;
   std::size_t size() const { return size_; }
   /// The table as C++ string literals, one name a line with its offset; the last is closed by a
   /// semicolon.
   std::string literals() const;

private:
   struct Entry {
      std::string name;
      std::size_t offset;
   };
   std::vector<Entry> entries_;
   std::size_t size_ = 0;
};

}  // namespace Kivc
