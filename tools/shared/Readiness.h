// Talks to systemd, or to whoever else has started the program in the same way.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Holt/Loop.h"

namespace Tools {

/// Reports readiness to systemd once, as sd_notify(3) does, if the environment variable
/// NOTIFY_SOCKET asks for it: as soon as `settled` holds, or after `patience` at the latest, since
/// what the program waits for may be started later. Whoever starts the service and asks for its
/// roots thus finds them. If WATCHDOG_USEC asks for it, it then reports twice in that time that the
/// loop is alive. Unsets the variables.
///
/// Threads: belongs to the thread of its loop.
class Readiness final : public Holt::Source {
public:
   static constexpr U64 patience = 2'000'000'000;  // nanoseconds

   explicit Readiness(std::function<bool()> settled);
   Readiness(Readiness const&) = delete;
   Readiness& operator=(Readiness const&) = delete;

   /// What `systemctl status` shows.
   void statusIs(std::string const& text);
   /// The program is about to end.
   void stopping();

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   /// 0 once it has reported, and without a watchdog.
   U64 deadline() const override;
   void onTurn(std::span<pollfd const>) override;

private:
   /// Errors are ignored: whoever waits for the message gives up by itself.
   void send(std::string_view message) const;

   std::function<bool()> settled_;
   /// Where to report; empty: nowhere.
   std::string path_;
   U64 deadline_ = 0;
   /// Nanoseconds between signs of life; 0: none.
   U64 period_ = 0;
   U64 alive_ = 0;
};

/// The descriptor of the socket that systemd listens at for this program (sd_listen_fds(3)); -1 if
/// there is none. Unsets the variables that say so. Throws `Holt::Failure` if there are several.
int listeningSocket();

/// Whether standard output goes to the journal, which has its own times.
bool outputIsJournal();

}  // namespace Tools
