#pragma once

#include <map>
#include <memory>

#include "tools/ptpstate/fleet/FleetSession.h"

namespace Ptpstate {

/// The roots of a switch of a fleet.
class SwitchRoots final : public RootSource {
public:
   /// `session` has been waited for, and may be shared with other switches.
   SwitchRoots(std::shared_ptr<FleetSession> session, std::string name)
         : session_(std::move(session)), name_(std::move(name)) {}

   std::vector<Holt::OfferedRoot> roots() override;
   Sarn::Ptr<Kiv::NamedEntity> mirror(Holt::OfferedRoot const& root) override;
   void waitComplete() override {}
   bool turn(int otherFd, std::chrono::milliseconds timeout) override {
      return session_->turn(otherFd, timeout);
   }
   Sarn::String trouble() const override;
   /// The connection is made again behind the scenes.
   Sarn::String lostText() const override { return {}; }

private:
   std::shared_ptr<FleetSession> session_;
   std::string name_;
   /// Those that a command shows.
   std::map<std::string, Sarn::Ptr<Kiv::NamedEntity>> mirrors_;
};

}  // namespace Ptpstate
