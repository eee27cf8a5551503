#include "tools/statedb/DatabaseFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Holt/Failure.h"
#include "Holt/Times.h"

namespace Statedb {

using Holt::Failure;

namespace {

std::string errorText() {
   return std::generic_category().message(errno);
}

std::string directoryOf(std::string const& file) {
   std::size_t const slash = file.rfind('/');
   return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

/// Its size, or -1 if it does not exist.
S64 sizeOf(std::string const& file) {
   struct stat found {};
   return ::stat(file.c_str(), &found) == 0 ? found.st_size : -1;
}

/// Makes names of files in the directory durable.
void syncDirectory(std::string const& file) {
   int const fd = ::open(directoryOf(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   if (fd >= 0) {
      ::fsync(fd);
      ::close(fd);
   }
}

void renameFile(std::string const& from, std::string const& to) {
   if (::rename(from.c_str(), to.c_str()) != 0) {
      throw Failure(from + ": cannot be renamed to " + to + ": " + errorText());
   }
}

constexpr char const* recoverHint =
      "; restore a copy, or start with --recover, which moves it aside and begins anew";

}  // namespace

DatabaseFile::DatabaseFile(Options const& options) {
   std::string const& file = options.file;
   try {
      try {
         openOrCreate(options);
      } catch (SqliteError const& error) {
         if (!error.isDamage()) {
            throw;
         }
         if (!options.recover) {
            throw Failure(file + ": is damaged: " + error.what() + recoverHint);
         }
         found_.push_back(file + ": is damaged: " + error.what());
         moveAside(file);
         openOrCreate(options);
      }
   } catch (SqliteError const& error) {
      database_.reset();
      if (fd_ >= 0) {
         ::close(fd_);
      }
      throw Failure(file + ": cannot be used: " + error.what());
   } catch (...) {
      database_.reset();
      if (fd_ >= 0) {
         ::close(fd_);
      }
      throw;
   }
}

DatabaseFile::~DatabaseFile() {
   database_.reset();
   ::close(fd_);
}

void DatabaseFile::openOrCreate(Options const& options) {
   std::string const& file = options.file;
   S64 size = sizeOf(file);
   if (size < 0) {
      create(file);
   } else {
      fd_ = lock(file, false);
      // It is made under another name, and has all tables before it gets its own.
      if (size == 0) {
         throw SqliteError("the file is empty", 11 /* SQLITE_CORRUPT */);
      }
   }
   S64 const journal = sizeOf(file + "-wal");
   database_ = std::make_unique<Database>(file, options.sync);
   if (journal > 0) {
      found_.push_back(file + ": the last process did not close it; took over what it had written" +
                       " completely, from a journal of " + std::to_string(journal) + " bytes");
   }
   auto const& found = database_->found();
   found_.insert(found_.end(), found.begin(), found.end());
}

void DatabaseFile::create(std::string const& file) {
   std::string const made = file + ".new";
   if (sizeOf(file + "-wal") > 0) {
      throw Failure(file + ": does not exist, but its journal " + file +
                    "-wal does; restore the file, or remove the journal");
   }
   fd_ = lock(made, true);
   // Whatever an earlier process has left behind is not complete.
   ::unlink((made + "-wal").c_str());
   ::unlink((made + "-shm").c_str());
   if (::ftruncate(fd_, 0) != 0) {
      throw Failure(made + ": cannot be written: " + errorText());
   }
   Database::create(made);
   if (::fsync(fd_) != 0) {
      throw Failure(made + ": cannot be written: " + errorText());
   }
   renameFile(made, file);
   syncDirectory(file);
   found_.push_back(file + ": made; there was none");
}

void DatabaseFile::moveAside(std::string const& file) {
   database_.reset();
   ::close(fd_);
   fd_ = -1;
   std::string const aside = file + ".damaged-" + std::to_string(Holt::wallNow() / 1'000'000'000);
   renameFile(file, aside);
   for (char const* const suffix : {"-wal", "-shm"}) {
      if (sizeOf(file + suffix) >= 0) {
         renameFile(file + suffix, aside + suffix);
      }
   }
   syncDirectory(file);
   found_.push_back(file + ": moved aside as " + aside);
}

int DatabaseFile::lock(std::string const& file, bool create) {
   int const flags = O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0);
   int const fd = ::open(file.c_str(), flags, 0640);
   if (fd < 0) {
      bool const noPlace = errno == ENOENT || errno == ENOTDIR;
      throw Failure(file + ": cannot be written: " + errorText() +
                    (noPlace ? "; create its directory first" : ""));
   }
   if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      ::close(fd);
      throw Failure(file +
                    ": another process keeps its state here; stop it, or choose another file");
   }
   return fd;
}

}  // namespace Statedb
