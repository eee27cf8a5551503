// The database as a file: made at once or not at all, used by one process, moved aside if damaged.
#pragma once

#include <memory>

#include "tools/statedb/Database.h"

namespace Statedb {

/// An open database file, which no other process may open in this way meanwhile. Programs that only
/// read, such as sqlite3(1), may.
class DatabaseFile {
public:
   struct Options {
      std::string file;
      Sync sync = Sync::always;
      /// Moves a damaged file aside, instead of refusing it, and begins anew.
      bool recover = false;
   };

   /// Opens the file, or makes one. Throws `Holt::Failure`, which says what can be done.
   explicit DatabaseFile(Options const& options);
   ~DatabaseFile();
   DatabaseFile(DatabaseFile const&) = delete;
   DatabaseFile& operator=(DatabaseFile const&) = delete;

   Database& database() noexcept { return *database_; }
   /// What start-up has found, one line each.
   std::vector<std::string> const& found() const noexcept { return found_; }

private:
   void openOrCreate(Options const& options);
   void create(std::string const& file);
   void moveAside(std::string const& file);
   int lock(std::string const& file, bool create);

   std::vector<std::string> found_;
   /// Holds the lock. Closed after the database: closing any descriptor of a file drops the locks
   /// that SQLite has on it.
   int fd_ = -1;
   std::unique_ptr<Database> database_;
};

}  // namespace Statedb
