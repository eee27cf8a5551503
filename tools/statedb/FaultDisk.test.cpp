#include "tools/statedb/FaultDisk.test.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace Statedb {

namespace {

constexpr std::size_t sector = 512;

void applyTo(std::vector<U8>& to, FaultDisk::Change const& change) {
   if (change.truncates) {
      to.resize(change.offset);
      return;
   }
   to.resize(std::max<std::size_t>(to.size(), change.offset + change.bytes.size()));
   std::copy(change.bytes.begin(), change.bytes.end(),
             to.begin() + static_cast<std::ptrdiff_t>(change.offset));
}

/// The same for some sectors of it.
void applyTorn(std::vector<U8>& to, FaultDisk::Change const& change, std::mt19937& random) {
   if (change.truncates || change.bytes.size() <= sector) {
      applyTo(to, change);
      return;
   }
   for (std::size_t at = 0; at < change.bytes.size(); at += sector) {
      if (random() % 3 != 0) {
         auto const begin = change.bytes.begin() + static_cast<std::ptrdiff_t>(at);
         auto const size = std::min(sector, change.bytes.size() - at);
         applyTo(to,
                 {change.offset + at, {begin, begin + static_cast<std::ptrdiff_t>(size)}, false});
      }
   }
}

/// An open file, as SQLite sees it.
struct Handle {
   sqlite3_file base;
   FaultDisk* disk;
   char const* name;
   std::map<int, std::vector<char>>* shared;
};

Handle& handleOf(sqlite3_file* file) {
   return *reinterpret_cast<Handle*>(file);
}
FaultDisk::File& fileOf(sqlite3_file* file) {
   return handleOf(file).disk->files()[handleOf(file).name];
}

int closeFile(sqlite3_file* file) {
   delete handleOf(file).shared;
   handleOf(file).shared = nullptr;
   return SQLITE_OK;
}

int readFile(sqlite3_file* file, void* to, int size, sqlite3_int64 offset) {
   std::vector<U8> const& bytes = fileOf(file).now;
   auto const wanted = static_cast<std::size_t>(size);
   auto const from = std::min(static_cast<std::size_t>(offset), bytes.size());
   std::size_t const there = std::min(wanted, bytes.size() - from);
   std::memset(to, 0, wanted);
   if (there != 0) {
      std::memcpy(to, bytes.data() + from, there);
   }
   return there == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int changeFile(sqlite3_file* file, FaultDisk::Change&& change) {
   if (int const failed = handleOf(file).disk->step()) {
      return failed;
   }
   applyTo(fileOf(file).now, change);
   fileOf(file).pending.push_back(std::move(change));
   return SQLITE_OK;
}

int writeFile(sqlite3_file* file, void const* from, int size, sqlite3_int64 offset) {
   auto const* const bytes = static_cast<U8 const*>(from);
   return changeFile(file, {static_cast<U64>(offset), {bytes, bytes + size}, false});
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
   return changeFile(file, {static_cast<U64>(size), {}, true});
}

int syncFile(sqlite3_file* file, int) {
   if (int const failed = handleOf(file).disk->step()) {
      return failed;
   }
   FaultDisk::File& synced = fileOf(file);
   synced.durable = synced.now;
   synced.pending.clear();
   synced.named = true;
   return SQLITE_OK;
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
   *size = static_cast<sqlite3_int64>(fileOf(file).now.size());
   return SQLITE_OK;
}

int lockFile(sqlite3_file*, int) {
   return SQLITE_OK;
}
int isLocked(sqlite3_file*, int* locked) {
   *locked = 0;
   return SQLITE_OK;
}
int control(sqlite3_file*, int, void*) {
   return SQLITE_NOTFOUND;
}
int sectorSize(sqlite3_file*) {
   return static_cast<int>(sector);
}
/// As SQLite has it for files of Linux.
int characteristics(sqlite3_file*) {
   return SQLITE_IOCAP_POWERSAFE_OVERWRITE;
}

int mapShared(sqlite3_file* file, int page, int size, int, void volatile** at) {
   std::vector<char>& region = (*handleOf(file).shared)[page];
   region.resize(static_cast<std::size_t>(size));
   *at = region.data();
   return SQLITE_OK;
}
int lockShared(sqlite3_file*, int, int, int) {
   return SQLITE_OK;
}
void barrier(sqlite3_file*) {}
int unmapShared(sqlite3_file* file, int) {
   handleOf(file).shared->clear();
   return SQLITE_OK;
}

sqlite3_io_methods const methods = {2,        closeFile,   readFile,        writeFile, truncateFile,
                                    syncFile, sizeOfFile,  lockFile,        lockFile,  isLocked,
                                    control,  sectorSize,  characteristics, mapShared, lockShared,
                                    barrier,  unmapShared, nullptr,         nullptr};

int openFile(sqlite3_vfs* vfs, char const* name, sqlite3_file* file, int flags, int* outFlags) {
   auto& disk = *static_cast<FaultDisk*>(vfs->pAppData);
   file->pMethods = nullptr;
   bool const temporary = name == nullptr;
   std::string const key = temporary ? "temporary" : name;
   if (temporary) {
      disk.files()[key] = {};
   } else if (!disk.exists(key)) {
      if ((flags & SQLITE_OPEN_CREATE) == 0) {
         return SQLITE_CANTOPEN;
      }
      if (int const failed = disk.step()) {
         return failed == SQLITE_FULL ? SQLITE_FULL : SQLITE_CANTOPEN;
      }
      disk.files()[key] = {};
   }
   Handle& handle = handleOf(file);
   handle.disk = &disk;
   handle.name = disk.files().find(key)->first.c_str();
   handle.shared = new std::map<int, std::vector<char>>;
   file->pMethods = &methods;
   if (outFlags != nullptr) {
      *outFlags = flags;
   }
   return SQLITE_OK;
}

int deleteFile(sqlite3_vfs* vfs, char const* name, int syncDirectory) {
   auto& disk = *static_cast<FaultDisk*>(vfs->pAppData);
   if (!disk.exists(name)) {
      return SQLITE_IOERR_DELETE_NOENT;
   }
   if (int const failed = disk.step()) {
      return failed;
   }
   if (syncDirectory != 0) {
      disk.deleted().clear();
   } else if (disk.files()[name].named) {
      disk.deleted()[name] = disk.files()[name];
   }
   // A handle may keep the file open: SQLite closes it before.
   disk.files().erase(name);
   return SQLITE_OK;
}

int accessFile(sqlite3_vfs* vfs, char const* name, int, int* result) {
   *result = static_cast<FaultDisk*>(vfs->pAppData)->exists(name) ? 1 : 0;
   return SQLITE_OK;
}

int fullName(sqlite3_vfs*, char const* name, int size, char* out) {
   sqlite3_snprintf(size, out, "%s", name);
   return SQLITE_OK;
}

}  // namespace

struct FaultDisk::Layer {
   sqlite3_vfs vfs;
};

FaultDisk::FaultDisk() : name_("fault"), layer_(new Layer) {
   sqlite3_vfs* const usual = sqlite3_vfs_find(nullptr);
   layer_->vfs = *usual;
   sqlite3_vfs& vfs = layer_->vfs;
   vfs.iVersion = 1;
   vfs.szOsFile = sizeof(Handle);
   vfs.pNext = nullptr;
   vfs.zName = name_.c_str();
   vfs.pAppData = this;
   vfs.xOpen = openFile;
   vfs.xDelete = deleteFile;
   vfs.xAccess = accessFile;
   vfs.xFullPathname = fullName;
   sqlite3_vfs_register(&vfs, 0);
}

FaultDisk::~FaultDisk() {
   sqlite3_vfs_unregister(&layer_->vfs);
   delete layer_;
}

int FaultDisk::step() {
   ++calls_;
   if (stopAt_ != 0 && calls_ >= stopAt_) {
      return SQLITE_IOERR;
   }
   return failCount_ != 0 && calls_ >= failFrom_ && calls_ < failFrom_ + failCount_ ? failCode_
                                                                                    : SQLITE_OK;
}

void FaultDisk::crash(Crash how, U32 seed) {
   std::mt19937 random(seed);
   stopAt_ = 0;
   failCount_ = 0;
   files_.erase("temporary");
   if (how != Crash::process) {
      for (auto& [name, file] : deleted_) {
         if (how == Crash::torn && random() % 2 == 0) {
            files_.try_emplace(name, file);
         }
      }
      std::erase_if(files_, [&](auto const& each) {
         return !each.second.named && (how == Crash::lost || random() % 2 == 0);
      });
      for (auto& [name, file] : files_) {
         file.now = file.durable;
         if (how == Crash::torn) {
            std::shuffle(file.pending.begin(), file.pending.end(), random);
            for (Change const& change : file.pending) {
               if (random() % 2 == 0) {
                  applyTorn(file.now, change, random);
               }
            }
         }
      }
   }
   deleted_.clear();
   for (auto& [name, file] : files_) {
      file.durable = file.now;
      file.pending.clear();
      file.named = true;
   }
}

}  // namespace Statedb
