// One Subscribe call.
#pragma once

#include <memory>
#include <set>

#include "tools/ptpgnmi/Pending.h"
#include "tools/ptpgnmi/Stream.h"

namespace Ptpgnmi {

/// Sends a client what it subscribes to. Every mode is the same mechanism: something adds leaves to
/// a set, and what is in the set is sent, with its values of that moment, once the message before
/// it has gone out.
///
///     ONCE, POLL, the start of STREAM   all leaves
///     ON_CHANGE, TARGET_DEFINED         a leaf, when its observer is told
///     SAMPLE                            all leaves, or those that have changed, at each interval
///     heartbeat                         all leaves, at each interval
///
/// So a client that does not read costs the set and the paths of what was deleted meanwhile. If
/// these are more than `Limits::deletions`, they are forgotten: the client is told that everything
/// is gone, and sent all of it again.
///
/// Threads: that of the loop.
class Subscriber {
public:
   /// Throws `Refusal` for a path that leads nowhere. `tree` and `limits` outlive it.
   Subscriber(std::shared_ptr<Stream> stream, Tree& tree, SubscriptionList list,
              Limits const& limits, U64 now);
   ~Subscriber();
   Subscriber(Subscriber const&) = delete;
   Subscriber& operator=(Subscriber const&) = delete;

   /// The client asks again. Returns false if it may not.
   bool polled();
   /// The message has been sent.
   void written() noexcept { writing_ = false; }
   /// Sends what is due. `now`: by the steady clock. Returns false if the call has ended.
   bool flush(U64 now, U64 wall);
   /// When `flush` must be called; 0: when something changes.
   U64 deadline() const noexcept;

   ListMode mode() const noexcept { return list_.mode; }
   Stream& stream() const noexcept { return *stream_; }
   /// Bytes that it keeps for its client.
   std::size_t bytes() const noexcept;

private:
   class Entry;

   void deleted(std::string const& path);
   void beginRound();
   void sendSync();
   void send(U64 now, U64 wall);
   void sampleDue(U64 now);

   std::shared_ptr<Stream> stream_;
   Tree& tree_;
   SubscriptionList list_;
   Limits const& limits_;
   std::string prefix_;
   std::vector<std::unique_ptr<Entry>> entries_;
   Pending out_;
   std::set<std::string> deletes_;
   std::size_t deleteBytes_ = 0;
   bool deleteAll_ = false;
   bool writing_ = false;
   bool finished_ = false;
   /// Whether a sync_response is due once `syncAfter_` leaves have been taken.
   bool syncDue_ = false;
   U64 syncAfter_ = 0;
   U64 lastSent_ = 0;
};

}  // namespace Ptpgnmi
