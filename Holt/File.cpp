#include "Holt/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "Holt/Failure.h"

namespace Holt {

namespace {

std::string reasonText(int error) {
   return std::generic_category().message(error);
}

/// The directory that a file is in.
std::string directoryOf(std::string const& path) {
   std::size_t const slash = path.rfind('/');
   return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

[[noreturn]] void failToWrite(std::string const& path, int error) {
   std::string message = path + ": cannot be written: " + reasonText(error);
   if (error == EISDIR) {
      message = path + ": is a directory; give the name of a file in it";
   } else if (error == ENOENT || error == ENOTDIR) {
      message += "; create its directory first";
   } else if (error == EACCES || error == EROFS || error == EPERM) {
      message += "; choose a file that you may write to";
   }
   throw Failure(message);
}

/// Whether a file can be replaced by another of its name: it is a regular one of this user alone,
/// or does not exist, and its directory may be written to. Else it is written in place.
bool isReplaceable(std::string const& path) {
   struct stat file {};
   bool const exists = ::lstat(path.c_str(), &file) == 0;
   return (!exists ||
           (S_ISREG(file.st_mode) && file.st_nlink == 1 && file.st_uid == ::geteuid())) &&
          ::access(directoryOf(path).c_str(), W_OK | X_OK) == 0;
}

/// Creates a file beside another, with the permissions that the other has or would get. Returns its
/// name; empty if it cannot be created.
std::string newBeside(std::string const& path) {
   std::string name = path + ".XXXXXX";
   int const fd = ::mkostemp(name.data(), O_CLOEXEC);
   if (fd < 0) {
      return {};
   }
   struct stat old {};
   mode_t const umask = ::umask(0);
   ::umask(umask);
   mode_t const mode = ::stat(path.c_str(), &old) == 0 ? old.st_mode & 07777 : 0666 & ~umask;
   ::fchmod(fd, mode);
   ::close(fd);
   return name;
}

/// Waits until all that was written has reached the disk; returns whether it has.
bool reached(std::string const& path) {
   int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
   bool const done = fd >= 0 && ::fsync(fd) == 0;
   if (fd >= 0) {
      ::close(fd);
   }
   return done;
}

}  // namespace

std::string readWholeFile(std::string const& path) {
   if (path == "-") {
      return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
   }
   struct stat file {};
   if (::stat(path.c_str(), &file) == 0) {
      if (S_ISDIR(file.st_mode)) {
         throw Failure(path + ": is a directory; give the name of a file in it");
      }
      if (S_ISSOCK(file.st_mode)) {
         throw Failure(path + ": is a socket, not a file; name a server's socket with --socket");
      }
   }
   errno = 0;
   std::ifstream in(path, std::ios::binary);
   std::ostringstream text;
   if (in && in.peek() != std::ifstream::traits_type::eof()) {
      text << in.rdbuf();
   }
   if (!in.is_open() || in.bad() || !text) {
      throw Failure(path + ": cannot be read" + (errno != 0 ? ": " + reasonText(errno) : ""));
   }
   return text.str();
}

void checkWritable(std::string const& path) {
   if (path == "-") {
      return;
   }
   struct stat file {};
   if (::stat(path.c_str(), &file) == 0) {
      if (S_ISDIR(file.st_mode)) {
         failToWrite(path, EISDIR);
      }
      if (::access(path.c_str(), W_OK) != 0) {
         failToWrite(path, errno);
      }
   } else if (path.empty() || path.ends_with('/')) {
      failToWrite(path, path.empty() ? ENOENT : EISDIR);
   } else if (errno != ENOENT || ::access(directoryOf(path).c_str(), W_OK | X_OK) != 0) {
      failToWrite(path, errno);
   }
}

void writeWholeFile(std::string const& path, std::function<void(std::ostream&)> const& write) {
   if (path == "-") {
      write(std::cout);
      std::cout.flush();
      return;
   }
   checkWritable(path);
   errno = 0;
   std::string const fresh = isReplaceable(path) ? newBeside(path) : "";
   std::ofstream file(fresh.empty() ? path : fresh, std::ios::binary | std::ios::trunc);
   if (file) {
      write(file);
      file.close();
   }
   bool done = file.good();
   if (done && !fresh.empty()) {
      done = reached(fresh) && ::rename(fresh.c_str(), path.c_str()) == 0;
   }
   if (!done) {
      int const error = errno != 0 ? errno : EIO;
      if (!fresh.empty()) {
         ::unlink(fresh.c_str());
      }
      failToWrite(path, error);
   }
}

}  // namespace Holt
