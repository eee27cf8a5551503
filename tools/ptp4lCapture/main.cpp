// ptp4lCapture: asks a running ptp4l(8) for everything that the agent asks for, and prints the
// answers for the agent's tests: a line in hexadecimal for each datagram.
//
//     ptp4lCapture SOCKET [DOMAIN [TRANSPORT_SPECIFIC]] > tools/ptp4lAgent/testdata/NAME
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/ptp4lAgent/Endpoint.h"
#include "tools/ptp4lAgent/Message.h"

namespace {

using namespace Ptp4lAgent;

constexpr Id asked[] = {
      Id::clockDescription,
      Id::defaultDataSet,
      Id::currentDataSet,
      Id::parentDataSet,
      Id::timePropertiesDataSet,
      Id::portDataSet,
      Id::priority1,
      Id::priority2,
      Id::masterOnly,
      Id::timeStatusNp,
      Id::grandmasterSettingsNp,
      Id::portDataSetNp,
      Id::portPropertiesNp,
      Id::portStatsNp,
      Id::portServiceStatsNp,
      Id::unicastMasterTableNp,
      Id::portHwclockNp,
};

/// How long to wait for another port to answer.
constexpr int milliseconds = 200;

void capture(Endpoint const& endpoint, Message& message) {
   ++message.sequenceId;
   if (int const error = endpoint.send(format(message)); error != 0) {
      std::fprintf(stderr, "ptp4lCapture: %s\n", std::strerror(error));
      std::exit(1);
   }
   std::printf("# %s\n", nameOf(message.id).c_str());
   std::array<U8, 2048> buffer;
   pollfd ready{endpoint.fd(), POLLIN, 0};
   while (::poll(&ready, 1, milliseconds) > 0) {
      Endpoint::Received const received = endpoint.receive(buffer);
      if (received.error != 0) {
         return;
      }
      for (std::size_t i = 0; i != received.size && i != buffer.size(); ++i) {
         std::printf("%02x", buffer[i]);
      }
      std::printf("\n");
   }
}

}  // namespace

int main(int argc, char** argv) {
   if (argc < 2 || argc > 4) {
      std::fprintf(stderr, "Usage: ptp4lCapture SOCKET [DOMAIN [TRANSPORT_SPECIFIC]]\n");
      return 2;
   }
   Endpoint endpoint("/tmp/ptp4lCapture." + std::to_string(::getpid()));
   if (int const error = endpoint.open(argv[1]); error != 0) {
      std::fprintf(stderr, "ptp4lCapture: %s: %s\n", argv[1], std::strerror(error));
      return 1;
   }
   Message message;
   message.domainNumber = static_cast<U8>(argc > 2 ? std::atoi(argv[2]) : 0);
   message.transportSpecific = static_cast<U8>(argc > 3 ? std::atoi(argv[3]) : 0);
   for (Id const id : asked) {
      message.id = id;
      capture(endpoint, message);
   }
   return 0;
}
