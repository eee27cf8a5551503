// Which network interfaces have a link, as the kernel tells.
#pragma once

#include <functional>
#include <string>

#include "Holt/Loop.h"

namespace Ptp4lAgent {

/// Tells of every interface of the agent's network namespace, first as it is, then whenever it
/// changes. An interface that is removed has no link.
///
/// Threads: belongs to the thread of its loop.
class Links final : public Holt::Source {
public:
   /// Without netlink, it tells nothing.
   explicit Links(std::function<void(std::string const& interface, bool up)> onLink);
   ~Links() { close(); }
   Links(Links const&) = delete;
   Links& operator=(Links const&) = delete;

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override { polled.push_back({fd_, POLLIN, 0}); }
   void onTurn(std::span<pollfd const> polled) override;

private:
   void close() noexcept;
   void askForAll() const noexcept;
   void take(std::span<unsigned char const> messages);

   std::function<void(std::string const& interface, bool up)> onLink_;
   /// -1 if there is none, or it has failed.
   int fd_;
};

}  // namespace Ptp4lAgent
