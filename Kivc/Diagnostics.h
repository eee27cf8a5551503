// Errors with their place, collected while a run goes on and printed once at its end.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Kivc/Source.h"

namespace Kivc {

/// Collects errors of one run. Printed sorted by file and position, at most `cap` of them.
class Diagnostics {
public:
   struct Message {
      Span span;
      std::string text;
   };

   /// An error and the earlier places that explain it.
   struct Error {
      Message message;
      std::vector<Message> notes;

      Error& note(Span span, std::string text);
   };

   /// Adds an error; the reference is good until the next call.
   Error& error(Span span, std::string text);

   bool empty() const { return errors_.empty(); }
   std::size_t size() const { return errors_.size(); }

   /// All errors as text: `file:line:col: error: text`, the source line, a caret run, notes.
   /// Of several errors at one place only the first is printed; the others mostly follow from it.
   /// What comes from files and paths is made printable.
   std::string render(std::size_t cap = 20) const;

private:
   std::vector<Error> errors_;
};

/// The name of `candidates` that is closest to `name` by edit distance, or empty when none is
/// close enough to be meant.
std::string nearestName(std::string_view name, std::vector<std::string> const& candidates);

/// "; did you mean 'x'?" for the nearest of `candidates`, or empty.
std::string suggestion(std::string_view name, std::vector<std::string> const& candidates);

}  // namespace Kivc
