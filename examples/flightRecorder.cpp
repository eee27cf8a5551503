// An agent that keeps a recording of what happened recently, and shows its state a moment ago.
#include <chrono>
#include <filesystem>
#include <iostream>

#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace {

template <class Clock>
U64 nanoseconds() {
   auto const now = Clock::now().time_since_epoch();
   return static_cast<U64>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

Kiv::NboAttrLog::Moment now() {
   return {nanoseconds<std::chrono::steady_clock>(), nanoseconds<std::chrono::system_clock>()};
}

}  // namespace

int main() {
   std::filesystem::path const directory =
         std::filesystem::temp_directory_path() / ("flight-" + std::to_string(now().steady));
   std::filesystem::create_directory(directory);

   auto const config = Ptp::configFactory("ptp/config");
   Kiv::NboAttrLog::Hub hub;
   hub.rootIs(config);

   // At most eight files of 64 MiB, flight.000001 and so on.
   Kiv::NboAttrLog::RecordFiles files((directory / "flight").string(), 8);
   Kiv::NboAttrLog::RecorderOptions options;
   options.fileSize = U64(64) << 20;
   Kiv::NboAttrLog::Recorder recorder(hub, files, options);
   for (U8 turn = 1; turn != 4; ++turn) {  // the agent's loop
      config->domainNumberIs(turn);
      do {
         recorder.turn(now());
      } while (recorder.waiting());
   }
   recorder.close(now());

   Kiv::NboAttrLog::RecordingFile file(files.current());
   Kiv::NboAttrLog::RecordingReader reader(file);
   Kiv::NboAttrLog::Player player([](Kiv::NboAttrLog::OfferedRoot const& root) {
      return Sarn::Ptr<Kiv::NamedEntity>(Ptp::configFactory(root.name).get());
   });
   for (Kiv::NboAttrLog::RecordingReader::Frame frame; reader.next(frame);) {
      if (!player.apply(frame)) {
         std::cerr << player.reason() << '\n';
         return 1;
      }
      if (player.complete()) {
         auto const& then = static_cast<Ptp::Config const&>(*player.roots().front());
         std::cout << frame.at.wall << ": domain " << +then.domainNumber() << '\n';
      }
   }
   std::filesystem::remove_all(directory);
   bool const same = player.complete() &&
                     static_cast<Ptp::Config const&>(*player.roots().front()).domainNumber() == 3;
   return same && !reader.damaged() ? 0 : 1;
}
