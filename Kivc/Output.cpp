#include "Kivc/Output.h"

#include <cassert>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace Kivc {

namespace fs = std::filesystem;

namespace {

bool hasContent(fs::path const& path, std::string const& text) {
   std::ifstream stream(path, std::ios::binary);
   if (!stream) {
      return false;
   }
   std::string const found{std::istreambuf_iterator<char>(stream), {}};
   return !stream.bad() && found == text;
}

}  // namespace

void Output::add(std::string path, std::string text) {
   [[maybe_unused]] bool const isNew = files_.emplace(std::move(path), std::move(text)).second;
   assert(isNew);
}

void Output::write() const {
   for (auto const& [path, text] : files_) {
      if (hasContent(path, text)) {
         continue;
      }
      std::error_code error;
      if (auto const directory = fs::path(path).parent_path(); !directory.empty()) {
         fs::create_directories(directory, error);
      }
      auto const temporary = path + ".tmp";
      std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
      stream << text;
      stream.close();
      if (!stream) {
         fs::remove(temporary, error);
         throw std::runtime_error("cannot write '" + path + "'");
      }
      fs::rename(temporary, path, error);
      if (error) {
         std::error_code ignored;
         fs::remove(temporary, ignored);
         throw std::runtime_error("cannot write '" + path + "': " + error.message());
      }
   }
}

}  // namespace Kivc
