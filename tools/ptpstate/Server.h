// A process that holds roots for others: mirrored by readers, filled by writers.
#pragma once

#include <list>
#include <memory>
#include <ostream>

#include "Kiv/NboAttrLogConnection.h"
#include "tools/ptpstate/Socket.h"

namespace Ptpstate {

class Server {
public:
   /// Listens at once. `log` gets one line for each connection that comes, ends or is refused;
   /// null for none.
   Server(Sarn::String const& socket, std::ostream* log);
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
   struct Peer {
      Peer(Kiv::NboAttrLog::Hub& hub, int fd, U64 n, Sarn::String who)
            : number(n), text(std::move(who)), connection(hub, fd) {}
      U64 number;
      Sarn::String text;
      Kiv::NboAttrLog::FdConnection connection;
   };

   void acceptAll();
   void say(Peer const& peer, Sarn::String const& what);
   void removeDone();

   Listener listener_;
   std::ostream* log_;
   Kiv::NboAttrLog::Hub hub_;
   std::list<Peer> peers_;
   U64 accepted_ = 0;
   bool exhausted_ = false;
};

}  // namespace Ptpstate
