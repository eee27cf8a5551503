#include "tools/ptpexport/Metrics/MetricsReply.h"

#include "Holt/Times.h"
#include "tools/ptpexport/Metrics/Scrape.h"

namespace Ptpexport {

namespace {

class MetricsBody final : public Body {
public:
   template <class What>
   MetricsBody(std::span<What const> what, MetricFormat format, SourceHealth const& health,
               Counters& counters)
         : scrape_(what, format, health, counters) {}

   std::size_t read(std::span<char> into) override { return scrape_.read(into); }
   bool ended() const override { return scrape_.ended(); }

private:
   Scrape scrape_;
};

double seconds(U64 nanoseconds) {
   return static_cast<double>(nanoseconds) * 1e-9;
}

template <class What>
Reply replyWith(std::span<What const> what, SourceHealth const& health, Counters& counters,
                Request const& request) {
   MetricFormat const format = formatFor(request.header("Accept"));
   Reply reply;
   reply.contentType = contentTypeOf(format);
   // Caches must not give one client what another prefers.
   reply.headers.emplace_back("Vary", "Accept");
   reply.body = std::make_unique<MetricsBody>(what, format, health, counters);
   return reply;
}

}  // namespace

Reply metricsReply(Feed const& feed, Counters& counters, Request const& request) {
   Feed::Status const& status = feed.status();
   SourceHealth const health{.connected = status.current,
                             .since = seconds(status.since),
                             .start = seconds(status.start),
                             .changesReceived = status.changes,
                             .version = PTPLIB_VERSION,
                             .now = seconds(Holt::wallNow())};
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots;
   for (Kiv::NamedEntity* const root : feed.roots()) {
      roots.emplace_back(root);
   }
   return replyWith(std::span<Sarn::Ptr<Kiv::NamedEntity> const>(roots), health, counters, request);
}

Reply metricsReply(std::span<ScrapedSwitch const> switches, SourceHealth const& health,
                   Counters& counters, Request const& request) {
   return replyWith(switches, health, counters, request);
}

}  // namespace Ptpexport
