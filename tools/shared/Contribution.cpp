#include "tools/shared/Contribution.h"

#include <algorithm>
#include <utility>

#include "Holt/Failure.h"
#include "Holt/Listener.h"

namespace Tools {

using Holt::Mount;

/// A connection, and the server's root as it is mirrored there: a new one each time, so that
/// nothing of an earlier connection is sent back.
struct Contribution::Link {
   Link(int fd, Contribution& owner)
         : connection(hub, fd, static_cast<Kiv::NboAttrLog::SessionListener*>(&owner)),
           mirror(Holt::newRoot(owner.own_->kivType().name, owner.own_->nameString())) {
      hub.clockIs(owner.options_.clock);
      mount = &connection.session().mountIs(mirror, Holt::MountMode::owner);
   }

   Kiv::NboAttrLog::Hub hub;
   Kiv::NboAttrLog::FdConnection connection;
   Sarn::Ptr<Kiv::NamedEntity> mirror;
   Mount const* mount = nullptr;
};

Contribution::Contribution(Sarn::String socket, Sarn::Ptr<Kiv::NamedEntity> own, Options options)
      : socket_(std::move(socket)),
        own_(std::move(own)),
        options_(options),
        reason_(socket_ + ": not connected yet"),
        pause_(options.pause),
        connectAt_(options.clock()) {}

Contribution::~Contribution() {
   twin_.reset();
   link_.reset();
}

void Contribution::connect() {
   try {
      link_ = std::make_unique<Link>(Holt::connectTo(socket_, std::chrono::milliseconds::zero()),
                                     *this);
   } catch (Holt::Failure const& failure) {
      lost(failure.what());
   }
}

void Contribution::lost(Sarn::String const& reason) {
   twin_.reset();
   link_.reset();
   connectAt_ = now() + pause_;
   pause_ = std::min(pause_ * 2, options_.longestPause);
   statusIs(reason);
}

void Contribution::statusIs(Sarn::String const& reason) {
   if (reason != reason_) {
      reason_ = reason;
      if (onStatus) {
         onStatus(*this);
      }
   }
}

void Contribution::appendTo(std::vector<pollfd>& polled) {
   if (link_ != nullptr) {
      link_->connection.flush();
      polled.push_back({link_->connection.fd(), link_->connection.events(), 0});
   }
}

U64 Contribution::deadline() const {
   return link_ == nullptr ? connectAt_ : link_->hub.deadline();
}

void Contribution::onTurn(std::span<pollfd const> polled) {
   if (link_ == nullptr) {
      if (now() >= connectAt_) {
         connect();
      }
      return;
   }
   if (!polled.empty()) {
      link_->connection.onReady(polled[0].revents);
      link_->hub.expire();
   }
   if (link_->connection.done()) {
      lost(socket_ + ": the connection is lost: " + link_->connection.closeReason());
      return;
   }
   switch (link_->mount->state()) {
      case Mount::State::refused:
         lost(socket_ + ": the server refuses " + own_->nameString() + ": " +
              link_->mount->reason());
         break;
      case Mount::State::gone:
         lost(socket_ + ": the server no longer has " + own_->nameString());
         break;
      case Mount::State::complete:
         if (!twin_) {
            twin_.emplace(own_, link_->mirror);
            pause_ = options_.pause;
            statusIs("");
         }
         break;
      default:
         break;
   }
}

}  // namespace Tools
