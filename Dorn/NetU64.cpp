#include "Dorn/NetU64.h"

#include <limits>

namespace Dorn {

NetU64::NetU64(Kiv::CharRange& text)
      : NetU64(static_cast<U64>(
              Kiv::parseUnsigned(text, std::numeric_limits<U64>::max(), kivTypeName))) {}

NetU64::NetU64(std::string_view text) {
   Kiv::CharRange range(text);
   *this = NetU64(range);
   range.expectEnd();
}

}  // namespace Dorn
