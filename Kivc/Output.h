// The files of one run: collected first, written only when everything is known to be right.
#pragma once

#include <map>
#include <string>

namespace Kivc {

class Output {
public:
   /// Adds a file to write; REQUIRES: a path not added before.
   void add(std::string path, std::string text);

   /// Writes all files, each to a temporary name beside it and then moved in place. A file that
   /// has the right content already is left alone, so that its time does not change. Throws
   /// std::runtime_error naming the first file that cannot be written.
   void write() const;

   std::map<std::string, std::string> const& files() const { return files_; }

private:
   std::map<std::string, std::string> files_;
};

}  // namespace Kivc
