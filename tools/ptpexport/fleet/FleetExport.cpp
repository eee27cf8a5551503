#include "tools/ptpexport/FleetExport.h"

#include <nlohmann/json.hpp>

#include "Fleet/Mirror.h"
#include "Holt/Failure.h"
#include "Holt/State/Json.h"
#include "tools/ptpexport/Metrics/MetricsReply.h"
#include "tools/ptpexport/State.h"

namespace Ptpexport {

namespace {

double seconds(U64 nanoseconds) {
   return static_cast<double>(nanoseconds) * 1e-9;
}

std::string universal(U64 wall) {
   return Holt::timeText(wall, Holt::TimeForm::universal);
}

class Export final : public FleetExport {
public:
   explicit Export(FleetOptions const& options)
         : connection_(Tools::connectionOptions(options.nats, "ptpexport")),
           mirror_(connection_, {.switches = options.switches, .stream = options.stream}) {}

   void joins(Holt::Loop& loop) override {
      loop.add(connection_);
      loop.add(mirror_);
   }
   void answersAt(HttpServer& server) override {
      server.routeIs("/healthz", [this](Request const& request) { return health(request); });
      server.routeIs("/metrics", [this](Request const& request) { return metrics(request); });
      server.routeIs("/state/", [this](Request const& request) { return state(request); });
   }

private:
   Reply health(Request const& request) const;
   Reply metrics(Request const& request);
   Reply state(Request const& request) const;

   Fleet::Connection connection_;
   Fleet::Mirror mirror_;
   Counters counters_;
};

Reply Export::health(Request const& request) const {
   Fleet::Mirror::Status const& status = mirror_.status();
   Holt::Json json{{"connected", status.current}, {"since", universal(status.since)}};
   if (!status.current) {
      json["reason"] = status.reason;
   }
   json["switches"] = mirror_.switches().size();
   json["old"] = Holt::Json::array();
   for (auto const& [name, its] : mirror_.switches()) {
      if (!its->status().current) {
         json["old"].push_back({{"switch", Holt::jsonOf(Sarn::String(name))},
                                {"since", universal(its->status().since)},
                                {"reason", its->status().reason}});
      }
   }
   Reply reply;
   bool const always = !request.target.values("always").empty();
   reply.status = status.current || always ? 200 : 503;
   reply.contentType = "application/json";
   reply.text = Holt::jsonLine(json) + "\n";
   return reply;
}

Reply Export::metrics(Request const& request) {
   std::vector<ScrapedSwitch> switches;
   switches.reserve(mirror_.switches().size());
   for (auto const& [name, its] : mirror_.switches()) {
      ScrapedSwitch& each = switches.emplace_back();
      each.name = name;
      each.current = its->status().current;
      each.since = seconds(its->status().since);
      for (Kiv::NamedEntity* const root : its->roots()) {
         each.roots.emplace_back(root);
      }
   }
   SourceHealth const health{.changesReceived = mirror_.status().messages,
                             .version = PTPLIB_VERSION,
                             .now = seconds(Holt::wallNow())};
   return metricsReply(switches, health, counters_, request);
}

Reply Export::state(Request const& request) const {
   if (mirror_.switches().empty() && !mirror_.status().current) {
      return refusal(503, mirror_.status().reason);
   }
   if (request.rest.empty()) {
      Holt::Json json{{"switches", Holt::Json::array()}};
      for (auto const& [name, its] : mirror_.switches()) {
         json["switches"].push_back(Holt::jsonOf(Sarn::String(name)));
      }
      Reply reply;
      reply.contentType = "application/json";
      reply.text = Holt::jsonLine(json) + "\n";
      return reply;
   }
   // A name may contain slashes: the longest that fits.
   Fleet::Switch const* its = nullptr;
   std::size_t end = request.rest.size();
   for (;;) {
      its = mirror_.find(request.rest.substr(0, end));
      if (its != nullptr || end == 0) {
         break;
      }
      end = request.rest.rfind('/', end - 1);
      if (end == std::string::npos) {
         break;
      }
   }
   if (its == nullptr) {
      throw Holt::Failure(request.rest + ": the fleet has no such switch; /state lists them");
   }
   std::string const path = end < request.rest.size() ? request.rest.substr(end + 1) : "";
   std::vector<Kiv::NamedEntity*> const roots = its->roots();
   if (roots.empty()) {
      return refusal(503, its->name() + ": " + its->status().reason);
   }
   return stateReply(roots, its->status().current, path);
}

}  // namespace

void addFleetOptions(Tools::Command const& command, FleetOptions& options) {
   Tools::addNatsOptions(command, options.nats, "--fleet", "--fleet-");
   command
         .option("--fleet-stream", options.stream,
                 "Name of the fleet's JetStream stream; PTP by default")
         .placeholder("NAME")
         .notEmpty();
   command
         .option("--switch", options.switches,
                 "With --fleet, only this switch; a * stands for any characters; all by default")
         .placeholder("NAME")
         .notEmpty();
}

std::unique_ptr<FleetExport> FleetExport::make(FleetOptions const& options) {
   return std::make_unique<Export>(options);
}

}  // namespace Ptpexport
