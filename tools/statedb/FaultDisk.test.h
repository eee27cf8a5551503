// A disk in memory that fails as a test says, for SQLite.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "Sarn/Types.h"

namespace Statedb {

/// What becomes of writes that were not synced when the machine stops.
enum class Crash : U8 {
   /// The process is killed: the system has everything.
   process,
   /// The power fails, and the disk has nothing of it.
   lost,
   /// The power fails, and the disk has any sectors of any of it, in any order.
   torn,
};

/// A layer below SQLite with the name `vfs()`. Counts each call that changes a file or its name, or
/// syncs one, and can fail any of them.
class FaultDisk {
public:
   FaultDisk();
   ~FaultDisk();
   FaultDisk(FaultDisk const&) = delete;
   FaultDisk& operator=(FaultDisk const&) = delete;

   char const* vfs() const noexcept { return name_.c_str(); }
   /// Calls so far.
   U64 calls() const noexcept { return calls_; }
   /// From this call on, nothing happens any more, and every call fails; 0: never.
   void stopAt(U64 call) { stopAt_ = call; }
   /// These calls fail with a code of SQLite, and have no effect.
   void failFrom(U64 call, U64 count, int code) {
      failFrom_ = call;
      failCount_ = count;
      failCode_ = code;
   }
   /// The machine stops, and starts again. What was open must be closed before.
   void crash(Crash how, U32 seed);

   /// The names of files that were deleted are gone for good.
   void syncDirectory() { deleted_.clear(); }

   bool exists(std::string const& file) const { return files_.contains(file); }
   std::vector<U8>& bytes(std::string const& file) { return files_.at(file).now; }
   void remove(std::string const& file) { files_.erase(file); }

   struct Change {
      U64 offset;
      std::vector<U8> bytes;
      /// The file ends at `offset`.
      bool truncates;
   };
   struct File {
      std::vector<U8> now;
      std::vector<U8> durable;
      /// Since the last sync.
      std::vector<Change> pending;
      /// Whether its name is on the disk.
      bool named = false;
   };
   /// The result of the next call: SQLITE_OK, or why it fails.
   int step();
   std::map<std::string, File>& files() noexcept { return files_; }
   /// Files that were deleted, as long as that is not on the disk.
   std::map<std::string, File>& deleted() noexcept { return deleted_; }

private:
   struct Layer;
   std::string name_;
   Layer* layer_;
   std::map<std::string, File> files_;
   std::map<std::string, File> deleted_;
   U64 calls_ = 0;
   U64 stopAt_ = 0;
   U64 failFrom_ = 0;
   U64 failCount_ = 0;
   int failCode_ = 0;
};

}  // namespace Statedb
