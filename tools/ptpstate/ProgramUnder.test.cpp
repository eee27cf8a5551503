#include "tools/ptpstate/ProgramUnderTest.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace Ptpstate {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

Program::Program(std::vector<std::string> const& args, Surroundings const& in) {
   std::string const program = PTPLIB_BIN_DIR "/" + in.program;
   std::vector<char*> words{const_cast<char*>(program.c_str())};
   for (std::string const& argument : args) {
      words.push_back(const_cast<char*>(argument.c_str()));
   }
   words.push_back(nullptr);
   int out[2];
   int err[2];
   if (::pipe2(out, O_CLOEXEC) < 0 || ::pipe2(err, O_CLOEXEC) < 0) {
      throw std::runtime_error("no pipes");
   }
   pid_ = ::fork();
   if (pid_ == 0) {
      ::dup2(in.output >= 0 ? in.output : out[1], 1);
      ::dup2(err[1], 2);
      ::unsetenv("PTPSTATE_SOCKET");
      ::unsetenv("XDG_RUNTIME_DIR");
      ::setenv("LC_ALL", "C.UTF-8", 1);
      bool ready = in.directory.empty() || ::chdir(in.directory.c_str()) == 0;
      if (!in.socket.empty()) {
         ready = ready && ::setenv("PTPSTATE_SOCKET", in.socket.c_str(), 1) == 0;
      }
      if (!in.runtime.empty()) {
         ready = ready && ::setenv("XDG_RUNTIME_DIR", in.runtime.c_str(), 1) == 0;
      }
      if (!in.preload.empty()) {
         ready = ready && ::setenv("LD_PRELOAD", in.preload.c_str(), 1) == 0;
      }
      if (!in.input.empty()) {
         int const input = ::open(in.input.c_str(), O_RDONLY | O_CLOEXEC);
         ready = ready && input >= 0 && ::dup2(input, 0) == 0;
      }
      if (!ready || (in.uid != 0 && ::geteuid() == 0 && ::setuid(in.uid) != 0)) {
         ::_exit(126);
      }
      ::execv(program.c_str(), words.data());
      ::_exit(127);
   }
   ::close(out[1]);
   ::close(err[1]);
   outFd_ = out[0];
   errFd_ = err[0];
}

Program::~Program() {
   if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      finish();
   }
}

void Program::signal(int number) const {
   if (pid_ > 0) {
      ::kill(pid_, number);
   }
}

bool Program::read(milliseconds wait) {
   pollfd polled[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
   ::poll(polled, 2, static_cast<int>(wait.count()));
   int* const fds[2] = {&outFd_, &errFd_};
   std::string* const texts[2] = {&outcome_.out, &outcome_.err};
   for (int i = 0; i != 2; ++i) {
      if (polled[i].revents != 0) {
         char bytes[65536];
         ssize_t const count = ::read(*fds[i], bytes, sizeof bytes);
         if (count > 0) {
            texts[i]->append(bytes, static_cast<std::size_t>(count));
         } else {
            ::close(*fds[i]);
            *fds[i] = -1;
         }
      }
   }
   return outFd_ >= 0 || errFd_ >= 0;
}

bool Program::says(std::string const& text, int times) {
   auto const end = SteadyClock::now() + std::chrono::seconds(10);
   for (;;) {
      int found = 0;
      for (std::size_t at = outcome_.out.find(text); at != std::string::npos;
           at = outcome_.out.find(text, at + 1)) {
         ++found;
      }
      if (found >= times) {
         return true;
      }
      if (SteadyClock::now() > end || outFd_ < 0 || !read(milliseconds(50))) {
         return false;
      }
   }
}

Outcome const& Program::finish() {
   if (pid_ <= 0) {
      return outcome_;
   }
   auto const end = SteadyClock::now() + std::chrono::seconds(20);
   while (read(milliseconds(50))) {
      if (SteadyClock::now() > end) {
         ::kill(pid_, SIGKILL);
      }
   }
   int status = 0;
   ::waitpid(pid_, &status, 0);
   outcome_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
   pid_ = -1;
   return outcome_;
}

Outcome run(std::vector<std::string> const& args, uid_t uid) {
   return Program(args, uid).finish();
}

Outcome run(std::vector<std::string> const& args, Surroundings const& in) {
   return Program(args, in).finish();
}

Scratch::Scratch() {
   char path[] = "/tmp/ptpstate-test-XXXXXX";
   if (::mkdtemp(path) == nullptr) {
      throw std::runtime_error("no directory for the test");
   }
   path_ = path;
}

Scratch::~Scratch() {
   std::error_code ignored;
   std::filesystem::remove_all(path_, ignored);
}

void WithServer::serve(std::vector<std::string> const& more) {
   std::vector<std::string> args{"serve", "--socket", socket};
   args.insert(args.end(), more.begin(), more.end());
   server = std::make_unique<Program>(args);
   ASSERT_TRUE(server->says("serving ")) << server->finish().err;
}

Outcome WithServer::client(std::vector<std::string> args, uid_t uid) const {
   args.insert(args.begin() + 1, {"--socket", socket});
   return run(args, uid);
}

namespace {

/// A stream socket that `attach`, connect() or bind(), has given the address.
template <class Attach>
int socketAt(std::string const& path, Attach attach) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.data(), path.size());
   int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   if (attach(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) {
      return fd;
   }
   ::close(fd);
   return -1;
}

}  // namespace

int connectedTo(std::string const& path) {
   return socketAt(path, ::connect);
}

int listeningAt(std::string const& path, int backlog) {
   int const fd = socketAt(path, ::bind);
   if (fd < 0 || ::listen(fd, backlog) < 0) {
      throw std::runtime_error("no socket for the test");
   }
   return fd;
}

std::string readFile(std::string const& path) {
   std::ifstream file(path, std::ios::binary);
   std::ostringstream text;
   text << file.rdbuf();
   return text.str();
}

std::string replaced(std::string text, std::string const& from, std::string const& to) {
   for (std::size_t at = text.find(from); at != std::string::npos;
        at = text.find(from, at + to.size())) {
      text.replace(at, from.size(), to);
   }
   return text;
}

std::string withoutTimes(std::string const& text) {
   static std::regex const time(R"((^|\n)\d\d:\d\d:\d\d\.\d\d\d )");
   return std::regex_replace(text, time, "$1TIME ");
}

}  // namespace Ptpstate
