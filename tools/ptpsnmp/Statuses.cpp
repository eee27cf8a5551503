#include "tools/ptpsnmp/Statuses.h"

#include <algorithm>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/Listener.h"
#include "Holt/Times.h"

namespace Ptpsnmp {

using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::OfferedRoot;
using Kiv::NboAttrLog::Session;

Statuses::Statuses(Options options) : options_(std::move(options)) {}

Statuses::~Statuses() {
   if (link_) {
      link_->connection->close("done");
   }
}

void Statuses::say(Sarn::String const& what) const {
   if (options_.log != nullptr) {
      options_.log->line(Holt::timeText(Holt::wallNow()) + " source " + options_.socket + ": " +
                         what);
   }
}

void Statuses::onMount(Session&, Mount&) {
   mountsChanged_ = true;
}

void Statuses::onRoots(Session&, std::vector<OfferedRoot> const& roots) {
   offered_ = roots;
   offeredAnew_ = true;
   answerBy_ = 0;
}

void Statuses::appendTo(std::vector<pollfd>& polled) {
   if (link_) {
      link_->connection->flush();
      polled.push_back({link_->connection->fd(), link_->connection->events(), 0});
   }
}

U64 Statuses::deadline() const {
   if (link_ && link_->connection->done()) {
      return 1;  // at once: a write has failed
   }
   return answerBy_ != 0 ? std::min(next_, answerBy_) : next_;
}

void Statuses::onTurn(std::span<pollfd const> polled) {
   U64 const now = options_.clock();
   if (link_ && !polled.empty()) {
      link_->connection->onReady(polled[0].revents);
      if (link_->connection->done()) {
         lose(link_->connection->closeReason(), now);
      } else if (answerBy_ != 0 && now >= answerBy_) {
         lose("it does not answer", now);
      }
   }
   if (offeredAnew_) {
      offeredAnew_ = false;
      mountNew();
   }
   if (mountsChanged_) {
      mountsChanged_ = false;
      tell();
   }
   if (now >= next_) {
      if (link_) {
         ask(now);
      } else {
         connect(now);
      }
   }
}

void Statuses::connect(U64 now) {
   try {
      // A server that is too busy to accept is tried again later; the loop does not wait for it.
      int const fd = Holt::connectTo(options_.socket, std::chrono::milliseconds(10));
      link_ = std::make_unique<Link>();
      link_->connection = std::make_unique<Kiv::NboAttrLog::FdConnection>(
            link_->hub, fd, static_cast<Kiv::NboAttrLog::SessionListener*>(this));
      ask(now);
   } catch (Holt::Failure const& failure) {
      if (said_ != failure.what()) {
         said_ = failure.what();
         say("not there: " + said_);
      }
      next_ = now + pause_;
      pause_ = std::min(2 * pause_, longestPause);
   }
}

void Statuses::ask(U64 now) {
   if (answerBy_ == 0) {
      link_->connection->session().rootsAsk();
      answerBy_ = now + patience;
   }
   next_ = now + askInterval;
}

void Statuses::lose(Sarn::String const& reason, U64 now) {
   say("lost: " + reason);
   told_.clear();
   if (onStatuses) {
      onStatuses(told_);
   }
   link_.reset();
   offeredAnew_ = false;
   mountsChanged_ = false;
   answerBy_ = 0;
   said_.clear();
   next_ = now + pause_;
   pause_ = std::min(2 * pause_, longestPause);
}

bool Statuses::isWanted(OfferedRoot const& root) const {
   return root.type == Ptp::Status::kivTypeName &&
          (options_.roots.empty() ||
           std::ranges::find(options_.roots, root.name) != options_.roots.end());
}

bool Statuses::isMounted(Sarn::String const& name) const {
   return std::ranges::any_of(link_->connection->session().mounts(), [&name](Mount const& mount) {
      return mount.root().nameString() == name && mount.state() != Mount::State::refused &&
             mount.state() != Mount::State::gone && mount.state() != Mount::State::lost;
   });
}

void Statuses::mountNew() {
   bool any = false;
   for (OfferedRoot const& root : offered_) {
      if (isWanted(root)) {
         any = true;
         if (!isMounted(root.name)) {
            link_->connection->session().mountIs(Holt::newRoot(root.type, root.name));
         }
      }
   }
   if (!any && said_.empty()) {
      said_ = "it offers no such status";
      say(said_);
   }
}

/// Reports the complete statuses, if they are others than before.
void Statuses::tell() {
   All all;
   for (Mount const& mount : link_->connection->session().mounts()) {
      if (mount.complete()) {
         all.emplace_back(static_cast<Ptp::Status*>(&mount.root()));
      }
   }
   auto const place = [this](Sarn::Ptr<Ptp::Status> const& status) {
      auto const named = std::ranges::find(options_.roots, status->nameString());
      return std::pair(named - options_.roots.begin(), std::string_view(status->nameString()));
   };
   std::ranges::sort(all, {}, place);
   if (all == told_) {
      return;
   }
   told_ = all;
   Sarn::String names;
   for (Sarn::Ptr<Ptp::Status> const& status : all) {
      names += (names.empty() ? "" : ", ") + status->nameString();
   }
   say(names.empty() ? "mirrors no status" : "mirrors " + names);
   said_.clear();
   pause_ = firstPause;
   if (onStatuses) {
      onStatuses(told_);
   }
}

}  // namespace Ptpsnmp
