#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "Holt/State/Path.h"
#include "tools/ptpexport/Http/Reply.h"
#include "tools/shared/Feed.h"

namespace Ptpexport {

using Tools::Feed;

class EventStream;

/// Answers `GET /events?path=P&path=Q` with server-sent events: a message for each change at these
/// paths and below, or anywhere without paths. A message is a line of `ptpstate watch --json`:
///
///     data: {"time":"...Z","path":"ptp/status.portDS[Ethernet1].portState","change":"set",
///            "old":"slave","new":"faulty"}
///
/// An event `source` has the object of `/healthz`. It comes first if the state is old, and whenever
/// it becomes old or is up to date again. A client that reads a state once and follows its changes
/// fetches the state again then. A comment comes when nothing else does.
///
/// A reader that falls behind costs `Limits::backlog` bytes, one message, and the paths of up to
/// `Limits::paths` changes. When it reads on, it gets the backlog, then a message
/// `{"time":...,"event":"coalesced","changes":N}`, and then what is at these paths, without "old".
/// If there were more paths than that, it gets an event `source` with "again":true instead.
///
/// Threads: that of the feed. REQUIRES: outlives the streams, and thus the server.
class Events final : public Holt::Source, Feed::Listener {
public:
   struct Limits {
      /// Bytes of messages for one reader.
      std::size_t backlog = std::size_t(1) << 16;
      /// Paths that are remembered for one reader that is behind.
      std::size_t paths = 1024;
      /// Paths in one request.
      std::size_t asked = 64;
      /// Nanoseconds between two comments.
      U64 comment = 15'000'000'000;
      /// Must be the clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   explicit Events(Feed& feed) : Events(feed, Limits()) {}
   Events(Feed& feed, Limits const& limits);
   ~Events();
   Events(Events const&) = delete;
   Events& operator=(Events const&) = delete;

   /// 400 if there are too many paths, 503 before the state is known. Throws `Holt::Failure` if a
   /// path leads nowhere by its types.
   Reply reply(Request const& request);

   std::size_t readers() const noexcept { return streams_.size(); }
   /// Bytes that are kept for all readers.
   std::size_t heldBytes() const noexcept;

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override { return streams_.empty() ? 0 : due_; }
   void onTurn(std::span<pollfd const> polled) override;

private:
   friend class EventStream;
   struct Watched;

   void onStatus(Feed::Status const& status) override;
   void onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) override;
   void onRootGone(Kiv::NamedEntity& root) override;
   /// The mirror of a root; null if there is none.
   Sarn::Ptr<Kiv::Entity> mirrorOf(Holt::OfferedRoot const& root) const;

   Feed& feed_;
   Limits limits_;
   std::list<Watched> watched_;
   std::vector<EventStream*> streams_;
   U64 due_ = 0;
};

}  // namespace Ptpexport
