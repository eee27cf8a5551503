// A nats-server of a test's own, on a free port of the loopback, with a temporary directory.
#pragma once

#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "Sarn/Types.h"

namespace Fleet::Test {

inline U16 freePort() {
   int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_in address{};
   address.sin_family = AF_INET;
   address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   socklen_t size = sizeof address;
   if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
       ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("no free port");
   }
   ::close(fd);
   return ntohs(address.sin_port);
}

class NatsServer {
public:
   static bool isInstalled() { return ::access(path, X_OK) == 0; }

   enum class JetStream { no, yes };

   /// `more`: lines of its configuration.
   explicit NatsServer(std::string const& more = {}, JetStream jetStream = JetStream::yes)
         : port_(freePort()) {
      std::string name = std::filesystem::temp_directory_path() / "fleet-XXXXXX";
      directory_ = ::mkdtemp(name.data());
      std::ofstream(directory_ + "/conf")
            << "listen: 127.0.0.1:" << port_ << "\nserver_name: test\n"
            << (jetStream == JetStream::yes
                      ? "jetstream { store_dir: \"" + directory_ + "/store\" }\n"
                      : "")
            << "log_file: \"" << directory_ << "/log\"\n"
            << more;
      start();
   }
   ~NatsServer() {
      kill();
      std::error_code ignored;
      std::filesystem::remove_all(directory_, ignored);
   }
   NatsServer(NatsServer const&) = delete;
   NatsServer& operator=(NatsServer const&) = delete;

   std::string url() const { return "nats://127.0.0.1:" + std::to_string(port_); }
   std::string const& directory() const { return directory_; }

   void start() {
      std::string const conf = directory_ + "/conf";
      pid_ = ::fork();
      if (pid_ == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // even if the test is killed
         ::execl(path, path, "-c", conf.c_str(), nullptr);
         ::_exit(127);
      }
      for (int i = 0; i != 200 && !accepts(); ++i) {
         std::this_thread::sleep_for(std::chrono::milliseconds(25));
      }
      if (!accepts()) {
         throw std::runtime_error("nats-server does not start");
      }
   }
   void kill() {
      if (pid_ > 0) {
         ::kill(pid_, SIGKILL);
         ::waitpid(pid_, nullptr, 0);
         pid_ = -1;
      }
   }
   pid_t pid() const { return pid_; }
   void pause() { ::kill(pid_, SIGSTOP); }
   void goOn() { ::kill(pid_, SIGCONT); }

private:
   static constexpr char const* path = "/usr/sbin/nats-server";

   bool accepts() const {
      int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      address.sin_port = htons(port_);
      bool const ok = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
      ::close(fd);
      return ok;
   }

   U16 port_;
   pid_t pid_ = -1;
   std::string directory_;
};

}  // namespace Fleet::Test
