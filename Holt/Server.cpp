#include "Holt/Server.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "Holt/Failure.h"
#include "Holt/Times.h"

namespace Holt {

namespace {

using Kiv::NboAttrLog::Ending;

/// Milliseconds until a moment of the steady clock, rounded up; -1, for ever, if it is 0.
int pollTimeout(U64 deadline) {
   if (deadline == 0) {
      return -1;
   }
   U64 const now = steadyNow();
   U64 const left = deadline > now ? deadline - now : 0;
   return static_cast<int>(std::min<U64>((left + 999'999) / 1'000'000, 60'000));
}

}  // namespace

Server::Server(Options options)
      : options_(std::move(options)), listener_(options_.socket, options_.mode, options_.owner) {
   hub_.clockIs(&steadyNow);
}

Server::~Server() {
   closeAll("the server has ended");
}

Server::Peer::Peer(Server& owner, int fd, U64 n)
      : server(owner), number(n), groups(peerGroups(fd)), connection(owner.hub_, fd, this) {}

Sarn::String Server::Peer::onMountAsked(Kiv::NboAttrLog::Session& session, Kiv::NamedEntity const&,
                                        Kiv::NboAttrLog::MountMode mode) {
   return writesBack(mode) ? server.options_.writers.refusal(session.peer(), groups)
                           : Sarn::String();
}

void Server::Peer::onMountRefused(Kiv::NboAttrLog::Session&,
                                  Kiv::NboAttrLog::OfferedRoot const& root,
                                  Sarn::String const& reason) {
   server.say(*this, "refused " + root.type + "=" + root.name + ": " + reason);
}

void Server::Peer::onLeftOut(Kiv::NboAttrLog::Session&, Sarn::String const& what) {
   server.say(*this, "left out: " + what);
}

void Server::say(Peer const& peer, Sarn::String const& what) {
   if (options_.log != nullptr) {
      options_.log->line(dateText(wallNow()) + " connection " + std::to_string(peer.number) + " (" +
                         peerText(peer.connection.session().peer()) + ") " + what);
   }
}

void Server::acceptAll() {
   for (;;) {
      int const fd = listener_.accept(exhausted_);
      if (exhausted_ && options_.log != nullptr) {
         options_.log->line(dateText(wallNow()) +
                            " no descriptor left for another connection; it waits until one ends");
      }
      if (fd < 0) {
         return;
      }
      say(peers_.emplace_back(*this, fd, ++accepted_), "opened");
   }
}

void Server::removeDone() {
   for (auto at = peers_.begin(); at != peers_.end();) {
      if (!at->connection.done()) {
         ++at;
         continue;
      }
      Kiv::NboAttrLog::Session const& session = at->connection.session();
      // What the peer has said itself, or the server, is an orderly end.
      bool const orderly = session.ending() == Ending::peer || closing_;
      say(*at, (session.ending() == Ending::fault ? "refused: "
                : orderly                         ? "ended: "
                                                  : "lost: ") +
                     session.closeReason());
      at = peers_.erase(at);
      exhausted_ = false;
   }
}

void Server::run(int stopFd) {
   std::vector<pollfd> polled;
   for (;;) {
      polled.clear();
      polled.push_back({stopFd, POLLIN, 0});
      polled.push_back({exhausted_ ? -1 : listener_.fd(), POLLIN, 0});
      bool const logWaits = options_.log != nullptr && options_.log->waiting();
      polled.push_back({logWaits ? options_.log->fd() : -1, POLLOUT, 0});
      for (Peer const& peer : peers_) {
         polled.push_back({peer.connection.fd(), peer.connection.events(), 0});
      }
      if (::poll(polled.data(), polled.size(), pollTimeout(hub_.deadline())) < 0) {
         if (errno == EINTR) {
            continue;
         }
         throw Failure("cannot wait for clients", Exit::connection);
      }
      if (polled[0].revents != 0) {
         return;
      }
      if (polled[2].revents != 0) {
         options_.log->flush();
      }
      std::size_t i = 3;
      for (Peer& peer : peers_) {
         peer.connection.onReady(polled[i++].revents);
      }
      hub_.expire();
      // One peer's changes are in the outputs of others, which were polled for reading only.
      for (Peer& peer : peers_) {
         peer.connection.flush();
      }
      removeDone();
      if (polled[1].revents != 0) {
         acceptAll();
      }
   }
}

void Server::closeAll(Sarn::String const& reason) {
   closing_ = true;
   for (Peer& peer : peers_) {
      peer.connection.close(reason);
   }
   removeDone();
}

}  // namespace Holt
