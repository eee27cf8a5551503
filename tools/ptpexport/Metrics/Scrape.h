// The answer to GET /metrics, rendered while it is read.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptpexport/Metrics/Counters.h"
#include "tools/ptpexport/Metrics/MetricFormat.h"
#include "tools/ptpexport/Metrics/MetricTree.h"

namespace Ptpexport {

/// What the program knows about its source. All times are in seconds since 1970.
struct SourceHealth {
   bool connected = false;
   /// When the connection was made or lost.
   double since = 0;
   /// When the source has started; 0 if that is not known. While it stays the same, so do all
   /// counters.
   double start = 0;
   /// Changes received from it since the program was started.
   U64 changesReceived = 0;
   /// The program's version.
   std::string version = {};
   /// The present.
   double now = 0;
};

/// A switch of a fleet, with its roots.
struct ScrapedSwitch {
   std::string name;
   /// Whether its state is current, and since when that is so, in seconds since 1970.
   bool current = false;
   double since = 0;
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots = {};
};

/// Renders the metrics of statuses, piece by piece:
///
///     Scrape scrape(roots, MetricFormat::openMetrics, health, counters);
///     while (!scrape.ended()) {
///        std::size_t const size = scrape.read(buffer);
///        ...
///     }
///
/// First come the metrics of the program itself, then each family of the table with the samples of
/// all entities that have it, ports in the order of their names. While no source is connected,
/// nothing but the former is rendered: a state of long ago would look like that of now.
///
/// The statuses may change between two pieces. A family has a sample for each port that was there
/// when its collection was first visited and is still there: ports are found again by their keys.
/// Values are those of the moment at which they are rendered.
///
/// Memory: a slice, and for each port of one collection its key and labels, some 60 bytes.
/// Threads: that of the statuses.
class Scrape {
public:
   /// `roots`: those of the source; statuses are rendered, all others ignored. `counters`: those of
   /// the program; they must live until the end.
   Scrape(std::span<Sarn::Ptr<Kiv::NamedEntity> const> roots, MetricFormat format,
          SourceHealth const& health, Counters& counters);
   /// Of many switches, whose samples have a first label `switch`; those that are not current have
   /// none but that. `health`: that of the fleet; `connected` is not used, and `since` neither.
   Scrape(std::span<ScrapedSwitch const> switches, MetricFormat format, SourceHealth const& health,
          Counters& counters);
   Scrape(Scrape const&) = delete;
   Scrape& operator=(Scrape const&) = delete;

   /// Writes the next bytes, and returns how many: `into.size()` of them, except at the end.
   std::size_t read(std::span<char> into);
   /// Whether everything has been read.
   bool ended() const noexcept { return at_ == text_.size() && over_; }

private:
   struct Clock {
      Sarn::Ptr<Kiv::Entity> status;
      /// `switch="name",clock="name"`, or part of that, or nothing.
      std::string label;
   };
   /// What samples are made of: a status, or one of its ports.
   struct Item {
      U32 clock;
      Ptp::PortDSKey key;
      /// In `labels_`; nothing until its first sample is rendered, so that no piece takes longer
      /// than others.
      U32 labelsBegin = 0;
      U32 labelsEnd = 0;
   };

   void renderMore();
   void enter(MetricPlace const& place);
   void addPorts(U32 clock, MetricPlace const& place);
   void labelsAre(Item& item);
   Kiv::Entity const* entityOf(MetricPlace const& place, Item const& item) const;

   void addClocks(std::span<Sarn::Ptr<Kiv::NamedEntity> const> roots, std::string const& label);
   void renderHealth(SourceHealth const& health);
   void renderHealth(std::span<ScrapedSwitch const> switches, SourceHealth const& health);
   void headerOfHealth(std::size_t family);
   void header(std::string_view name, MetricKind kind, std::string_view unit, char const* help);
   void render(BoundFamily const& family, Kiv::Entity const& entity);
   void renderInfo(BoundFamily const& family, Kiv::Entity const& entity);
   void renderStates(BoundFamily const& family, Kiv::ValueRef value);
   void renderFlags(BoundFamily const& family, Kiv::Entity const& entity);
   void renderCounter(BoundFamily const& family, Kiv::Entity const& entity, Kiv::ValueRef value);
   void begin(BoundFamily const& family, std::string_view more = {}, char const* suffix = "");

   MetricFormat format_;
   Counters& counters_;
   double created_;
   std::vector<Clock> clocks_;

   /// The next sample: family, and item of its place.
   std::size_t family_ = 0;
   std::size_t item_ = 0;
   bool headed_ = false;
   bool over_ = false;
   /// The place whose items these are; null at first.
   MetricPlace const* place_ = nullptr;
   std::vector<Item> items_;
   std::string labels_;
   std::string_view itemLabels_;

   /// What has been rendered, and how much of it has been read.
   std::string text_;
   std::size_t at_ = 0;
   /// A buffer for labels.
   std::string more_;
};

/// The text of the label `clock` of each status, in the order given: empty for "ptp/status", NAME
/// for "NAME/status", and the whole name for any other. It depends on nothing but the name of the
/// root, so that a series stays the same when other statuses come and go; only if two would be the
/// same, the later one gets its whole name.
std::vector<std::string> clockLabels(std::span<std::string const> names);

/// The families of the program itself, in the order in which they are rendered.
std::span<MetricFamily const> healthFamilies();

}  // namespace Ptpexport
