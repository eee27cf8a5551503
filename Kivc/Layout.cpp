#include "Kivc/Layout.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace Kivc {

namespace {

constexpr std::size_t indentWidth = 3;
constexpr std::size_t continuation = 6;
constexpr std::size_t lineCost = 12;

std::size_t indentationOf(std::string_view line) {
   auto const first = line.find_first_not_of(' ');
   return first == std::string_view::npos ? line.size() : first;
}

std::string blanks(std::size_t count) {
   return std::string(count, ' ');
}

/// Brackets and texts of one line of code, seen from left to right.
class Brackets {
public:
   explicit Brackets(std::string_view line) : line_(line) {}

   /// Takes the character at `i` into account; call for each in turn.
   void step(std::size_t i) {
      char const c = line_[i];
      if (c == '"' && (i == 0 || line_[i - 1] != '\\')) {
         inText_ = !inText_;
         textStart_ = i;
      } else if (inText_) {
         return;
      } else if (c == '(' || c == '{' || opensAngle(i)) {
         open_.push_back({c, i + 1});
      } else if (c == ')' || c == '}' ||
                 (c == '>' && !open_.empty() && open_.back().mark == '<' && line_[i - 1] != '-')) {
         if (!open_.empty()) {
            open_.pop_back();
         }
      }
   }

   bool inText() const { return inText_; }
   std::size_t textStart() const { return textStart_; }
   bool isOutside() const { return !inText_ && open_.empty(); }
   /// Where what stands in the innermost bracket begins; `otherwise` outside of any.
   std::size_t column(std::size_t otherwise) const {
      return open_.empty() ? otherwise : open_.back().start;
   }
   /// How bad it is to break here: angle brackets hold together more than others.
   std::size_t depth() const {
      std::size_t sum = 0;
      for (auto const& bracket : open_) {
         sum += bracket.mark == '<' ? 2 : 1;
      }
      return sum;
   }

private:
   struct Open {
      char mark;
      std::size_t start;
   };

   bool opensAngle(std::size_t i) const {
      if (line_[i] != '<' || i == 0 || i + 1 == line_.size()) {
         return false;
      }
      auto const isNameChar = [](char c) {
         return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
      };
      bool const isOperator = i >= 8 && line_.substr(i - 8, 8) == "operator";
      return !isOperator && isNameChar(line_[i - 1]) &&
             (isNameChar(line_[i + 1]) || line_[i + 1] == ':');
   }

