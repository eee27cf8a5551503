#include "tools/statedb/Database.h"

#include <map>
#include <set>
#include <tuple>

#include "Holt/Failure.h"
#include "Holt/Times.h"
#include "Kiv/Module.h"
#include "tools/statedb/Snapshot.h"

namespace Statedb {

using Holt::Failure;

namespace {

/// In the header of the file: "PtpS".
constexpr S64 applicationId = 0x50747053;

constexpr char const* tables = R"(
CREATE TABLE meta (
   name  TEXT PRIMARY KEY,
   value TEXT NOT NULL
) WITHOUT ROWID;
CREATE TABLE module (
   name TEXT PRIMARY KEY,
   hash TEXT NOT NULL
) WITHOUT ROWID;
CREATE TABLE root (
   number  INTEGER PRIMARY KEY,
   type    TEXT NOT NULL,
   name    TEXT NOT NULL,
   written TEXT NOT NULL,
   UNIQUE (type, name)
);
CREATE TABLE entity (
   root      INTEGER NOT NULL,
   path      TEXT NOT NULL,
   parent    TEXT NOT NULL,
   attribute TEXT NOT NULL,
   key       TEXT NOT NULL,
   name      TEXT NOT NULL,
   arguments TEXT NOT NULL,
   PRIMARY KEY (root, path)
) WITHOUT ROWID;
CREATE TABLE value (
   root      INTEGER NOT NULL,
   entity    TEXT NOT NULL,
   attribute TEXT NOT NULL,
   key       TEXT NOT NULL,
   value     TEXT NOT NULL,
   PRIMARY KEY (root, entity, attribute, key)
) WITHOUT ROWID;
CREATE TABLE rejected (
   number INTEGER PRIMARY KEY,
   at     TEXT NOT NULL,
   root   TEXT NOT NULL,
   path   TEXT NOT NULL,
   value  TEXT NOT NULL,
   reason TEXT NOT NULL
);
CREATE VIEW state AS
   SELECT root.type AS type,
          root.name || iif(entity = '', '', '.' || entity) || '.' || attribute ||
             iif(key = '', '', '[' || key || ']') AS path,
          value
   FROM value JOIN root ON root.number = value.root;
)";

std::string release() {
   return PTPLIB_VERSION;
}

std::string hex(U32 number) {
   char text[16];
   std::snprintf(text, sizeof text, "%08x", number);
   return text;
}

std::string now() {
   return Holt::timeText(Holt::wallNow(), Holt::TimeForm::universal);
}

void putMeta(Sqlite& db, char const* name, std::string const& value) {
   Statement(db, "INSERT OR REPLACE INTO meta VALUES (?, ?)").bind(name).bind(value).done();
}

using ValueKey = std::tuple<std::string, std::string, std::string>;

ValueKey keyOf(ValueRow const& row) {
   return {row.entity, row.attribute, row.key};
}

}  // namespace

/// Those that write batches. Prepared for each batch, which is cheap beside its commit.
struct Database::Statements {
   explicit Statements(Sqlite& db)
         : putEntity(db, "INSERT OR REPLACE INTO entity VALUES (?, ?, ?, ?, ?, ?, ?)"),
           putValue(db, "INSERT OR REPLACE INTO value VALUES (?, ?, ?, ?, ?)"),
           delValue(
                 db,
                 "DELETE FROM value WHERE root = ? AND entity = ? AND attribute = ? AND key = ?"),
           delElements(db, "DELETE FROM value WHERE root = ? AND entity = ? AND attribute = ?"),
           delEntity(db, "DELETE FROM entity WHERE root = ? AND path = ?"),
           delValuesOf(db, "DELETE FROM value WHERE root = ? AND entity = ?"),
           delEntities(db, "DELETE FROM entity WHERE root = ? AND path >= ? AND path < ?"),
           delValues(db, "DELETE FROM value WHERE root = ? AND entity >= ? AND entity < ?"),
           written(db, "UPDATE root SET written = ? WHERE number = ?") {}

   Statement putEntity;
   Statement putValue;
   Statement delValue;
   Statement delElements;
   Statement delEntity;
   Statement delValuesOf;
   Statement delEntities;
   Statement delValues;
   Statement written;
};

