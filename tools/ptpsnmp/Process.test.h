// Other programs, for tests.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Ptpsnmp {

/// Whether `done()` holds within ten seconds.
template <class Done>
bool eventually(Done&& done) {
   auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
   while (!done()) {
      if (std::chrono::steady_clock::now() > end) {
         return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
   }
   return true;
}

inline std::string contentOf(std::string const& file) {
   std::ostringstream read;
   read << std::ifstream(file).rdbuf();
   return read.str();
}

/// A running program whose output goes to a file. Killed at the end if it still runs.
class Process {
public:
   /// `arguments`: the first is the program. `environment`: "NAME=VALUE", besides this process's.
   Process(std::vector<std::string> const& arguments, std::string const& output,
           std::vector<std::string> const& environment = {}) {
      std::vector<char*> list;
      for (std::string const& argument : arguments) {
         list.push_back(const_cast<char*>(argument.c_str()));
      }
      list.push_back(nullptr);
      pid_ = ::fork();
      if (pid_ == 0) {
         int const fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
         ::dup2(fd, STDOUT_FILENO);
         ::dup2(fd, STDERR_FILENO);
         for (std::string const& variable : environment) {
            ::putenv(const_cast<char*>(variable.c_str()));
         }
         ::execvp(list[0], list.data());
         ::_exit(127);
      }
   }
   ~Process() {
      if (pid_ > 0) {
         ::kill(pid_, SIGKILL);
         ::waitpid(pid_, nullptr, 0);
      }
   }
   Process(Process const&) = delete;
   Process& operator=(Process const&) = delete;

   pid_t pid() const noexcept { return pid_; }
   void signal(int number) const { ::kill(pid_, number); }
   /// Its exit status, within ten seconds; -1 if it goes on, or was killed.
   int finish() {
      int status = 0;
      if (!eventually([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; })) {
         return -1;
      }
      pid_ = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
   }

private:
   pid_t pid_ = -1;
};

}  // namespace Ptpsnmp
