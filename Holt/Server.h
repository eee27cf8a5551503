// Serves roots to other processes: readers mirror them, writers change them.
#pragma once

#include <list>
#include <memory>

#include "Holt/Listener.h"
#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "Kiv/NboAttrLogConnection.h"

namespace Holt {

/// Listens at a UNIX socket, and serves its roots to everybody who may connect.
///
///     Holt::Server::Options options;
///     options.socket = "/run/ptp.sock";
///     options.writers = Holt::Writers({"root", ":ptp"});
///     Holt::Server server(options);
///     server.rootIs(status);
///     server.run(stop.fd());
///
/// A peer must greet, and finish each message that it begins, within a time limit
/// (`Options::greeting`, `Limits::halfMessage`): a silent peer holds its descriptor no longer than
/// that. When many peers have left, their memory is returned to the system.
///
/// Errors: if the socket cannot be set up, the constructor throws a `Failure` with
/// `Exit::connection`. A peer that breaks the protocol loses its connection, and the log says why.
/// Threads: a server belongs to the thread of its roots.
class Server final : public Source {
public:
   /// Knows when a peer may rely on what it has changed: when that is on disk, for example.
   class Keeper {
   public:
      /// A peer asks for a confirmation of what it has written, all of which is applied. It gets it
      /// once `Server::confirmedIs` has been called with the result, or more; 0: at once.
      virtual U64 syncAsked() = 0;

   protected:
      ~Keeper() = default;
   };

   struct Options {
      /// Path of the socket. With `listening`, what it is called in messages.
      Sarn::String socket;
      /// A socket that listens already, which becomes the server's; its file stays. -1: none.
      int listening = -1;
      /// Mode of the socket's file; by default what the umask leaves.
      std::optional<mode_t> mode = std::nullopt;
      /// Owner of the socket's file; by default the process's own user and group.
      Owner owner = {};
      /// Who may change the roots.
      Writers writers = {};
      /// Gets a line for each connection that opens or ends, and for each root that is refused to a
      /// peer; null for no log. REQUIRES: outlives the server.
      LogOutput* log = nullptr;
      /// Whether the lines of the log begin with the time; a journal has its own.
      bool logTimes = true;
      /// Null: changes are confirmed when they are applied. REQUIRES: outlives the server.
      Keeper* keeper = nullptr;
      /// What a single connection, and all together, may cost.
      Kiv::NboAttrLog::Limits limits = {};
      /// Nanoseconds from accepting a connection until its peer has greeted.
      U64 greeting = 60'000'000'000;
      /// Measures all time limits; must be the clock of the loop that the server is in.
      U64 (*clock)() noexcept = &steadyNow;
   };

   /// Listens at once; connections are accepted from the first turn on.
   explicit Server(Options options);
   /// Tells all clients that the server has ended.
   ~Server();
   Server(Server const&) = delete;
   Server& operator=(Server const&) = delete;

   /// Offers a root. Throws `Kiv::Exception` if it already has one of this type and name.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root) { hub_.rootIs(root); }
   /// Offers a root that others may change than `Options::writers`.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root, Writers writers);
   /// See `Kiv::NboAttrLog::Hub::staleIs`: for a root that was restored after a restart.
   void staleIs(Kiv::NamedEntity const& root, bool stale, U64 since) {
      hub_.staleIs(root, stale, since);
   }
   std::vector<Kiv::NamedEntity*> roots() const { return hub_.roots(); }

   /// Serves until `stopFd` is readable, in a loop of its own.
   void run(int stopFd);
   /// Ends all connections with a reason; the server keeps listening.
   void closeAll(Sarn::String const& reason);

   /// Thrown by an observer of a root that cannot judge at once what a peer has changed, because it
   /// asks somebody else: nothing further that the peer has sent is applied, nor confirmed to it,
   /// until `decided`. The other peers are served meanwhile.
   struct Undecided {};
   /// The number of the connection whose change is being published; 0 if none is.
   U64 asker() const noexcept { return asker_; }
   /// Ends the wait of a connection. If there is a refusal, it loses the connection with this
   /// reason, as if a setter had refused the change. No effect if it has ended.
   void decided(U64 connection, Sarn::String const& refusal);

   /// Lets all confirmations go out for which the keeper has returned `upTo` or less. Not called
   /// with less than before.
   void confirmedIs(U64 upTo);
   /// Ends the connections that wait for a confirmation, with this reason.
   void syncsRefused(Sarn::String const& reason);
   /// Whether a peer waits for a confirmation.
   bool awaitsConfirmation() const noexcept;

   /// The number of open connections.
   std::size_t peers() const noexcept { return peers_.size(); }
   /// Whether any peer has been sent the whole state of a root.
   bool isMirrored() const;
   /// Asks the connected peers to confirm all changes so far.
   void sync();
   /// Whether all peers that were asked have confirmed or left.
   bool synced() const noexcept;
   /// Sums over all connections, including those that have ended.
   Kiv::NboAttrLog::SessionStats total() const;

   // `Source`:
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
      void onLacking(Kiv::NboAttrLog::Session& session,
                     std::span<Sarn::String const> lacking) override;
      void onSynced(Kiv::NboAttrLog::Session& session, U32 token) override;
      U64 onSyncAsked(Kiv::NboAttrLog::Session& session) override;

      /// The deadline for its greeting; 0 once it has greeted.
      U64 greetingEnds() const noexcept {
         return connection.session().handshakeDone() ? 0 : since + server.options_.greeting;
      }

      Server& server;
      U64 number;
      /// When it was accepted.
      U64 since;
      std::vector<gid_t> groups;
      /// Whether it has confirmed what it was asked to confirm last, if anything.
      bool synced = true;
      /// What must be confirmed before its last sync is answered.
      U64 awaited = 0;
      /// Whether it was closed because it never greeted.
      bool silent = false;
      /// Whether it waits for `decided`.
      bool undecided = false;
      /// Whether its change was refused, with `refusal`.
      bool refused = false;
      Sarn::String refusal;
      Kiv::NboAttrLog::FdConnection connection;
   };

   void acceptAll();
   void serve(Peer& peer, short revents);
   void closeSilent();
   void removeDone();
   void giveMemoryBack();
   void say(Peer const& peer, Sarn::String const& what);
   void say(Sarn::String const& what);

   Options options_;
   Listener listener_;
   Kiv::NboAttrLog::Hub hub_;
   std::list<Peer> peers_;
   Kiv::NboAttrLog::SessionStats gone_;
   U64 accepted_ = 0;
   /// Connections that have ended since memory was last returned to the system.
   std::size_t ended_ = 0;
   /// Roots that not everybody of `Options::writers` may change.
   std::vector<std::pair<Kiv::NamedEntity const*, Writers>> writers_;
   U64 asker_ = 0;
   U64 confirmed_ = 0;
   bool exhausted_ = false;
   bool closing_ = false;
};

}  // namespace Holt
