// Recordings as files on disk, and rings of them.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
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

/// The numbers of a ring's files, in order.
std::vector<U64> numbersOf(Sarn::String const& path) {
   fs::path const whole(path);
   Sarn::String const prefix = whole.filename().string() + ".";
   std::vector<U64> numbers;
   std::error_code error;
   fs::path const directory = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
   for (fs::directory_iterator at(directory, error), end; !error && at != end;
        at.increment(error)) {
      Sarn::String const name = at->path().filename().string();
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
   if (fd_ >= 0) {
      ::close(fd_);
   }
   current_ = count_ != 0 ? numbered(path_, number_ + 1) : path_;
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

void RecordFiles::removeOld() {
   for (U64 const number : numbersOf(path_)) {
      if (number + count_ <= number_) {
         ::unlink(numbered(path_, number).c_str());
      }
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
