// Writes batches in a thread of its own, so that nobody else waits for the disk.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "tools/statedb/Database.h"

namespace Statedb {

/// Takes one batch at a time. A batch that cannot be written is tried again every second, until it
/// can be: what comes meanwhile goes into the next one.
///
/// Threads: all methods belong to the thread that has made it. Until it is destroyed, only it may
/// use the database.
class Disk {
public:
   explicit Disk(Database& database);
   /// Tries what is left once more.
   ~Disk();
   Disk(Disk const&) = delete;
   Disk& operator=(Disk const&) = delete;

   /// Readable when there is news.
   int fd() const noexcept { return fd_; }

   struct News {
      /// Whether the batch has been written.
      bool written = false;
      /// Why it could not be written; empty while there is nothing to report.
      std::string failure = {};
   };
   /// What has happened since the last call.
   News news();
   /// Whether it has no batch.
   bool idle() const noexcept { return idle_; }
   /// Hands over a batch. REQUIRES: `idle()`.
   void give(Batch&& batch);
   /// Waits until the batch is written, or cannot be. Returns why it cannot; empty if it is.
   std::string finish();

private:
   void run();
   /// Returns why it could not be written; empty if it was.
   std::string tryToWrite(Batch const& batch) noexcept;

   Database& database_;
   int fd_;
   bool idle_ = true;
   std::mutex mutex_;
   std::condition_variable wake_;
   std::condition_variable wasTried_;
   // Guarded by the mutex:
   std::optional<Batch> batch_;
   News news_;
   U64 attempts_ = 0;
   bool ending_ = false;
   bool hurry_ = false;
   std::thread thread_;
};

}  // namespace Statedb
