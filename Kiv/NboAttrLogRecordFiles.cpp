// Recordings as files on disk, and rings of them.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include "Kiv/NboAttrLogRecorder.h"

namespace Kiv::NboAttrLog {
namespace {

namespace fs = std::filesystem;

Sarn::String numbered(Sarn::String const& path, U64 number) {
   Sarn::String digits = std::to_string(number);
   digits.insert(0, digits.size() < 6 ? 6 - digits.size() : 0, '0');
   return path + "." + digits;
}

/// The numbers of a ring's files, in order. The standard's directory iterator ends the process when
/// there is no memory, so this is POSIX's.
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
      // "flight.1" is none of "flight"'s: it would be called "flight.000001".
      bool const isNumber = bad == std::errc() && stop == last;
      if (isNumber && fs::path(numbered(path, number)).filename().string() == name) {
         numbers.push_back(number);
      }
   }
   std::sort(numbers.begin(), numbers.end());
   return numbers;
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

U64 RecordFiles::begin() {
   current_ = count_ != 0 ? numbered(path_, number_ + 1) : path_;
   if (fd_ >= 0) {
      ::close(fd_);
   }
   fd_ = ::open(
         current_.c_str(),
         O_WRONLY | O_CREAT | O_CLOEXEC | (existing_ == Existing::replace ? O_TRUNC : O_EXCL),
         0666);
   if (fd_ < 0) {
      reason_ = current_ + ": " + std::generic_category().message(errno);
      return 0;
   }
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
   } catch (std::bad_alloc const&) {  // what stays is removed with the next file
   }
}

bool RecordFiles::write(U8 const* bytes, std::size_t size) {
   while (size != 0) {
      ssize_t const count = ::write(fd_, bytes, size);
      if (count >= 0) {
         bytes += count;
         size -= static_cast<std::size_t>(count);
      } else if (errno != EINTR) {
         reason_ = current_ + ": " + std::generic_category().message(errno);
         return false;
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
