#include "tools/ptp4lAgent/ConfFile.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "Holt/Ptp4l/Write.h"

namespace Ptp4lAgent {

namespace {

/// Closes a descriptor at the end of its scope.
struct Closing {
   int fd;
   ~Closing() {
      if (fd >= 0) {
         ::close(fd);
      }
   }
};

/// Replaces a file as a whole. Returns 0, or the error of the call that failed.
int replaceFile(std::string const& path, std::string_view text) {
   std::string const fresh = path + ".new";
   // As a file that others may read, unless it was less before.
   struct stat old;
   ::mode_t const mode = ::stat(path.c_str(), &old) == 0 ? old.st_mode & 07777 : 0644;
   {
      Closing const file{::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode)};
      if (file.fd < 0) {
         return errno;
      }
      while (!text.empty()) {
         ::ssize_t const written = ::write(file.fd, text.data(), text.size());
         if (written < 0 && errno != EINTR) {
            return errno;
         }
         text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
      }
      if (::fchmod(file.fd, mode) != 0 || ::fsync(file.fd) != 0) {
         return errno;
      }
   }
   return ::rename(fresh.c_str(), path.c_str()) == 0 ? 0 : errno;
}

}  // namespace

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
   if (int const error = replaceFile(options_.path, written.text)) {
      say(options_.path + ": not written: " + std::strerror(error));
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
