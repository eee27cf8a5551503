#include "Holt/Server.h"

#include <malloc.h>

#include <algorithm>
#include <vector>

#include "Holt/Times.h"

namespace Holt {

namespace {

using Kiv::NboAttrLog::Ending;

void add(Kiv::NboAttrLog::SessionStats& sum, Kiv::NboAttrLog::SessionStats const& more) noexcept {
   sum.messagesIn += more.messagesIn;
   sum.messagesOut += more.messagesOut;
   sum.bytesIn += more.bytesIn;
   sum.bytesOut += more.bytesOut;
   sum.changesDeferred += more.changesDeferred;
   sum.changesCoalesced += more.changesCoalesced;
   sum.valuesLeftOut += more.valuesLeftOut;
}

}  // namespace

Server::Server(Options options)
      : options_(std::move(options)),
        listener_(options_.listening >= 0
                        ? Listener(options_.listening)
                        : Listener(options_.socket, options_.mode, options_.owner)),
        hub_(options_.limits) {
   hub_.clockIs(options_.clock, &wallNow);
}

Server::~Server() {
   closeAll("the server has ended");
}

Server::Peer::Peer(Server& owner, int fd, U64 n)
      : server(owner),
        number(n),
        since(owner.options_.clock()),
        groups(peerGroups(fd)),
        connection(owner.hub_, fd, this) {}

Sarn::String Server::Peer::onMountAsked(Kiv::NboAttrLog::Session& session,
                                        Kiv::NamedEntity const& root,
                                        Kiv::NboAttrLog::MountMode mode) {
   if (!writesBack(mode)) {
      return {};
   }
   for (auto const& [own, writers] : server.writers_) {
      if (own == &root) {
         return writers.refusal(root, session.peer(), groups);
      }
   }
   return server.options_.writers.refusal(root, session.peer(), groups);
}

void Server::Peer::onMountRefused(Kiv::NboAttrLog::Session&,
                                  Kiv::NboAttrLog::OfferedRoot const& root,
                                  Sarn::String const& reason) {
   server.say(*this, "refused " + root.type + "=" + root.name + ": " + reason);
}

void Server::Peer::onLeftOut(Kiv::NboAttrLog::Session&, Sarn::String const& what) {
   server.say(*this, "left out: " + what);
}

void Server::Peer::onLacking(Kiv::NboAttrLog::Session&, std::span<Sarn::String const> lacking) {
   Sarn::String names;
   for (Sarn::String const& what : lacking.first(std::min<std::size_t>(lacking.size(), 8))) {
      names += (names.empty() ? "" : ", ") + what;
   }
   server.say(
         *this,
         "has another version of a module, and lacks " + names +
               (lacking.size() > 8 ? " and " + std::to_string(lacking.size() - 8) + " more" : ""));
}

void Server::Peer::onSynced(Kiv::NboAttrLog::Session&, U32) {
   synced = true;
}

U64 Server::Peer::onSyncAsked(Kiv::NboAttrLog::Session&) {
   if (server.options_.keeper != nullptr) {
      awaited = server.options_.keeper->syncAsked();
   }
   return awaited;
}

void Server::confirmedIs(U64 upTo) {
   confirmed_ = upTo;
   for (Peer& peer : peers_) {
      peer.connection.session().confirmedIs(upTo);
   }
}

void Server::syncsRefused(Sarn::String const& reason) {
   for (Peer& peer : peers_) {
      if (peer.awaited > confirmed_) {
         peer.refused = true;
         peer.refusal = reason;
      }
   }
}

bool Server::awaitsConfirmation() const noexcept {
   return std::any_of(peers_.begin(), peers_.end(), [this](Peer const& peer) {
      return peer.awaited > confirmed_ && !peer.connection.done();
   });
}

void Server::say(Peer const& peer, Sarn::String const& what) {
   if (options_.log != nullptr) {
      say("connection " + std::to_string(peer.number) + " (" +
          peerText(peer.connection.session().peer()) + ") " + what);
   }
}

void Server::say(Sarn::String const& what) {
   if (options_.log != nullptr) {
      options_.log->line(options_.logTimes ? timeText(wallNow()) + " " + what : what);
   }
}

void Server::rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root, Writers writers) {
   hub_.rootIs(root);
   writers_.emplace_back(root.get(), std::move(writers));
}

void Server::decided(U64 connection, Sarn::String const& refusal) {
   for (Peer& peer : peers_) {
      if (peer.number != connection) {
         continue;
      }
      peer.undecided = false;
      if (!refusal.empty()) {
         peer.refused = true;
         peer.refusal = refusal;
      }
      return;
   }
}

