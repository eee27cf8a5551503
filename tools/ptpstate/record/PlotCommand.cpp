// plot
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <system_error>

#include "Holt/File.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/record/Curves.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// A file in memory that another program reads or writes.
class Sheet {
public:
   explicit Sheet(char const* name) : fd_(::memfd_create(name, MFD_CLOEXEC)) {
      if (fd_ < 0) {
         throw Failure(std::string("no memory for ") + name + ": " +
                       std::generic_category().message(errno));
      }
   }
   ~Sheet() { ::close(fd_); }
   Sheet(Sheet const&) = delete;
   Sheet& operator=(Sheet const&) = delete;

   int fd() const noexcept { return fd_; }
   void write(std::string_view text) const {
      while (!text.empty()) {
         ssize_t const written = ::write(fd_, text.data(), text.size());
         if (written <= 0) {
            throw Failure("no memory for the curves: " + std::generic_category().message(errno));
         }
         text.remove_prefix(static_cast<std::size_t>(written));
      }
      ::lseek(fd_, 0, SEEK_SET);
   }
   std::string read() const {
      std::string text;
      char some[65536];
      for (ssize_t count = 0;
           (count = ::pread(fd_, some, sizeof(some), static_cast<off_t>(text.size()))) > 0;) {
         text.append(some, static_cast<std::size_t>(count));
      }
      return text;
   }

private:
   int fd_;
};

/// What gnuplot makes of a program.
std::string drawn(std::string const& program) {
   Sheet const input("gnuplot's input");
   Sheet const output("gnuplot's output");
   Sheet const errors("gnuplot's errors");
   input.write(program);
   posix_spawn_file_actions_t actions;
   ::posix_spawn_file_actions_init(&actions);
   ::posix_spawn_file_actions_adddup2(&actions, input.fd(), STDIN_FILENO);
   ::posix_spawn_file_actions_adddup2(&actions, output.fd(), STDOUT_FILENO);
   ::posix_spawn_file_actions_adddup2(&actions, errors.fd(), STDERR_FILENO);
   // Without the settings of a user, which would change the picture.
   char const* const args[] = {"gnuplot", "-d", "-", nullptr};
   pid_t child = 0;
   int const error = ::posix_spawnp(&child, args[0], &actions, nullptr,
                                    const_cast<char* const*>(args), environ);
   ::posix_spawn_file_actions_destroy(&actions);
   if (error == ENOENT) {
      throw Failure("plot needs gnuplot; install it with: apt-get install gnuplot-nox");
   }
   int status = 0;
   if (error != 0 || ::waitpid(child, &status, 0) != child) {
      throw Failure("gnuplot cannot be run: " + std::generic_category().message(error));
   }
   if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      throw Failure("gnuplot failed: " + errors.read());
   }
   return output.read();
}

Exit plot(ReplayOptions const& options, std::string const& out) {
   checkWritable(out);
   Curves curves(options.paths);
   Replay replay(options, &curves);
   replay.run();
   std::string const drawing = drawn(curves.program());
   writeWholeFile(out, [&drawing](std::ostream& stream) { stream << drawing; });
   if (!replay.damage().empty()) {
      throw Failure(replay.damage());
   }
   return Exit::ok;
}

}  // namespace

void addPlot(Command const& program, Run& run) {
   auto const options = std::make_shared<ReplayOptions>();
   auto const out = std::make_shared<std::string>();
   Command const command = program.command(
         "plot",
         "Draws what attributes were over the time of a recording, as an SVG file. Numbers become "
         "lines, names such as the state of a port become steps; while the recorder had lost the "
         "server, there is a gap. For a ring of files, give the name without the number. Times are "
         "those of replay. However long the recording, the greatest and the least value of any "
         "moment are drawn.\n"
         "\n"
         "Requires gnuplot.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate plot --path ptp/status.currentDS.offsetFromMaster --out offset.svg "
         "monday.rec\n"
         "  $ ptpstate plot --path 'ptp/status.portDS[*].portState' --since 14:00 --out states.svg "
         "monday.rec");
   command.option("files", options->files).placeholder("FILE").required();
   command
         .option("--path", options->paths,
                 "Draw the value there; may be repeated. A * in a key stands for any characters")
         .placeholder("PATH")
         .required();
   command.option("--out", *out, "Write the drawing there; - for standard output")
         .placeholder("FILE")
         .required()
         .notEmpty();
   command.option("--since", options->since, "Begin at that time").placeholder("TIME").notEmpty();
   command.option("--until", options->until, "End at that time").placeholder("TIME").notEmpty();
   command.onChosen(
         [options, out, &run] { run = [options, out] { return plot(*options, *out); }; });
}

}  // namespace Ptpstate
