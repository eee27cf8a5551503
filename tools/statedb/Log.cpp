#include "tools/statedb/Log.h"

#include "Holt/Times.h"

namespace Statedb {

void Log::line(char const* priority, std::string const& text) {
   output_.line(journal_ ? priority + text : Holt::timeText(Holt::wallNow()) + " " + text);
}

}  // namespace Statedb
