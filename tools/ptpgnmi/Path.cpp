#include "tools/ptpgnmi/Path.h"

namespace Ptpgnmi {

namespace {

constexpr char const* anyOne = "*";
constexpr char const* anyNumber = "...";

bool fitsElem(Elem const& pattern, Elem const& elem) {
   if (pattern.name != anyOne && pattern.name != elem.name) {
      return false;
   }
   for (auto const& [name, value] : pattern.keys) {
      auto const at = elem.keys.find(name);
      if (at == elem.keys.end() || (value != anyOne && value != at->second)) {
         return false;
      }
   }
   return true;
}

}  // namespace

std::string pathText(Elems const& elems) {
   std::string text;
   for (Elem const& elem : elems) {
      text += "/" + elem.name;
      for (auto const& [name, value] : elem.keys) {
         text += "[" + name + "=";
         for (char const c : value) {
            if (c == ']' || c == '\\') {
               text += '\\';
            }
            text += c;
         }
         text += "]";
      }
   }
   return text.empty() ? "/" : text;
}

Pattern::Pattern(Elems elems) : elems_(std::move(elems)), start_(closed(1)) {}

Pattern::State Pattern::closed(State state) const noexcept {
   for (std::size_t i = 0; i != elems_.size(); ++i) {
      if ((state >> i & 1) != 0 && elems_[i].name == anyNumber) {
         state |= State{2} << i;
      }
   }
   return state;
}

Pattern::State Pattern::step(State state, Elem const& elem) const {
   State next = state & State{1} << elems_.size();
   for (std::size_t i = 0; i != elems_.size(); ++i) {
      if ((state >> i & 1) == 0) {
         continue;
      }
      if (elems_[i].name == anyNumber) {
         next |= State{1} << i;
      } else if (fitsElem(elems_[i], elem)) {
         next |= State{2} << i;
      }
   }
   return closed(next);
}

Pattern::State Pattern::steps(State state, Elems const& elems) const {
   for (Elem const& elem : elems) {
      state = step(state, elem);
   }
   return state;
}

}  // namespace Ptpgnmi
