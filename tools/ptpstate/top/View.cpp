#include "tools/ptpstate/top/View.h"

#include <algorithm>
#include <numeric>

namespace Ptpstate {

using namespace Holt;

namespace {

/// The maximum width of a column, so that one long text does not push out all others.
constexpr std::size_t widest = 32;
/// The maximum width of a heading if there is no room for all columns.
constexpr std::size_t shortHeading = 13;

bool isContinuation(char c) {
   return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

Sarn::String padded(Sarn::String const& text, std::size_t width, bool right) {
   Sarn::String const cut = cutTo(text, width);
   Sarn::String const room(width - displayWidth(cut), ' ');
   return right ? room + cut : cut + room;
}

/// How a row looks: what is faulty or passive stands out.
TopSpan::Look lookOf(TopRow const& row) {
   for (TopCell const& cell : row.cells) {
      if (cell.text == "faulty" || cell.text == "passive") {
         return cell.text == "faulty" ? TopSpan::bad : TopSpan::passive;
      }
   }
   return TopSpan::plain;
}

char const* const helpTexts[] = {
      "up, down, page up, page down, home, end   go through the rows",
      "left, right                               choose a column",
      "s                                         sort by it; again: in reverse",
      "k                                         sort by the key",
      "c                                         choose which columns there are; they are kept",
      "/                                         show only rows that contain a text",
      "p                                         pause, and go on",
      "q                                         end",
      "",
      "Among the columns: blank shows a value, r its rate per second, h its history.",
      "Any key goes back."};

}  // namespace

std::size_t displayWidth(std::string_view text) {
   return static_cast<std::size_t>(
         std::count_if(text.begin(), text.end(), [](char c) { return !isContinuation(c); }));
}

Sarn::String cutTo(std::string_view text, std::size_t width) {
   if (displayWidth(text) <= width) {
      return Sarn::String(text);
   }
   std::size_t cells = 0;
   std::size_t at = 0;
   while (at != text.size() && (isContinuation(text[at]) || cells + 1 < width)) {
      cells += isContinuation(text[at]) ? 0 : 1;
      ++at;
   }
   return Sarn::String(text.substr(0, at)) + (width != 0 ? "+" : "");
}

bool TopView::press(int key) {
   if (mode_ == inHelp) {
      mode_ = inTable;
      return true;
   }
   if (mode_ == inFilter) {
      pressInFilter(key);
      return true;
   }
   if (key == 'q') {
      if (mode_ == inTable) {
         return false;
      }
      leaveColumns();
      return true;
   }
   if (mode_ == inColumns) {
      pressInColumns(key);
   } else {
      pressInTable(key);
   }
   return true;
}

void TopView::leaveColumns() {
   mode_ = inTable;
   if (columnsChanged_ && onColumns) {
      onColumns();
   }
   columnsChanged_ = false;
}

void TopView::pressInFilter(int key) {
   Sarn::String text = table_.filter();
   if (key == '\n' || key == '\r') {
      mode_ = inTable;
   } else if (key == '\x1b') {
      mode_ = inTable;
      table_.filterIs("");
   } else if (key == '\b' || key == '\x7f') {
      while (!text.empty() && isContinuation(text.back())) {
         text.pop_back();
      }
      if (!text.empty()) {
         text.pop_back();
      }
      table_.filterIs(text);
   } else if (key >= ' ' && key < 0x100) {
      table_.filterIs(text + static_cast<char>(key));
   }
}

void TopView::pressInTable(int key) {
   int const last = static_cast<int>(table_.columns().size()) - 1;
   std::size_t const lastFirst = rowCount_ > page_ ? rowCount_ - page_ : 0;
   switch (key) {
      case keyUp:
         first_ -= first_ != 0 ? 1 : 0;
         break;
      case keyDown:
         first_ = std::min(first_ + 1, lastFirst);
         break;
      case keyPageUp:
         first_ -= std::min(first_, page_);
         break;
      case keyPageDown:
         first_ = std::min(first_ + page_, lastFirst);
         break;
      case keyHome:
         first_ = 0;
         break;
      case keyEnd:
         first_ = lastFirst;
         break;
      case keyLeft:
         chosen_ = std::max(chosen_ - 1, -1);
         break;
      case keyRight:
         chosen_ = std::min(chosen_ + 1, last);
         break;
      case 's':
         table_.sortIs(chosen_);
         break;
      case 'k':
         table_.sortIs(-1);
         break;
      case 'p':
         paused_ = !paused_;
         break;
      case 'c':
         mode_ = inColumns;
         break;
      case '/':
         mode_ = inFilter;
         break;
      case 'h':
      case '?':
         mode_ = inHelp;
         break;
      default:
         break;
   }
}

void TopView::pressInColumns(int key) {
   std::size_t const last = choice_.empty() ? 0 : choice_.size() - 1;
   switch (key) {
      case keyUp:
         choiceAt_ -= choiceAt_ != 0 ? 1 : 0;
         break;
      case keyDown:
         choiceAt_ = std::min(choiceAt_ + 1, last);
         break;
      case keyPageUp:
         choiceAt_ -= std::min(choiceAt_, page_);
         break;
      case keyPageDown:
         choiceAt_ = std::min(choiceAt_ + page_, last);
         break;
      case keyHome:
         choiceAt_ = 0;
         break;
      case keyEnd:
         choiceAt_ = last;
         break;
      case ' ':
         toggle(TopColumn::value);
         break;
      case 'r':
         toggle(TopColumn::rate);
         break;
      case 'h':
         toggle(TopColumn::history);
         break;
      default:
         leaveColumns();
         break;
   }
}

/// Adds the column at the end, or removes it.
void TopView::toggle(TopColumn::Show show) {
   if (choice_.empty()) {
      return;
   }
   Sarn::String const behind = show == TopColumn::rate      ? "/s"
                               : show == TopColumn::history ? "~"
                                                            : "";
   TopColumn column = choice_[choiceAt_];
   column.name += behind;
   column.show = show;
   std::vector<TopColumn> all = table_.columns();
   auto const there = std::find(all.begin(), all.end(), column);
   if (there != all.end()) {
      all.erase(there);
   } else {
      all.push_back(column);
   }
   table_.columnsAre(std::move(all));
   columnsChanged_ = true;
   chosen_ = std::min(chosen_, static_cast<int>(table_.columns().size()) - 1);
}

/// The name in at most `longest` cells, keeping "/s" or "~", with a mark if the rows are sorted by
/// it. Column 0 is the key.
Sarn::String TopView::heading(std::size_t column, std::size_t longest) const {
   Sarn::String name = column == 0 ? "key" : table_.columns()[column - 1].name;
   if (name.size() > longest) {
      std::size_t const behind = name.ends_with("/s") ? 2 : name.ends_with("~") ? 1 : 0;
      name = cutTo(name, longest - behind) + name.substr(name.size() - behind);
   }
   bool const sorted = table_.sortedBy() == static_cast<int>(column) - 1;
   return !sorted ? name : (table_.reversed() ? "v" : "^") + name;
}

std::vector<std::size_t> TopView::widths(std::vector<TopRow> const& rows,
                                         std::size_t longestHeading) const {
   std::vector<std::size_t> widths{displayWidth(heading(0, longestHeading))};
   for (std::size_t i = 0; i != table_.columns().size(); ++i) {
      bool const history = table_.columns()[i].show == TopColumn::history;
      widths.push_back(std::max(displayWidth(heading(i + 1, longestHeading)),
                                history ? TopTable::historyLength : 0));
   }
   for (TopRow const& row : rows) {
      widths[0] = std::max(widths[0], displayWidth(row.key));
      for (std::size_t i = 0; i != row.cells.size(); ++i) {
         widths[i + 1] = std::max(widths[i + 1], displayWidth(row.cells[i].text));
      }
   }
   for (std::size_t& width : widths) {
      width = std::min(width, widest);
   }
   return widths;
}

/// Measures the rows, if they have changed.
void TopView::measure(std::size_t width) {
   if (measures_.version == table_.version() && measures_.screen == width) {
      return;
   }
   std::vector<TopRow> const& rows = table_.rows();
   measures_ = {table_.version(), width, widest, widths(rows, widest), {false}};
   std::vector<std::size_t> const& all = measures_.widths;
   if (std::accumulate(all.begin(), all.end(), all.size() * 2) > width + 2) {
      measures_.longestHeading = shortHeading;
      measures_.widths = widths(rows, shortHeading);
   }
   for (std::size_t column = 0; column != table_.columns().size(); ++column) {
      measures_.right.push_back(std::any_of(rows.begin(), rows.end(), [column](TopRow const& row) {
         return row.cells[column].isNumber;
      }));
   }
}

/// The columns of the only row, one per line.
void TopView::listLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height) {
   std::vector<TopRow> const& rows = table_.rows();
   page_ = height;
   rowCount_ = rows.empty() ? 0 : table_.columns().size();
   first_ = std::min(first_, rowCount_ > page_ ? rowCount_ - page_ : 0);
   std::size_t longest = 0;
   for (TopColumn const& column : table_.columns()) {
      longest = std::max(longest, displayWidth(column.name));
   }
   for (std::size_t i = first_; i < std::min(first_ + page_, rowCount_); ++i) {
      bool const mark = static_cast<int>(i) == chosen_;
      lines.push_back({{mark ? TopSpan::chosen : TopSpan::bold,
                        padded(table_.columns()[i].name, longest, false)},
                       {TopSpan::plain, cutTo("  " + rows[0].cells[i].text,
                                              width > longest ? width - longest : 0)}});
   }
}

void TopView::tableLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height) {
   measure(width);
   std::vector<TopRow> const& rows = table_.rows();
   std::vector<std::size_t> const& all = measures_.widths;
   std::size_t const longest = measures_.longestHeading;
   // The key stays; the other columns scroll so that the chosen one is on the screen.
   auto const chosen = static_cast<std::size_t>(chosen_) + 1;
   auto const end = [&](std::size_t first) {
      std::size_t at = all[0];
      std::size_t column = std::max<std::size_t>(first, 1);
      for (; column != all.size() && at + 2 + all[column] <= width; ++column) {
         at += 2 + all[column];
      }
      return column;
   };
   firstColumn_ = chosen != 0 && chosen < firstColumn_ ? chosen : firstColumn_;
   firstColumn_ = chosen == 0 ? 1 : std::max<std::size_t>(firstColumn_, 1);
   while (firstColumn_ < chosen && end(firstColumn_) <= chosen) {
      ++firstColumn_;
   }
   std::size_t const behind = std::max(end(firstColumn_), std::min(firstColumn_ + 1, all.size()));

   page_ = height > 1 ? height - 1 : 1;
   rowCount_ = rows.size();
   first_ = std::min(first_, rowCount_ > page_ ? rowCount_ - page_ : 0);

   auto const line = [&](auto const& cellOf, TopSpan::Look look) {
      TopLine spans;
      for (std::size_t column = 0; column < behind; ++column) {
         if (column != 0 && column < firstColumn_) {
            continue;
         }
         bool const mark = look == TopSpan::head && column == chosen;
         spans.push_back({mark ? TopSpan::chosen : look,
                          padded(cellOf(column), all[column], measures_.right[column])});
         spans.push_back({look, "  "});
      }
      return spans;
   };
   lines.push_back(
         line([&](std::size_t column) { return heading(column, longest); }, TopSpan::head));
   for (std::size_t i = first_; i != std::min(first_ + page_, rows.size()); ++i) {
      lines.push_back(line(
            [&](std::size_t column) {
               return column == 0 ? rows[i].key : rows[i].cells[column - 1].text;
            },
            lookOf(rows[i])));
   }
}

