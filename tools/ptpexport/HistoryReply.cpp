#include "tools/ptpexport/HistoryReply.h"

namespace Ptpexport {

Reply historyReply(History const& history, Request const& request) {
   std::vector<std::string> const names = request.target.values("root");
   std::string const name = names.empty() ? "" : names.front();
   Reply reply;
   reply.contentType = "application/json";
   reply.text = Holt::jsonLine(request.rest.empty() ? history.clock(name)
                                                    : history.port(name, request.rest)) +
                "\n";
   return reply;
}

}  // namespace Ptpexport
