#pragma once

#include <string>

#include "tools/ptpgnmi/Codec.h"

namespace Ptpgnmi {

/// The server's end of one Subscribe call. None of these waits.
/// Threads: called by that of the loop.
class Stream {
public:
   virtual ~Stream() = default;

   /// Sends a `gnmi.SubscribeResponse`, encoded. REQUIRES: what was written before has been sent.
   virtual void write(std::string message) = 0;
   /// Wants the next request of the client.
   virtual void readNext() = 0;
   /// Ends the call. Nothing is called afterwards.
   virtual void finish(Code code, std::string const& message) = 0;
};

}  // namespace Ptpgnmi
