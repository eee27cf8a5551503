// A client of an HTTP server that runs in the loop of the test.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>

#include "Holt/Loop.h"

namespace Ptpexport {

/// Takes turns until `done()`, for at most `most`. Returns whether it is done.
inline bool turnUntil(Holt::Loop& loop, std::function<bool()> const& done,
                      std::chrono::milliseconds most = std::chrono::seconds(5)) {
   auto const end = std::chrono::steady_clock::now() + most;
   while (!done()) {
      if (std::chrono::steady_clock::now() >= end) {
         return false;
      }
      loop.turn(-1, std::chrono::milliseconds(1));
   }
   return true;
}

/// With the `Date` header removed.
inline std::string withoutDate(std::string const& text) {
   std::size_t const begin = text.find("Date: ");
   return begin == std::string::npos
                ? text
                : text.substr(0, begin) + text.substr(text.find("\r\n", begin) + 2);
}

/// A connection to a server at 127.0.0.1.
class Peer {
public:
   /// `buffer`: bytes that the kernel keeps for it; 0: as usual.
   Peer(Holt::Loop& loop, std::string const& address, int buffer = 0) : loop_(loop) {
      fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (buffer != 0) {
         ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
      }
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      to.sin_port = htons(static_cast<U16>(std::stoi(address.substr(address.rfind(':') + 1))));
      EXPECT_EQ(::connect(fd_, reinterpret_cast<sockaddr const*>(&to), sizeof to), 0);
      loop_.turn(-1, std::chrono::milliseconds(1));  // the server accepts it
   }
   ~Peer() { ::close(fd_); }
   Peer(Peer const&) = delete;
   Peer& operator=(Peer const&) = delete;

   void send(std::string const& text) {
      std::size_t sent = 0;
      turnUntil(loop_, [&] {
         auto const size =
               ::send(fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
         over_ = over_ || (size < 0 && errno != EAGAIN);
         sent += size > 0 ? static_cast<std::size_t>(size) : 0;
         return sent == text.size() || over_;
      });
   }
   void get(std::string const& target) {
      send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
   }

   /// Takes what has arrived, at most `most` bytes.
   void take(std::size_t most = std::size_t(1) << 16) {
      static char buffer[1 << 16];
      auto const size = ::recv(fd_, buffer, std::min(most, sizeof buffer), MSG_DONTWAIT);
      if (size > 0) {
         text_.append(buffer, static_cast<std::size_t>(size));
      } else if (size == 0 || errno != EAGAIN) {
         over_ = true;
      }
   }
   /// Waits until it has received this.
   bool has(std::string const& text) {
      std::size_t from = 0;
      return turnUntil(loop_,
                       [&] {
                          take();
                          bool const found = text_.find(text, from) != std::string::npos;
                          from = text_.size() - std::min(text_.size(), text.size());
                          return found || over_;
                       }) &&
             text_.find(text) != std::string::npos;
   }
   /// Waits until the server has closed the connection.
   bool isOver() {
      return turnUntil(loop_, [&] {
         take();
         return over_;
      });
   }
   /// Whether the server has closed the connection already.
   bool over() const { return over_; }
   /// What it has received.
   std::string const& text() const { return text_; }
   void forget() { text_.clear(); }

   /// The answer to a request on this connection, which the server is told to close.
   std::string answer(std::string const& target, std::string const& method = "GET") {
      send(method + " " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
      EXPECT_TRUE(isOver());
      return withoutDate(text_);
   }

private:
   Holt::Loop& loop_;
   int fd_ = -1;
   std::string text_;
   bool over_ = false;
};

/// What follows the headers, with the chunks joined.
inline std::string bodyOf(std::string const& answer) {
   std::size_t const end = answer.find("\r\n\r\n");
   if (end == std::string::npos) {
      return {};
   }
   std::string const rest = answer.substr(end + 4);
   if (answer.substr(0, end).find("Transfer-Encoding: chunked") == std::string::npos) {
      return rest;
   }
   std::string body;
   for (std::size_t at = 0; at < rest.size();) {
      std::size_t const size = std::stoul(rest.substr(at, rest.find("\r\n", at) - at), nullptr, 16);
      at = rest.find("\r\n", at) + 2;
      body += rest.substr(at, size);
      at += size + 2;
   }
   return body;
}

}  // namespace Ptpexport
