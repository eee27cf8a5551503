// Names by which a request may have reached this machine.
#pragma once

#include <string>
#include <string_view>

namespace Ptpexport {

/// Whether the header `Host` of a request is an address, "localhost", or absent. Any other name was
/// looked up: a page from elsewhere can have its own name lead to this machine's loopback, and then
/// read what a server there answers ("DNS rebinding"). Such a request has that name here.
bool isAddressOrLocalhost(std::string_view host);

/// Whether only this machine reaches an address of `Listening`.
bool isLoopback(std::string const& address);

}  // namespace Ptpexport