void TopView::columnLines(std::vector<TopLine>& lines, std::size_t width,
                          std::size_t height) const {
   std::size_t const count = height > 1 ? height - 1 : 1;
   std::size_t const first = choiceAt_ >= count ? choiceAt_ - count + 1 : 0;
   lines.push_back({{TopSpan::head, padded("blank: value   r: rate   h: history", width, false)}});
   auto const has = [&](Sarn::String const& name) {
      return std::any_of(table_.columns().begin(), table_.columns().end(),
                         [&](TopColumn const& column) { return column.name == name; });
   };
   for (std::size_t i = first; i != std::min(first + count, choice_.size()); ++i) {
      Sarn::String const& name = choice_[i].name;
      Sarn::String const marks = Sarn::String(has(name) ? "value " : "  -   ") +
                                 (has(name + "/s") ? "rate " : "  -  ") +
                                 (has(name + "~") ? "history " : "   -    ");
      lines.push_back({{i == choiceAt_ ? TopSpan::chosen : TopSpan::plain,
                        cutTo(marks + " " + name, width)}});
   }
}

std::vector<TopLine> TopView::lines(Sarn::String const& title,
                                    std::vector<Sarn::String> const& head, std::size_t width,
                                    std::size_t height) {
   std::vector<TopLine> lines;
   Sarn::String const column =
         chosen_ < 0 ? "" : "  " + table_.columns()[static_cast<std::size_t>(chosen_)].name;
   Sarn::String const filter = mode_ != inFilter && table_.filter().empty()
                                     ? ""
                                     : "  /" + table_.filter() + (mode_ == inFilter ? "_" : "");
   lines.push_back({{TopSpan::bold, cutTo(title + filter + column, width)}});
   // The values above the table: as many per line as fit, on at most a third of the screen.
   Sarn::String line;
   for (Sarn::String const& item : head) {
      if (!line.empty() && displayWidth(line) + 3 + displayWidth(item) > width) {
         lines.push_back({{TopSpan::plain, line}});
         line.clear();
      }
      line += (line.empty() ? "" : "   ") + cutTo(item, width);
   }
   if (!line.empty()) {
      lines.push_back({{TopSpan::plain, line}});
   }
   lines.resize(std::min(lines.size(), std::max<std::size_t>(1, height / 3)));
   std::size_t const left = height > lines.size() + 1 ? height - lines.size() - 1 : 1;
   if (mode_ == inColumns) {
      columnLines(lines, width, left);
   } else if (mode_ == inHelp) {
      for (char const* const text : helpTexts) {
         lines.push_back({{TopSpan::plain, cutTo(text, width)}});
      }
   } else if (list_) {
      listLines(lines, width, left);
   } else {
      tableLines(lines, width, left);
   }
   lines.resize(std::min(lines.size(), height - 1));
   while (lines.size() + 1 < height) {
      lines.emplace_back();
   }
   char const* const keys = mode_ == inColumns ? "arrows: go   blank r h: show or hide   q: back"
                            : mode_ == inFilter
                                  ? "type what rows must contain   enter: keep   escape: all rows"
                                  : "q: end  arrows: go  s: sort  k: by key  "
                                    "c: columns  /: filter  p: pause  ?: help";
   lines.push_back({{TopSpan::head, padded(keys, width, false)}});
   return lines;
}

