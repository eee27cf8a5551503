// Recordings as files on disk, and rings of them.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include "Kiv/NboAttrLogRecorder.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {
namespace {

namespace fs = std::filesystem;

Sarn::String numbered(Sarn::String const& path, U64 number) {
   Sarn::String digits = std::to_string(number);
   digits.insert(0, digits.size() < 6 ? 6 - digits.size() : 0, '0');
   return path + "." + digits;
}

/// The numbers of a ring's files, in order. Uses POSIX because the standard's directory iterator
/// ends the process when there is no memory.
std::vector<U64> numbersOf(Sarn::String const& path) {
   fs::path const whole(path);
   Sarn::String const prefix = whole.filename().string() + ".";
   std::vector<U64> numbers;
   struct Close {
      void operator()(DIR* directory) const noexcept { ::closedir(directory); }
   };
   std::unique_ptr<DIR, Close> const directory(
         ::opendir(whole.has_parent_path() ? whole.parent_path().c_str() : "."));
   while (dirent const* const at = directory != nullptr ? ::readdir(directory.get()) : nullptr) {
      Sarn::String const name = at->d_name;
      if (name.compare(0, prefix.size(), prefix) != 0) {
         continue;
      }
      U64 number = 0;
      char const* const last = name.data() + name.size();
      auto const [stop, bad] = std::from_chars(name.data() + prefix.size(), last, number);
      // "flight.1" is not a file of the ring "flight": that would be called "flight.000001".
      bool const isNumber = bad == std::errc() && stop == last;
      if (isNumber && fs::path(numbered(path, number)).filename().string() == name) {
         numbers.push_back(number);
      }
   }
   std::sort(numbers.begin(), numbers.end());
   return numbers;
}

constexpr char const* beingWritten = "another recorder is writing to it";

/// Locks a file that is being written, so that nobody else replaces it or continues its ring. False
/// if somebody else has locked it. If the file system has no locks, the file counts as unlocked.
bool lock(int fd) noexcept {
   return ::flock(fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

}  // namespace

RecordFiles::RecordFiles(Sarn::String path, Existing existing)
      : path_(std::move(path)), existing_(existing) {}

RecordFiles::RecordFiles(Sarn::String path, U32 count) : path_(std::move(path)), count_(count) {
   std::vector<U64> const numbers = numbersOf(path_);
   number_ = numbers.empty() ? 0 : numbers.back();
}

RecordFiles::~RecordFiles() {
   if (fd_ >= 0) {
      ::close(fd_);
   }
}

bool RecordFiles::fail(Sarn::String const& what) {
   reason_ = printable(current_) + ": " + what;
   return false;
}

/// Whether nobody is writing the newest existing file of the ring.
bool RecordFiles::ringIsFree() {
   if (count_ == 0 || number_ == 0 || fd_ >= 0) {
      return true;
   }
   current_ = numbered(path_, number_);
   int const newest = ::open(current_.c_str(), O_RDONLY | O_CLOEXEC);
   bool const free = newest < 0 || lock(newest);
   if (newest >= 0) {
      ::close(newest);
   }
   return free || fail(beingWritten);
}

/// Returns the descriptor of the file, locked and empty, or -1.
int RecordFiles::open() {
   int const flags = existing_ == Existing::replace ? 0 : O_EXCL;
   int const fd = ::open(current_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666);
   if (fd >= 0) {
      struct stat file {};
      bool const locked = lock(fd);
      if (locked && (::fstat(fd, &file) < 0 || !S_ISREG(file.st_mode) || ::ftruncate(fd, 0) == 0)) {
         return fd;
      }
      int const error = errno;
      ::close(fd);
      fail(locked ? std::generic_category().message(error) : beingWritten);
      return -1;
   }
   fail(std::generic_category().message(errno));
   return -1;
}

U64 RecordFiles::begin() {
   if (!ringIsFree()) {
      return 0;
   }
   current_ = count_ != 0 ? numbered(path_, number_ + 1) : path_;
   int const fd = open();
   if (fd < 0) {
      return 0;
   }
   if (fd_ >= 0) {
      ::close(fd_);  // only now, so that some file of the ring is always locked
   }
   fd_ = fd;
   ++number_;
   if (count_ != 0) {
      removeOld();
   }
   return number_;
}

void RecordFiles::removeOld() noexcept {
   try {
      for (U64 const number : numbersOf(path_)) {
         if (number + count_ <= number_) {
            ::unlink(numbered(path_, number).c_str());
         }
      }
   } catch (std::bad_alloc const&) {  // what remains is removed with the next file
   }
}

bool RecordFiles::write(U8 const* bytes, std::size_t size) {
   while (size != 0) {
      ssize_t const count = ::write(fd_, bytes, size);
      if (count >= 0) {
         bytes += count;
         size -= static_cast<std::size_t>(count);
      } else if (errno != EINTR) {
         return fail(std::generic_category().message(errno));
      }
   }
   return true;
}

std::vector<Sarn::String> recordingFiles(Sarn::String const& path) {
   std::error_code error;
   if (fs::exists(path, error)) {
      return {path};
   }
   std::vector<Sarn::String> files;
   for (U64 const number : numbersOf(path)) {
      files.push_back(numbered(path, number));
   }
   return files;
}

}  // namespace Kiv::NboAttrLog
