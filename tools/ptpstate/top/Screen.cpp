#include "tools/ptpstate/top/Screen.h"

#define NCURSES_NOMACROS  // they have names such as `move` and `erase`
#include <curses.h>
#include <langinfo.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>

#include "Holt/Failure.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// A colour of the screen, or what stands for it on a terminal without colours.
attr_t colour(short pair, attr_t otherwise) {
   return ::has_colors() ? static_cast<attr_t>(COLOR_PAIR(pair)) : otherwise;
}

}  // namespace

TopScreen::TopScreen() : screen_(nullptr) {
   if (::isatty(0) == 0 || ::isatty(1) == 0) {
      throw Failure("top needs a terminal; use --batch to write to a file or a pipe", Exit::usage);
   }
   screen_ = ::newterm(nullptr, stdout, stdin);
   if (screen_ == nullptr) {
      throw Failure("the terminal type in TERM is unknown; set TERM, or use --batch", Exit::usage);
   }
   if (::has_colors() && ::start_color() == OK && ::use_default_colors() == OK) {
      ::init_pair(1, COLOR_RED, -1);
      ::init_pair(2, COLOR_YELLOW, -1);
   }
   ::cbreak();
   ::noecho();
   ::curs_set(0);
   ::keypad(stdscr, TRUE);
   ::nodelay(stdscr, TRUE);
   ::set_escdelay(50);
}

TopScreen::~TopScreen() {
   ::endwin();
   ::delscreen(static_cast<SCREEN*>(screen_));
}

std::size_t TopScreen::width() const {
   return static_cast<std::size_t>(getmaxx(stdscr));
}

std::size_t TopScreen::height() const {
   return static_cast<std::size_t>(getmaxy(stdscr));
}

void TopScreen::draw(std::vector<TopLine> const& lines) {
   ::erase();
   for (std::size_t i = 0; i != lines.size(); ++i) {
      ::move(static_cast<int>(i), 0);
      std::size_t left = width();
      for (TopSpan const& span : lines[i]) {
         attr_t const look = span.look == TopSpan::bold      ? A_BOLD
                             : span.look == TopSpan::head    ? A_REVERSE
                             : span.look == TopSpan::chosen  ? A_REVERSE | A_BOLD | A_UNDERLINE
                             : span.look == TopSpan::bad     ? colour(1, A_BOLD)
                             : span.look == TopSpan::passive ? colour(2, A_DIM)
                                                             : A_NORMAL;
         ::attrset(static_cast<int>(look));
         Sarn::String const text =
               displayWidth(span.text) > left ? cutTo(span.text, left) : span.text;
         left -= displayWidth(text);
         ::addstr(text.c_str());
      }
   }
   ::attrset(A_NORMAL);
   ::refresh();
}

int TopScreen::key() {
   int const key = ::getch();
   switch (key) {
      case ERR:
         return -1;
      case KEY_UP:
         return TopView::keyUp;
      case KEY_DOWN:
         return TopView::keyDown;
      case KEY_LEFT:
         return TopView::keyLeft;
      case KEY_RIGHT:
         return TopView::keyRight;
      case KEY_PPAGE:
         return TopView::keyPageUp;
      case KEY_NPAGE:
         return TopView::keyPageDown;
      case KEY_HOME:
         return TopView::keyHome;
      case KEY_BACKSPACE:
         return '\b';
      case KEY_ENTER:
         return '\n';
      case KEY_END:
         return TopView::keyEnd;
      default:
         return key < 0x100 ? key : 0;
   }
}

bool isUtf8Environment() {
   std::setlocale(LC_CTYPE, "");
   return std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
}

}  // namespace Ptpstate
