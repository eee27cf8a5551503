// From what a daemon tells to `Ptp::Status`. docs/ptp4lAgent.md lists every attribute.
#pragma once

#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "tools/ptp4lAgent/ClockDataSets.h"
#include "tools/ptp4lAgent/PortDataSets.h"
#include "tools/ptp4lAgent/Ports.h"

namespace Ptp4lAgent {

/// Keeps a status up to date. Setters publish only what changes, so a data set may be taken as
/// often as it arrives. An attribute that no data set tells keeps its default.
///
/// While the daemon is gone, the status says only that: `enabled` is false, and there are no data
/// sets and no ports.
class StatusFill {
public:
   /// `seconds`: the agent's clock, in seconds since 1970; tells when something was seen.
   /// `conf`: what the daemon's configuration file says, which gives what no data set tells; null
   /// if the file is not known.
   StatusFill(Sarn::Ptr<Ptp::Status> status, double (*seconds)(),
              Sarn::Ptr<Ptp::Config> conf = nullptr);

   Ptp::Status& status() const noexcept { return *status_; }
   Ports const& ports() const noexcept { return ports_; }
   Port* port(U16 number) noexcept;

   void up(U8 transportSpecific);
   void gone();

   void take(DefaultDataSet const& set);
   void take(CurrentDataSet const& set);
   void take(TimeStatusNp const& set);
   void take(ParentDataSet const& set);
   void take(TimePropertiesDataSet const& set);
   /// Makes the port if it is new, and replaces one that has another interface now. Throws
   /// `Kiv::RangeException` if the model cannot hold the interface's name.
   void take(U16 number, PortPropertiesNp const& set);
   /// Of ports that are not known yet, everything else is ignored.
   void take(Port& port, ClockDescription const& set);
   void take(Port& port, PortDataSet const& set);
   void take(Port& port, PortDataSetNp const& set);
   void take(Port& port, PortStatsNp const& set);
   void take(Port& port, PortServiceStatsNp const& set);
   void take(Port& port, UnicastMasterTableNp const& set);
   void takeMasterOnly(Port& port, bool masterOnly);
   /// Removes the ports whose numbers are not listed.
   void keepOnly(std::vector<U16> const& numbers);
   /// Whether the port's interface has a link, as the kernel says.
   void linkIs(std::string const& interface, bool up);

   /// The port that follows a master; null if there is none.
   Port const* followed() const noexcept;
   /// How often that port gets a Sync message, in nanoseconds; 0 without such a port.
   U64 syncInterval() const;

private:
   void drop(Ports::iterator at);
   void stateIs(Port& port, U8 state);
   void followedIs();
   void restarted();
   void takeConf();
   void takeConf(Ptp::PortDS& port) const;
   void roleIs(Port& port);
   void modeIs();
   void pathDelayIs();
   void countLost(Port& port, PortStatsNp const& set);
   void sumUp();

   Sarn::Ptr<Ptp::Status> status_;
   double (*seconds_)();
   Sarn::Ptr<Ptp::Config> conf_;
   Ports ports_;
   std::map<std::string, bool> links_;
   U8 transportSpecific_ = 0;
   bool slaveOnly_ = false;
   U16 clockType_ = 0;
   S64 endToEndDelay_ = 0;
   S64 ingressTime_ = 0;
};

}  // namespace Ptp4lAgent
