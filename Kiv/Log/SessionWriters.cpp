// Who writes the roots of either end, and whether the peer that leads one is still there.
#include <algorithm>

#include "Kiv/Log/SessionImpl.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

namespace {
/// The token of a `sync` that asks for a sign of life.
constexpr U32 lifeToken = ~U32(0);
}  // namespace

Served* Session::Impl::served(RootWatcher const& watcher) noexcept {
   return const_cast<Served*>(mounts_.find(watcher));
}

void Session::Impl::tellWriters(RootWatcher const& watcher) noexcept {
   Served const* const served = closing_.closed() ? nullptr : mounts_.find(watcher);
   if (served != nullptr && teller_.walk().bracket().understood()) {
      closing_.orFail([&] { teller_.replies().enqueueWriters(served->id); });
      teller_.walk().fill();
   }
}

void Session::Impl::applyWriters(In& in) {
   U32 const id = in.nextU32();
   Mount* const mount = mounts_.mount(id);
   if (mount == nullptr) {
      in.fault("there is no mount " + std::to_string(id), 4);
   }
   bool const stale = in.nextbool();
   U64 const since = in.nextU64();
   std::vector<Writer> writers;
   for (U32 left = in.nextU32(); left != 0; --left) {
      Writer& writer = writers.emplace_back();
      writer.peer = printable(Sarn::String(in.nextValidString(longestName)));
      U8 const mode = in.nextU8();
      if (mode > static_cast<U8>(MountMode::candidate)) {
         in.fault("there is no mount mode " + std::to_string(mode), 1);
      }
      writer.mode = static_cast<MountMode>(mode);
      writer.priority = in.nextU32();
      writer.leads = in.nextbool();
      writer.isSelf = in.nextbool();
   }
   in.expectEnd();
   Mounts::writersAre(*mount, stale, since, std::move(writers));
   callListener([&](SessionListener& listener) { listener.onWriters(self_, *mount); });
}

void Session::Impl::heard() {
   heardAt_ = hub_.clock().now();
   askedAt_ = 0;
   if (silent_) {
      silent_ = false;
      for (Served const& served : mounts_.served()) {
         if (claims(served.mode)) {
            hub_.elect(*served.watcher, false);
         }
      }
   }
}

bool Session::Impl::isSignOfLife(U32 token) noexcept {
   return claimsAny_ && token == lifeToken;
}

U64 Session::Impl::lifeDeadline() const noexcept {
   U64 const silence = hub_.limits().leaderSilence;
   return askedAt_ != 0 ? askedAt_ + silence : heardAt_ + silence / 4;
}

bool Session::Impl::askForLife(U64 time) {
   if (time < lifeDeadline()) {
      return false;
   }
   if (askedAt_ == 0) {
      askedAt_ = time;
      closing_.orFail([&] { teller_.replies().enqueue(Opcode::sync, lifeToken); });
      teller_.walk().fill();
      return false;
   }
   silent_ = true;
   return true;
}

}  // namespace Kiv::NboAttrLog
