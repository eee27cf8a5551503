#include "Kivc/Source.h"

#include <algorithm>
#include <utility>

namespace Kivc {

namespace {

bool isUtf8Continuation(char byte) {
   return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

}  // namespace

Source::Source(std::string path, std::string text, std::size_t order)
      : path_(std::move(path)), text_(std::move(text)), order_(order) {
   lineStarts_.push_back(0);
   for (std::size_t at = 0; at < text_.size(); ++at) {
      if (text_[at] == '\n') {
         lineStarts_.push_back(at + 1);
      }
   }
}

Position Source::position(std::size_t offset) const {
   offset = std::min(offset, text_.size());
   auto const next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
   auto const start = *(next - 1);
   Position result;
   result.line = static_cast<std::size_t>(next - lineStarts_.begin());
   for (std::size_t at = start; at < offset; ++at) {
      result.column += isUtf8Continuation(text_[at]) ? 0 : 1;
   }
   return result;
}

std::string_view Source::line(std::size_t number) const {
   if (number == 0 || number > lineStarts_.size()) {
      return {};
   }
   auto const begin = lineStarts_[number - 1];
   auto const end = number < lineStarts_.size() ? lineStarts_[number] - 1 : text_.size();
   auto result = std::string_view(text_).substr(begin, end - begin);
   if (!result.empty() && result.back() == '\r') {
      result.remove_suffix(1);
   }
   return result;
}

std::string_view Span::text() const {
   return source == nullptr ? std::string_view() : source->text().substr(begin, end - begin);
}

}  // namespace Kivc
