#pragma once

#include <memory>

#include "Kiv/NboAttrLogConnection.h"
#include "bench/Harness.h"

/// The library's side of measurements across processes: a source whose readers are other processes,
/// and the event loop of such a reader.
namespace Harness {

inline void turn(Kiv::NboAttrLog::FdConnection& connection) {
   waitFor(connection.fd(), connection.events());
   connection.onReady(POLLIN | POLLOUT);
}

/// Mirrors a root until the source closes the connection.
inline void mirror(int fd, Sarn::Ptr<Kiv::NamedEntity> const& root) {
   Kiv::NboAttrLog::Hub hub;
   Kiv::NboAttrLog::FdConnection connection(hub, fd);
   connection.session().mountIs(root);
   while (!connection.done()) {
      turn(connection);
   }
}

class Syncs final : public Kiv::NboAttrLog::SessionListener {
public:
   void onSynced(Kiv::NboAttrLog::Session&, U32) override { ++count; }
   U32 count = 0;
};

/// A hub and its connections to child processes that mirror a root of it.
struct Readers {
   using Connection = Kiv::NboAttrLog::FdConnection;

   Kiv::NboAttrLog::Hub hub;
   Syncs syncs;
   std::vector<std::unique_ptr<Connection>> connections;

   /// Connects to the children and waits until each has received at least `entities` entities.
   void connect(std::vector<Child> const& children, U32 entities) {
      for (Child const& child : children) {
         connections.push_back(std::make_unique<Connection>(hub, child.fd, &syncs));
      }
      while (!ready(entities)) {
         turn();
      }
      sync();
   }
   /// Waits until a reader is ready, and serves all that are.
   void turn() {
      std::vector<pollfd> polls;
      for (auto const& connection : connections) {
         polls.push_back({connection->fd(), connection->events(), 0});
      }
      if (poll(polls.data(), polls.size(), -1) < 0 && errno != EINTR) {
         die("poll");
      }
      for (std::size_t i = 0; i != polls.size(); ++i) {
         connections[i]->onReady(polls[i].revents);
      }
   }
   bool ready(U32 entities) const {
      return std::all_of(connections.begin(), connections.end(), [&](auto const& connection) {
         return connection->session().handshakeDone() &&
                connection->session().stats().messagesOut > entities &&
                connection->session().upToDate();
      });
   }
   void flush() {
      for (auto const& connection : connections) {
         connection->flush();
         while (connection->session().output().size != 0 && !connection->done()) {
            waitFor(connection->fd(), POLLOUT);
            connection->flush();
         }
      }
   }
   /// Waits until every reader has applied everything.
   void sync() {
      U32 const wanted = syncs.count + static_cast<U32>(connections.size());
      for (auto const& connection : connections) {
         connection->session().syncIs(1);
      }
      flush();
      while (syncs.count != wanted) {
         turn();
      }
   }
   /// Ends the program if changes were coalesced, since the figure would not count all of them.
   void expectNothingDeferred() const {
      for (auto const& connection : connections) {
         if (connection->session().stats().changesDeferred != 0) {
            std::fprintf(stderr, "changes were coalesced: the figure would not count all\n");
            std::exit(1);
         }
      }
   }
};

}  // namespace Harness
