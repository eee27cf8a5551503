#include "tools/ptpstate/Server.h"

#include <poll.h>

#include <cerrno>
#include <vector>

#include "tools/ptpstate/Failure.h"

namespace Ptpstate {

Server::Server(Sarn::String const& socket, std::ostream* log) : listener_(socket), log_(log) {}

Server::~Server() {
   closeAll("the server has ended");
}

void Server::say(Peer const& peer, Sarn::String const& what) {
   if (log_ != nullptr) {
      *log_ << "connection " << peer.number << " (" << peer.text << ") " << what << std::endl;
   }
}

void Server::acceptAll() {
   for (;;) {
      int const fd = listener_.accept(exhausted_);
      if (exhausted_ && log_ != nullptr) {
         *log_ << "no descriptor left for another connection; it waits until one ends" << std::endl;
      }
      if (fd < 0) {
         return;
      }
      say(peers_.emplace_back(hub_, fd, ++accepted_, peerText(fd)), "opened");
   }
}

void Server::removeDone() {
   for (auto at = peers_.begin(); at != peers_.end();) {
      if (at->connection.done()) {
         say(*at, "ended: " + at->connection.closeReason());
         at = peers_.erase(at);
         exhausted_ = false;
      } else {
         ++at;
      }
   }
}

void Server::run(int stopFd) {
   std::vector<pollfd> polled;
   for (;;) {
      polled.clear();
      polled.push_back({stopFd, POLLIN, 0});
      polled.push_back({exhausted_ ? -1 : listener_.fd(), POLLIN, 0});
      for (Peer const& peer : peers_) {
         polled.push_back({peer.connection.fd(), peer.connection.events(), 0});
      }
      if (::poll(polled.data(), polled.size(), -1) < 0) {
         if (errno == EINTR) {
            continue;
         }
         throw Failure("cannot wait for clients", Exit::connection);
      }
      if (polled[0].revents != 0) {
         return;
      }
      std::size_t i = 2;
      for (Peer& peer : peers_) {
         peer.connection.onReady(polled[i++].revents);
      }
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
   for (Peer& peer : peers_) {
      peer.connection.close(reason);
   }
   removeDone();
}

}  // namespace Ptpstate
