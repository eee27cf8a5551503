#include "tools/ptp4lAgent/ConfFile.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <ostream>

#include "Holt/Failure.h"
#include "Holt/File.h"
#include "Holt/Ptp4l/Write.h"

namespace Ptp4lAgent {

ConfFile::ConfFile(Sarn::Ptr<Ptp::Config> config, Options options)
      : config_(std::move(config)), options_(std::move(options)) {}

ConfFile::~ConfFile() {
   if (due_ != 0) {
      write();
   }
}

void ConfFile::changed() {
   if (due_ == 0) {
      due_ = options_.clock() + patience;
   }
}

U64 ConfFile::deadline() const {
   return isReloading() ? options_.clock() + lookAgain : due_;
}

void ConfFile::onTurn(std::span<pollfd const>) {
   int status = 0;
   if (isReloading() && ::waitpid(command_, &status, WNOHANG) == command_) {
      command_ = 0;
      if (WIFSIGNALED(status)) {
         say("the command of --reload was ended by signal " + std::to_string(WTERMSIG(status)));
      } else if (WEXITSTATUS(status) != 0) {
         say("the command of --reload ended with status " + std::to_string(WEXITSTATUS(status)));
      }
   }
   if (due_ != 0 && !isReloading() && options_.clock() >= due_ && write()) {
      reload();
   }
}

bool ConfFile::write() {
   due_ = 0;
   Holt::Ptp4lText const written =
         Holt::writePtp4lConf(*config_, options_.base ? &*options_.base : nullptr);
   try {
      Holt::writeWholeFile(options_.path, [&written](std::ostream& out) { out << written.text; });
   } catch (Holt::Failure const& failure) {
      say(failure.what());
      return false;
   }
   say(options_.path + ": written" +
       (written.notes.empty() ? "" : "; see its first lines for what it leaves out"));
   return true;
}

void ConfFile::reload() {
   if (options_.reload.empty()) {
      return;
   }
   char const* const args[] = {"sh", "-c", options_.reload.c_str(), nullptr};
   ::posix_spawnattr_t attributes;
   ::posix_spawnattr_init(&attributes);
   // What the agent blocks or ignores is not the command's business.
   ::sigset_t none;
   ::sigset_t all;
   ::sigemptyset(&none);
   ::sigfillset(&all);
   ::posix_spawnattr_setsigmask(&attributes, &none);
   ::posix_spawnattr_setsigdefault(&attributes, &all);
   ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
   ::posix_spawn_file_actions_t actions;
   ::posix_spawn_file_actions_init(&actions);
   ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
   ::pid_t command = 0;
   int const error = ::posix_spawn(&command, "/bin/sh", &actions, &attributes,
                                   const_cast<char* const*>(args), environ);
   ::posix_spawn_file_actions_destroy(&actions);
   ::posix_spawnattr_destroy(&attributes);
   if (error != 0) {
      say("the command of --reload cannot be run: " + std::string(std::strerror(error)));
      return;
   }
   command_ = command;
}

void ConfFile::say(std::string const& line) {
   if (options_.log != nullptr) {
      options_.log->line(Holt::timeText(Holt::wallNow()) + " " + line);
   }
}

}  // namespace Ptp4lAgent
