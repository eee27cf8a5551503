#include "tools/ptp4lAgent/Clock.h"

#include <algorithm>

#include "Holt/Times.h"
#include "Kiv/Exception.h"
#include "tools/ptp4lAgent/InstanceFill.h"

namespace Ptp4lAgent {

namespace {

double wallSeconds() {
   return static_cast<double>(Holt::wallNow()) * 1e-9;
}

}  // namespace

/// What is done with each data set.
Clock::Taker const Clock::takers[] = {
      {Id::defaultDataSet, &Clock::takeOfClock<DefaultDataSet>},
      {Id::currentDataSet, &Clock::takeOfClock<CurrentDataSet>},
      {Id::parentDataSet, &Clock::takeOfClock<ParentDataSet>},
      {Id::timePropertiesDataSet, &Clock::takeOfClock<TimePropertiesDataSet>},
      {Id::timeStatusNp, &Clock::takeOfClock<TimeStatusNp>},
      {Id::grandmasterSettingsNp, &Clock::takeOfClock<GrandmasterSettingsNp>},
      {Id::portPropertiesNp, &Clock::takeProperties},
      {Id::portDataSet, &Clock::takeOfPort<PortDataSet>},
      {Id::portDataSetNp, &Clock::takeOfPort<PortDataSetNp>},
      {Id::portStatsNp, &Clock::takeOfPort<PortStatsNp>},
      {Id::clockDescription, &Clock::takeOfPort<ClockDescription>},
      {Id::masterOnly, &Clock::takeMasterOnly},
      {Id::portServiceStatsNp, &Clock::takeOfPort<PortServiceStatsNp>},
      {Id::unicastMasterTableNp, &Clock::takeOfPort<UnicastMasterTableNp>},
      {Id::portHwclockNp, &Clock::takeOfPort<PortHwclockNp>},
};

Clock::Clock(Options options)
      : options_(std::move(options)),
        daemon_(options_.daemon, *this),
        status_(Ptp::statusFactory(options_.name + "/status"),
                options_.seconds != nullptr ? options_.seconds : &wallSeconds, options_.conf),
        config_(options_.config ? options_.config : Ptp::configFactory(options_.name + "/config"),
                daemon_, status_.ports()),
        instance_(Openconfig::Ptp::instanceFactory(options_.name + "/instance")) {
   instance_->idIs(options_.instanceId);
}

void Clock::onUp() {
   nameless_ = false;
   status_.up(daemon_.transportSpecific());
}

void Clock::onGone() {
   status_.gone();
   fillInstance(*instance_, status());
   if (onPorts) {
      onPorts();
   }
}

void Clock::onData(Message const& message) {
   auto const* const taker = std::find_if(std::begin(takers), std::end(takers),
                                          [&](Taker const& t) { return t.id == message.id; });
   if (taker == std::end(takers)) {
      return;
   }
   (this->*taker->take)(message);
   daemon_.syncIntervalIs(status_.syncInterval());
   fillInstance(*instance_, status());
}

void Clock::onPolled(Id id, std::vector<U16> const& ports) {
   if (id == (nameless_ ? Id::portDataSet : Id::portPropertiesNp)) {
      status_.keepOnly(ports);
      if (onPorts) {
         onPorts();
      }
   }
}

void Clock::onRefused(Id id) {
   if (id == Id::portPropertiesNp && !nameless_) {
      nameless_ = true;
      daemon_.say("does not tell its interfaces here: ports are shown as port1, port2, ...");
   }
}

template <class DataSet>
void Clock::takeOfClock(Message const& message) {
   auto const set = decode<DataSet>(message.data);
   if (!set) {
      daemon_.countMalformed();
      return;
   }
   if constexpr (requires { status_.take(*set); }) {
      status_.take(*set);
   }
   if constexpr (requires { config_.take(*set); }) {
      config_.take(*set);
   }
}

template <class DataSet>
void Clock::takeOfPort(Message const& message) {
   auto const set = decode<DataSet>(message.data);
   if (!set) {
      daemon_.countMalformed();
      return;
   }
   U16 const number = message.source.portNumber();
   if constexpr (std::is_same_v<DataSet, PortDataSet>) {
      if (nameless_) {
         takeNumbered(number, *set);
      }
   }
   Port* const port = status_.port(number);
   if (port == nullptr) {
      return;
   }
   if constexpr (requires { status_.take(*port, *set); }) {
      status_.take(*port, *set);
   }
   if constexpr (requires { config_.take(*port, *set); }) {
      config_.take(*port, *set);
   }
   if constexpr (requires { config_.take(number, *port, *set); }) {
      config_.take(number, *port, *set);
   }
   if constexpr (std::is_same_v<DataSet, ClockDescription>) {
      config_.take(status());
   }
   if constexpr (std::is_same_v<DataSet, PortHwclockNp>) {
      port->phcIndex = set->phcIndex;
   }
}

void Clock::takeProperties(Message const& message) {
   auto const set = decode<PortPropertiesNp>(message.data);
   if (!set || set->interface.text.empty()) {
      daemon_.countMalformed();
      return;
   }
   U16 const number = message.source.portNumber();
   try {
      status_.take(number, *set);
   } catch (Kiv::RangeException const& error) {
      std::string const name(set->interface.text);
      if (std::find(unnamed_.begin(), unnamed_.end(), name) == unnamed_.end()) {
         unnamed_.push_back(name);
         daemon_.say("port " + std::to_string(number) + " is left out: " + error.what());
      }
      return;
   }
   config_.take(*status_.port(number), *set);
}

/// Shows a port whose interface is not known.
void Clock::takeNumbered(U16 number, PortDataSet const& set) {
   std::string const name = "port" + std::to_string(number);
   PortPropertiesNp properties;
   properties.portIdentity = set.portIdentity;
   properties.portState = set.portState;
   properties.interface.text = name;
   status_.take(number, properties);
}

void Clock::takeMasterOnly(Message const& message) {
   auto const set = decode<OctetValue>(message.data);
   Port* const port = status_.port(message.source.portNumber());
   if (!set) {
      daemon_.countMalformed();
   } else if (port != nullptr) {
      status_.takeMasterOnly(*port, set->value != 0);
   }
}

}  // namespace Ptp4lAgent