void Database::create(std::string const& file, char const* vfs) {
   Sqlite db(file, true, vfs);
   // A file that is not complete is made anew, so there is nothing to roll back. A journal on the
   // disk could come back after a power failure, even though it was deleted, and undo what came
   // later.
   db.run("PRAGMA journal_mode = MEMORY");
   Transaction transaction(db);
   db.run(tables);
   putMeta(db, "format", std::to_string(format));
   putMeta(db, "release", release());
   putMeta(db, "created", now());
   db.run(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
   db.run(("PRAGMA user_version = " + std::to_string(format)).c_str());
   transaction.commit();
   db.run("PRAGMA journal_mode = WAL");
}

Database::Database(std::string const& file, Sync sync, char const* vfs)
      : db_(file, false, vfs), file_(file) {
   // Before anything is written: is it ours?
   S64 const application = db_.number("PRAGMA application_id");
   if (application != applicationId) {
      throw Failure(file + ": is a database of another program; choose another file");
   }
   S64 const version = db_.number("PRAGMA user_version");
   if (version != format) {
      std::string const by = db_.text("SELECT value FROM meta WHERE name = 'release'");
      throw Failure(file + ": has format " + std::to_string(version) + ", written by release " +
                    by + "; this release, " + release() + ", reads format " +
                    std::to_string(format) + "; start that release, or choose another file");
   }
   if (db_.text("PRAGMA journal_mode") != "wal") {
      throw Failure(file + ": has another journal mode than WAL; set it with sqlite3(1): PRAGMA " +
                    "journal_mode = WAL");
   }
   // In this mode of the journal, NORMAL keeps the file sound, and FULL syncs each transaction.
   db_.run(sync == Sync::never ? "PRAGMA synchronous = NORMAL" : "PRAGMA synchronous = FULL");
   examine();
   noteRelease();
}

void Database::examine() {
   // The journal is there if the last process did not close the file.
   Statement checkpoint(db_, "PRAGMA wal_checkpoint(TRUNCATE)");
   checkpoint.row();
   bool const complete = checkpoint.numberAt(0) == 0;
   checkpoint.done();
   S64 const size = db_.number("PRAGMA page_count") * db_.number("PRAGMA page_size");
   // SQLite takes what is missing from the last page for zeros.
   if (complete && db_.fileSize() < size) {
      throw SqliteError("it has " + std::to_string(db_.fileSize()) + " bytes instead of " +
                              std::to_string(size),
                        11 /* SQLITE_CORRUPT */);
   }
   std::string const wrong = db_.text("PRAGMA integrity_check(1)");
   if (wrong != "ok") {
      throw SqliteError(wrong, 11 /* SQLITE_CORRUPT */);
   }
}

/// The modules may have changed with the release: values are found by name, so it is only reported.
void Database::noteRelease() {
   std::string const by = db_.text("SELECT value FROM meta WHERE name = 'release'");
   std::map<std::string, std::string> before;
   Statement read(db_, "SELECT name, hash FROM module");
   while (read.row()) {
      before.emplace(read.textAt(0), read.textAt(1));
   }
   read.done();
   std::vector<std::pair<std::string, std::string>> changed;
   for (Kiv::KivModule const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      auto const known = before.find(at->name());
      if (known == before.end() || known->second != hex(at->hash())) {
         changed.emplace_back(at->name(), hex(at->hash()));
      }
      if (known != before.end() && known->second != hex(at->hash())) {
         found_.push_back(std::string("module ") + at->name() + " has hash " + hex(at->hash()) +
                          ", and had " + known->second +
                          " when this was written: values are matched by name");
      }
   }
   if (by != release()) {
      found_.insert(found_.begin(), "written by release " + by + "; this is release " + release());
   }
   if (by == release() && changed.empty()) {
      return;
   }
   Transaction transaction(db_);
   putMeta(db_, "release", release());
   Statement put(db_, "INSERT OR REPLACE INTO module VALUES (?, ?)");
   for (auto const& [name, hash] : changed) {
      put.bind(name).bind(hash).done();
   }
   transaction.commit();
}

std::vector<StoredRoot> Database::roots() {
   std::vector<StoredRoot> all;
   Statement read(db_, "SELECT number, type, name, written FROM root ORDER BY number");
   while (read.row()) {
      all.push_back({read.numberAt(0), std::string(read.textAt(1)), std::string(read.textAt(2)),
                     std::string(read.textAt(3))});
   }
   return all;
}

RootRows Database::rows(S64 root) {
   RootRows rows;
   Statement entities(db_,
                      "SELECT path, parent, attribute, key, name, arguments FROM entity "
                      "WHERE root = ? ORDER BY path");
   entities.bind(root);
   while (entities.row()) {
      auto const text = [&entities](int column) { return std::string(entities.textAt(column)); };
      rows.entities.push_back({text(0), text(1), text(2), text(3), text(4), text(5)});
   }
   Statement values(db_,
                    "SELECT entity, attribute, key, value FROM value WHERE root = ? "
                    "ORDER BY entity, attribute, key");
   values.bind(root);
   while (values.row()) {
      auto const text = [&values](int column) { return std::string(values.textAt(column)); };
      rows.values.push_back({text(0), text(1), text(2), text(3)});
   }
   return rows;
}

Kept Database::keep(Kiv::NamedEntity& root) {
   for (StoredRoot const& stored : roots()) {
      if (stored.type == root.kivType().name && stored.name == root.nameString()) {
         return kept(stored, root);
      }
   }
   Kept result{.number = db_.number("SELECT ifnull(max(number), 0) + 1 FROM root"), .isNew = true};
   Transaction transaction(db_);
   Statement(db_, "INSERT INTO root VALUES (?, ?, ?, ?)")
         .bind(result.number)
         .bind(root.kivType().name)
         .bind(root.nameString())
         .bind(now())
         .done();
   RootRows const rows = rowsOf(root);
   reconcile(result.number, {}, rows);
   transaction.commit();
   result.entities = rows.entities.size() + 1;
   result.values = rows.values.size();
   return result;
}

Kept Database::kept(StoredRoot const& stored, Kiv::NamedEntity& root) {
   Kept result{.number = stored.number, .written = stored.written};
   RootRows const before = rows(stored.number);
   restore(root, before, result.rejected);
   RootRows const now = rowsOf(root);
   result.entities = now.entities.size() + 1;
   result.values = now.values.size();
   Transaction transaction(db_);
   Statement reject(db_,
                    "INSERT INTO rejected (at, root, path, value, reason) VALUES (?, ?, ?, ?, ?)");
   std::string const at = Statedb::now();
   for (RejectedRow const& row : result.rejected) {
      reject.bind(at).bind(row.root).bind(row.path).bind(row.value).bind(row.reason).done();
   }
   reconcile(stored.number, before, now);
   transaction.commit();
   return result;
}

/// Makes the rows those of the state as it is now: defaults of attributes that are new, and nothing
/// of what could not be used.
void Database::reconcile(S64 number, RootRows const& before, RootRows const& now) {
   using Kind = RowChange::Kind;
   Statements statements(db_);
   std::map<std::string, EntityRow const*> entities;
   for (EntityRow const& row : before.entities) {
      entities.emplace(row.path, &row);
   }
   std::map<ValueKey, ValueRow const*> values;
   for (ValueRow const& row : before.values) {
      values.emplace(keyOf(row), &row);
   }
   for (EntityRow const& row : now.entities) {
      auto const at = entities.find(row.path);
      // The arguments of before may have changed since, without the entity.
      bool const same = at != entities.end() && at->second->name == row.name;
      if (!same) {
         apply(statements, {Kind::putEntity, number, row, {}});
      }
      if (at != entities.end()) {
         entities.erase(at);
      }
   }
   for (ValueRow const& row : now.values) {
      auto const at = values.find(keyOf(row));
      if (at == values.end() || at->second->value != row.value) {
         apply(statements, {Kind::putValue, number, {}, row});
      }
      if (at != values.end()) {
         values.erase(at);
      }
   }
   for (auto const& [path, row] : entities) {
      statements.delEntity.bind(number).bind(path).done();
   }
   for (auto const& [key, row] : values) {
      apply(statements, {Kind::delValue, number, {}, *row});
   }
}

void Database::write(Batch const& batch) {
   Transaction transaction(db_);
   Statements statements(db_);
   std::set<S64> changed;
   for (RowChange const& change : batch.changes) {
      apply(statements, change);
      changed.insert(change.root);
   }
   for (S64 const root : changed) {
      statements.written.bind(batch.at).bind(root).done();
   }
   transaction.commit();
}

void Database::apply(Statements& statements, RowChange const& change) {
   S64 const root = change.root;
   EntityRow const& entity = change.entity;
   ValueRow const& value = change.value;
   // Paths that begin with `entity.path` and this character: those up to the next character.
   auto const delBelow = [&](char first) {
      std::string const from = entity.path + first;
      std::string const to = entity.path + static_cast<char>(first + 1);
      statements.delEntities.bind(root).bind(from).bind(to).done();
      statements.delValues.bind(root).bind(from).bind(to).done();
   };
   switch (change.kind) {
      case RowChange::Kind::putEntity:
         statements.putEntity.bind(root)
               .bind(entity.path)
               .bind(entity.parent)
               .bind(entity.attribute)
               .bind(entity.key)
               .bind(entity.name)
               .bind(entity.arguments)
               .done();
         break;
      case RowChange::Kind::putValue:
         statements.putValue.bind(root)
               .bind(value.entity)
               .bind(value.attribute)
               .bind(value.key)
               .bind(value.value)
               .done();
         break;
      case RowChange::Kind::delValue:
         statements.delValue.bind(root)
               .bind(value.entity)
               .bind(value.attribute)
               .bind(value.key)
               .done();
         break;
      case RowChange::Kind::delElements:
         statements.delElements.bind(root).bind(value.entity).bind(value.attribute).done();
         break;
      case RowChange::Kind::delEntity:
         statements.delEntity.bind(root).bind(entity.path).done();
         statements.delValuesOf.bind(root).bind(entity.path).done();
         delBelow('.');
         break;
      case RowChange::Kind::delChildren:
         delBelow('[');
         break;
   }
}

}  // namespace Statedb
