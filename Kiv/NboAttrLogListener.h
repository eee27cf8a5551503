#pragma once

#include <span>
#include <vector>

#include "Kiv/NboAttrLogCompared.h"
#include "Kiv/NboAttrLogMount.h"
#include "Kiv/NboAttrLogStatus.h"

namespace Kiv::NboAttrLog {

class Session;

/// Notified of what happens to a session. Calls come from inside `received`, `sent` or `close`; the
/// session must not be destroyed inside one.
class SessionListener {
public:
   /// The mount's state has changed.
   virtual void onMount(Session&, Mount&) {}
   /// The session is closed. `reason` is for a person; for a fault it names entity, attribute,
   /// offset and bound.
   virtual void onClosed(Session&, Sarn::String const& reason) { (void)reason; }
   /// Everything written here before `syncIs(token)` has been applied by the peer.
   virtual void onSynced(Session&, U32 token) { (void)token; }
   /// The peer asks for a confirmation of everything that it has written. Its answer waits until
   /// `Session::confirmedIs` has been given the result, or more; 0: for nothing. Answers to later
   /// requests wait behind it, changes do not.
   virtual U64 onSyncAsked(Session&) { return 0; }
   /// The answer to `rootsAsk()`: what the peer offers, in its order.
   virtual void onRoots(Session&, std::vector<OfferedRoot> const& roots) { (void)roots; }
   /// The answer to `sessionsAsk()`: the peer's sessions, oldest first. `total`: how many it has,
   /// since a message may not hold them all.
   virtual void onSessions(Session&, std::vector<SessionStatus> const& sessions, U32 total) {
      (void)sessions;
      (void)total;
   }
   /// The end of `compareAsk(mount)`. Not called if the session ends first.
   virtual void onCompared(Session&, Mount&, Compared const& result) { (void)result; }
   /// The peer asks for a root of ours. A non-empty result refuses it and is sent as the reason.
   virtual Sarn::String onMountAsked(Session&, NamedEntity const& root, MountMode mode) {
      (void)root;
      (void)mode;
      return {};
   }
   /// A root that the peer asked for is refused, for whatever reason; it may not even exist. Its
   /// type and name may hold any bytes: see `Kiv::printable`.
   virtual void onMountRefused(Session&, OfferedRoot const& root, Sarn::String const& reason) {
      (void)root;
      (void)reason;
   }
   /// A value is longer than `Limits::longestValue`, so it is not sent to the peer. `what` names
   /// entity, attribute, key and size. The peer keeps the old value of an attribute, lacks the
   /// element of a collection, and gets a default element of a queue. Everything else goes on.
   ///
   /// The same goes for a change that is not sent because the peer, which has another version of
   /// the module, refuses the value; or, to a peer that we write to, lacks the attribute.
   virtual void onLeftOut(Session&, Sarn::String const& what) { (void)what; }
   /// The peer has another version of a module, which fits ours but lacks some of it: see
   /// `Session::lacking`. Changes of that are not sent. Called once, before any root is replayed.
   virtual void onLacking(Session&, std::span<Sarn::String const> lacking) { (void)lacking; }

   /// The answer to the transaction with this number: the peer has applied all of it, or nothing if
   /// there is a reason. In that case the mirror is as the peer has it again.
   virtual void onDecided(Session&, U32 transaction, Sarn::String const& reason) {
      (void)transaction;
      (void)reason;
   }
   /// Who writes the root, who leads, or whether it is stale has changed; see `Mount::writers`.
   virtual void onWriters(Session&, Mount&) {}
   /// `torn`: the mirrors of this session now show a part of a batch, whose rest follows. Else:
   /// they are whole again. See `Mount::torn`.
   virtual void onTorn(Session&, bool torn) { (void)torn; }

protected:
   ~SessionListener() = default;
};

}  // namespace Kiv::NboAttrLog
