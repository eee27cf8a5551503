// An agent that offers its status at a socket, and a process that mirrors it: here both in one.
#include <unistd.h>

#include <iostream>

#include "Holt/Client.h"
#include "Holt/Server.h"
#include "Holt/State/Dump.h"
#include "PtpLib/PtpStatusStatedbTypes/HwTime.h"

int main() {
   // The agent: a listener, and who may write what it offers.
   auto const time = Ptp::hwTimeFactory("ptp/hwTime");
   Holt::Server::Options options;
   options.socket = "/tmp/agent-" + std::to_string(::getpid());
   options.writers = Holt::Writers::nobody("the agent's own");
   Holt::Server server(options);
   server.rootIs(time);

   // The other process.
   Holt::Client client(options.socket, std::chrono::seconds(10));
   auto const& mount = client.mountIs({"Ptp::HwTime", "ptp/hwTime"}, Holt::MountMode::reader);

   // An agent waits in `loop.run(stop.fd())`, with `Holt::StopSignals stop`.
   Holt::Loop loop;
   loop.add(server);
   loop.add(client);
   while (!mount.complete() && !client.over()) {
      loop.turn(-1);
   }
   time->fpgaAndSystemTimeIs(Ptp::FpgaAndSystemTime(1000, 7));
   server.sync();
   while (!server.synced()) {
      loop.turn(-1);
   }
   Holt::dumpRoots(std::cout, {&mount.root()});
   return client.over() ? 1 : 0;
}
