#pragma once

#include <list>
#include <memory>

#include "Holt/Client.h"
#include "tools/ptpstate/RootSource.h"
#include "tools/shared/CommandLine.h"

namespace Ptpstate {

/// The roots that a server at a socket offers.
class ServerRoots final : public RootSource {
public:
   /// Connects. `interruptFd`: ends all waiting once it is readable; -1 for none. `options` must
   /// live as long.
   explicit ServerRoots(Tools::ClientOptions const& options, int interruptFd = -1);

   std::vector<Holt::OfferedRoot> roots() override { return client_->roots(); }
   Sarn::Ptr<Kiv::NamedEntity> mirror(Holt::OfferedRoot const& root) override;
   void waitComplete() override;
   bool turn(int otherFd, std::chrono::milliseconds timeout) override;
   Sarn::String trouble() const override;
   Sarn::String lostText() const override;

   Holt::Client& client() { return *client_; }
   /// Those of the mirrors, in the order in which they were first asked for.
   std::vector<Holt::Mount*> mounts() const;

private:
   /// Its mirror outlives connections.
   struct Mirrored {
      Holt::OfferedRoot root;
      Sarn::Ptr<Kiv::NamedEntity> mirror;
      Holt::Mount* mount;
   };

   void connect();

   Tools::ClientOptions const& options_;
   int interruptFd_;
   std::unique_ptr<Holt::Client> client_;
   std::list<Mirrored> mirrored_;
   Sarn::String trouble_;
};

}  // namespace Ptpstate
