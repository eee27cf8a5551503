#include "tools/ptpexport/Http/Host.h"

#include <arpa/inet.h>
#include <strings.h>

namespace Ptpexport {

namespace {

/// Without the port, and an IPv6 address without its brackets.
std::string nameOf(std::string_view host) {
   std::size_t const bracket = host.starts_with('[') ? host.find(']') : host.npos;
   if (bracket != host.npos) {
      return std::string(host.substr(1, bracket - 1));
   }
   return std::string(host.substr(0, host.rfind(':')));
}

}  // namespace

bool isAddressOrLocalhost(std::string_view host) {
   std::string const name = nameOf(host);
   in6_addr address{};
   return name.empty() || ::strcasecmp(name.c_str(), "localhost") == 0 ||
          ::inet_pton(AF_INET, name.c_str(), &address) == 1 ||
          ::inet_pton(AF_INET6, name.c_str(), &address) == 1;
}

bool isLoopback(std::string const& address) {
   std::string const name = nameOf(address);
   return name.starts_with("127.") || name == "::1";
}

}  // namespace Ptpexport
