#include "Dorn/NetU16.h"

#include <limits>

namespace Dorn {

NetU16::NetU16(Kiv::CharRange& text)
      : NetU16(static_cast<U16>(
              Kiv::parseUnsigned(text, std::numeric_limits<U16>::max(), kivTypeName))) {}

NetU16::NetU16(std::string_view text) {
   Kiv::CharRange range(text);
   *this = NetU16(range);
   range.expectEnd();
}

}  // namespace Dorn
