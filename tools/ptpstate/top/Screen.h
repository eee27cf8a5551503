// A terminal for `top`, by ncurses.
#pragma once

#include "tools/ptpstate/top/View.h"

namespace Ptpstate {

/// Takes the terminal over as long as it lives. One at a time.
class TopScreen {
public:
   /// Throws `Failure` if standard input and output are no terminal, or one of an unknown kind.
   TopScreen();
   ~TopScreen();
   TopScreen(TopScreen const&) = delete;
   TopScreen& operator=(TopScreen const&) = delete;

   std::size_t width() const;
   std::size_t height() const;
   void draw(std::vector<TopLine> const& lines);
   /// The next key that was pressed, as `TopView` has it; 0 for one that means nothing, -1 if there
   /// is none.
   int key();

private:
   void* screen_;
};

/// Whether the environment's characters are UTF-8.
bool isUtf8Environment();

}  // namespace Ptpstate
