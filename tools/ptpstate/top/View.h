// The layout of `top` for a given number of lines and columns, and the effect of keys. Independent
// of the terminal: `TopScreen` draws it.
#pragma once

#include <functional>

#include "tools/ptpstate/top/Table.h"

namespace Ptpstate {

/// A piece of a line.
struct TopSpan {
   /// `bad` and `passive`: of the row of something that is faulty or passive.
   enum Look { plain, bold, head, chosen, bad, passive } look = plain;
   Sarn::String text;
};
using TopLine = std::vector<TopSpan>;

/// The width of UTF-8 text, one cell per character.
std::size_t displayWidth(std::string_view text);
/// Text cut to `width` cells; if anything is missing, the last cell is a '+'.
Sarn::String cutTo(std::string_view text, std::size_t width);

class TopView {
public:
   /// Keys that are not characters.
   enum Key { keyUp = 0x100, keyDown, keyLeft, keyRight, keyPageUp, keyPageDown, keyHome, keyEnd };

   TopView(TopTable& table, std::vector<TopColumn> choice)
         : table_(table), choice_(std::move(choice)) {}

   /// Handles a key. Returns false if it ends the program.
   bool press(int key);
   /// Shows an entity with a line for each column, instead of a table.
   void listIs(bool list) noexcept { list_ = list; }
   /// Called when the person has chosen other columns.
   std::function<void()> onColumns;
   /// Whether sampling is paused.
   bool paused() const noexcept { return paused_; }

   /// The screen: title, the values above the table, the table, the keys. At most `height` lines.
   std::vector<TopLine> lines(Sarn::String const& title, std::vector<Sarn::String> const& head,
                              std::size_t width, std::size_t height);

   /// The whole table as text, at its full width.
   std::vector<Sarn::String> text() const;

private:
   enum Mode { inTable, inColumns, inHelp, inFilter };

   void pressInTable(int key);
   void pressInColumns(int key);
   void pressInFilter(int key);
   void leaveColumns();
   void measure(std::size_t width);
   void listLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height);
   void toggle(TopColumn::Show show);
   std::vector<std::size_t> widths(std::vector<TopRow> const& rows,
                                   std::size_t longestHeading) const;
   void tableLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height);
   void columnLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height) const;
   Sarn::String heading(std::size_t column, std::size_t longest) const;

   TopTable& table_;
   /// The columns that can be chosen.
   std::vector<TopColumn> choice_;
   Mode mode_ = inTable;
   bool paused_ = false;
   bool list_ = false;
   bool columnsChanged_ = false;
   /// What the rows of a version of the table need at a width.
   struct Measures {
      U64 version = ~U64{0};
      std::size_t screen = 0;
      std::size_t longestHeading = 0;
      std::vector<std::size_t> widths;
      /// A column with any numbers is aligned to the right, as is its heading.
      std::vector<bool> right;
   } measures_;
   /// The first row on the screen, rows per page, and the number of rows.
   std::size_t first_ = 0;
   std::size_t page_ = 1;
   std::size_t rowCount_ = 0;
   /// The column that keys act on; -1: the key.
   int chosen_ = -1;
   std::size_t firstColumn_ = 0;
   std::size_t choiceAt_ = 0;
};

}  // namespace Ptpstate
