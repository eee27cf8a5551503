// The source: every status that a server offers, while it is current.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/shared/Feed.h"

namespace Ptpsnmp {

using Tools::Feed;

/// The statuses of a server, as a feed mirrors them. While the feed is not current, there are none:
/// nobody can tell whether old values still hold.
///
/// Threads: belongs to the thread of its loop.
class Statuses final : public Holt::Source, Feed::Listener {
public:
   using All = std::vector<Sarn::Ptr<Ptp::Status>>;

   struct Options {
      std::string socket;
      /// Names of the statuses to give, in this order; if empty, all, in the order of their names.
      std::vector<std::string> roots = {};
      /// Gets a line when the source comes or goes, and why it is not there; null for no log.
      Holt::LogOutput* log = nullptr;
      /// The clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   explicit Statuses(Options options);
   Statuses(Statuses const&) = delete;
   Statuses& operator=(Statuses const&) = delete;

   /// Called with all statuses whenever these have become others. Nothing may refer to the ones
   /// before when it returns.
   std::function<void(All const&)> onStatuses;

   /// What mirrors the server.
   Feed const& feed() const noexcept { return feed_; }

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override { feed_.appendTo(polled); }
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

   /// Nanoseconds that a reason must last to be logged: those of a connection that is being made
   /// pass faster.
   static constexpr U64 lasting = 50'000'000;

private:
   bool isWanted(Holt::OfferedRoot const& root) const;
   // `Feed::Listener`:
   void onStatus(Feed::Status const& status) override;
   void onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) override;
   void onRootGone(Kiv::NamedEntity& root) override;

   void tell();
   void remark();
   void say(Sarn::String const& what) const;
   Sarn::String reason() const;

   Options options_;
   /// The statuses that have been complete once, in their order.
   All known_;
   /// What has been told, and whether the feed was current then.
   All told_;
   bool current_ = false;
   /// The reason why the feed is not current, and since when it is that.
   Sarn::String noticed_;
   U64 noticedAt_ = 0;
   /// The reason that the log has.
   Sarn::String said_;
   Feed feed_;
};

}  // namespace Ptpsnmp
