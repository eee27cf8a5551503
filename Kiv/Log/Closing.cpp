#include "Kiv/Log/Closing.h"

#include <exception>
#include <utility>

namespace Kiv::NboAttrLog {

void Closing::fail(Sarn::String reason, Ending ending) noexcept {
   if (!closed_) {
      closed_ = true;
      ending_ = ending;
      reason_ = std::move(reason);
   }
}

void Closing::failForException() noexcept {
   try {
      throw;
   } catch (std::bad_alloc const&) {
      fail(outOfMemory());
   } catch (std::exception const& error) {
      fail(copyOrOutOfMemory(error.what()));
   } catch (...) {
      fail("unknown");
   }
}

}  // namespace Kiv::NboAttrLog
