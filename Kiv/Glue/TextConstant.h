#pragma once

#include "Kiv/ValueOps.h"

namespace Kiv {

/// A value's text as a template argument.
template <std::size_t size>
struct TextLiteral {
   char text[size] = {};

   consteval TextLiteral(char const (&literal)[size]) {
      for (std::size_t i = 0; i != size; ++i) {
         text[i] = literal[i];
      }
   }
};

/// The value with this text form, parsed once in each library that uses it.
template <class T, TextLiteral literal>
[[gnu::visibility("hidden")]] T const& textConstant() {
   static T const value = fromText<T>(literal.text);
   return value;
}

}  // namespace Kiv
