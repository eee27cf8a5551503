// What this program uses of SQLite: a connection, its statements, and errors that say what
// happened.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "Sarn/Types.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Statedb {

/// What SQLite reports. `what()` has its message and that of the operating system, if there is one.
class SqliteError : public std::runtime_error {
public:
   SqliteError(std::string const& message, int code) : std::runtime_error(message), code_(code) {}

   /// An extended result code.
   int code() const noexcept { return code_; }
   /// Whether the file itself is at fault: it is damaged, or not a database.
   bool isDamage() const noexcept;

private:
   int code_;
};

/// A connection. All methods throw `SqliteError`.
///
/// Threads: one at a time.
class Sqlite {
public:
   /// `vfs`: by which name SQLite knows the layer that reads and writes; null for its own.
   Sqlite(std::string const& file, bool create, char const* vfs = nullptr);
   ~Sqlite();
   Sqlite(Sqlite const&) = delete;
   Sqlite& operator=(Sqlite const&) = delete;

   /// Runs statements whose rows are of no interest.
   void run(char const* statements);
   /// The first column of the first row; 0 or empty without a row.
   S64 number(char const* query);
   std::string text(char const* query);

   /// The size of the database's file, without its journal.
   S64 fileSize() const;

   sqlite3* get() const noexcept { return db_; }
   [[noreturn]] void fail() const;

private:
   sqlite3* db_ = nullptr;
};

/// A prepared statement. REQUIRES: its connection outlives it.
class Statement {
public:
   Statement(Sqlite& db, char const* text);
   ~Statement();
   Statement(Statement const&) = delete;
   Statement& operator=(Statement const&) = delete;

   /// Binds the next parameter; the first one after `done`. A text must live until then.
   Statement& bind(std::string_view text);
   Statement& bind(S64 number);
   /// Steps to the next row; false at the end.
   bool row();
   /// Runs it to its end, and makes it ready for the next time.
   void done();
   std::string_view textAt(int column) const;
   S64 numberAt(int column) const;

private:
   Sqlite& db_;
   sqlite3_stmt* statement_ = nullptr;
   int bound_ = 0;
};

/// Begins a transaction; rolls it back unless it is committed.
class Transaction {
public:
   explicit Transaction(Sqlite& db);
   ~Transaction();
   Transaction(Transaction const&) = delete;
   Transaction& operator=(Transaction const&) = delete;

   void commit();

private:
   Sqlite& db_;
   bool open_ = true;
};

}  // namespace Statedb
