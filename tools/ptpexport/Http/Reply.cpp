#include "tools/ptpexport/Http/Reply.h"

#include "Kiv/Printable.h"

namespace Ptpexport {

Reply refusal(unsigned status, std::string const& what) {
   Reply reply;
   reply.status = status;
   reply.text = Kiv::printable(what) + "\n";
   return reply;
}

}  // namespace Ptpexport
