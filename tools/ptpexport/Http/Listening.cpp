#include "tools/ptpexport/Http/Listening.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

#include "Holt/Failure.h"

namespace Ptpexport {
namespace {

using Holt::Exit;
using Holt::Failure;

struct FreeAddresses {
   void operator()(addrinfo* info) const noexcept { ::freeaddrinfo(info); }
};

std::unique_ptr<addrinfo, FreeAddresses> resolved(std::string const& text) {
   std::size_t const colon = text.rfind(':');
   std::string host = text.substr(0, colon);
   std::string const port = colon != std::string::npos ? text.substr(colon + 1) : "";
   bool const bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
   if (bracketed) {
      host = host.substr(1, host.size() - 2);
   }
   addrinfo wanted{};
   wanted.ai_family = bracketed ? AF_INET6 : AF_INET;
   wanted.ai_socktype = SOCK_STREAM;
   wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
   addrinfo* found = nullptr;
   bool const isPort = !port.empty() && port.size() <= 5 &&
                       std::ranges::all_of(port, [](char c) { return c >= '0' && c <= '9'; }) &&
                       std::stoul(port) <= 65535;
   if (host.empty() || !isPort || ::getaddrinfo(host.c_str(), port.c_str(), &wanted, &found) != 0) {
      throw Failure(
            "--listen " + text + ": expected ADDRESS:PORT, such as 127.0.0.1:9979 or [::1]:9979",
            Exit::usage);
   }
   return std::unique_ptr<addrinfo, FreeAddresses>(found);
}

std::string nameOf(int fd) {
   sockaddr_storage address{};
   socklen_t size = sizeof address;
   char host[NI_MAXHOST];
   char port[NI_MAXSERV];
   if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
       ::getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host, sizeof host, port,
                     sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
      return "?";
   }
   return address.ss_family == AF_INET6 ? "[" + std::string(host) + "]:" + port
                                        : std::string(host) + ":" + port;
}

}  // namespace

Listening::Listening(std::string const& address) {
   auto const info = resolved(address);
   fd_ = ::socket(info->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   int const on = 1;
   bool const bound = fd_ >= 0 &&
                      ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                      (info->ai_family != AF_INET6 ||
                       ::setsockopt(fd_, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on) == 0) &&
                      ::bind(fd_, info->ai_addr, info->ai_addrlen) == 0 && ::listen(fd_, 128) == 0;
   if (!bound) {
      int const error = errno;
      if (fd_ >= 0) {
         ::close(fd_);
      }
      throw Failure(address + ": cannot listen there: " + std::generic_category().message(error),
                    Exit::connection);
   }
   address_ = nameOf(fd_);
}

Listening::~Listening() {
   ::close(fd_);
}

}  // namespace Ptpexport
