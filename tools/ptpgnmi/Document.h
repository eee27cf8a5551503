// Leaves as one JSON document.
#pragma once

#include <memory>
#include <string>

#include "tools/ptpgnmi/Model.h"

namespace Ptpgnmi {

/// A container or an entry of a list as an object, built from its leaves. A list is an array of
/// objects that contain their keys; an entry without members, as of a map of numbers, has its value
/// as "value".
class Document {
public:
   Document(Model const& model, Encoding encoding);
   ~Document();
   Document(Document&&) noexcept;

   /// Adds a leaf. `named`: how many elements of its path lead to the place of the document.
   void add(Elems const& path, std::size_t named, Value const& value);
   std::string text() const;

private:
   struct Impl;
   std::unique_ptr<Impl> impl_;
};

}  // namespace Ptpgnmi
