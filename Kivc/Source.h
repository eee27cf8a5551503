// Source text and where things are in it.
//
// A `Source` owns one file's text and knows where its lines begin. Tokens and model nodes carry a
// `Span`, which is two byte offsets and the file; line and column are worked out only when a
// message is printed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Kivc {

/// Line and column, both counted from 1. A column is one UTF-8 character.
struct Position {
   std::size_t line = 1;
   std::size_t column = 1;
};

/// One file of declarations. Neither copied nor moved, since spans point to it.
class Source {
public:
   /// `path` is what messages print: the path as the user gave it or as the search path made it.
   /// `order` ranks messages of several files: the main file is 0, imports follow.
   Source(std::string path, std::string text, std::size_t order = 0);
   Source(Source const&) = delete;
   Source& operator=(Source const&) = delete;

   std::string const& path() const { return path_; }
   std::string_view text() const { return text_; }
   std::size_t order() const { return order_; }

   /// Position of a byte; an offset behind the end gives the position of the end. O(log lines).
   Position position(std::size_t offset) const;
   /// Text of a line (counted from 1) without its line end; empty for a line that is not there.
   std::string_view line(std::size_t number) const;

private:
   std::string path_;
   std::string text_;
   std::size_t order_;
   std::vector<std::size_t> lineStarts_;
};

/// The bytes [begin, end) of a file. A default-constructed span is nowhere.
struct Span {
   Source const* source = nullptr;
   std::size_t begin = 0;
   std::size_t end = 0;

   std::string_view text() const;
   /// The smallest span that covers both; REQUIRES: same file.
   Span to(Span const& last) const { return {source, begin, last.end}; }
};

}  // namespace Kivc
