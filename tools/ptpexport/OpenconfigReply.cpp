#include "tools/ptpexport/OpenconfigReply.h"

#include <nlohmann/json.hpp>

#include "Holt/Openconfig/Find.h"
#include "Holt/Openconfig/Write.h"
#include "tools/ptpexport/Health.h"

namespace Ptpexport {

Reply openconfigReply(Feed const& feed, Request const& request) {
   std::vector<Kiv::NamedEntity const*> roots;
   for (Kiv::NamedEntity const* const root : feed.roots()) {
      if (Holt::isInOpenconfig(root->kivType())) {
         roots.push_back(root);
      }
   }
   if (feed.roots().empty()) {
      return refusal(503, feed.status().reason);
   }
   Holt::Json const found = Holt::openconfigAt(Holt::openconfigJson(roots), request.rest);
   if (found.is_null()) {
      return refusal(404, request.target.path + ": nothing is there now");
   }
   Reply reply;
   reply.contentType = "application/yang-data+json";
   if (!feed.status().current) {
      reply.headers.emplace_back("Warning", staleWarning);
   }
   reply.text = Holt::openconfigText(found);
   return reply;
}

}  // namespace Ptpexport
