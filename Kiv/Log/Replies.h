#pragma once

#include <deque>

#include "Kiv/Log/Backlog.h"
#include "Kiv/Log/Mounts.h"
#include "Kiv/NboAttrLogHub.h"

namespace Kiv::NboAttrLog {

/// The messages of a session that are not changes: requests, answers and markers, in order. Each
/// waits for space, and for the changes that it must not overtake.
///
///     | sync, after 17 | roots | refused 2 | ... |     17: `Backlog::sequence` at the request
///
/// Invariant: they are written in the order in which they were enqueued.
class Replies {
public:
   Replies(Session const& session, Hub& hub, Outbox& outbox, Backlog const& backlog,
           Mounts const& mounts)
         : session_(session), hub_(hub), outbox_(outbox), backlog_(backlog), mounts_(mounts) {}

   /// `token`: of a `sync`, `synced` or `decided`, or the number of a mount. `text`: why a mount or
   /// a batch is refused. `after`: it must not overtake what was dirty at this `Backlog::sequence`.
   /// `confirmed`: it waits until `confirmedIs` has been given this number, or more.
   void enqueue(Opcode opcode, U32 token = 0, Sarn::String text = {}, U64 after = 0,
                U64 confirmed = 0);
   void confirmedIs(U64 upTo) noexcept { confirmed_ = upTo; }
   /// Tells who writes the root with this mount, as it is when there is space; once, however often
   /// it is called before.
   void enqueueWriters(U32 mount);
   /// Removes the last one.
   void withdraw() noexcept { waiting_.pop_back(); }
   std::size_t size() const noexcept { return waiting_.size(); }
   void clear() noexcept { waiting_.clear(); }

   /// Writes them up to the first one that must wait for changes. False if there is no space now.
   bool write();

private:
   struct Reply {
      Opcode opcode;
      U32 token;
      Sarn::String text;
      U64 after;
      U64 confirmed;
   };

   bool write(Reply const& reply);
   bool writeMount(Mount const& mount);
   bool writeRoots();
   bool writeSessions();
   bool writeWriters(U32 mount);

   Session const& session_;
   Hub& hub_;
   Outbox& outbox_;
   Backlog const& backlog_;
   Mounts const& mounts_;
   std::deque<Reply> waiting_;
   U64 confirmed_ = 0;
};

}  // namespace Kiv::NboAttrLog
