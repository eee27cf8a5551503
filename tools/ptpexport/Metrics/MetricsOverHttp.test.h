// The program with a status that the test serves, and what its clients get.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>

#include "Holt/Server.h"
#include "tools/demoAgent/Agent.h"

namespace Ptpexport::MetricsTest {

using Time = std::chrono::steady_clock;
using namespace std::chrono_literals;

/// A process that ends with the test, whatever happens, and writes its output to a file.
class Child {
public:
   Child(std::vector<std::string> const& command, std::string const& output) {
      std::vector<char*> arguments;
      for (std::string const& word : command) {
         arguments.push_back(const_cast<char*>(word.c_str()));
      }
      arguments.push_back(nullptr);
      pid_ = ::fork();
      if (pid_ == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);
         int const fd = ::open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
         ::dup2(fd, STDOUT_FILENO);
         ::dup2(fd, STDERR_FILENO);
         ::execvp(arguments[0], arguments.data());
         ::_exit(127);
      }
   }
   /// Gives it five seconds to end.
   ~Child() {
      ::kill(pid_, SIGTERM);
      for (int i = 0; i != 100; ++i) {
         if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
            return;
         }
         ::usleep(50'000);
      }
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
   }
   Child(Child const&) = delete;
   Child& operator=(Child const&) = delete;

private:
   pid_t pid_;
};

inline sockaddr_in loopback(U16 port) {
   sockaddr_in address{};
   address.sin_family = AF_INET;
   address.sin_port = htons(port);
   address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   return address;
}

/// A port that nobody uses at the moment.
inline U16 freePort() {
   int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_in address = loopback(0);
   socklen_t size = sizeof address;
   ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
   ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
   ::close(fd);
   return ntohs(address.sin_port);
}

/// Bytes of the answer to GET /metrics.
inline U64 sizeOfMetrics(U16 port) {
   int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   timeval const most{10, 0};
   ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof most);
   sockaddr_in const address = loopback(port);
   std::string const request =
         "GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
   U64 size = 0;
   if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 &&
       ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
      std::vector<char> piece(1 << 18);
      for (ssize_t count = 0; (count = ::recv(fd, piece.data(), piece.size(), 0)) > 0;) {
         size += static_cast<U64>(count);
      }
   }
   ::close(fd);
   return size;
}

struct Answer {
   std::string head;
   std::string body;
};

inline std::string readFile(std::string const& path) {
   std::stringstream text;
   text << std::ifstream(path).rdbuf();
   return text.str();
}

/// A status that is served here, and the program, which shows it.
class MetricsOverHttp : public testing::Test {
protected:
   void SetUp() override {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptpexport.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      DemoAgent::Agent agent(status, ports, 1);
      agent.fill();
      agent.tick();
      serve();
      exporter = std::make_unique<Child>(
            std::vector<std::string>{PTPLIB_BIN_DIR "/ptpexport", "--socket", directory + "/socket",
                                     "--listen", "127.0.0.1:0"},
            directory + "/ptpexport.log");
      ASSERT_TRUE(until(10s, [&] { return exportPort() != 0; })) << log("ptpexport");
   }
   void TearDown() override {
      if (HasFailure()) {
         std::cerr << log("ptpexport");
      }
      exporter.reset();
      stopServing();
      std::filesystem::remove_all(directory);
   }

   virtual void serve() {
      Holt::Server::Options options;
      options.socket = directory + "/socket";
      server = std::make_unique<Holt::Server>(options);
      server->rootIs(status);
      loop.add(*server);
   }
   virtual void stopServing() {
      if (server) {
         loop.remove(*server);
         server.reset();
      }
   }
   /// The port that the program says it listens on; 0 if it has not said so yet.
   U16 exportPort() const {
      std::string const said = log("ptpexport");
      std::string const before = "http://127.0.0.1:";
      std::size_t const at = said.find(before);
      return at == said.npos
                   ? U16{0}
                   : static_cast<U16>(std::strtoul(said.c_str() + at + before.size(), nullptr, 10));
   }
   std::string log(std::string const& name) const {
      return readFile(directory + "/" + name + ".log");
   }

   /// Serves until the condition holds, for this long at most. Returns whether it does.
   bool until(std::chrono::seconds most, std::function<bool()> const& holds) {
      for (auto const end = Time::now() + most; Time::now() < end;) {
         if (holds()) {
            return true;
         }
         loop.turn(-1, 2ms);
      }
      return false;
   }
   /// Asks over HTTP, and serves meanwhile. Nothing if that takes more than five seconds.
   std::optional<Answer> get(U16 port, std::string const& path, std::string const& headers = "") {
      int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_in const address = loopback(port);
      std::string all;
      std::string const request = "GET " + path +
                                  " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" +
                                  headers + "\r\n";
      bool whole = false;
      if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 &&
          ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
         ::fcntl(fd, F_SETFL, O_NONBLOCK);
         whole = until(5s, [&] {
            char piece[65'536];
            ssize_t count = 0;
            while ((count = ::recv(fd, piece, sizeof piece, 0)) > 0) {
               all.append(piece, static_cast<std::size_t>(count));
            }
            return count == 0;
         });
      }
      ::close(fd);
      std::size_t const blank = all.find("\r\n\r\n");
      if (!whole || blank == all.npos) {
         return std::nullopt;
      }
      Answer answer{all.substr(0, blank + 2), all.substr(blank + 4)};
      if (answer.head.find("hunked") != answer.head.npos) {
         answer.body = unchunked(answer.body);
      }
      return answer;
   }
   static std::string unchunked(std::string const& body) {
      std::string whole;
      for (std::size_t at = 0; at < body.size();) {
         std::size_t const size = std::strtoul(body.c_str() + at, nullptr, 16);
         at = body.find("\r\n", at) + 2;
         whole.append(body, at, size);
         at += size + 2;
         if (size == 0) {
            break;
         }
      }
      return whole;
   }

   static std::size_t samplesIn(std::string const& text) {
      std::size_t samples = 0;
      std::istringstream in(text);
      for (std::string line; std::getline(in, line);) {
         samples += !line.empty() && line[0] != '#' ? 1u : 0u;
      }
      return samples;
   }

   std::string directory;
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   U32 ports = 4;
   std::unique_ptr<Holt::Server> server;
   Holt::Loop loop;
   std::unique_ptr<Child> exporter;
};

}  // namespace Ptpexport::MetricsTest
