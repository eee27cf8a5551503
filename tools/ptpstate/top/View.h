// How the table of `top` is laid out on so many lines of so many characters, and what keys do to
// it. It knows nothing of terminals: `TopScreen` draws it.
#pragma once

#include "tools/ptpstate/top/Table.h"

namespace Ptpstate {

/// A piece of a line.
struct TopSpan {
   enum Look { plain, bold, head, chosen } look = plain;
   Sarn::String text;
};
using TopLine = std::vector<TopSpan>;

/// Of UTF-8, one character being one cell.
std::size_t displayWidth(std::string_view text);
/// Cut to so many cells, the last of which is a '+' then.
Sarn::String cutTo(std::string_view text, std::size_t width);

class TopView {
public:
   /// Keys, as far as they are no characters.
   enum Key { keyUp = 0x100, keyDown, keyLeft, keyRight, keyPageUp, keyPageDown, keyHome, keyEnd };

   TopView(TopTable& table, std::vector<TopColumn> choice)
         : table_(table), choice_(std::move(choice)) {}

   /// Does what a key asks for. False if it is the key that ends the program.
   bool press(int key);
   /// Whether the values are to stay as they are.
   bool paused() const noexcept { return paused_; }

   /// The screen: title, the clock's values, the table, the keys. At most `height` lines.
   std::vector<TopLine> lines(Sarn::String const& title, std::vector<Sarn::String> const& head,
                              std::size_t width, std::size_t height);

   /// The whole table as text, as wide as it is.
   std::vector<Sarn::String> text() const;

private:
   enum Mode { inTable, inColumns, inHelp };

   void pressInTable(int key);
   void pressInColumns(int key);
   void toggle(TopColumn::Show show);
   std::vector<std::size_t> widths(std::vector<TopRow> const& rows,
                                   std::size_t longestHeading) const;
   void tableLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height);
   void columnLines(std::vector<TopLine>& lines, std::size_t width, std::size_t height) const;
   Sarn::String heading(std::size_t column, std::size_t longest) const;

   TopTable& table_;
   /// What can be chosen.
   std::vector<TopColumn> choice_;
   Mode mode_ = inTable;
   bool paused_ = false;
   /// The first row on the screen, and how many there are.
   std::size_t first_ = 0;
   std::size_t page_ = 1;
   std::size_t rowCount_ = 0;
   /// The column that keys act on; -1 the key.
   int chosen_ = -1;
   std::size_t firstColumn_ = 0;
   std::size_t choiceAt_ = 0;
};

}  // namespace Ptpstate
