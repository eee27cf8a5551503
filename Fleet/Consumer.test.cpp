#include "Fleet/Consumer.h"

#include <poll.h>

#include "Fleet/Fixture.test.h"

namespace Fleet::Test {

namespace {

/// Twenty times as fast as the time.
U64 fastNow() noexcept {
   return 20 * Holt::steadyNow();
}

/// Subscribes to requests as a server would that has too much to do: it never answers.
class Overloaded {
public:
   Overloaded(NatsServer const& server, std::string const& subjects)
         : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      std::string const url = server.url();
      address.sin_port = htons(static_cast<U16>(std::stoi(url.substr(url.rfind(':') + 1))));
      if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
         throw std::runtime_error("cannot connect");
      }
      std::string const lines =
            "CONNECT {\"verbose\":false,\"pedantic\":false}\r\nSUB " + subjects + " 1\r\nPING\r\n";
      if (::write(fd_, lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
         throw std::runtime_error("cannot subscribe");
      }
      while (text_.find("PONG\r\n") == std::string::npos) {
         take();
      }
   }
   ~Overloaded() { ::close(fd_); }
   Overloaded(Overloaded const&) = delete;
   Overloaded& operator=(Overloaded const&) = delete;

   int requests() {
      pollfd polled{fd_, POLLIN, 0};
      while (::poll(&polled, 1, 0) > 0) {
         take();
      }
      int count = 0;
      for (std::size_t at = 0; (at = text_.find("\r\nMSG ", at)) != std::string::npos; ++at) {
         ++count;
      }
      return count;
   }

private:
   void take() {
      char buffer[4096];
      ssize_t const size = ::read(fd_, buffer, sizeof buffer);
      if (size <= 0) {
         throw std::runtime_error("the server has ended the connection");
      }
      text_.append(buffer, static_cast<std::size_t>(size));
   }

   int fd_;
   std::string text_;
};

struct Nothing final : Consumer::Reader {
   void onBegin() override {}
   void onEntry(Consumer::Entry const&) override {}
   void onCaughtUp() override {}
};

}  // namespace

using ConsumerTest = FleetTest;

TEST_F(ConsumerTest, AsksAClusterThatDoesNotAnswerLessAndLessOften) {
   NatsServer const server("", NatsServer::JetStream::no);
   Overloaded overloaded(server, "$JS.API.>");
   Holt::Loop fast(&fastNow);
   Connection connection({.urls = {server.url()}, .clock = &fastNow});
   Nothing nothing;
   fast.add(connection);
   Consumer consumer(connection, {.filter = "ptp.>"}, nothing);
   fast.add(consumer);
   // 80 seconds of the fast clock: asked at 0, 5.5, 16, 36.5 and 77, not every 5.5 s.
   auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
   while (std::chrono::steady_clock::now() < end) {
      fast.turn(-1, std::chrono::milliseconds(20));
   }
   EXPECT_GE(overloaded.requests(), 3);
   EXPECT_LE(overloaded.requests(), 5);
   fast.remove(consumer);
   fast.remove(connection);
}

}  // namespace Fleet::Test
