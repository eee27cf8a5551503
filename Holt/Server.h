// A process that holds roots for others: mirrored by readers, filled by writers.
#pragma once

#include <list>
#include <memory>

#include "Holt/Listener.h"
#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "Kiv/NboAttrLogConnection.h"

namespace Holt {

/// Listens at a UNIX socket, and serves a hub's roots to everybody who connects and may.
///
///     Holt::Server server({.socket = "/run/ptp.sock", .writers = Holt::Writers({"root",
///     ":ptp"})}); server.rootIs(status); server.run(stop.fd());
///
/// A peer has a time to greet and a time to finish what it has begun (`Options::greeting`,
/// `Limits::halfMessage`): one that connects and says nothing costs a descriptor for so long only.
/// When many have left, their memory goes back to the system.
///
/// Errors: what cannot be set up is a `Failure` with `Exit::connection`. A peer that does anything
/// wrong loses its connection, and the log says why.
/// Threads: one, that of the roots.
class Server final : public Source {
public:
   struct Options {
      /// Path of the socket.
      Sarn::String socket;
      /// Of the socket's file; what the umask leaves if it is not given.
      std::optional<mode_t> mode = std::nullopt;
      /// Of the socket's file; who has made it if it is not given.
      Owner owner = {};
      /// Who may change what is served.
      Writers writers = {};
      /// Gets one line for each connection that is opened or ends, and for each root that is
      /// refused to one; null for none. Outlives the server.
      LogOutput* log = nullptr;
      /// What a connection, and all of them, may cost.
      Kiv::NboAttrLog::Limits limits = {};
      /// Nanoseconds from accepting a connection until its peer has greeted.
      U64 greeting = 60'000'000'000;
      /// What all limits of time are measured by; that of the loop that the server is in.
      U64 (*clock)() noexcept = &steadyNow;
   };

   /// Listens at once; who connects is accepted in the first turn.
   explicit Server(Options options);
   /// Tells all clients that the server has ended.
   ~Server();
   Server(Server const&) = delete;
   Server& operator=(Server const&) = delete;

   /// Offers a root. Throws `Kiv::Exception` if there is another of its type and name.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root) { hub_.rootIs(root); }
   std::vector<Kiv::NamedEntity*> roots() const { return hub_.roots(); }

   /// Serves until `stopFd` is readable, in a loop with nothing else.
   void run(int stopFd);
   /// Ends all connections with a reason; the server goes on.
   void closeAll(Sarn::String const& reason);

   /// Connections that are open.
   std::size_t peers() const noexcept { return peers_.size(); }
   /// Whether a peer mirrors a root and has been told all of it.
   bool isMirrored() const;
   /// Asks the peers that are there now to confirm all changes so far.
   void sync();
   /// Whether all that were asked have confirmed, or have gone.
   bool synced() const noexcept;
   /// What has been sent and received in all, connections that have ended included.
   Kiv::NboAttrLog::SessionStats total() const;

   // As a source of a loop.
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Peer final : Kiv::NboAttrLog::SessionListener {
      Peer(Server& owner, int fd, U64 n);

      Sarn::String onMountAsked(Kiv::NboAttrLog::Session& session, Kiv::NamedEntity const& root,
                                Kiv::NboAttrLog::MountMode mode) override;
      void onMountRefused(Kiv::NboAttrLog::Session& session,
                          Kiv::NboAttrLog::OfferedRoot const& root,
                          Sarn::String const& reason) override;
      void onLeftOut(Kiv::NboAttrLog::Session& session, Sarn::String const& what) override;
      void onSynced(Kiv::NboAttrLog::Session& session, U32 token) override;

      /// When it is given up for want of a greeting; 0 once it has greeted.
      U64 greetingEnds() const noexcept {
         return connection.session().handshakeDone() ? 0 : since + server.options_.greeting;
      }

      Server& server;
      U64 number;
      /// When it was accepted.
      U64 since;
      std::vector<gid_t> groups;
      /// The last confirmation that it was asked for has come, or none was asked for.
      bool synced = true;
      /// Given up for want of a greeting.
      bool silent = false;
      Kiv::NboAttrLog::FdConnection connection;
   };

   void acceptAll();
   void closeSilent();
   void removeDone();
   void giveMemoryBack();
   void say(Peer const& peer, Sarn::String const& what);

   Options options_;
   Listener listener_;
   Kiv::NboAttrLog::Hub hub_;
   std::list<Peer> peers_;
   Kiv::NboAttrLog::SessionStats gone_;
   U64 accepted_ = 0;
   /// Connections that have ended since memory was given back.
   std::size_t ended_ = 0;
   bool exhausted_ = false;
   bool closing_ = false;
};

}  // namespace Holt
