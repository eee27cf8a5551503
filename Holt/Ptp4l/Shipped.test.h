// The configuration files that come with linuxptp.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace Holt {

/// In the order of their names; none if linuxptp is not installed.
inline std::vector<std::string> shippedFiles() {
   std::vector<std::string> files;
   std::error_code none;
   for (auto const& entry :
        std::filesystem::directory_iterator("/usr/share/doc/linuxptp/configs", none)) {
      // The others belong to other programs.
      if (entry.path().extension() == ".cfg" || entry.path().extension() == ".conf") {
         files.push_back(entry.path());
      }
   }
   std::erase_if(files, [](std::string const& file) {
      return std::filesystem::path(file).filename() == "snmpd.conf";
   });
   if (std::filesystem::exists("/etc/linuxptp/ptp4l.conf")) {
      files.emplace_back("/etc/linuxptp/ptp4l.conf");
   }
   std::sort(files.begin(), files.end());
   return files;
}

}  // namespace Holt
