// The source: every status that a server offers, for as long as the server is there.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "Kiv/NboAttrLogConnection.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptpsnmp {

/// Mirrors the statuses of a server and survives whatever becomes of it. While it is not there, it
/// is tried again after pauses that double up to eight seconds. Every five seconds, it is asked
/// what it offers; one that has not answered for ten seconds counts as lost.
///
/// A lost source takes its statuses with it: nobody can tell whether old values still hold.
///
/// Threads: belongs to the thread of its loop.
class Statuses final : public Holt::Source, Kiv::NboAttrLog::SessionListener {
public:
   using All = std::vector<Sarn::Ptr<Ptp::Status>>;

   struct Options {
      std::string socket;
      /// Names of the statuses to mirror, in this order; if empty, all, in the order of their
      /// names.
      std::vector<std::string> roots = {};
      /// Gets a line when the source comes or goes; null for no log.
      Holt::LogOutput* log = nullptr;
      /// The clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   explicit Statuses(Options options);
   ~Statuses();
   Statuses(Statuses const&) = delete;
   Statuses& operator=(Statuses const&) = delete;

   /// Called with all statuses that are mirrored completely, whenever these have become others.
   /// Nothing may refer to the ones before when it returns.
   std::function<void(All const&)> onStatuses;

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

   static constexpr U64 millisecond = 1'000'000;
   static constexpr U64 firstPause = 250 * millisecond;
   static constexpr U64 longestPause = 8000 * millisecond;
   static constexpr U64 askInterval = 5000 * millisecond;
   static constexpr U64 patience = 10'000 * millisecond;

private:
   void onMount(Kiv::NboAttrLog::Session& session, Kiv::NboAttrLog::Mount& mount) override;
   void onRoots(Kiv::NboAttrLog::Session& session,
                std::vector<Kiv::NboAttrLog::OfferedRoot> const& roots) override;

   /// A connection, and the hub that it needs for itself.
   struct Link {
      Kiv::NboAttrLog::Hub hub;
      std::unique_ptr<Kiv::NboAttrLog::FdConnection> connection;
   };

   void connect(U64 now);
   void lose(Sarn::String const& reason, U64 now);
   void ask(U64 now);
   void mountNew();
   void tell();
   bool isWanted(Kiv::NboAttrLog::OfferedRoot const& root) const;
   bool isMounted(Sarn::String const& name) const;
   void say(Sarn::String const& what) const;

   Options options_;
   std::unique_ptr<Link> link_;
   U64 pause_ = firstPause;
   /// When to connect, or to ask again.
   U64 next_ = 1;
   /// When the source must have answered; 0 if it has.
   U64 answerBy_ = 0;
   /// What the log said last about a source that is not there or has no status.
   Sarn::String said_;
   std::vector<Kiv::NboAttrLog::OfferedRoot> offered_;
   bool offeredAnew_ = false;
   bool mountsChanged_ = false;
   All told_;
};

}  // namespace Ptpsnmp
