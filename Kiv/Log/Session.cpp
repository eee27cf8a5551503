#include <algorithm>
#include <utility>

#include "Kiv/Log/SessionImpl.h"
#include "Kiv/Module.h"

namespace Kiv::NboAttrLog {

Session::Impl::Impl(Session& self, Hub& hub, SessionListener* listener)
      : self_(self),
        hub_(hub.impl()),
        listener_(listener),
        open_(hub_.limits().nesting),
        teller_(self, hub, hub_.limits(), hub_.budget(), hub_.clock(), hub_.ring(), hub_.handles(),
                closing_, mounts_, open_),
        inbound_(hub_.limits(), hub_.budget(), hub_.clock(), hub_.applying(), hub_.handles(),
                 closing_, mounts_, open_, teller_, *this),
        openedAt_(hub_.clock().now()),
        idleSince_(openedAt_) {
   hello();
   for (U32 i = 0; i != hub_.batches(); ++i) {
      teller_.walk().hold();
   }
   number_ = hub_.add(self);
}

void Session::Impl::end() noexcept {
   listener_ = nullptr;
   close("destroyed", false);  // short enough to need no memory
   hub_.remove(self_);
}

void Session::Impl::hello() {
   std::size_t size = 8 + 4 + 4;
   U32 count = 0;
   for (KivModule const* at = firstModule(); at != nullptr; at = at->data->next) {
      size += 4 + std::strlen(at->name()) + 4;
      ++count;
   }
   greetedWith_ = count;
   teller_.outbox().write(Opcode::hello, size, 0, 0, [count](Out& out) {
      out.writeBytes(helloMagic, 8);
      out.writeU32(protocolVersion);
      out.writeU32(count);
      for (KivModule const* at = firstModule(); at != nullptr; at = at->data->next) {
         out.writeString(at->name());
         out.writeU32(at->hash());
      }
   });
}

Mount& Session::Impl::mountIs(Sarn::Ptr<NamedEntity> const& root, MountMode mode, U32 priority) {
   if (root->nameString().size() > longestName) {
      throw Exception("a root's name of " + std::to_string(root->nameString().size()) +
                      " bytes exceeds the bound of " + std::to_string(longestName));
   }
   struct Undo {
      Mounts& mounts;
      Replies& replies;
      bool asked = false;
      bool done = false;
      ~Undo() {
         if (!done) {
            mounts.withdraw();
            if (asked) {
               replies.withdraw();
            }
         }
      }
   };
   Mount& mount = mounts_.add(root, mode);
   Mounts::priorityIs(mount, priority);
   Undo undo{mounts_, teller_.replies()};
   if (closing_.closed()) {
      Mounts::stateIs(mount, Mount::State::lost);
      Mounts::reasonIs(mount, closing_.reason());
      undo.done = true;
      return mount;
   }
   teller_.replies().enqueue(Opcode::mount, Mounts::idOf(mount));
   undo.asked = true;
   if (writesBack(mode)) {
      hub_.hold(root, false, &teller_);
      Mounts::adoptedIs(mount, true);
      teller_.crossing().writesBack = true;
   }
   undo.done = true;
   teller_.cursor().leave();
   teller_.outbox().hasMount();
   teller_.walk().fill();
   return mount;
}

void Session::Impl::syncIs(U32 token) {
   if (!closing_.closed()) {
      teller_.replies().enqueue(Opcode::sync, token, {}, teller_.backlog().sequence());
      teller_.walk().fill();
   }
}

void Session::Impl::confirmedIs(U64 upTo) {
   teller_.replies().confirmedIs(upTo);
   if (!closing_.closed()) {
      teller_.walk().fill();
   }
}

void Session::Impl::rootsAsk() {
   if (!closing_.closed()) {
      teller_.replies().enqueue(Opcode::listRoots);
      ++rootsAsked_;
      pump();
   }
}

void Session::Impl::sessionsAsk() {
   if (!closing_.closed()) {
      teller_.replies().enqueue(Opcode::listSessions);
      ++sessionsAsked_;
      pump();
   }
}

bool Session::Impl::compareAsk(Mount const& mount, bool repair) {
   if (closing_.closed() || !mount.complete() || teller_.comparison().inProgress() ||
       teller_.peerTypes() != nullptr) {
      return false;
   }
   teller_.comparison().start(*mounts_.mount(Mounts::idOf(mount)), repair);
   pump();
   return true;
}

void Session::Impl::boundSessionsOfUid() {
   auto const isOfUser = [this](Session const* other) {
      return other->peer().pid != 0 && other->peer().uid == peer_.uid && !other->closed();
   };
   auto const count = std::count_if(hub_.sessions().begin(), hub_.sessions().end(), isOfUser);
   U32 const most = hub_.limits().sessionsOfUid;
   if (peer_.pid != 0 && count > static_cast<std::ptrdiff_t>(most)) {
      closing_.fail("uid " + std::to_string(peer_.uid) + " has more than " + std::to_string(most) +
                    " connections");
   }
}

// Bytes.

void Session::Impl::received(U8 const* bytes, std::size_t size) {
   used_ = true;
   if (claimsAny_) [[unlikely]] {
      heard();
   }
   inbound_.take(bytes, size);
   pump();
}

void Session::Impl::sent(std::size_t size) {
   used_ = used_ || size != 0;
   Outbox& outbox = teller_.outbox();
   outbox.consume(size);
   pump();
   if (outbox.empty() && teller_.upToDate()) {
      outbox.caughtUp();
   }
   if (closing_.closed()) {
      outbox.shrink(0);
   }
}

void Session::Impl::pump() {
   teller_.walk().fill();
   if (closing_.closed() && !told_) {
      close(closing_.reason(), true);
   }
   LeftOut& leftOut = teller_.leftOut();
   while (leftOut.untold()) {
      Sarn::String const what = leftOut.takeUntold();
      callListener([&](SessionListener& listener) { listener.onLeftOut(self_, what); });
   }
   tellCompared();
   teller_.follow();
}

/// Notifies the listener of a comparison that has come to its end.
void Session::Impl::tellCompared() {
   Comparison& comparison = teller_.comparison();
   if (comparison.inProgress()) [[unlikely]] {
      Mount& mount = comparison.mount();
      if (std::optional<Compared> const result = comparison.takeResult()) {
         callListener(
               [&](SessionListener& listener) { listener.onCompared(self_, mount, *result); });
      }
   }
}

// The end.

void Session::Impl::close(Sarn::String const& reason, bool tell) {
   if (!closing_.closed()) {
      closing_.fail(copyOrOutOfMemory(reason), Ending::here);
   }
   if (told_) {
      return;
   }
   told_ = true;
   closedAt_ = hub_.clock().now();
   inbound_.drop();
   tornIs(false);
   Outbox& outbox = teller_.outbox();
   outbox.cursor().leave();
   outbox.dropParts();
   Sarn::String const& why = closing_.reason();
   if (tell) {
      std::size_t const most = std::min<std::size_t>(1000, outbox.longestBody() - 4);
      std::string_view const text = std::string_view(why).substr(0, most);
      outbox.write(Opcode::bye, 4 + text.size(), 0, 0, [text](Out& out) { out.writeString(text); });
   }
   unsubscribe();
   teller_.clear();
   open_.clear();
   // The listener may add mounts.
   for (U32 id = 1; Mount* const mount = mounts_.mount(id); ++id) {
      if (mount->state() == Mount::State::asked || mount->state() == Mount::State::replaying ||
          mount->state() == Mount::State::complete) {
         Mounts::reasonIs(*mount, copyOrOutOfMemory(why));
         mountStateIs(*mount, Mount::State::lost);
      }
   }
   callListener([&](SessionListener& listener) { listener.onClosed(self_, why); });
}

void Session::Impl::unsubscribe() {
   for (Served const& served : mounts_.takeServed()) {
      served.watcher->unsubscribe(teller_);
      if (writesBack(served.mode)) {
         hub_.elect(*served.watcher, true);
      }
      hub_.release(*served.watcher);
   }
   for (U32 id = 1; Mount* const mount = mounts_.mount(id); ++id) {
      if (Mounts::adoptedIs(*mount, false)) {
         RootWatcher& watcher =
               *hub_.find(mount->root().kivType().name, mount->root().nameString());
         watcher.unsubscribe(teller_);
         hub_.release(watcher);
      }
   }
}

void Session::Impl::rootGone(RootWatcher& watcher) noexcept {
   auto& served = mounts_.served();
   for (auto at = served.begin(); at != served.end();) {
      if (at->watcher != &watcher) {
         ++at;
         continue;
      }
      if (at->begun) {
         teller_.forgetTree(watcher.root());
      }
      closing_.orFail([&] {
         if (at->begun) {
            teller_.replies().enqueue(Opcode::rootGone, at->id);
         } else {
            teller_.replies().enqueue(Opcode::refused, at->id,
                                      watcher.root().nameString() + " is gone");
         }
      });
      watcher.unsubscribe(teller_);
      hub_.release(watcher);  // the offer still holds it
      at = mounts_.erase(at);
   }
   teller_.walk().fill();
}

// Memory and time.

std::size_t Session::Impl::keptWhenIdle() const noexcept {
   bool const needsIt = mounts_.any() && !closing_.closed() && !teller_.cursor().following();
   return needsIt ? ByteBudget::freeOfCharge : 0;
}

/// Whether it has memory that it does not need now, beyond `keptWhenIdle`.
bool Session::Impl::holdsIdleBytes() const noexcept {
   Outbox const& outbox = teller_.outbox();
   return (outbox.empty() && outbox.capacity() > keptWhenIdle()) || inbound_.holdsIdleBytes();
}

U64 Session::Impl::deadline() const noexcept {
   Limits const& limits = hub_.limits();
   U64 first = 0;
   auto const consider = [&first](bool waits, U64 at) {
      first = waits && (first == 0 || at < first) ? at : first;
   };
   consider(inbound_.halfSince() != 0, inbound_.halfSince() + limits.halfMessage);
   consider(told_ && !teller_.outbox().empty(), closedAt_ + limits.halfMessage);
   consider(holdsIdleBytes(), idleSince_ + limits.idle);
   return first;
}

void Session::Impl::expire(U64 now) {
   Limits const& limits = hub_.limits();
   U64 const half = inbound_.halfSince();
   if (half != 0 && now - half >= limits.halfMessage) {
      closing_.fail("the peer has left a message unfinished for " +
                    std::to_string((now - half) / 1'000'000) + " ms, after " +
                    std::to_string(inbound_.halfBytes()) + " bytes");
      onFailed();
   }
   Outbox& outbox = teller_.outbox();
   if (told_ && closedAt_ != 0 && now - closedAt_ >= limits.halfMessage) {
      outbox.clear();
      outbox.shrink(0);
   }
   bool const idle = hub_.clock().read == nullptr || now - idleSince_ >= limits.idle;
   if (used_) {
      used_ = false;
      idleSince_ = now;
   } else if (idle && holdsIdleBytes()) {
      outbox.shrink(keptWhenIdle());
      inbound_.freeIdle();
      teller_.walk().freeIdle();
   }
}

SessionStats Session::Impl::stats() const noexcept {
   SessionStats stats;
   stats.messagesIn = inbound_.messages();
   stats.messagesOut = teller_.outbox().messages();
   stats.bytesIn = inbound_.bytes();
   stats.bytesOut = teller_.outbox().bytes();
   stats.changesDeferred = teller_.backlog().deferred();
   stats.changesCoalesced = teller_.backlog().coalesced();
   stats.valuesLeftOut = teller_.leftOut().count();
   return stats;
}

SessionStatus Session::Impl::status() const {
   SessionStatus status;
   status.number = number_;
   status.peer = peer_;
   status.age = hub_.clock().now() - openedAt_;
   status.stats = stats();
   status.dirtyEntities = teller_.backlog().size();
   status.dirtyAttributes = teller_.backlog().dirtyAttributes();
   status.dirtyKeys = teller_.backlog().dirtyKeys();
   status.waiting = teller_.outbox().waiting();
   status.capacity = teller_.outbox().room();
   status.behind = teller_.outbox().behind();
   for (Served const& served : mounts_.served()) {
      ServedRoot& told = status.roots.emplace_back();
      told.root.type = served.root->kivType().name;
      told.root.name = served.root->nameString();
      told.mode = served.mode;
      told.leads = served.leads;
      told.complete = served.ended;
   }
   status.leftOut = teller_.leftOut().names();
   auto const lacks = lacking();
   status.lackingCount = lacks.size();
   for (Sarn::String const& what : lacks.first(std::min(lacks.size(), mostLackingNames))) {
      status.lacking.push_back(what.substr(0, longestName));
   }
   return status;
}

std::span<Sarn::String const> Session::Impl::lacking() const noexcept {
   PeerTypes const* const types = teller_.peerTypes();
   return types != nullptr && !types->waiting() ? types->lacking()
                                                : std::span<Sarn::String const>();
}

// The public interface.

Session::Session(Hub& hub, SessionListener* listener)
      : impl_(std::make_unique<Impl>(*this, hub, listener)) {}

Session::~Session() {
   impl_->end();
}

Mount& Session::mountIs(Sarn::Ptr<NamedEntity> const& root, MountMode mode, U32 priority) {
   return impl_->mountIs(root, mode, priority);
}
std::deque<Mount> const& Session::mounts() const noexcept {
   return impl_->mounted().own();
}
void Session::syncIs(U32 token) {
   impl_->syncIs(token);
}
void Session::confirmedIs(U64 upTo) {
   impl_->confirmedIs(upTo);
}
U32 Session::transactionBegin() {
   return impl_->transactionBegin();
}
void Session::transactionCommit() {
   impl_->transactionCommit();
}
bool Session::knowsTransactions() const noexcept {
   return impl_->teller().walk().bracket().understood();
}
bool Session::inTransaction() const noexcept {
   return impl_->inTransaction();
}
void Session::rootsAsk() {
   impl_->rootsAsk();
}
void Session::sessionsAsk() {
   impl_->sessionsAsk();
}
bool Session::compareAsk(Mount const& mount, bool repair) {
   return impl_->compareAsk(mount, repair);
}
void Session::peerIs(PeerIdentity peer) {
   impl_->peerIs(std::move(peer));
}
PeerIdentity const& Session::peer() const noexcept {
   return impl_->peer();
}
void Session::boundSessionsOfUid() {
   impl_->boundSessionsOfUid();
}
void Session::received(U8 const* bytes, std::size_t size) {
   impl_->received(bytes, size);
}
bool Session::interrupted() const noexcept {
   return impl_->inbound().interrupted();
}
CircularBuffer::Piece Session::output() const noexcept {
   return impl_->teller().outbox().first();
}
CircularBuffer::Piece Session::outputBehind() const noexcept {
   return impl_->teller().outbox().second();
}
void Session::sent(std::size_t size) {
   impl_->sent(size);
}
void Session::blocked() noexcept {
   impl_->teller().outbox().fallBehind();
}
bool Session::handshakeDone() const noexcept {
   return impl_->inbound().greeted();
}
std::span<Sarn::String const> Session::lacking() const noexcept {
   return impl_->lacking();
}
void Session::close(Sarn::String const& reason, bool tell) {
   impl_->close(reason, tell);
}
bool Session::closed() const noexcept {
   return impl_->closing().closed();
}
Sarn::String const& Session::closeReason() const noexcept {
   return impl_->closing().reason();
}
Ending Session::ending() const noexcept {
   return impl_->closing().ending();
}
bool Session::upToDate() const noexcept {
   return impl_->teller().upToDate();
}
SessionStats Session::stats() const noexcept {
   return impl_->stats();
}
SessionStatus Session::status() const {
   return impl_->status();
}
std::size_t Session::heldBytes() const noexcept {
   return impl_->heldBytes();
}
std::size_t Session::dirtyEntities() const noexcept {
   return impl_->teller().backlog().size();
}

}  // namespace Kiv::NboAttrLog
