// Keeps the configuration file of a daemon as others change the configuration.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "Holt/Ptp4l/Conf.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace Ptp4lAgent {

/// Writes a configuration to a file of ptp4l(8) after others have changed it, and then runs a
/// command, for instance one that restarts the daemon.
///
/// Several changes in a row are written once. The file is replaced as a whole: a reader sees the
/// old one or the new one. If it cannot be written, the log says why, and the next change tries
/// again. The command is run by `sh -c`, one at a time: what changes meanwhile is written, and the
/// command run again, when it has ended.
///
/// Threads: belongs to the thread of its loop.
class ConfFile final : public Holt::Source {
public:
   struct Options {
      std::string path;
      /// Empty: none.
      std::string reload;
      /// The file that the daemon was started with: what the model has no place for is copied from
      /// it.
      std::optional<Holt::Ptp4lConf> base = std::nullopt;
      Holt::LogOutput* log = nullptr;
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   /// How long a change waits for others, in nanoseconds.
   static constexpr U64 patience = 500'000'000;
   /// How often a running command is looked at, in nanoseconds.
   static constexpr U64 lookAgain = 50'000'000;

   ConfFile(Sarn::Ptr<Ptp::Config> config, Options options);
   /// Writes changes that still wait, without running the command. A command that runs is left
   /// alone.
   ~ConfFile();
   ConfFile(ConfFile const&) = delete;
   ConfFile& operator=(ConfFile const&) = delete;

   /// Others have changed the configuration.
   void changed();
   /// Whether the command is running.
   bool isReloading() const noexcept { return command_ > 0; }

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   bool write();
   void reload();
   void say(std::string const& line);

   Sarn::Ptr<Ptp::Config> config_;
   Options options_;
   /// When to write; 0: nothing has changed.
   U64 due_ = 0;
   /// The running command; 0: none.
   pid_t command_ = 0;
};

}  // namespace Ptp4lAgent
