#include "Kivc/Loader.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "Kivc/Parser.h"

namespace Kivc {

namespace fs = std::filesystem;

namespace {

bool isFile(fs::path const& path) {
   std::error_code error;
   return fs::is_regular_file(path, error);
}

/// Directories directly in `root`, sorted, so that the result does not depend on the file system.
std::vector<fs::path> subdirectories(fs::path const& root) {
   std::vector<fs::path> result;
   std::error_code error;
   for (auto const& entry : fs::directory_iterator(root, error)) {
      if (entry.is_directory(error)) {
         result.push_back(entry.path());
      }
   }
   std::sort(result.begin(), result.end());
   return result;
}

Module* findByName(std::vector<std::unique_ptr<Module>> const& modules, std::string const& name) {
   auto const found = std::find_if(modules.begin(), modules.end(),
                                   [&](auto const& module) { return module->name.text == name; });
   return found == modules.end() ? nullptr : found->get();
}

}  // namespace

Loader::Loader(std::vector<std::string> roots, Diagnostics& diagnostics)
      : roots_(std::move(roots)), diagnostics_(diagnostics) {}

Module* Loader::load(std::string const& path) {
   return read(path, {});
}

Module* Loader::read(std::string const& path, Span const& mention) {
   std::ifstream stream(path, std::ios::binary);
   if (!stream || !isFile(path)) {
      diagnostics_.error(mention, "cannot read '" + path + "'");
      return nullptr;
   }
   std::string text{std::istreambuf_iterator<char>(stream), {}};
   auto const order = files_.size();
   files_.push_back(path);
   auto module = parse(std::make_unique<Source>(path, std::move(text), order), diagnostics_);
   module->directory = directoryOf(path);

   auto* result = module.get();
   auto const stem = fs::path(path).stem().string();
   if (!module->name.text.empty() && module->name.text != stem) {
      diagnostics_.error(module->name.span, "module '" + module->name.text +
                                                  "' must be in a file of its name, not '" + stem +
                                                  ".kiv'");
   }
   open_.push_back(std::move(module));
   readImports(*result);
   modules_.push_back(std::move(open_.back()));
   open_.pop_back();
   return result;
}

void Loader::readImports(Module& module) {
   std::vector<Name> seen;
   for (auto const& use : module.uses) {
      auto const earlier = std::find_if(seen.begin(), seen.end(),
                                        [&](Name const& name) { return name.text == use.text; });
      if (earlier != seen.end()) {
         diagnostics_.error(use.span, "module '" + use.text + "' is used twice")
               .note(earlier->span, "first used here");
         continue;
      }
      seen.push_back(use);
      if (auto const* parent = findByName(open_, use.text)) {
         diagnostics_.error(use.span, parent == &module
                                            ? "a module does not use itself"
                                            : "modules use each other in a circle: '" + use.text +
                                                    "' uses '" + module.name.text + "'");
         continue;
      }
      auto* import = findByName(modules_, use.text);
      if (import == nullptr) {
         auto const path = find(use.text, module.source->path());
         if (path.empty()) {
            diagnostics_.error(use.span,
                               "no file '" + use.text + ".kiv' in the search path (option -I)");
            continue;
         }
         import = read(path, use.span);
      }
      if (import != nullptr) {
         module.imports.push_back(import);
      }
   }
}

std::string Loader::find(std::string const& name, std::string const& importer) const {
   auto const file = name + ".kiv";
   auto const sibling = fs::path(importer).parent_path() / file;
   if (isFile(sibling)) {
      return sibling.lexically_normal().string();
   }
   for (auto const& root : roots_) {
      if (auto const direct = fs::path(root) / file; isFile(direct)) {
         return direct.lexically_normal().string();
      }
      for (auto const& directory : subdirectories(root)) {
         if (isFile(directory / file)) {
            return (directory / file).lexically_normal().string();
         }
      }
   }
   return {};
}

std::string Loader::directoryOf(std::string const& path) const {
   std::error_code error;
   auto const directory = fs::weakly_canonical(fs::absolute(path), error).parent_path();
   for (auto const& root : roots_) {
      auto const relative =
            directory.lexically_relative(fs::weakly_canonical(fs::absolute(root), error));
      if (relative == ".") {
         return {};
      }
      if (!relative.empty() && *relative.begin() != "..") {
         return relative.generic_string();
      }
   }
   auto const written = fs::path(path).lexically_normal().parent_path();
   bool const isInside = written.is_relative() && (written.empty() || *written.begin() != "..");
   return isInside ? written.generic_string() : std::string();
}

}  // namespace Kivc
