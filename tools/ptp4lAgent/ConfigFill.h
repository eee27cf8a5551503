// From what a daemon tells to `Ptp::Config`, and from there back to the daemon.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "tools/ptp4lAgent/ClockDataSets.h"
#include "tools/ptp4lAgent/Daemon.h"
#include "tools/ptp4lAgent/PortDataSets.h"
#include "tools/ptp4lAgent/Ports.h"

namespace Ptp4lAgent {

/// Keeps a configuration equal to what the daemon runs with, and passes on what others change in
/// it.
///
/// Four attributes can be changed while a daemon runs: `priority1`, `priority2`, `clockQuality` if
/// `clockQualityConfigured`, and `linkDelayThreshold` of an interface. A change of one is written
/// to the daemon and read back, so that the attribute ends with the daemon's value, whether the
/// daemon has taken the change or not. The other attributes are what the daemon was started with.
/// What others store there is kept until the daemon tells something else.
class ConfigFill final : Kiv::Observer {
public:
   /// Decides about a change: `refusal` is why it was not made, or empty.
   using Decided = std::function<void(Sarn::String const& refusal)>;
   /// Returns whom to tell what becomes of the change that is being made.
   using Asked = std::function<Decided()>;

   ConfigFill(Sarn::Ptr<Ptp::Config> config, Daemon& daemon, Ports const& ports);
   ~ConfigFill();
   ConfigFill(ConfigFill const&) = delete;
   ConfigFill& operator=(ConfigFill const&) = delete;

   Ptp::Config& config() const noexcept { return *config_; }

   /// Called before a change is passed on; may be empty.
   Asked onAsked;
   /// Called when the change has not been taken at once. It may throw, to have whoever made the
   /// change wait; may be empty.
   std::function<void()> onUndecided;
   /// Called when others have changed something; may be empty.
   std::function<void()> onChanged;

   void take(DefaultDataSet const& set);
   void take(GrandmasterSettingsNp const& set) { settings_ = set; }
   void take(Port const& port, PortPropertiesNp const& set);
   void take(Port const& port, PortDataSet const& set);
   void take(U16 number, Port const& port, PortDataSetNp const& set);
   /// What the status knows and no data set tells alone.
   void take(Ptp::Status const& status);

private:
   void onChange(Kiv::Change const& change) override;
   void pass(Sarn::String const& path, std::function<void(Decided)> const& write);
   void writeOctet(Id id, U8 value, Decided decided);
   void writeQuality(Decided decided);
   void writeThreshold(Dorn::IntfId const& intf, U64 threshold, Decided decided);
   void fill();
   template <class Set>
   void quietly(Set&& set);
   template <class T, class Set>
   void told(Sarn::String const& what, T const& value, Set&& set);
   Ptp::IntfConfig& intf(Port const& port);

   Sarn::Ptr<Ptp::Config> config_;
   Daemon& daemon_;
   Ports const& ports_;
   /// Whether the changes are this object's own.
   bool filling_ = false;
   /// Changes that the daemon has not answered yet.
   U32 open_ = 0;
   std::optional<DefaultDataSet> default_;
   std::optional<GrandmasterSettingsNp> settings_;
   std::map<U16, U32> thresholds_;
   /// What the daemon has told last, as numbers.
   std::map<Sarn::String, S64> told_;
   /// For answers that come when this object has gone.
   std::shared_ptr<bool> const alive_ = std::make_shared<bool>(true);
};

}  // namespace Ptp4lAgent