/// Applies what a peer has sent, unless it waits for a decision.
void Server::serve(Peer& peer, short revents) {
   if (!peer.undecided && !peer.refused) {
      struct Asking {
         U64& asker;
         ~Asking() { asker = 0; }
      } const asking{asker_ = peer.number};
      try {
         peer.connection.onReady(revents);
      } catch (Undecided const&) {
         peer.undecided = true;
      }
   }
   if (peer.refused) {
      peer.connection.close(peer.refusal);
   }
}

void Server::acceptAll() {
   for (;;) {
      int const fd = listener_.accept(exhausted_);
      if (exhausted_) {
         say("no descriptor left for another connection; it waits until one ends");
      }
      if (fd < 0) {
         return;
      }
      Peer& peer = peers_.emplace_back(*this, fd, ++accepted_);
      peer.connection.session().confirmedIs(confirmed_);
      say(peer, "opened");
   }
}

/// Ends connections whose peer has not greeted in time.
void Server::closeSilent() {
   U64 const now = options_.clock();
   for (Peer& peer : peers_) {
      U64 const end = peer.greetingEnds();
      if (end != 0 && now >= end) {
         peer.silent = true;
         peer.connection.close("the peer did not greet within " +
                               std::to_string((now - peer.since) / 1'000'000) + " ms");
      }
   }
}

void Server::removeDone() {
   for (auto at = peers_.begin(); at != peers_.end();) {
      if (!at->connection.done()) {
         ++at;
         continue;
      }
      Kiv::NboAttrLog::Session const& session = at->connection.session();
      // The end is orderly if the peer or the server announced it.
      bool const orderly = session.ending() == Ending::peer || closing_;
      bool const fault = session.ending() == Ending::fault || at->silent || at->refused;
      say(*at, (fault ? "refused: " : orderly ? "ended: " : "lost: ") + session.closeReason());
      add(gone_, session.stats());
      at = peers_.erase(at);
      exhausted_ = false;
      ++ended_;
   }
   giveMemoryBack();
}

/// The memory that peers have freed is scattered among memory in use. The allocator keeps it until
/// it is told to look for whole free pages. That takes a millisecond, so it is done only when many
/// peers have left.
void Server::giveMemoryBack() {
   constexpr std::size_t many = 64;
   if (ended_ >= many && ended_ >= peers_.size()) {
      ::malloc_trim(0);
      ended_ = 0;
   }
}

void Server::appendTo(std::vector<pollfd>& polled) {
   polled.push_back({exhausted_ ? -1 : listener_.fd(), POLLIN, 0});
   bool const logWaits = options_.log != nullptr && options_.log->waiting();
   polled.push_back({logWaits ? options_.log->fd() : -1, POLLOUT, 0});
   for (Peer& peer : peers_) {
      // Sends what other peers or the owner of the roots have changed since the last turn, and
      // handles expired limits.
      peer.connection.flush();
      int fd = peer.connection.fd();
      short events = peer.connection.events();
      if (peer.undecided) {  // not read: what it sends has time
         bool const sends = peer.connection.session().output().size != 0;
         fd = sends ? fd : -1;
         events = POLLOUT;
      }
      polled.push_back({fd, events, 0});
   }
}

U64 Server::deadline() const {
   U64 first = hub_.deadline();
   for (Peer const& peer : peers_) {
      if (peer.connection.done() || peer.refused) {
         return 1;  // remove it at once
      }
      U64 const end = peer.greetingEnds();
      first = end != 0 && (first == 0 || end < first) ? end : first;
   }
   return first;
}

void Server::onTurn(std::span<pollfd const> polled) {
   if (polled[1].revents != 0) {
      options_.log->flush();
   }
   std::size_t i = 2;
   for (Peer& peer : peers_) {
      serve(peer, polled[i++].revents);
   }
   hub_.expire();
   closeSilent();
   removeDone();
   if (polled[0].revents != 0) {
      acceptAll();
   }
}

void Server::run(int stopFd) {
   Loop loop(options_.clock);
   loop.add(*this);
   loop.run(stopFd);
}

void Server::closeAll(Sarn::String const& reason) {
   closing_ = true;
   for (Peer& peer : peers_) {
      peer.connection.close(reason);
   }
   removeDone();
   closing_ = false;
}

bool Server::isMirrored() const {
   for (Peer const& peer : peers_) {
      for (Kiv::NboAttrLog::ServedRoot const& served : peer.connection.session().status().roots) {
         if (served.complete) {
            return true;
         }
      }
   }
   return false;
}

void Server::sync() {
   for (Peer& peer : peers_) {
      peer.synced = false;
      peer.connection.session().syncIs(1);
      peer.connection.flush();
   }
}

bool Server::synced() const noexcept {
   return std::all_of(peers_.begin(), peers_.end(), [](Peer const& peer) { return peer.synced; });
}

Kiv::NboAttrLog::SessionStats Server::total() const {
   Kiv::NboAttrLog::SessionStats all = gone_;
   for (Peer const& peer : peers_) {
      add(all, peer.connection.session().stats());
   }
   return all;
}

}  // namespace Holt
