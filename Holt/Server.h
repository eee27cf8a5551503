// A process that holds roots for others: mirrored by readers, filled by writers.
#pragma once

#include <list>
#include <memory>

#include "Holt/LogOutput.h"
#include "Holt/Socket.h"
#include "Kiv/NboAttrLogConnection.h"

namespace Holt {

class Server {
public:
   struct Options {
      Sarn::String socket;
      /// Of the socket's file; what the umask leaves if it is not given.
      std::optional<mode_t> mode;
      Owner owner;
      Writers writers;
      /// Gets one line for each connection that is opened or ends, and for each root that is
      /// refused to one; null for none.
      LogOutput* log = nullptr;
   };

   /// Listens at once.
   explicit Server(Options options);
   ~Server();
   Server(Server const&) = delete;
   Server& operator=(Server const&) = delete;

   /// Offers a root.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root) { hub_.rootIs(root); }
   std::vector<Kiv::NamedEntity*> roots() const { return hub_.roots(); }

   /// Serves until `stopFd` is readable.
   void run(int stopFd);
   /// Tells all clients that it is over.
   void closeAll(Sarn::String const& reason);

private:
   struct Peer final : Kiv::NboAttrLog::SessionListener {
      Peer(Server& owner, int fd, U64 n);

      Sarn::String onMountAsked(Kiv::NboAttrLog::Session& session, Kiv::NamedEntity const& root,
                                Kiv::NboAttrLog::MountMode mode) override;
      void onMountRefused(Kiv::NboAttrLog::Session& session,
                          Kiv::NboAttrLog::OfferedRoot const& root,
                          Sarn::String const& reason) override;
      void onLeftOut(Kiv::NboAttrLog::Session& session, Sarn::String const& what) override;

      Server& server;
      U64 number;
      std::vector<gid_t> groups;
      Kiv::NboAttrLog::FdConnection connection;
   };

   void acceptAll();
   void say(Peer const& peer, Sarn::String const& what);
   void removeDone();

   Options options_;
   Listener listener_;
   Kiv::NboAttrLog::Hub hub_;
   std::list<Peer> peers_;
   U64 accepted_ = 0;
   bool exhausted_ = false;
   bool closing_ = false;
};

}  // namespace Holt
