#include "tools/ptpexport/Health.h"

#include <nlohmann/json.hpp>

#include "Holt/State/Json.h"
#include "Holt/Times.h"

namespace Ptpexport {

std::string healthJson(Feed const& feed) {
   Feed::Status const& status = feed.status();
   Holt::Json json{{"connected", status.current},
                   {"since", Holt::timeText(status.since, Holt::TimeForm::universal)}};
   if (!status.current) {
      json["reason"] = status.reason;
   }
   json["roots"] = Holt::Json::array();
   for (Kiv::NamedEntity const* const root : feed.roots()) {
      json["roots"].push_back(
            {{"type", root->kivType().name}, {"name", Holt::jsonOf(root->nameString())}});
   }
   if (std::vector<Sarn::String> const leftOut = feed.leftOut(); !leftOut.empty()) {
      json["leftOut"] = leftOut;
   }
   return Holt::jsonLine(json);
}

Reply healthReply(Feed const& feed, Request const& request) {
   Reply reply;
   bool const always = !request.target.values("always").empty();
   reply.status = feed.status().current || always ? 200 : 503;
   reply.contentType = "application/json";
   reply.text = healthJson(feed) + "\n";
   return reply;
}

}  // namespace Ptpexport