std::vector<Sarn::String> TopView::text() const {
   std::vector<TopRow> const& rows = table_.rows();
   std::vector<Sarn::String> lines;
   if (list_) {
      std::size_t longest = 0;
      for (TopColumn const& column : table_.columns()) {
         longest = std::max(longest, displayWidth(column.name));
      }
      for (std::size_t i = 0; !rows.empty() && i != table_.columns().size(); ++i) {
         lines.push_back(padded(table_.columns()[i].name, longest, false) + "  " +
                         rows[0].cells[i].text);
      }
      return lines;
   }
   std::vector<std::size_t> const all = widths(rows, widest);
   auto const add = [&](auto const& cellOf) {
      Sarn::String line;
      for (std::size_t column = 0; column != all.size(); ++column) {
         TopCell const cell = cellOf(column);
         line += (column == 0 ? "" : "  ") + padded(cell.text, all[column], cell.isNumber);
      }
      line.erase(line.find_last_not_of(' ') + 1);
      lines.push_back(std::move(line));
   };
   add([&](std::size_t column) {
      bool const right = column != 0 && !rows.empty() && rows[0].cells[column - 1].isNumber;
      return TopCell{heading(column, widest), right, 0};
   });
   for (TopRow const& row : rows) {
      add([&](std::size_t column) {
         return column == 0 ? TopCell{row.key, false, 0} : row.cells[column - 1];
      });
   }
   return lines;
}

}  // namespace Ptpstate
