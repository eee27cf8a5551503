#pragma once

#include <string>

namespace Ptpexport {

/// A TCP socket that listens at an address.
class Listening {
public:
   /// `address`: "127.0.0.1:9979" or "[::1]:9979"; port 0 stands for one that the system chooses.
   /// Throws `Holt::Failure`, with `Exit::usage` if that is no address.
   explicit Listening(std::string const& address);
   ~Listening();
   Listening(Listening const&) = delete;
   Listening& operator=(Listening const&) = delete;

   int fd() const noexcept { return fd_; }
   /// The address in the form above, with the port that the system has chosen.
   std::string const& address() const noexcept { return address_; }

private:
   std::string address_;
   int fd_ = -1;
};

}  // namespace Ptpexport
