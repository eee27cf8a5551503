// A connection to a server of states.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "Holt/Loop.h"
#include "Holt/State/Path.h"
#include "Kiv/NboAttrLogConnection.h"

namespace Holt {

using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;

using Clock = std::chrono::steady_clock;

/// An empty root of the type with this name. Throws `Failure` if there is no such type, or if its
/// constructor takes anything but a name.
Sarn::Ptr<Kiv::NamedEntity> newRoot(Sarn::String const& type, Sarn::String const& name);

/// Mirrors roots of a server. A command calls the methods that wait. A long-running process adds
/// the client to its loop and checks `over()` after each turn.
///
///     Holt::Client client("/run/ptp.sock", std::chrono::seconds(10));
///     Holt::Mount& mount = client.mountIs({"Ptp::Status", "ptp/status"}, Holt::MountMode::reader);
///     client.waitComplete(mount);
///
/// Errors: a connection that fails is a `Failure` with `Exit::connection`.
class Client final : public Source, Kiv::NboAttrLog::SessionListener {
public:
   /// Connects. `patience`: how long the client waits for the server in all; then it throws
   /// `Failure`.
   Client(Sarn::String const& socket, std::chrono::milliseconds patience);
   ~Client();
   Client(Client const&) = delete;
   Client& operator=(Client const&) = delete;

   /// Restarts the patience, for example after a long time without waiting.
   void beginAnew() { deadline_ = Clock::now() + patience_; }

   /// The roots that the server offers. Asks and waits.
   std::vector<OfferedRoot> const& roots();

   /// The state of the server's connections. Asks and waits.
   std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions();
   /// Asks without waiting; see `onSessionsTold`.
   void sessionsAsk() { connection_->session().sessionsAsk(); }
   /// How many connections the server had; its answer may list fewer.
   U32 sessionsTotal() const noexcept { return sessionsTotal_; }

   /// Begins to mirror a root. The mount lives as long as the client.
   Mount& mountIs(OfferedRoot const& root, MountMode mode);
   /// The same with an existing mirror, which is brought up to date.
   /// `priority`: of a candidate.
   Mount& mountIs(Sarn::Ptr<Kiv::NamedEntity> const& mirror, MountMode mode,
                  U32 priority = Kiv::NboAttrLog::usualPriority);
   /// Waits until a mirror is complete. Throws `Failure` if the server refuses it.
   void waitComplete(Mount const& mount);
   /// Waits until the server has applied every change made here, and every change that it made
   /// before that has arrived. Throws `Failure` if some change was not sent, since the server's
   /// version of the module does not have the attribute or refuses the value, or since a value is
   /// too long.
   void sync();
   /// Compares a complete mirror with the server, by digests, and has repaired what differs. Waits;
   /// see `Kiv::NboAttrLog::Session::compareAsk`. Throws `Failure` if the root goes meanwhile.
   Kiv::NboAttrLog::Compared compare(Mount& mount);
   /// Makes the changes of the mirrors that `change` makes as one: the server applies all of them,
   /// or none; see `Kiv::NboAttrLog::Transaction`. Waits for its answer, and throws `Failure` if
   /// they are refused. A server of a release without transactions gets them one by one.
   void asOne(std::function<void()> const& change);
   /// Whether so much is waiting to be sent that the caller should wait for the server.
   bool crowded() const noexcept;

   /// Waits for the server or for `otherFd` (-1: none), for `timeout` at most, and handles what has
   /// arrived. Returns whether `otherFd` is readable.
   bool turn(int otherFd, std::chrono::milliseconds timeout);
   /// Whether the connection has ended; `closeReason()` says why.
   bool over() const noexcept { return connection_->done(); }
   Sarn::String const& closeReason() const noexcept { return connection_->closeReason(); }

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   void onTurn(std::span<pollfd const> polled) override;

   /// Called when the state of a mount changes, in order with the changes of its root.
   std::function<void(Mount&)> onMountState;
   /// Called when who writes a root, or whether it is stale, has changed; see `Mount::writers`.
   std::function<void(Mount&)> onWritersTold;
   /// Called with the server's answer to `sessionsAsk`.
   std::function<void(std::vector<Kiv::NboAttrLog::SessionStatus> const&)> onSessionsTold;
   /// What a call waits for, the bytes that have arrived since, and for how long.
   struct Waiting {
      char const* what;
      U64 bytes;
      std::chrono::seconds time;
   };
   /// Called at least twice a second while a call waits for longer than a second, and with null
   /// when the wait is over; must not throw then.
   std::function<void(Waiting const* waiting)> onWaiting;
   /// Ends all waiting with a `Failure` once it is readable; -1 for none.
   int interruptFd = -1;

private:
   void onMount(Kiv::NboAttrLog::Session& session, Mount& mount) override;
   void onSynced(Kiv::NboAttrLog::Session& session, U32 token) override;
   void onRoots(Kiv::NboAttrLog::Session& session, std::vector<OfferedRoot> const& roots) override;
   void onSessions(Kiv::NboAttrLog::Session& session,
                   std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions, U32 total) override;
   void onLeftOut(Kiv::NboAttrLog::Session& session, Sarn::String const& what) override;

   void onCompared(Kiv::NboAttrLog::Session& session, Mount& mount,
                   Kiv::NboAttrLog::Compared const& result) override;

   void onWriters(Kiv::NboAttrLog::Session& session, Mount& mount) override;
   void onDecided(Kiv::NboAttrLog::Session& session, U32 transaction,
                  Sarn::String const& reason) override;

   template <class Done>
   void waitFor(char const* what, Done&& done);

   Sarn::String socket_;
   std::chrono::milliseconds patience_;
   Clock::time_point deadline_;
   Kiv::NboAttrLog::Hub hub_;
   std::unique_ptr<Kiv::NboAttrLog::FdConnection> connection_;
   std::vector<OfferedRoot> roots_;
   bool rootsKnown_ = false;
   std::vector<Kiv::NboAttrLog::SessionStatus> sessions_;
   std::optional<Kiv::NboAttrLog::Compared> compared_;
   U32 sessionsTotal_ = 0;
   bool sessionsKnown_ = false;
   U32 token_ = 0;
   U32 synced_ = 0;
   /// What was not sent since the last `sync`, as far as it is named.
   std::vector<Sarn::String> unsent_;
   /// The last transaction that was decided, and why it was refused.
   U32 decided_ = 0;
   Sarn::String refusal_;
};

}  // namespace Holt
