// Messages that are not changes: who the ends are, which roots they mirror, by which handles they
// know the entities in them, and what they ask each other.
#include <algorithm>

#include "Kiv/Log/SessionImpl.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogSa.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

namespace {

/// One of the first `count` modules: those that the peer has been greeted with.
KivModule const* greetedModule(std::string_view name, U32 count) noexcept {
   KivModule const* at = firstModule();
   for (; at != nullptr && count != 0 && name != at->name(); --count) {
      at = at->data->next;
   }
   return count != 0 ? at : nullptr;
}

}  // namespace

void Session::Impl::onFailed() {
   close(closing_.reason(), true);
}

std::size_t Session::Impl::longestMessage() const noexcept {
   Limits const& limits = hub_.limits();
   bool const answers = rootsAsked_ != 0 || sessionsAsked_ != 0;
   bool const tells =
         answers || !teller_.mayReplay() || mounts_.peerWrites() || !mounts_.own().empty();
   return tells ? limits.longestMessage : std::min(limits.longestMessage, limits.unmounted);
}

/// A peer that may not change anything here has nothing long to send.
std::size_t Session::Impl::longestInParts(Opcode opcode) const noexcept {
   bool const expected = isChange(opcode) ? mounts_.peerWrites() || !mounts_.own().empty()
                                          : (opcode == Opcode::roots && rootsAsked_ != 0) ||
                                                  (opcode == Opcode::types && !teller_.mayReplay());
   return expected ? hub_.limits().longestValue : longestMessage();
}

void Session::Impl::onControl(Header const& header, In& in) {
   switch (header.opcode) {
      case Opcode::hello:
         applyHello(in);
         return;
      case Opcode::bye:
         applyBye(in);
         return;
      case Opcode::types:
         applyTypes(in);
         return;
      case Opcode::mount:
         applyMount(in);
         return;
      case Opcode::bind:
         applyBind(header, in);
         return;
      case Opcode::ack:
         teller_.crossing().acked = in.nextU32();
         in.expectEnd();
         return;
      case Opcode::sync:
         applySync(in);
         return;
      case Opcode::listRoots:
         answer(Opcode::roots, 0, 0, in);
         return;
      case Opcode::roots:
         applyRoots(in);
         return;
      case Opcode::listSessions:
         answer(Opcode::sessions, 0, 0, in);
         return;
      case Opcode::sessions:
         applySessions(in);
         return;
      case Opcode::digestAsk:
         teller_.digestAnswers().ask(in);
         return;
      case Opcode::digests:
         teller_.comparison().take(in);
         return;
      case Opcode::repair:
         teller_.digestAnswers().repair(in);
         return;
      case Opcode::synced: {
         U32 const token = in.nextU32();
         in.expectEnd();
         if (!isSignOfLife(token)) {
            callListener([&](SessionListener& listener) { listener.onSynced(self_, token); });
         }
         return;
      }
      case Opcode::decided:
         applyDecided(in);
         return;
      case Opcode::writers:
         applyWriters(in);
         return;
      case Opcode::refused:
      case Opcode::replayBegin:
      case Opcode::replayEnd:
      case Opcode::rootGone:
         applyMountState(header, in);
         return;
      default:  // `Inbound` handles changes and parts
         break;
   }
   in.fault("there is no message of this kind");
}

void Session::Impl::applyHello(In& in) {
   if (inbound_.greeted()) {
      in.fault("the peer greets twice");
   }
   if (std::memcmp(in.nextBytes(8), helloMagic, 8) != 0) {
      in.fault("the peer does not speak the attribute log", 8);
   }
   U32 const version = in.nextU32();
   if (version < oldestReadableVersion || version > protocolVersion) {
      in.fault("the peer speaks version " + std::to_string(version) +
                     " of the attribute log, not " + std::to_string(protocolVersion),
               4);
   }
   bool common = false;
   for (U32 left = in.nextU32(); left != 0; --left) {
      std::string_view const name = in.nextValidString(longestName);
      U32 const hash = in.nextU32();
      KivModule const* const module = greetedModule(name, greetedWith_);
      if (module != nullptr && module->hash() != hash) {
         teller_.peerTypesIs().moduleDiffers(*module, hash);
      }
      common = common || module != nullptr;
   }
   in.expectEnd();
   if (!common) {
      in.fault("the peer has none of the modules that are loaded here");
   }
   teller_.walk().bracket().understoodIs(version >= 2);
   inbound_.hasGreeted();
}

