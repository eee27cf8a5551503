#include "tools/statedb/Sqlite.h"

#include <sqlite3.h>

#include <system_error>

namespace Statedb {

namespace {

/// The error number is that of the last call that failed, so it counts only for these codes.
bool hasSystemError(int code) {
   int const primary = code & 0xff;
   return primary == SQLITE_IOERR || primary == SQLITE_CANTOPEN || primary == SQLITE_FULL;
}

}  // namespace

bool SqliteError::isDamage() const noexcept {
   int const primary = code_ & 0xff;
   return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

Sqlite::Sqlite(std::string const& file, bool create, char const* vfs) {
   int const flags =
         SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
   if (sqlite3_open_v2(file.c_str(), &db_, flags, vfs) != SQLITE_OK) {
      SqliteError const error(sqlite3_errmsg(db_), sqlite3_extended_errcode(db_));
      sqlite3_close(db_);
      throw error;
   }
   sqlite3_extended_result_codes(db_, 1);
   sqlite3_busy_timeout(db_, 5'000);  // a person at the file with another program
}

Sqlite::~Sqlite() {
   sqlite3_close(db_);
}

void Sqlite::fail() const {
   int const code = sqlite3_extended_errcode(db_);
   std::string message = sqlite3_errmsg(db_);
   if (int const error = sqlite3_system_errno(db_); error != 0 && hasSystemError(code)) {
      message += " (" + std::generic_category().message(error) + ")";
   }
   throw SqliteError(message, code);
}

void Sqlite::run(char const* statements) {
   if (sqlite3_exec(db_, statements, nullptr, nullptr, nullptr) != SQLITE_OK) {
      fail();
   }
}

S64 Sqlite::number(char const* query) {
   Statement statement(*this, query);
   return statement.row() ? statement.numberAt(0) : 0;
}

std::string Sqlite::text(char const* query) {
   Statement statement(*this, query);
   return statement.row() ? std::string(statement.textAt(0)) : std::string();
}

S64 Sqlite::fileSize() const {
   sqlite3_file* file = nullptr;
   sqlite3_int64 size = 0;
   if (sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
       file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
      fail();
   }
   return size;
}

Statement::Statement(Sqlite& db, char const* text) : db_(db) {
   if (sqlite3_prepare_v3(db.get(), text, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr) !=
       SQLITE_OK) {
      db.fail();
   }
}

Statement::~Statement() {
   sqlite3_finalize(statement_);
}

Statement& Statement::bind(std::string_view text) {
   // An empty view may have no address, which would bind NULL.
   char const* const bytes = text.empty() ? "" : text.data();
   if (sqlite3_bind_text64(statement_, ++bound_, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8) !=
       SQLITE_OK) {
      db_.fail();
   }
   return *this;
}

Statement& Statement::bind(S64 number) {
   if (sqlite3_bind_int64(statement_, ++bound_, number) != SQLITE_OK) {
      db_.fail();
   }
   return *this;
}

bool Statement::row() {
   int const result = sqlite3_step(statement_);
   if (result != SQLITE_ROW && result != SQLITE_DONE) {
      bound_ = 0;
      sqlite3_reset(statement_);
      db_.fail();
   }
   return result == SQLITE_ROW;
}

void Statement::done() {
   while (row()) {
   }
   sqlite3_reset(statement_);
   bound_ = 0;
}

std::string_view Statement::textAt(int column) const {
   auto const* const text = reinterpret_cast<char const*>(sqlite3_column_text(statement_, column));
   auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
   return text != nullptr ? std::string_view(text, size) : std::string_view();
}

S64 Statement::numberAt(int column) const {
   return sqlite3_column_int64(statement_, column);
}

Transaction::Transaction(Sqlite& db) : db_(db) {
   db_.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
   if (open_) {
      // SQLite has rolled back already after some errors, and says so.
      sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
   }
}

void Transaction::commit() {
   db_.run("COMMIT");
   open_ = false;
}

}  // namespace Statedb
