#include "tools/ptpsnmp/Statuses.h"

#include <algorithm>

#include "Holt/Times.h"

namespace Ptpsnmp {

Statuses::Statuses(Options options)
      : options_(std::move(options)),
        feed_({.socket = options_.socket,
               .wanted = [this](Holt::OfferedRoot const& root) { return isWanted(root); },
               .clock = options_.clock}) {
   feed_.listenerAdd(*this);
}

U64 Statuses::deadline() const {
   U64 const first = feed_.deadline();
   return noticed_ == said_ ? first : std::min(first, noticedAt_ + lasting);
}

void Statuses::onTurn(std::span<pollfd const> polled) {
   feed_.onTurn(polled);
   remark();
}

//--- What the feed has ----------------------------------------------------------------------------

void Statuses::onStatus(Feed::Status const&) {
   tell();
}

void Statuses::onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) {
   auto const place = [this](Sarn::Ptr<Ptp::Status> const& status) {
      auto const named = std::ranges::find(options_.roots, status->nameString());
      return std::pair(named - options_.roots.begin(), std::string_view(status->nameString()));
   };
   Sarn::Ptr<Ptp::Status> const status(static_cast<Ptp::Status*>(root.get()));
   known_.insert(std::ranges::upper_bound(known_, place(status), {}, place), status);
   tell();
}

bool Statuses::isWanted(Holt::OfferedRoot const& root) const {
   return root.type == Ptp::Status::kivTypeName &&
          (options_.roots.empty() ||
           std::ranges::find(options_.roots, root.name) != options_.roots.end());
}

void Statuses::onRootGone(Kiv::NamedEntity& root) {
   std::erase_if(known_, [&root](auto const& status) { return status.get() == &root; });
   tell();
}

/// Reports the statuses if they are others than before.
void Statuses::tell() {
   bool const current = feed_.status().current;
   All all = current ? known_ : All();
   if (current == current_ && all == told_) {
      return;
   }
   if (current) {
      Sarn::String names;
      for (Sarn::Ptr<Ptp::Status> const& status : all) {
         names += (names.empty() ? "" : ", ") + status->nameString();
      }
      say(names.empty() ? "it offers no such status" : "mirrors " + names);
      noticed_.clear();
   } else {
      say("lost: " + reason());
      noticed_ = feed_.status().reason;
   }
   said_ = noticed_;
   current_ = current;
   if (all != told_) {
      told_ = std::move(all);
      if (onStatuses) {
         onStatuses(told_);
      }
   }
}

//--- The log --------------------------------------------------------------------------------------

/// Logs why the source is not there: once, and if that lasts.
void Statuses::remark() {
   Feed::Status const& status = feed_.status();
   if (status.current) {
      return;
   }
   U64 const now = options_.clock();
   if (status.reason != noticed_) {
      noticed_ = status.reason;
      noticedAt_ = now;
   }
   if (noticed_ != said_ && now >= noticedAt_ + lasting) {
      said_ = noticed_;
      say("not there: " + reason());
   }
}

void Statuses::say(Sarn::String const& what) const {
   if (options_.log != nullptr) {
      options_.log->line(Holt::timeText(Holt::wallNow()) + " source " + options_.socket + ": " +
                         what);
   }
}

/// Why the feed is not current, without the socket, which each line names.
Sarn::String Statuses::reason() const {
   Sarn::String const& whole = feed_.status().reason;
   Sarn::String const socket = options_.socket + ": ";
   return whole.starts_with(socket) ? whole.substr(socket.size()) : whole;
}

}  // namespace Ptpsnmp