/// The peer has another version of a module. If it fits ours, the session goes on with what both
/// have.
void Session::Impl::applyTypes(In& in) {
   if (teller_.mayReplay()) {
      in.fault("no types are expected");
   }
   PeerTypes& types = teller_.peerTypesIs();
   Sarn::String const conflict = types.take(in);
   if (!conflict.empty()) {
      closing_.fail(conflict);
   } else if (!types.waiting() && !types.lacking().empty()) {
      callListener([&](SessionListener& listener) { listener.onLacking(self_, types.lacking()); });
   }
}

void Session::Impl::applyBye(In& in) {
   Sarn::String const reason = "closed by the peer: " + printable(Sarn::String(in.nextString()));
   in.expectEnd();
   closing_.fail(reason, Ending::peer);
   close(reason, false);
}

// Roots.

void Session::Impl::applyMount(In& in) {
   U32 const id = in.nextU32();
   U8 const mode = in.nextU8();
   if (mode > static_cast<U8>(MountMode::candidate)) {
      in.fault("there is no mount mode " + std::to_string(mode), 1);
   }
   OfferedRoot asked{Sarn::String(in.nextValidString(longestName)), {}};
   asked.name = in.nextValidString(longestName);
   U32 const priority = mode == static_cast<U8>(MountMode::candidate) ? in.nextU32() : 0;
   in.expectEnd();
   Replies& replies = teller_.replies();
   U32 const most = hub_.limits().nesting;
   if (mounts_.served().size() + replies.size() >= most) {
      in.fault("more than " + std::to_string(most) + " mounts");
   }
   RootWatcher* const watcher = hub_.findOffered(asked.type, asked.name);
   auto const refuse = [&](std::string_view reason) {
      replies.enqueue(Opcode::refused, id, Sarn::String(reason.substr(0, longestName)));
   };
   Sarn::String reason;
   try {
      reason = refusal(watcher, asked, static_cast<MountMode>(mode));
   } catch (...) {  // the listener has thrown instead of allowing it
      refuse("whether " + asked.name + " may be mounted could not be decided");
      throw;
   }
   if (!reason.empty()) {
      refuse(reason);
      callListener(
            [&](SessionListener& listener) { listener.onMountRefused(self_, asked, reason); });
      return;
   }
   if (writesBack(static_cast<MountMode>(mode))) {
      teller_.cursor().leave();
   }
   teller_.outbox().hasMount();
   Served served{watcher, &watcher->root(), id, static_cast<MountMode>(mode)};
   served.priority = priority;
   mounts_.add(served);
   hub_.hold(*watcher);
   if (claims(served.mode)) {
      claimsAny_ = true;
      heard();
   }
   if (writesBack(served.mode)) {
      hub_.elect(*watcher, true);
   } else if (hub_.claim(watcher->root())->ever) {
      tellWriters(*watcher);
   }
}

/// Why a mount is refused; empty if it is allowed.
Sarn::String Session::Impl::refusal(RootWatcher const* watcher, OfferedRoot const& asked,
                                    MountMode mode) {
   if (watcher == nullptr) {
      return "there is no " + printable(asked.type) + " named " + printable(asked.name);
   }
   if (mounts_.find(*watcher) != nullptr) {
      return asked.name + " is mounted already";
   }
   Sarn::String reason;
   callListener([&](SessionListener& listener) {
      reason = listener.onMountAsked(self_, watcher->root(), mode);
   });
   if (!reason.empty()) {
      return reason;
   }
   if (Session const* const other = hub_.inTheWay(*watcher, mode)) {
      return asked.name +
             (claims(mode) ? " cannot be claimed: it is written by " : " is claimed by ") +
             peerText(other->peer());
   }
   return {};
}

void Session::Impl::applyMountState(Header const& header, In& in) {
   U32 const id = in.nextU32();
   Mount* const found = mounts_.mount(id);
   if (found == nullptr) {
      in.fault("there is no mount " + std::to_string(id), 4);
   }
   Mount& mount = *found;
   Mount::State const state = mount.state();
   std::string_view reason;
   if (header.opcode == Opcode::refused) {
      reason = in.nextString();
   }
   in.expectEnd();
   switch (header.opcode) {
      case Opcode::refused:
         if (state == Mount::State::asked) {
            Mounts::reasonIs(mount, printable(Sarn::String(reason)));
            mountStateIs(mount, Mount::State::refused);
            return;
         }
         break;
      case Opcode::replayBegin:
         if (state == Mount::State::asked) {
            expectTypesKnown(in);
            teller_.names().checkHandle(header.handle, in);
            teller_.names().mapRoot(header.handle, mount.root());
            mountStateIs(mount, Mount::State::replaying);
            return;
         }
         break;
      case Opcode::replayEnd:
         if (state == Mount::State::replaying) {
            mountStateIs(mount, Mount::State::complete);
            return;
         }
         break;
      default:
         if (state == Mount::State::replaying || state == Mount::State::complete) {
            teller_.forgetTree(mount.root());
            mountStateIs(mount, Mount::State::gone);
            return;
         }
   }
   in.fault("the message does not fit the mount's state");
}

