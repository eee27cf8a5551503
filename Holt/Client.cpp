#include "Holt/Client.h"

#include <poll.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "Holt/Failure.h"
#include "Holt/Listener.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogTransaction.h"
#include "Kiv/Types.h"

namespace Holt {

using std::chrono::milliseconds;

namespace {
/// The most changes that could not be sent which a message names.
constexpr std::size_t mostUnsent = 8;
}  // namespace

Sarn::Ptr<Kiv::NamedEntity> newRoot(Sarn::String const& type, Sarn::String const& name) {
   Kiv::TypeImpl const* const found = Kiv::typeByName(type);
   if (found == nullptr) {
      throw Failure("there is no type '" + type + "'");
   }
   if (found->kind != Kiv::TypeKind::entity || !found->named || found->ctorArgs.size() != 1) {
      throw Failure(type +
                    " cannot be a root: a root is an entity whose constructor takes a name alone");
   }
   std::array<Kiv::ValueRef, 1> const arguments{&name};
   Sarn::Ptr<Kiv::Entity> const root = found->entity->genericIfConstructFromCtorArgs(arguments);
   return Sarn::Ptr<Kiv::NamedEntity>(static_cast<Kiv::NamedEntity*>(root.get()));
}

Client::Client(Sarn::String const& socket, milliseconds patience)
      : socket_(socket),
        patience_(patience),
        deadline_(Clock::now() + patience),
        connection_(std::make_unique<Kiv::NboAttrLog::FdConnection>(
              hub_, connectTo(socket, patience),
              static_cast<Kiv::NboAttrLog::SessionListener*>(this))) {}

Client::~Client() {
   onMountState = nullptr;
   onSessionsTold = nullptr;
   onWritersTold = nullptr;
   connection_->close("done");
}

void Client::onMount(Kiv::NboAttrLog::Session&, Mount& mount) {
   if (onMountState) {
      onMountState(mount);
   }
}

void Client::onSynced(Kiv::NboAttrLog::Session&, U32 token) {
   synced_ = token;
}

void Client::onLeftOut(Kiv::NboAttrLog::Session&, Sarn::String const& what) {
   if (unsent_.size() != mostUnsent) {
      unsent_.push_back(what);
   }
}

void Client::onRoots(Kiv::NboAttrLog::Session&, std::vector<OfferedRoot> const& roots) {
   roots_ = roots;
   rootsKnown_ = true;
}

void Client::onSessions(Kiv::NboAttrLog::Session&,
                        std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions, U32 total) {
   sessions_ = sessions;
   sessionsTotal_ = total;
   sessionsKnown_ = true;
   if (onSessionsTold) {
      onSessionsTold(sessions);
   }
}

void Client::onWriters(Kiv::NboAttrLog::Session&, Mount& mount) {
   if (onWritersTold) {
      onWritersTold(mount);
   }
}

void Client::onDecided(Kiv::NboAttrLog::Session&, U32 transaction, Sarn::String const& reason) {
   decided_ = transaction;
   refusal_ = reason;
}

bool Client::turn(int otherFd, milliseconds timeout) {
   connection_->flush();
   if (over()) {
      return false;  // the write failed: there is nothing to wait for
   }
   pollfd polled[2] = {{connection_->fd(), connection_->events(), 0}, {otherFd, POLLIN, 0}};
   int const count = ::poll(polled, 2, static_cast<int>(timeout.count()));
   if (count < 0) {
      if (errno != EINTR) {
         throw Failure("cannot wait for the server", Exit::connection);
      }
      return false;
   }
   connection_->onReady(polled[0].revents);
   return polled[1].revents != 0;
}

void Client::appendTo(std::vector<pollfd>& polled) {
   connection_->flush();
   polled.push_back({connection_->fd(), connection_->events(), 0});
}

void Client::onTurn(std::span<pollfd const> polled) {
   connection_->onReady(polled[0].revents);
}

/// Runs the connection until `done()`; throws when the patience is over.
template <class Done>
void Client::waitFor(char const* what, Done&& done) {
   U64 const before = connection_->session().stats().bytesIn;
   Clock::time_point const begin = Clock::now();
   // Reports the end of a wait that was reported, whatever ends it.
   struct Report {
      Client& client;
      bool begun = false;
      ~Report() {
         if (begun) {
            client.onWaiting(nullptr);
         }
      }
   } report{*this};
   while (!done()) {
      if (over()) {
         throw Failure(socket_ + ": the connection is lost: " + closeReason(), Exit::connection);
      }
      U64 const heard = connection_->session().stats().bytesIn;
      auto const left = std::chrono::ceil<milliseconds>(deadline_ - Clock::now());
      if (left <= milliseconds::zero()) {
         throw Failure(socket_ +
                             (heard == before ? ": the server does not answer ("
                                              : ": the server did not answer in full in time (") +
                             what + "); wait longer with --timeout, or check the server",
                       Exit::connection);
      }
      auto const waited = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin);
      if (waited.count() != 0 && onWaiting) {
         report.begun = true;
         Waiting const waiting{what, heard - before, waited};
         onWaiting(&waiting);
      }
      if (turn(interruptFd, onWaiting ? std::min(left, milliseconds(500)) : left)) {
         throw Failure(socket_ + ": interrupted before the server answered (" + what + ")",
                       Exit::connection);
      }
   }
}

