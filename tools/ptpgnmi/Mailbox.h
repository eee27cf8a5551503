// Work that other threads have for the thread of the loop.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "Holt/Loop.h"

namespace Ptpgnmi {

/// Functions that any thread puts in, and the loop calls in that order.
class Mailbox final : public Holt::Source {
public:
   /// Throws `Holt::Failure` if the system has no descriptor left.
   Mailbox();
   ~Mailbox();
   Mailbox(Mailbox const&) = delete;
   Mailbox& operator=(Mailbox const&) = delete;

   /// Any thread. Never waits for the loop.
   void post(std::function<void()> work);

   /// Calls what has been posted. Waits for it, if there is nothing, for `most` milliseconds.
   void serve(int most);

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override { polled.push_back({fd_, POLLIN, 0}); }
   void onTurn(std::span<pollfd const> polled) override;

private:
   int fd_;
   std::mutex mutex_;
   std::vector<std::function<void()>> posted_;
   std::vector<std::function<void()>> taken_;
};

}  // namespace Ptpgnmi
