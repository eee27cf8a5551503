#include "tools/shared/Socket.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace Tools {

std::vector<std::string> usualSockets() {
   std::vector<std::string> all;
   char const* const runtime = std::getenv("XDG_RUNTIME_DIR");
   if (runtime != nullptr && runtime[0] == '/') {
      all.push_back(std::string(runtime) + "/ptpstate.sock");
   }
   all.emplace_back("/run/ptpstate.sock");
   return all;
}

std::string usualSocketToServe() {
   std::vector<std::string> const all = usualSockets();
   for (std::string const& path : all) {
      if (::access(path.substr(0, path.rfind('/')).c_str(), W_OK | X_OK) == 0) {
         return path;
      }
   }
   return all.back();
}

std::string usualSocketOfServer() {
   for (std::string const& path : usualSockets()) {
      struct stat found {};
      if (::stat(path.c_str(), &found) == 0 && S_ISSOCK(found.st_mode)) {
         return path;
      }
   }
   return {};
}

}  // namespace Tools
