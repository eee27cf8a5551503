// One daemon and the roots that show it.
#pragma once

#include <functional>

#include "PtpLib/PtpOpenConfig/Instance.h"
#include "tools/ptp4lAgent/ConfigFill.h"
#include "tools/ptp4lAgent/Daemon.h"
#include "tools/ptp4lAgent/StatusFill.h"

namespace Ptp4lAgent {

/// Talks to a daemon, and keeps three roots up to date with what it says: "NAME/status",
/// "NAME/config" and "NAME/instance".
///
/// Threads: belongs to the thread of its loop.
class Clock final : DaemonListener {
public:
   struct Options {
      Sarn::String name = "ptp";
      /// The id of the OpenConfig instance; it differs from those of the agent's other daemons.
      U32 instanceId = 0;
      Daemon::Options daemon;
      /// The configuration before the daemon has told its own; null for one with defaults.
      Sarn::Ptr<Ptp::Config> config = nullptr;
      /// What the daemon's configuration file says; null if it is not known.
      Sarn::Ptr<Ptp::Config> conf = nullptr;
      /// The agent's time of day.
      double (*seconds)() = nullptr;
   };

   explicit Clock(Options options);
   Clock(Clock const&) = delete;
   Clock& operator=(Clock const&) = delete;

   Sarn::String const& name() const noexcept { return options_.name; }
   /// Whether it sends Follow_Up messages, as far as it is known.
   bool isTwoStep() const { return status().defaultDS() && status().defaultDS()->twoStepFlag(); }
   Daemon& daemon() noexcept { return daemon_; }
   Ptp::Status& status() const noexcept { return status_.status(); }
   ConfigFill& config() noexcept { return config_; }
   Openconfig::Ptp::Instance& instance() const noexcept { return *instance_; }
   Ports const& ports() const noexcept { return status_.ports(); }

   /// Whether an interface has a link, as the kernel says.
   void linkIs(std::string const& interface, bool up) { status_.linkIs(interface, up); }

   /// Called when the ports are known, or have changed; may be empty.
   std::function<void()> onPorts;

private:
   void onUp() override;
   void onData(Message const& message) override;
   void onPolled(Id id, std::vector<U16> const& ports) override;
   void onRefused(Id id) override;
   void onGone() override;

   template <class DataSet>
   void takeOfClock(Message const& message);
   template <class DataSet>
   void takeOfPort(Message const& message);
   void takeProperties(Message const& message);
   void takeNumbered(U16 number, PortDataSet const& set);
   void takeMasterOnly(Message const& message);

   struct Taker {
      Id id;
      void (Clock::*take)(Message const&);
   };
   static Taker const takers[];

   Options options_;
   Daemon daemon_;
   StatusFill status_;
   ConfigFill config_;
   Sarn::Ptr<Openconfig::Ptp::Instance> instance_;
   /// Interfaces whose names the model cannot hold, as the log has said.
   std::vector<std::string> unnamed_;
   /// Whether the daemon does not tell the ports' interfaces, as at the read-only socket.
   bool nameless_ = false;
};

}  // namespace Ptp4lAgent
