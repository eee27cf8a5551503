// Where a scrape is, and what it visits; ScrapeSamples.cpp renders samples.
#include "tools/ptpexport/Metrics/Scrape.h"

#include <algorithm>
#include <cstring>

#include "Kiv/GenericIfImpl.h"
#include "tools/ptpexport/Metrics/MetricText.h"

namespace Ptpexport {

namespace {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

bool sharesItems(MetricPlace const& a, MetricPlace const& b) {
   return a.toCollection == b.toCollection &&
          std::equal(a.path.begin(), a.path.begin() + static_cast<std::ptrdiff_t>(a.toCollection),
                     b.path.begin());
}

}  // namespace

std::vector<std::string> clockLabels(std::span<std::string const> names) {
   constexpr std::string_view ending = "/status";
   std::vector<std::string> labels;
   for (std::string const& name : names) {
      std::string label = name;
      if (name == "ptp/status") {
         label.clear();
      } else if (name.ends_with(ending) && name.size() > ending.size()) {
         label.resize(name.size() - ending.size());
      }
      if (std::find(labels.begin(), labels.end(), label) != labels.end()) {
         label = name;
      }
      labels.push_back(std::move(label));
   }
   return labels;
}

Scrape::Scrape(std::span<Sarn::Ptr<Kiv::NamedEntity> const> roots, MetricFormat format,
               SourceHealth const& health, Counters& counters)
      : format_(format), counters_(counters), created_(counters.begin(health.start, health.now)) {
   if (health.connected) {
      addClocks(roots, {});
   }
   renderHealth(health);
}

Scrape::Scrape(std::span<ScrapedSwitch const> switches, MetricFormat format,
               SourceHealth const& health, Counters& counters)
      : format_(format), counters_(counters), created_(counters.begin(health.start, health.now)) {
   for (ScrapedSwitch const& each : switches) {
      if (each.current) {
         std::string label;
         appendLabel(label, "switch", each.name);
         addClocks(each.roots, label);
      }
   }
   renderHealth(switches, health);
}

/// Adds the statuses among roots, with a label before that of the clock.
void Scrape::addClocks(std::span<Sarn::Ptr<Kiv::NamedEntity> const> roots,
                       std::string const& label) {
   std::vector<std::pair<std::string, Sarn::Ptr<Kiv::Entity>>> statuses;
   for (Sarn::Ptr<Kiv::NamedEntity> const& root : roots) {
      if (root->kivType().isA(Kiv::typeOf<Ptp::Status>())) {
         statuses.emplace_back(root->nameString(), root);
      }
   }
   std::sort(statuses.begin(), statuses.end(),
             [](auto const& a, auto const& b) { return a.first < b.first; });
   std::vector<std::string> names;
   for (auto const& status : statuses) {
      names.push_back(status.first);
   }
   std::vector<std::string> const labels = clockLabels(names);
   for (std::size_t i = 0; i != statuses.size(); ++i) {
      clocks_.push_back({statuses[i].second, label});
      if (!labels[i].empty()) {
         appendLabel(clocks_.back().label, "clock", labels[i]);
      }
   }
}

std::size_t Scrape::read(std::span<char> into) {
   std::size_t done = 0;
   while (true) {
      std::size_t const count = std::min(into.size() - done, text_.size() - at_);
      std::memcpy(into.data() + done, text_.data() + at_, count);
      done += count;
      at_ += count;
      if (at_ != text_.size()) {
         return done;
      }
      // Also when `into` is full: `ended` must know whether anything follows.
      text_.clear();
      at_ = 0;
      if (over_) {
         return done;
      }
      renderMore();
   }
}

/// Renders at least one sample, or what comes last.
void Scrape::renderMore() {
   std::vector<BoundFamily> const& families = boundFamilies();
   while (text_.empty() && family_ != families.size() && !clocks_.empty()) {
      BoundFamily const& family = families[family_];
      enter(*family.place);
      for (; text_.empty() && item_ != items_.size(); ++item_) {
         Item& item = items_[item_];
         if (Entity const* const entity = entityOf(*family.place, item)) {
            labelsAre(item);
            itemLabels_ = std::string_view(labels_).substr(item.labelsBegin,
                                                           item.labelsEnd - item.labelsBegin);
            render(family, *entity);
         }
      }
      if (item_ == items_.size()) {
         item_ = 0;
         headed_ = false;
         ++family_;
      }
   }
   if (text_.empty()) {
      over_ = true;
      if (format_ == MetricFormat::openMetrics) {
         text_ = "# EOF\n";
      }
   }
}

/// Makes `items_` those of this place.
void Scrape::enter(MetricPlace const& place) {
   if (place_ != nullptr && sharesItems(*place_, place)) {
      return;
   }
   place_ = &place;
   items_.clear();
   labels_.clear();
   for (U32 clock = 0; clock != clocks_.size(); ++clock) {
      if (place.toCollection == 0) {
         items_.push_back({clock, {}});
      } else {
         addPorts(clock, place);
      }
   }
}

void Scrape::addPorts(U32 clock, MetricPlace const& place) {
   Entity const* owner = clocks_[clock].status.get();
   for (std::size_t i = 0; i + 1 != place.toCollection && owner != nullptr; ++i) {
      owner = place.path[i]->ops->child->get(*owner);
   }
   if (owner == nullptr) {
      return;
   }
   std::size_t const first = items_.size();
   Kiv::CollectionCursor at(const_cast<Entity&>(*owner), *place.path[place.toCollection - 1]);
   for (; at->valid(); at->next()) {
      items_.push_back({clock, *static_cast<Ptp::PortDSKey const*>(at->key())});
   }
   std::sort(items_.begin() + static_cast<std::ptrdiff_t>(first), items_.end(),
             [](Item const& a, Item const& b) { return a.key < b.key; });
}

void Scrape::labelsAre(Item& item) {
   if (item.labelsEnd != item.labelsBegin) {
      return;
   }
   more_ = clocks_[item.clock].label;
   if (place_->toCollection != 0) {
      appendLabel(more_, "interface", item.key.intf().name());
      if (!item.key.vlanId().isNone()) {
         appendLabel(more_, "vlan", std::to_string(item.key.vlanId().value()));
      }
   }
   item.labelsBegin = static_cast<U32>(labels_.size());
   labels_ += more_;
   item.labelsEnd = static_cast<U32>(labels_.size());
}

Entity const* Scrape::entityOf(MetricPlace const& place, Item const& item) const {
   Entity const* entity = clocks_[item.clock].status.get();
   for (FieldDescriptor const* const field : place.path) {
      if (entity == nullptr) {
         return nullptr;
      }
      entity = field->kind == MemberKind::child
                     ? field->ops->child->get(*entity)
                     : field->ops->collection->findChild(*entity, &item.key);
   }
   return entity;
}

}  // namespace Ptpexport
