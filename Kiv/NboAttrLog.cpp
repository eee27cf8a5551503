#include "Kiv/NboAttrLog.h"

namespace Kiv::NboAttrLog {

std::string_view In::nextString() {
   std::size_t const left = readableBytes();
   return nextValidString(left < 4 ? 0 : left - 4);
}

std::string_view In::nextValidString(std::size_t bound) {
   std::size_t const size = nextU32();
   if (size > bound) {
      fault("a string of " + std::to_string(size) + " bytes exceeds the bound of " +
                  std::to_string(bound),
            4);
   }
   return {reinterpret_cast<char const*>(nextBytes(size)), size};
}

void In::fault(std::string_view what, std::size_t back) const {
   throw FaultException(Sarn::String(what), offset() - back);
}

void In::faultShort(std::size_t bytes) const {
   fault("bytes <= readableBytes(): a value of " + std::to_string(bytes) +
         " bytes stands where the message has " + std::to_string(readableBytes()) + " left");
}

void In::faultTrailing() const {
   fault(std::to_string(readableBytes()) + " bytes follow the value");
}

}  // namespace Kiv::NboAttrLog
