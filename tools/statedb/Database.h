// The file in which roots are kept. docs/statedb.md describes its tables.
#pragma once

#include <optional>

#include "Kiv/Entity.h"
#include "tools/statedb/Rows.h"
#include "tools/statedb/Sqlite.h"

namespace Statedb {

/// When what is written must have reached the disk.
enum class Sync : U8 {
   /// Before it is confirmed: nothing that was confirmed is ever lost.
   always,
   /// Once an interval.
   interval,
   /// When the system writes it. The file is sound even so.
   never,
};

struct StoredRoot {
   S64 number;
   std::string type;
   std::string name;
   /// When it last changed.
   std::string written;
};

/// What `Database::keep` has done with a root.
struct Kept {
   S64 number;
   /// Whether it was not in the database yet.
   bool isNew = false;
   std::size_t entities = 0;
   std::size_t values = 0;
   /// When it last changed; empty for a new one.
   std::string written = {};
   /// Rows that could not be used; they have been moved into the table `rejected`.
   std::vector<RejectedRow> rejected = {};
};

/// An open database. Its methods throw `SqliteError`, and have no effect then.
///
/// Threads: one at a time.
class Database {
public:
   /// The format of the tables, which changes with each release that needs others.
   static constexpr S64 format = 1;

   /// Makes the tables in an empty file.
   static void create(std::string const& file, char const* vfs = nullptr);

   /// Opens a file that `create` has made, and examines all of it. Throws `Holt::Failure` for a
   /// database of another program, or of a release with another format.
   Database(std::string const& file, Sync sync, char const* vfs = nullptr);
   Database(Database const&) = delete;
   Database& operator=(Database const&) = delete;

   /// What was found, one line each, for whoever starts the program.
   std::vector<std::string> const& found() const noexcept { return found_; }
   std::vector<StoredRoot> roots();
   /// Restores a new root, or adds it with its present state.
   Kept keep(Kiv::NamedEntity& root);
   RootRows rows(S64 root);
   /// Writes all of a batch or nothing. With `Sync::never`, it may be lost with the power.
   void write(Batch const& batch);

private:
   struct Statements;

   void examine();
   void noteRelease();
   void apply(Statements& statements, RowChange const& change);
   Kept kept(StoredRoot const& stored, Kiv::NamedEntity& root);
   void reconcile(S64 number, RootRows const& before, RootRows const& now);

   Sqlite db_;
   std::string file_;
   std::vector<std::string> found_;
};

}  // namespace Statedb
