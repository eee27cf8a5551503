// Files that a user names: read and written whole, with messages that say what is wrong.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace Holt {

/// The contents of a file, or of standard input for "-". Throws `Failure`, which names the file and
/// says why it cannot be read.
std::string readWholeFile(std::string const& path);

/// Throws `Failure` if `writeWholeFile` could not write the file now. Changes nothing. To be called
/// before long work whose result goes to the file.
void checkWritable(std::string const& path);

/// Writes a file through `write`, or standard output for "-". A regular file is replaced at once,
/// with its permissions, when all has been written: if that fails, its contents stay. Throws
/// `Failure`, which names the file and says why it cannot be written.
void writeWholeFile(std::string const& path, std::function<void(std::ostream&)> const& write);

}  // namespace Holt
