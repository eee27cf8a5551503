// Creates a configuration, observes it, and mirrors it at the other end of a socket.
#include <poll.h>
#include <sys/socket.h>

#include <iostream>

#include "Kiv/NboAttrLogConnection.h"
#include "Kiv/Path.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

struct Printer final : Kiv::Observer {
   void onChange(Kiv::Change const& change) override {
      Kiv::Entity const& entity = Kiv::entityOf(change);
      std::cout << Kiv::entityPath(entity) << ": "
                << entity.kivType().field(change.attributeId)->name << " has changed\n";
   }
};

int main() {
   auto const config = Ptp::configFactory("ptp/config");
   auto const mirror = Ptp::configFactory("ptp/config");
   config->intfConfigIs(Dorn::IntfId("Ethernet1"), true, false)->logSyncIntervalIs(-3);
   Printer printer;
   mirror->observerAdd(printer, Kiv::Scope::subtree);

   int ends[2];
   if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
      return 1;
   }
   Kiv::NboAttrLog::Hub sourceHub;
   Kiv::NboAttrLog::Hub mirrorHub;  // in another process, as a rule
   sourceHub.rootIs(config);
   Kiv::NboAttrLog::FdConnection source(sourceHub, ends[0]);
   Kiv::NboAttrLog::FdConnection sink(mirrorHub, ends[1]);
   auto const& mount = sink.session().mountIs(mirror);
   while (!mount.complete()) {  // a program with a loop waits in poll() for `fd()` and `events()`
      sink.onReady(POLLIN | POLLOUT);
      source.onReady(POLLIN | POLLOUT);
   }

   config->domainNumberIs(24);
   source.flush();
   sink.onReady(POLLIN);
   std::cout << "domain " << +mirror->domainNumber() << ", interfaces " << mirror->intfConfigCount()
             << '\n';
   mirror->observerDel(printer, Kiv::Scope::subtree);
   return mirror->domainNumber() == 24 ? 0 : 1;
}
