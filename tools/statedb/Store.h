// Keeps roots on disk while they are served.
#pragma once

#include <functional>
#include <list>

#include "Holt/LogOutput.h"
#include "Holt/Server.h"
#include "tools/statedb/Disk.h"
#include "tools/statedb/Recorder.h"

namespace Statedb {

/// Collects what changes in the kept roots, and hands it to the disk, one transaction at a time:
/// all that has changed until the end of a turn of the loop, so that whatever a peer or several
/// have changed in one turn is kept together.
///
///     server.onTurn: changes, "sync?"      Store.onTurn: Batch ---> Disk: COMMIT
///                                          "written" <-------------'
///     peers <--- "synced" ------------------------'
///
/// With `Sync::always`, a peer that asks whether its changes have arrived gets its answer when they
/// are on disk. What comes while the disk is busy goes into the next transaction, however many
/// peers ask. While the disk fails, the state is served on, and who asks loses its connection with
/// the reason; what could not be written is tried every second.
///
/// Threads: belongs to the thread of its loop, as the source after the server.
class Store final : public Holt::Source, public Holt::Server::Keeper {
public:
   struct Options {
      Sync sync = Sync::always;
      /// Nanoseconds between transactions if `sync` is not `always`.
      U64 interval = 1'000'000'000;
      /// Is told of a failure, once, and of its end; empty text: it has ended.
      std::function<void(std::string const& failure)> onFailure = {};
   };

   Store(Database& database, Options options);
   Store(Store const&) = delete;
   Store& operator=(Store const&) = delete;

   /// Keeps a root that `Database::keep` has added or restored.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root, S64 number);
   /// Whose peers wait. REQUIRES: it outlives the store.
   void serverIs(Holt::Server& server) noexcept { server_ = &server; }
   /// Why the disk fails; empty if it does not.
   std::string const& failure() const noexcept { return failure_; }
   /// Transactions that have been written.
   U64 written() const noexcept { return written_; }
   /// Writes everything. Returns why it cannot be written; empty if it is.
   std::string finish();

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

   // `Keeper`:
   U64 syncAsked() override;

private:
   bool hasChanges() const noexcept;
   void hear();
   void give();
   void confirm();

   Options options_;
   std::list<Recorder> recorders_;
   Holt::Server* server_ = nullptr;
   /// Batches that were handed over, and those that are on disk.
   U64 given_ = 0;
   U64 written_ = 0;
   /// When the next batch is due, if `sync` is not `always`.
   U64 due_ = 0;
   std::string failure_;
   /// The last member: it ends first.
   Disk disk_;
};

}  // namespace Statedb
