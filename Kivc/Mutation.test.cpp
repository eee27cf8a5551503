// Declarations with random mistakes: whatever stands in a file, the compiler comes to an end, and
// what it finds no fault with it can write.

#include <gtest/gtest.h>

#include <random>

#include "Kivc/EmitEntity.h"
#include "Kivc/EmitManifest.h"
#include "Kivc/EmitRecord.h"
#include "Kivc/EmitReference.h"
#include "Kivc/EmitValue.h"
#include "Kivc/Kivc.test.h"
#include "Kivc/Layout.h"
#include "Kivc/Lexer.h"

namespace Kivc {
namespace {

constexpr std::string_view seedText = R"(
/// D
extern value O::Address in "a.h" unordered;
/// D
extern constants Limits in "l.h" { low = 2; high = 9; }
/// D
enum Mode {
   /// D
   off;
   /// D
   on = 4;
   default on;
}
/// D
value Point ordered {
   /// D
   field x : U16 = 3;
   /// D
   optional y : S32;
   /// D
   const field t : Seconds = infinity;
}
/// D
entity Lamp {
   /// D
   key place : Point;
   /// D
   attr powered : bool given;
   /// D
   const maker : String;
   /// D
   attr level : U8 = 5 in Limits::low .. Limits::high;
   /// D
   constant least : S8 = -1;
   /// D
   attr hours : S8 = 0 in least .. local;
   /// D
   counter n : U32;
   /// D
   attr mode : Mode = ordinal(4);
   /// D
   attr target : Point = Point(1, 2, 3);
   /// D
   child board : Board named;
   /// D
   derived x : U16 from place;
   reserved 2;
   /// D
   op shines (other : Lamp, by : U8) -> bool const;
}
/// D
entity Special : Lamp ( place, true, maker ) {
   /// D
   attr colour : String = "red";
}
/// D
entity Board {
   name;
   /// D
   children lamp : Lamp by Point ( powered, maker ) hash 0x1;
   /// D
   map mode : Mode by String hash 0x2;
   /// D
   map point : Point by .x hash 0x3;
   /// D
   ordered title : String by U32;
   /// D
   queue reading : double;
}
)";

std::vector<std::string> tokensOf(std::string_view text) {
   Diagnostics diagnostics;
   Source const source("seed.kiv", std::string(text));
   std::vector<std::string> tokens;
   for (auto const& token : lex(source, diagnostics)) {
      tokens.push_back(std::string(token.text()) + (token.kind == TokenKind::doc ? "\n" : " "));
   }
   return tokens;
}

std::string join(std::vector<std::string> const& tokens) {
   std::string text;
   for (auto const& token : tokens) {
      text += token;
   }
   return text;
}

void emitAll(Module const& module) {
   emitManifest(module);
   emitReference(module);
   fitToPage(emitRecordSource(module));
   for (auto const& type : module.types) {
      if (type->origin != Origin::declared) {
         continue;
      }
      if (type->kind == TypeKind::entity) {
         fitToPage(emitEntityHeader(*type));
         fitToPage(emitEntitySource(*type));
      } else if (type->kind == TypeKind::value) {
         fitToPage(emitValueHeader(*type));
         fitToPage(emitValueSource(*type));
      }
   }
}

TEST(Mutation, SeedHasNoMistake) {
   test::Compiled const compiled(seedText);
   EXPECT_EQ(compiled.diagnostics.render(), "");
}

TEST(Mutation, RandomMistakesAreReportedOrHarmless) {
   auto const seed = std::random_device{}();
   SCOPED_TRACE("seed " + std::to_string(seed));
   std::mt19937 random(seed);
   auto const original = tokensOf(seedText);
   auto const any = [&](std::size_t size) {
      return std::uniform_int_distribution<std::size_t>(0, size - 1)(random);
   };
   std::size_t faulty = 0;
   for (int round = 0; round < 1000; ++round) {
      auto tokens = original;
      for (auto changes = 1 + any(3); changes > 0; --changes) {
         auto const at = any(tokens.size());
         switch (any(4)) {
            case 0:
               tokens.erase(tokens.begin() + static_cast<std::ptrdiff_t>(at));
               break;
            case 1:
               tokens.insert(tokens.begin() + static_cast<std::ptrdiff_t>(at),
                             tokens[any(tokens.size())]);
               break;
            case 2:
               tokens[at] = tokens[any(tokens.size())];
               break;
            default:
               std::swap(tokens[at], tokens[any(tokens.size())]);
               break;
         }
      }
      auto const text = join(tokens);
      test::Compiled const compiled(text);
      if (compiled.diagnostics.empty()) {
         ASSERT_NO_THROW(emitAll(*compiled.module)) << text;
      } else {
         ++faulty;
         ASSERT_FALSE(compiled.diagnostics.render().empty()) << text;
      }
   }
   EXPECT_GT(faulty, 300U);
}

}  // namespace
}  // namespace Kivc