std::vector<OfferedRoot> const& Client::roots() {
   if (!rootsKnown_) {
      connection_->session().rootsAsk();
      waitFor("asked for its roots", [this] { return rootsKnown_; });
   }
   return roots_;
}

std::vector<Kiv::NboAttrLog::SessionStatus> const& Client::sessions() {
   sessionsKnown_ = false;
   connection_->session().sessionsAsk();
   waitFor("asked for its connections", [this] { return sessionsKnown_; });
   return sessions_;
}

Mount& Client::mountIs(OfferedRoot const& root, MountMode mode) {
   return mountIs(newRoot(root.type, root.name), mode);
}

Mount& Client::mountIs(Sarn::Ptr<Kiv::NamedEntity> const& mirror, MountMode mode, U32 priority) {
   return connection_->session().mountIs(mirror, mode, priority);
}

bool Client::crowded() const noexcept {
   Kiv::NboAttrLog::Session const& session = connection_->session();
   return !session.upToDate() || session.output().size > (std::size_t(1) << 17);
}

void Client::waitComplete(Mount const& mount) {
   waitFor("asked for a mirror", [&mount] {
      return mount.state() != Mount::State::asked && mount.state() != Mount::State::replaying;
   });
   if (mount.state() == Mount::State::lost) {
      throw Failure(socket_ + ": the connection is lost: " + mount.reason(), Exit::connection);
   }
   if (mount.state() == Mount::State::refused && writesBack(mount.mode())) {
      throw Failure(mount.root().nameString() +
                    ": the server accepts no changes from here: " + mount.reason());
   }
   if (!mount.complete()) {
      throw Failure(socket_ + ": the server refused the mirror: " +
                          (mount.reason().empty() ? "the root is gone" : mount.reason()),
                    Exit::connection);
   }
}

void Client::onCompared(Kiv::NboAttrLog::Session&, Mount&,
                        Kiv::NboAttrLog::Compared const& result) {
   compared_ = result;
}

Kiv::NboAttrLog::Compared Client::compare(Mount& mount) {
   compared_.reset();
   bool const asked = connection_->session().compareAsk(mount);
   waitFor("asked for digests", [&] { return compared_.has_value() || !asked; });
   if (!compared_ || !compared_->finished) {
      throw Failure(mount.root().nameString() +
                          ": the mirror cannot be compared: it is not complete, or the server has "
                          "another version of a module",
                    Exit::connection);
   }
   return *compared_;
}

void Client::asOne(std::function<void()> const& change) {
   Kiv::NboAttrLog::Session& session = connection_->session();
   std::optional<Kiv::NboAttrLog::Transaction> together;
   if (session.knowsTransactions()) {
      together.emplace(session);
   }
   change();
   if (together) {
      together->commit();
      waitFor("asked it to make all changes", [&] { return decided_ == together->number(); });
      if (!refusal_.empty()) {
         throw Failure("the server has refused all of the changes: " + refusal_);
      }
   }
   sync();
}

void Client::sync() {
   U32 const token = ++token_;
   connection_->session().syncIs(token);
   waitFor("asked it to confirm all changes", [this, token] { return synced_ == token; });
   if (!unsent_.empty()) {
      Sarn::String all;
      for (Sarn::String const& what : std::exchange(unsent_, {})) {
         all += (all.empty() ? "" : "; ") + what;
      }
      throw Failure("not all changes could be sent: " + all);
   }
}

}  // namespace Holt
