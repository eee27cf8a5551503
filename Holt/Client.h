// A connection to a server of states.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Holt/Loop.h"
#include "Holt/State/Path.h"
#include "Kiv/NboAttrLogConnection.h"

namespace Holt {

using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;

using Clock = std::chrono::steady_clock;

/// An empty root of a type known by name. Throws `Failure` if there is no such type, or if it is
/// not made with a name alone.
Sarn::Ptr<Kiv::NamedEntity> newRoot(Sarn::String const& type, Sarn::String const& name);

/// Mirrors roots of a server. A command waits in it for what it has asked for; a process that goes
/// on adds it to its loop, and then asks `over()` after each turn.
///
///     Holt::Client client("/run/ptp.sock", std::chrono::seconds(10));
///     Holt::Mount& mount = client.mountIs({"Ptp::Status", "ptp/status"}, Holt::MountMode::reader);
///     client.waitComplete(mount);
///
/// What goes wrong with the connection is a `Failure` with `Exit::connection`.
class Client final : public Source, Kiv::NboAttrLog::SessionListener {
public:
   /// `patience`: when it is over, all waiting for the server ends with a `Failure`.
   Client(Sarn::String const& socket, std::chrono::milliseconds patience);
   ~Client();
   Client(Client const&) = delete;
   Client& operator=(Client const&) = delete;

   /// Begins the patience anew: for what is waited for after a time in which nothing was.
   void beginAnew() { deadline_ = Clock::now() + patience_; }

   /// What the server offers. Asks and waits.
   std::vector<OfferedRoot> const& roots();

   /// How the server's connections are. Asks and waits.
   std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions();
   /// Asks without waiting; see `onSessionsTold`.
   void sessionsAsk() { connection_->session().sessionsAsk(); }
   /// How many it had, more perhaps than it has told of.
   U32 sessionsTotal() const noexcept { return sessionsTotal_; }

   /// Begins to mirror a root. The mount lives as long as the client.
   Mount& mountIs(OfferedRoot const& root, MountMode mode);
   /// The same into a mirror that there is already, which is brought up to date.
   Mount& mountIs(Sarn::Ptr<Kiv::NamedEntity> const& mirror, MountMode mode);
   /// Waits for a mirror to be complete. Throws `Failure` if the server refuses it.
   void waitComplete(Mount const& mount);
   /// Waits until the server has applied all that was changed here, and all is here that it had
   /// to tell.
   void sync();
   /// Whether so much has to be sent that it is time to wait for the server.
   bool crowded() const noexcept;

   /// Waits for the server or `otherFd`, for so long at most, and does what there is to do.
   /// Whether `otherFd` is readable. `otherFd` -1: none.
   bool turn(int otherFd, std::chrono::milliseconds timeout);
   /// Whether the connection is over; `connection().closeReason()` says why.
   bool over() const noexcept { return connection_->done(); }
   Sarn::String const& closeReason() const noexcept { return connection_->closeReason(); }

   // As a source of a loop.
   void appendTo(std::vector<pollfd>& polled) override;
   void onTurn(std::span<pollfd const> polled) override;

   /// Called when the state of a mount changes, in its place among the changes.
   std::function<void(Mount&)> onMountState;
   /// Called with the answer of the server on its connections.
   std::function<void(std::vector<Kiv::NboAttrLog::SessionStatus> const&)> onSessionsTold;
   /// Ends all waiting with a `Failure` once it is readable; -1 for none.
   int interruptFd = -1;

private:
   void onMount(Kiv::NboAttrLog::Session& session, Mount& mount) override;
   void onSynced(Kiv::NboAttrLog::Session& session, U32 token) override;
   void onRoots(Kiv::NboAttrLog::Session& session, std::vector<OfferedRoot> const& roots) override;
   void onSessions(Kiv::NboAttrLog::Session& session,
                   std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions, U32 total) override;

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
   U32 sessionsTotal_ = 0;
   bool sessionsKnown_ = false;
   U32 token_ = 0;
   U32 synced_ = 0;
};

}  // namespace Holt
