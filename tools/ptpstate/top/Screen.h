// The terminal of `top`, on ncurses.
#pragma once

#include "tools/ptpstate/top/View.h"

namespace Ptpstate {

/// Takes over the terminal during its lifetime. REQUIRES: one object at a time.
class TopScreen {
public:
   /// Throws `Failure` if standard input or output is not a terminal, or if its type is unknown.
   TopScreen();
   ~TopScreen();
   TopScreen(TopScreen const&) = delete;
   TopScreen& operator=(TopScreen const&) = delete;

   std::size_t width() const;
   std::size_t height() const;
   void draw(std::vector<TopLine> const& lines);
   /// The next key, as a character or a `TopView::Key`; 0 for a key without a meaning, -1 for none.
   int key();

private:
   void* screen_;
};

/// Whether the locale's encoding is UTF-8.
bool isUtf8Environment();

}  // namespace Ptpstate
