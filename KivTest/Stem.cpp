#include "KivTest/TestTypes/Stem.h"

namespace KivTest {

U64 Stem::total() const {
   return U64{count8()} + count32();
}

U32 Stem::left() const {
   return pair().first();
}

void Stem::reset() {
   count8Is(0);
   count32Is(0);
}

bool Stem::above(Level level, U32 bound) const {
   switch (level) {
      case Level::low:
         return count8() > bound;
      case Level::middle:
         return count32() > bound;
      default:
         return total() > bound;
   }
}

}  // namespace KivTest