   std::string_view line_;
   std::vector<Open> open_;
   bool inText_ = false;
   std::size_t textStart_ = 0;
};

/// A place where a line may be broken, and how much better not.
struct Break {
   /// Where the next line begins.
   std::size_t at = 0;
   /// Its indentation.
   std::size_t column = 0;
   std::size_t penalty = 0;
   bool inText = false;
};

/// `isTail`: the line goes on with what stands in a bracket opened on an earlier line.
std::vector<Break> breaksOf(std::string_view line, bool isTail) {
   std::vector<Break> breaks;
   auto const indent = indentationOf(line);
   Brackets brackets(line);
   for (auto i = indent; i < line.size(); ++i) {
      // The result of a function, if nothing else helps.
      if (line[i] == ' ' && brackets.isOutside() && indent == 0 && !isTail && line.ends_with('{') &&
          breaks.empty()) {
         breaks.push_back({i + 1, 0, 100, false});
      }
      brackets.step(i);
      char const c = line[i];
      char const next = i + 1 < line.size() ? line[i + 1] : '\0';
      auto const outer = isTail ? indent : indent + continuation;
      if (brackets.inText()) {
         if (c == ' ') {
            breaks.push_back({i + 1, brackets.textStart(), 200, true});
         }
      } else if (c == ',' && next == ' ') {
         breaks.push_back({i + 2, brackets.column(outer), 10 * brackets.depth(), false});
      } else if (c == '=' && next == ' ' && line[i - 1] == ' ') {
         breaks.push_back({i + 2, indent + continuation, 15, false});
      } else if ((c == '(' || c == '{') && next != ')' && next != '}' && next != '\0') {
         // The bracket itself is open already.
         breaks.push_back({i + 1, outer, 8 + 10 * brackets.depth(), false});
      }
   }
   return breaks;
}

/// One way to lay a line out.
struct Lines {
   std::size_t cost = 0;
   std::string text;
};

/// The cheapest way to break a line of code, tails included.
Lines bestLines(std::string_view line, bool isTail) {
   if (line.size() <= pageWidth) {
      return {0, std::string(line) + "\n"};
   }
   // Costs more than any number of breaks, the less the shorter the line.
   Lines best{1000 * (line.size() - pageWidth), std::string(line) + "\n"};
   for (auto const& candidate : breaksOf(line, isTail)) {
      auto head = std::string(line.substr(0, candidate.at));
      // The blank at the break is dropped, but not within a text, which is closed and opened anew.
      if (candidate.inText) {
         head += '"';
      } else {
         head.resize(head.find_last_not_of(' ') + 1);
      }
      bool const fits = head.size() <= pageWidth;
      auto const cost = candidate.penalty + lineCost;
      if (!fits || (candidate.at <= candidate.column && candidate.column != 0) ||
          cost > best.cost) {
         continue;
      }
      auto tail = blanks(candidate.column) + (candidate.inText ? "\"" : "");
      tail += line.substr(candidate.at);
      auto lines = bestLines(tail, true);
      lines.cost += cost;
      // Of equal ways the one with the longest first line.
      if (lines.cost <= best.cost) {
         best = {lines.cost, head + "\n" + lines.text};
      }
   }
   return best;
}

void appendCode(std::string& out, std::string_view line, bool isTail);

/// `signature { body }` on three lines. Returns false if the line is no such function.
bool appendFunction(std::string& out, std::string_view line) {
   if (!line.ends_with(" }")) {
      return false;
   }
   Brackets brackets(line);
   for (std::size_t i = 0; i + 3 < line.size(); ++i) {
      if (brackets.isOutside() && line.substr(i, 3) == " { ") {
         auto const indent = indentationOf(line);
         appendCode(out, std::string(line.substr(0, i + 2)), false);
         auto const body = line.substr(i + 3, line.size() - i - 5);
         appendCode(out, blanks(indent + indentWidth) + std::string(body), false);
         out.append(blanks(indent)).append("}\n");
         return true;
      }
      brackets.step(i);
   }
   return false;
}

/// `Type(...) : a_(a), b_(b) {` with the initialisers on lines of their own. Returns false if the
/// line is no constructor.
bool appendConstructor(std::string& out, std::string_view line) {
   Brackets brackets(line);
   for (std::size_t i = 0; i + 4 < line.size(); ++i) {
      if (brackets.isOutside() && line.substr(i, 3) == " : " && line[i - 1] == ')') {
         auto const column = indentationOf(line) + continuation;
         appendCode(out, line.substr(0, i), false);
         std::string rest = blanks(column + 2);
         rest += line.substr(i + 3);
         std::string initializers;
         appendCode(initializers, rest, true);
         initializers[column] = ':';
         out += initializers;
         return true;
      }
      brackets.step(i);
   }
   return false;
}

void appendCode(std::string& out, std::string_view line, bool isTail) {
   if (line.size() <= pageWidth) {
      out.append(line).append("\n");
      return;
   }
   if (!isTail && (appendFunction(out, line) || appendConstructor(out, line))) {
      return;
   }
   out += bestLines(line, isTail).text;
}

/// `mark` is the indentation and the slashes.
void appendComment(std::string& out, std::string_view line, std::string_view mark) {
   if (line.size() > pageWidth) {
      auto const cut = line.rfind(' ', pageWidth);
      if (cut != std::string_view::npos && cut > mark.size()) {
         out.append(line.substr(0, cut)).append("\n");
         auto const next = std::string(mark) + " " + std::string(line.substr(cut + 1));
         appendComment(out, next, mark);
         return;
      }
   }
   out.append(line).append("\n");
}

}  // namespace

std::string fitToPage(std::string_view text) {
   std::string out;
   while (!text.empty()) {
      auto const end = text.find('\n');
      auto const line = text.substr(0, end);
      auto const indent = indentationOf(line);
      if (line.substr(indent, 2) == "//") {
         appendComment(out, line, line.substr(0, line.find_first_not_of('/', indent)));
      } else {
         appendCode(out, line, false);
      }
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
   }
   return out;
}

std::string alignRemarks(std::string_view text) {
   struct Line {
      std::string_view code;
      std::string_view remark;
   };
   std::vector<Line> lines;
   std::size_t width = 0;
   while (!text.empty()) {
      auto const end = text.find('\n');
      auto const line = text.substr(0, end);
      auto const remark = line.rfind("  // ");
      bool const hasRemark = remark != std::string_view::npos;
      lines.push_back({line.substr(0, remark), hasRemark ? line.substr(remark) : ""});
      width = hasRemark ? std::max(width, remark) : width;
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
   }
   std::string out;
   for (auto const& line : lines) {
      out.append(line.code);
      if (!line.remark.empty()) {
         out.append(width - line.code.size(), ' ').append(line.remark);
      }
      out += '\n';
   }
   return out;
}

std::string docComment(std::string_view lines) {
   std::string out;
   while (!lines.empty()) {
      auto const end = lines.find('\n');
      auto const line = lines.substr(0, end);
      out.append(line.empty() ? "///" : "/// ").append(line).append("\n");
      lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
   }
   return out;
}

}  // namespace Kivc
