// Finds and reads the module to compile and, through `use`, the modules whose types it mentions.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"

namespace Kivc {

class Loader {
public:
   /// `roots` are include directories: a module `M` is looked for beside the file that uses it,
   /// then in each root as `M.kiv`, then in the root's directories as `DIR/M.kiv`.
   Loader(std::vector<std::string> roots, Diagnostics& diagnostics);

   /// Parses `path` and everything that it uses. Returns null if the file cannot be read, which is
   /// then reported like any other error.
   Module* load(std::string const& path);

   /// All modules read, each behind those that it uses. The one given to load() is the last.
   std::vector<std::unique_ptr<Module>> const& modules() const { return modules_; }
   /// Paths of all files read, in the order in which they were read.
   std::vector<std::string> const& files() const { return files_; }

private:
   Module* read(std::string const& path, Span const& mention);
   void readImports(Module& module);
   std::string find(std::string const& name, std::string const& importer) const;
   std::string directoryOf(std::string const& path) const;

   std::vector<std::string> roots_;
   Diagnostics& diagnostics_;
   std::vector<std::unique_ptr<Module>> modules_;
   /// Being read: their imports are not finished.
   std::vector<std::unique_ptr<Module>> open_;
   std::vector<std::string> files_;
};

}  // namespace Kivc