/// A peer with another version of a module says what its types are before it replays a root. A
/// recording does not.
void Session::Impl::expectTypesKnown(In const& in) const {
   if (!teller_.mayReplay()) {
      in.fault(teller_.peerTypes()->missing());
   }
}

void Session::Impl::mountStateIs(Mount& mount, Mount::State state) {
   Mounts::stateIs(mount, state);
   callListener([&](SessionListener& listener) { listener.onMount(self_, mount); });
}

void Session::Impl::applyBind(Header const& header, In& in) {
   U32 const ours = in.nextU32();
   in.expectEnd();
   Names& names = teller_.names();
   names.checkHandle(header.handle, in);
   if (!hub_.handles().known(ours)) {
      in.fault("we have introduced no entity " + std::to_string(ours), 4);
   }
   Entity* const entity = hub_.handles().find(ours);
   if (entity == nullptr) {
      // It was deleted while the message was on its way. The peer's handle may meanwhile stand for
      // another entity, made in its place.
      if (names.theirs(header.handle) == nullptr) {
         names.map(header.handle, nullptr, true);
      }
      return;
   }
   // Not only writers bind: a source also binds its own handle to a child that we made.
   if (!mounts_.isWrittenByPeer(*entity) && mounts_.followed(*entity) == nullptr) {
      Sa::throwWriteUpdateFromReadOnlyProxyException(*entity, header.attribute);
   }
   names.map(header.handle, entity, true);
}

// Requests and answers.

void Session::Impl::applySync(In& in) {
   U32 const token = in.nextU32();
   in.expectEnd();
   U64 confirmed = 0;
   callListener([&](SessionListener& listener) { confirmed = listener.onSyncAsked(self_); });
   answer(Opcode::synced, token, teller_.backlog().sequence(), in, confirmed);
}

void Session::Impl::answer(Opcode opcode, U32 token, U64 after, In const& in, U64 confirmed) {
   in.expectEnd();
   U32 const most = hub_.limits().nesting;
   if (teller_.replies().size() >= most) {
      in.fault("more than " + std::to_string(most) + " requests wait for an answer");
   }
   teller_.replies().enqueue(opcode, token, {}, after, confirmed);
   teller_.walk().fill();
}

void Session::Impl::applyRoots(In& in) {
   if (rootsAsked_ == 0) {
      in.fault("nobody has asked for the roots");
   }
   U32 const count = in.nextU32();
   // Each root takes at least the lengths of two strings.
   if (count > in.readableBytes() / 8) {
      in.fault(std::to_string(count) + " roots exceed the bound of " +
                     std::to_string(in.readableBytes() / 8) + " in the message",
               4);
   }
   std::vector<OfferedRoot> roots;
   roots.reserve(count);
   for (U32 i = 0; i != count; ++i) {
      Sarn::String type(in.nextString());
      Sarn::String name(in.nextString());
      roots.push_back({std::move(type), std::move(name)});
   }
   while (in.readableBytes() != 0) {  // those that are stale
      U32 const at = in.nextU32();
      if (at >= count) {
         in.fault("there is no root " + std::to_string(at), 4);
      }
      roots[at].stale = true;
      roots[at].staleSince = in.nextU64();
   }
   in.expectEnd();
   --rootsAsked_;
   callListener([&](SessionListener& listener) { listener.onRoots(self_, roots); });
}

void Session::Impl::applySessions(In& in) {
   if (sessionsAsked_ == 0) {
      in.fault("nobody has asked for the sessions");
   }
   U32 const total = in.nextU32();
   U32 const count = in.nextU32();
   std::size_t const most = in.readableBytes() / smallestStatusSize;
   if (count > most) {
      in.fault(std::to_string(count) + " sessions exceed the bound of " + std::to_string(most) +
                     " in the message",
               4);
   }
   std::vector<SessionStatus> sessions;
   sessions.reserve(count);
   for (U32 i = 0; i != count; ++i) {
      sessions.push_back(decodeSessionStatus(in));
   }
   in.expectEnd();
   --sessionsAsked_;
   callListener([&](SessionListener& listener) { listener.onSessions(self_, sessions, total); });
}

}  // namespace Kiv::NboAttrLog
